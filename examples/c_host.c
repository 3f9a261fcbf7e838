/* A host in C: one image, turned into its negative. The identifier comes from the table in
 * docs/abi.md, the slots from the order of functions in the headers. */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <wchar.h>

typedef void (*Slot)(void);
typedef struct {
  uint64_t length;
  const wchar_t* text;
} RefString;
typedef int32_t (*Creation)(void* reserved, const uint8_t iid[16], void** object);

static const uint8_t kIidColorTransform[16] = {0x29, 0x16, 0x36, 0x1E, 0x7B, 0x92, 0xCA, 0xE0,
                                               0xA6, 0x79, 0xB2, 0x01, 0x00, 0x00, 0x00, 0x00};
enum { kNegative = 5, kRelease = 2 }; /* slots of IQELColorTransform and of every interface */
enum { kWidth = 4, kHeight = 2, kStride = 3 * kWidth, kSlack = 64 + 4 * kWidth };
static uint8_t memory[kSlack + kHeight * kStride + kSlack]; /* 24 bits: blue, green, red */

/* An interface is a pointer to a table of functions, whose first argument is the object. */
static int32_t Query(void* self, const uint8_t* iid, void** object) {
  (void)self;
  (void)iid;
  *object = NULL;
  return (int32_t)0x80004002; /* no such interface */
}
static uint32_t Count(void* self) {
  (void)self;
  return 1; /* lives as long as the program */
}
static int32_t GetSize(void* self, int* width, int* height, int* planes) {
  (void)self;
  *width = kWidth;
  *height = kHeight;
  *planes = 1;
  return 0;
}
static int32_t GetFormat(void* self, int* bit_count, uint32_t* model, int* reserved) {
  (void)self;
  *bit_count = 24;
  *model = 0x20524742; /* "BGR " */
  *reserved = 0;
  return 0;
}
static int32_t GetBits(void* self, int plane, int* reserved, uint8_t** bits, int* stride) {
  (void)self;
  *reserved = 0;
  *bits = plane == 0 ? memory + kSlack : NULL;
  *stride = kStride;
  return 0;
}
static const Slot image_slots[] = {(Slot)Query,   (Slot)Count,     (Slot)Count,
                                   (Slot)GetSize, (Slot)GetFormat, (Slot)GetBits};
static const Slot* image = image_slots; /* the object: it has nothing but its table */

/* Says why the program ends; returns its exit code. */
static int Fail(const char* reason) {
  fprintf(stderr, "c_host: %s\n", reason);
  return 1;
}

int main(int argc, char** argv) {
  if (argc != 2) return Fail("write c_host PATH/QELMaths.so");
  void* const library = dlopen(argv[1], RTLD_NOW);
  if (library == NULL) return Fail(dlerror());
  int32_t (*create_function)(RefString, Creation*);
  *(void**)&create_function = dlsym(library, "CreateFunction");
  Creation create = NULL;
  Slot** color = NULL;
  if (create_function == NULL) return Fail(dlerror());
  create_function((RefString){17, L"QELColorTransform"}, &create);
  if (create == NULL || create(NULL, kIidColorTransform, (void**)&color) != 0) {
    return Fail("there is no component of this name");
  }

  for (int i = 0; i < kHeight * kStride; ++i) memory[kSlack + i] = (uint8_t)(10 * i);
  const int32_t result = ((int32_t(*)(void*, void*))(*color)[kNegative])(color, &image);
  for (int i = 0; i < kHeight * kStride; ++i) printf("%d ", memory[kSlack + i]);
  ((uint32_t(*)(void*))(*color)[kRelease])(color);
  return result == 0 ? 0 : 1;
}
