#include "bench/stage.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

#include <algorithm>
#include <atomic>
#include <cstring>

namespace qel::bench {
namespace {

uint32_t ModelOf(int depth, Content content) {
  if (depth == 8 || content == Content::kIntegers) return kModelMono;
  return depth == 24 ? kModelBgr : kModelArgb;
}

SmartPtr<host::HostImage> MakeImage(const Input& input, int depth, Size size) {
  if (input.content == Content::kNothing) return host::HostImage::Make(NewImageOptions());
  if (input.depth != 0) depth = input.depth;
  auto image = host::HostImage::Make(size.width / input.divide, size.height / input.divide, depth,
                                     ModelOf(depth, input.content), NewImageOptions());
  if (!image) throw std::bad_alloc();
  Paint(*image, input.content);
  std::vector<RGBQUAD> palette;
  for (int i = 0; i < 256 && input.palette; ++i) {
    const auto level = static_cast<uint8_t>(i);
    palette.push_back({level, static_cast<uint8_t>(level * 3), static_cast<uint8_t>(~level), 0});
  }
  image->SetPalette(palette);
  return image;
}

void EvictRows(const host::HostImage& image) {
  if (image.Bits() == nullptr) return;
  Evict(image.Bits(), static_cast<size_t>(image.stride()) * static_cast<size_t>(image.height()));
}

}  // namespace

void Evict(const void* start, size_t bytes) {
  constexpr size_t kLine = 64;
  const char* const first = static_cast<const char*>(start);
#if defined(__x86_64__)
  // Unordered evictions overlap; they take a tenth of the time.
  static const bool is_unordered = [] {
    unsigned a, b = 0, c, d;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_CLFLUSHOPT) != 0;
  }();
  for (size_t i = 0; i < bytes; i += kLine) {
    if (is_unordered) {
      asm volatile("clflushopt %0" : : "m"(first[i]) : "memory");
    } else {
      asm volatile("clflush %0" : : "m"(first[i]) : "memory");
    }
  }
#elif defined(__aarch64__)
  for (size_t i = 0; i < bytes; i += kLine) {
    asm volatile("dc civac, %0" : : "r"(first + i) : "memory");
  }
#endif
  std::atomic_thread_fence(std::memory_order_seq_cst);
}

host::ImageOptions& NewImageOptions() {
  static host::ImageOptions options;
  return options;
}

SmartPtr<host::HostCollection> MakeCollection() {
  auto collection = host::HostCollection::Make();
  collection->OfferStrings();
  collection->Offer(kImageComponentName,
                    host::MakerOf([] { return host::HostImage::Make(NewImageOptions()); }));
  return collection;
}

result_t AdoptingImage::QueryInterface(const IID& iid, void** object) {
  if (iid == IID_IQELImagePalette) return image_->QueryInterface(iid, object);
  return HostObject::QueryInterface(iid, object);
}

result_t AdoptingImage::Assign(IQEL* source, int /*flags*/) {
  // Modules assign images that they had this host make, and let go of them afterwards.
  replaced_ = std::exchange(
      image_, SmartPtr<host::HostImage>::Retain(static_cast<host::HostImage*>(source)));
  return kOk;
}

Stage::Stage(const std::vector<Input>& inputs, int depth, Size size) {
  for (const Input& input : inputs) {
    const auto image = MakeImage(input, depth, size);
    images_.push_back(SmartPtr<AdoptingImage>::Adopt(new AdoptingImage(image)));
    pointers_.push_back(images_.back().Get());
    originals_.emplace_back();
    if (image->Bits() != nullptr) {
      originals_.back().assign(image->Bits(), image->Row(image->height()));
    }
  }
}

const host::HostImage* Stage::HostResult() const {
  for (const auto& image : images_) {
    if (static_cast<IQEL*>(image.Get()) == result_.Get()) return &image->Host();
  }
  return static_cast<const host::HostImage*>(result_.Get());
}

void Stage::SetBack(int changed, bool cold) {
  if (changed >= 0) {
    const auto index = static_cast<size_t>(changed);
    std::memcpy(images_[index]->Host().Bits(), originals_[index].data(), originals_[index].size());
  }
  for (const auto& image : images_) {
    const auto replaced = image->TakeReplaced();
    if (cold && replaced) EvictRows(*replaced);
    if (cold) EvictRows(image->Host());
  }
  if (cold && result_) EvictRows(*HostResult());
  result_.Reset();
}

int64_t Stage::LargestImage() const {
  const auto bytes = [](const host::HostImage& image) { return image.RowBytes() * image.height(); };
  int64_t largest = result_ ? bytes(*HostResult()) : 0;
  for (const auto& image : images_) largest = std::max(largest, bytes(image->Host()));
  return largest;
}

}  // namespace qel::bench
