// A host's library with one defect, which the environment variable QEL_DEFECT names: the reference
// host, with single slots of its objects exchanged.

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>

#include "host/pixel_slack.h"
#include "host/sibling_module.h"
#include "tests/check/patched_table.h"

namespace qel::host {
namespace {

using test::PatchedTable;
using test::SlotFunction;

bool Has(std::string_view defect) { return test::Defect() == defect; }

// What follows the slots of the interface in the table of an object.
constexpr size_t kDestructors = 2;
constexpr size_t kPaletteSlots = 2;

// Images.

SlotFunction<result_t, const IID&, void**> query;
result_t BadQuery(void* self, const IID& iid, void** object) {
  const result_t result = query(self, iid, object);
  if (result == kOk) static_cast<IUnknown*>(*object)->Release();
  return result;
}

SlotFunction<result_t, int*, int*, int*> get_size;
result_t BadGetSize(void* self, int* width, int* height, int* planes) {
  const result_t result = get_size(self, width, height, planes);
  *width = std::max(*width, 1);
  return result;
}

SlotFunction<result_t, int*, uint32_t*, int*> get_format;
result_t StaleGetFormat(void* self, int* bit_count, uint32_t* model, int* reserved) {
  static int first_bit_count = 0;
  const result_t result = get_format(self, bit_count, model, reserved);
  if (first_bit_count == 0) first_bit_count = *bit_count;
  *bit_count = first_bit_count;
  return result;
}

SlotFunction<result_t, int, int*, uint8_t**, int*> get_bits;
result_t BadGetBits(void* self, int plane, int* reserved, uint8_t** bits, int* stride) {
  const result_t result = get_bits(self, plane, reserved, bits, stride);
  const auto* const image = static_cast<HostImage*>(self);
  if (Has("short-stride")) *stride = static_cast<int>(image->RowBytes()) - 1;
  if (Has("shared-memory")) {
    static uint8_t everyone[1 << 16];
    *bits = everyone;
  }
  if (Has("no-guard")) {
    constexpr int64_t kPage = 4096, kSize = 16 * kPage;
    static uint8_t* const block = [] {
      auto* const memory = static_cast<uint8_t*>(
          mmap(nullptr, kSize + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
      mprotect(memory + kSize, kPage, PROT_NONE);
      return memory;
    }();
    *stride = static_cast<int>(image->RowBytes());
    *bits = block + kSize - image->height() * image->RowBytes();
  }
  return result;
}

SlotFunction<result_t, int, int, int, int, uint32_t> create;
result_t BadCreate(void* self, int width, int height, int planes, int bit_count, uint32_t model) {
  return create(self, width, height, planes, bit_count, model == 0 ? kModelMono : model);
}

SlotFunction<result_t, IQEL*, int> assign;
result_t BadAssign(void* self, IQEL* source, int flags) {
  const result_t result = assign(self, source, flags);
  if (Has("assign-keeps-source")) source->AddRef();
  uint8_t* bits = nullptr;
  int stride = 0, unread = 0;
  source->GetBits(0, &unread, &bits, &stride);
  auto* const image = static_cast<HostImage*>(self);
  if (Has("assign-ignores-stride") && stride < 0)
    std::swap_ranges(image->Row(0), image->Row(0) + image->RowBytes(),
                     image->Row(image->height() - 1));
  return result;
}

SlotFunction<result_t, uint32_t> fill;
result_t BadFill(void* self, uint32_t color) {
  return fill(self, (color & 0xFF00FF00) | (color & 0xFF) << 16 | (color >> 16 & 0xFF));
}

/// An image whose pixels come from the ordinary heap, for defects of memory: "heap" has none.
class HeapImage final : public HostObject<IQELImageDIB, IQELImage, IQEL> {
 public:
  ~HeapImage() override { std::free(block_); }

  uint32_t AddRef() override { return Has("heap-plain-count") ? Count(1) : HostObject::AddRef(); }
  uint32_t Release() override {
    return Has("heap-plain-count") ? Count(-1) : HostObject::Release();
  }
  result_t GetSize(int* width, int* height, int* planes) override {
    *width = width_;
    *height = height_;
    *planes = 1;
    return kOk;
  }
  result_t GetFormat(int* bit_count, uint32_t* model, int*) override {
    *bit_count = bit_count_;
    *model = model_;
    return kOk;
  }
  result_t GetBits(int plane, int*, uint8_t** bits, int* stride) override {
    *bits = plane == 0 ? bits_ : nullptr;
    *stride = static_cast<int>(stride_);
    return kOk;
  }
  result_t Create(int width, int height, int, int bit_count, uint32_t model) override {
    if (width < 0 || height < 0 || Has("heap-refuses-all")) return kFail;
    if (Has("heap-refuses-16-bits") && bit_count == 16) return kFail;
    if (Has("heap-refuses-sizes") && width == 64) return kFail;
    int64_t stride = (int64_t{width} * bit_count + 31) / 32 * 4;
    if (Has("heap-odd-rows")) stride = (int64_t{width} * bit_count + 7) / 8;
    PixelSlack slack = SlackOf(width, height, stride, bit_count, model);
    if (Has("heap-no-words")) slack.after = slack.before;
    if (Has("heap-no-slack") || Has("heap-read-only-behind")) slack = {0, 0};
    int64_t size = slack.before + height * stride + slack.after;
    if (Has("heap-size-overflow")) size = static_cast<uint32_t>(size);
    if (!Has("heap-size-overflow") && (stride > INT32_MAX || size > int64_t{1} << 34)) return kFail;
    if (!(Has("heap-keeps-pixels") && block_ != nullptr)) {
      auto* const block = static_cast<uint8_t*>(Allocate(static_cast<size_t>(size)));
      const bool promises = Has("heap-promises") && int64_t{width} * height > 4'000'000;
      if (block == nullptr && !promises) return kFail;
      if (!Has("heap-leaks-pixels")) std::free(block_);
      block_ = promises ? nullptr : block;
      bits_ = block_ != nullptr ? block_ + slack.before : nullptr;
    }
    width_ = width;
    height_ = height;
    bit_count_ = bit_count;
    model_ = model;
    stride_ = stride;
    return kOk;
  }
  result_t Assign(IQEL* source, int) override {
    if (source == this && !Has("heap-frees-itself") && !Has("heap-loses-itself")) return kOk;
    int width = 0, height = 0, planes = 0, bit_count = 0, unread = 0, stride = 0;
    uint32_t model = 0;
    uint8_t* bits = nullptr;
    source->GetSize(&width, &height, &planes);
    source->GetFormat(&bit_count, &model, &unread);
    if (Has("heap-frees-itself")) source->GetBits(0, &unread, &bits, &stride);
    if (Failed(Create(width, height, 1, bit_count, model))) return kFail;
    if (!Has("heap-frees-itself")) source->GetBits(0, &unread, &bits, &stride);
    if (source == this && Has("heap-loses-itself")) return kOk;
    const int64_t row_bytes = (int64_t{width} * bit_count + 7) / 8;
    for (int64_t y = 0; y < height; ++y) {
      std::copy_n(bits + y * stride, row_bytes, bits_ + y * stride_);
    }
    return kOk;
  }
  result_t Fill(uint32_t color) override {
    for (int64_t y = 0; y < height_; ++y) {
      for (int64_t i = 0; i < (int64_t{width_} * bit_count_ + 7) / 8; ++i) {
        bits_[y * stride_ + i] =
            static_cast<uint8_t>(color >> (8 * (i % std::max(bit_count_ / 8, 1))));
      }
    }
    return kOk;
  }

 private:
  /// A count that another thread may come between.
  uint32_t Count(int difference) {
    const uint32_t old = plain_count_;
    test::GiveWay();
    plain_count_ = old + static_cast<uint32_t>(difference);
    return plain_count_;
  }

  static void* Allocate(size_t size) {
    if (!Has("heap-read-only-behind")) return std::calloc(size, 1);
    // The rows end where the pages do, and a page that can only be read follows. Never given back.
    constexpr size_t kPage = 4096;
    const size_t inner = (size + kPage - 1) / kPage * kPage;
    auto* const memory = static_cast<uint8_t*>(
        mmap(nullptr, inner + 16 * kPage, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(memory, inner + kPage, PROT_READ | PROT_WRITE);
    return memory + kPage + inner - size;
  }

  volatile uint32_t plain_count_ = 1;
  uint8_t* block_ = nullptr;
  uint8_t* bits_ = nullptr;
  int width_ = 0, height_ = 0, bit_count_ = 0;
  int64_t stride_ = 0;
  uint32_t model_ = 0;
};

SmartPtr<HeapImage> MakeHeapImage() { return SmartPtr<HeapImage>::Adopt(new HeapImage); }

SmartPtr<HostImage> MakeImage() {
  static SmartPtr<HostImage> only;
  if (Has("one-image") && only) return only;
  SmartPtr<HostImage> image = HostImage::Make({.bottom_up = Has("bottom-up")});  // no defect
  PatchedTable table(static_cast<IQELImageDIB*>(image.Get()), 10 + kPaletteSlots);
  if (Has("image-query-without-reference")) table.Replace(0, &BadQuery, query);
  if (Has("never-empty")) table.Replace(3, &BadGetSize, get_size);
  if (Has("stale-format")) table.Replace(4, &StaleGetFormat, get_format);
  if (Has("short-stride") || Has("shared-memory") || Has("no-guard")) {
    table.Replace(5, &BadGetBits, get_bits);
  }
  if (Has("model-changed")) table.Replace(6, &BadCreate, create);
  if (Has("image-order")) table.Swap(3, 4);
  if (Has("assign-keeps-source") || Has("assign-ignores-stride")) {
    table.Replace(8, &BadAssign, assign);
  }
  if (Has("fill-swaps-channels")) table.Replace(9, &BadFill, fill);
  if (Has("one-image")) only = image;
  return image;
}

// Strings.

SlotFunction<result_t, int, const wchar_t*> append;
result_t BadAppend(void* self, int count, const wchar_t* characters) {
  return append(self, std::min(count, 1), characters);
}

SmartPtr<HostString> MakeString() {
  SmartPtr<HostString> string = HostString::Make();
  PatchedTable table(string.Get(), 7 + kDestructors);
  if (Has("append-stops")) table.Replace(5, &BadAppend, append);
  if (Has("string-with-two-references")) string->AddRef();
  return string;
}

// The collection.

SlotFunction<uint32_t> add_reference;
uint32_t BadAddRef(void* self) { return add_reference(self) - 1; }

/// Loses what another thread adds at the same time.
uint32_t PlainAddRef(void* self) {
  static volatile uint32_t turn = 0;
  const uint32_t mine = turn + 1;
  turn = mine;
  test::GiveWay();
  return turn == mine ? add_reference(self) : 0;
}

SlotFunction<result_t, int, IUnknown**> get_item;
result_t BadGetItem(void* self, int index, IUnknown** item) {
  static_cast<HostCollection*>(self)->AddRef();
  return get_item(self, index, item);
}

SlotFunction<result_t, IString*, int*> find_item;
result_t BadFindItem(void* self, IString* name, int* index) {
  if (Failed(find_item(self, name, index))) *index = 0;
  return kOk;
}

SlotFunction<result_t, tagREFString, const IID*, void**> create_component;
result_t BadCreateComponent(void* self, tagREFString name, const IID* iid, void** object) {
  if (Has("long-lengths") && name.length >> 32 != 0) return kFail;
  if (Has("no-locator") && iid != nullptr && *iid == IID_NULL) return kNoInterface;
  const result_t result = create_component(self, name, iid, object);
  return Has("unknown-succeeds") ? kOk : result;
}

SmartPtr<IComponentCollection> TheCollection() {
  static const SmartPtr<HostCollection> collection = [] {
    SmartPtr<HostCollection> made = HostCollection::Make();
    made->Offer(kImageComponentName,
                test::Defect().starts_with("heap") ? MakerOf(&MakeHeapImage) : MakerOf(&MakeImage));
    made->Offer(kStringComponentName, MakerOf(&MakeString));
    PatchedTable table(made.Get(), 17 + kDestructors);
    if (Has("returns-old-count")) table.Replace(1, &BadAddRef, add_reference);
    if (Has("plain-count")) table.Replace(1, &PlainAddRef, add_reference);
    if (Has("item-keeps-collection")) table.Replace(4, &BadGetItem, get_item);
    if (Has("finds-anything")) table.Replace(5, &BadFindItem, find_item);
    if (Has("long-lengths") || Has("no-locator") || Has("unknown-succeeds")) {
      table.Replace(16, &BadCreateComponent, create_component);
    }
    return made;
  }();
  return SmartPtr<IComponentCollection>::Retain(collection.Get());
}

result_t CreateCollection(void* reserved, const IID* iid, void** object) {
  const result_t result = CreateWith<&TheCollection>(reserved, iid, object);
  // The last references go, so that what is handed out is gone.
  while (Has("collection-gone") && static_cast<IUnknown*>(*object)->Release() > 0) {
  }
  return result;
}

constexpr SiblingComponent kComponents[] = {{kCollectionComponentName, &CreateCollection}};

}  // namespace
}  // namespace qel::host

QEL_EXPORT qel::result_t InitializeModule(void*, qel::IComponentCollection*) { return qel::kOk; }

QEL_EXPORT qel::result_t CreateFunction(qel::tagREFString name, qel::CreationFunction* function) {
  return qel::host::FindSiblingComponent(qel::host::kComponents, name, function);
}
