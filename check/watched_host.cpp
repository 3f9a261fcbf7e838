#include "check/watched_host.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "check/counting.h"

namespace qel::check {
namespace {

constexpr size_t kPageBytes = 4096;
constexpr uint8_t kFreshByte = 0xCD;
constexpr int kLargestSide = 1 << 12;

/// What the bytes round the rows hold, by their place in the block; then again from the first.
constexpr auto kPadding = [] {
  std::array<uint8_t, 256> bytes{};
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(0xA5 ^ (i * 29));
  return bytes;
}();

/// Calls `part(place, padding, size)` for each run of the padding from `begin` to `end`.
template <typename Part>
void ForPadding(size_t begin, size_t end, Part&& part) {
  for (size_t place = begin; place < end;) {
    const size_t first = place % kPadding.size();
    const size_t size = std::min(kPadding.size() - first, end - place);
    part(place, &kPadding[first], size);
    place += size;
  }
}

size_t RoundUpToPage(size_t size) { return (size + kPageBytes - 1) / kPageBytes * kPageBytes; }

}  // namespace

uint32_t UsualModel(int bit_count) {
  return bit_count == 32 ? kModelArgb : bit_count == 24 ? kModelBgr : kModelMono;
}

WatchedHost::WatchedHost() = default;
WatchedHost::~WatchedHost() = default;

WatchedImage& WatchedHost::MakeImage(int width, int height, int bit_count) {
  images_.push_back(std::make_unique<WatchedImage>(*this));
  WatchedImage& image = *images_.back();
  const Fault kept = std::exchange(fault, Fault::kNone);
  image.Create(width, height, 1, bit_count, UsualModel(bit_count));
  fault = kept;
  uint32_t state = static_cast<uint32_t>(images_.size() * 77 + static_cast<size_t>(bit_count));
  for (int y = 0; y < image.height(); ++y) {
    for (int64_t i = 0; i < image.RowBytes(); ++i) {
      state = state * 1664525u + 1013904223u;
      image.Row(y)[i] = static_cast<uint8_t>(state >> 24);
    }
  }
  return image;
}

IQELImageDIB* WatchedHost::NewImage() {
  if (refuses_images) return nullptr;
  images_.push_back(std::make_unique<WatchedImage>(*this));
  return images_.back().get();
}

WatchedImage* WatchedHost::FindImage(const IQEL* pointer) const {
  const auto found = std::ranges::find_if(
      images_, [&](const auto& image) { return static_cast<IQEL*>(image.get()) == pointer; });
  return found == images_.end() ? nullptr : found->get();
}

void WatchedHost::ForgetImages() { images_.clear(); }

int64_t WatchedHost::References() const {
  int64_t references = live_objects + CountOf(collection());
  for (const auto& image : images_) references += image->references();
  return references;
}

WatchedImage::~WatchedImage() { Unmap(); }

void WatchedImage::Unmap() {
  if (mapping_ != nullptr) munmap(mapping_, mapping_size_);
  mapping_ = bits_ = block_ = nullptr;
  block_size_ = 0;
}

result_t WatchedImage::QueryInterface(const IID& iid, void** object) {
  *object = nullptr;
  if (!host_.OnCall("QueryInterface")) return host::CallWatch::kFaultCode;
  if (host_.GivesNull()) return kOk;
  if (iid != IID_IUnknown && iid != IID_IQEL && iid != IID_IQELImage && iid != IID_IQELImageDIB) {
    return kNoInterface;
  }
  AddRef();
  *object = static_cast<IQELImageDIB*>(this);
  return kOk;
}

result_t WatchedImage::GetSize(int* width, int* height, int* planes) {
  if (!host_.OnCall("GetSize")) return host::CallWatch::kFaultCode;
  *width = width_;
  *height = height_;
  *planes = planes_;
  return kOk;
}

result_t WatchedImage::GetFormat(int* bit_count, uint32_t* model, int* reserved) {
  if (!host_.OnCall("GetFormat")) return host::CallWatch::kFaultCode;
  *bit_count = bit_count_;
  *model = model_;
  *reserved = 0;
  return kOk;
}

result_t WatchedImage::GetBits(int plane, int* reserved, uint8_t** bits, int* stride) {
  if (!host_.OnCall("GetBits")) return host::CallWatch::kFaultCode;
  *reserved = 0;
  *bits = host_.GivesNull() || plane != 0 ? nullptr : bits_;
  *stride = stride_;
  return *bits != nullptr ? kOk : kInvalidArgument;
}

result_t WatchedImage::Create(int width, int height, int planes, int bit_count, uint32_t model) {
  if (!host_.OnCall("Create")) return host::CallWatch::kFaultCode;
  return Reshape(width, height, planes, bit_count, model) ? kOk : kInvalidArgument;
}

/// Lays rows and padding out in fresh pages: the rows hold one byte, everything else a pattern.
bool WatchedImage::Reshape(int width, int height, int planes, int bit_count, uint32_t model) {
  Unmap();
  width_ = std::clamp(width, 0, kLargestSide);
  height_ = std::clamp(height, 0, kLargestSide);
  planes_ = planes;
  bit_count_ = std::clamp(bit_count, 0, 64);
  model_ = model;
  const bool fits = width_ == std::max(width, 0) && height_ == std::max(height, 0);
  const bool fenced = layout_.fence != WatchedLayout::Fence::kNone;
  const auto step = static_cast<size_t>(RowBytes() + (fenced ? 0 : layout_.padding));
  stride_ = static_cast<int>(layout_.bottom_up ? -static_cast<int64_t>(step) : step);
  const size_t rows = step * static_cast<size_t>(height_);
  if (!fits || rows == 0) return fits;

  // Without a fence there is room for whatever an operation may reach.
  const size_t before = fenced ? static_cast<size_t>(layout_.reach_before) : kPageBytes + 4 * rows;
  const size_t after = fenced ? static_cast<size_t>(layout_.reach_after) : kPageBytes + 4 * rows;
  block_size_ = before + rows + after;
  mapping_size_ = RoundUpToPage(block_size_) + 2 * kPageBytes;
  void* const memory =
      mmap(nullptr, mapping_size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return false;
  mapping_ = static_cast<uint8_t*>(memory);
  mprotect(mapping_, kPageBytes, PROT_NONE);
  mprotect(mapping_ + mapping_size_ - kPageBytes, kPageBytes, PROT_NONE);
  block_ = layout_.fence == WatchedLayout::Fence::kBefore
               ? mapping_ + kPageBytes
               : mapping_ + mapping_size_ - kPageBytes - block_size_;
  bits_ = block_ + before + (layout_.bottom_up ? rows - step : 0);
  ForPadding(0, block_size_, [&](size_t place, const uint8_t* padding, size_t size) {
    std::memcpy(block_ + place, padding, size);
  });
  for (int y = 0; y < height_; ++y) {
    std::memset(Row(y), kFreshByte, static_cast<size_t>(RowBytes()));
  }
  return true;
}

result_t WatchedImage::Assign(IQEL* source, int /*flags*/) {
  if (!host_.OnCall("Assign")) return host::CallWatch::kFaultCode;
  const WatchedImage* const from = host_.FindImage(source);
  if (from == nullptr) return kInvalidArgument;
  if (!Reshape(from->width_, from->height_, from->planes_, from->bit_count_, from->model_)) {
    return kFail;
  }
  for (int y = 0; bits_ != nullptr && y < height_; ++y) {
    std::memcpy(Row(y), from->Row(y), static_cast<size_t>(RowBytes()));
  }
  return kOk;
}

result_t WatchedImage::Fill(uint32_t color) {
  if (!host_.OnCall("Fill")) return host::CallWatch::kFaultCode;
  SetAll(color);
  return kOk;
}

uint32_t WatchedImage::At(int x, int y) const {
  uint32_t pixel = 0;
  const auto bytes = static_cast<size_t>(std::clamp(bit_count_ / 8, 0, 4));
  std::memcpy(&pixel, Row(y) + static_cast<int64_t>(bytes) * x, bytes);
  return pixel;
}

void WatchedImage::Set(int x, int y, uint32_t pixel) {
  const auto bytes = static_cast<size_t>(std::clamp(bit_count_ / 8, 0, 4));
  std::memcpy(Row(y) + static_cast<int64_t>(bytes) * x, &pixel, bytes);
}

void WatchedImage::SetAll(uint32_t pixel) {
  for (int y = 0; bits_ != nullptr && y < height_; ++y) {
    for (int x = 0; x < width_; ++x) Set(x, y, pixel);
  }
}

std::string WatchedImage::Pixels() const {
  std::string pixels;
  for (int y = 0; bits_ != nullptr && y < height_; ++y) {
    pixels.append(reinterpret_cast<const char*>(Row(y)), static_cast<size_t>(RowBytes()));
  }
  return pixels;
}

bool WatchedImage::PaddingIntact() const {
  bool intact = true;
  const auto expect = [&](size_t place, const uint8_t* padding, size_t size) {
    intact = intact && std::memcmp(block_ + place, padding, size) == 0;
  };
  size_t end_of_row = 0;
  for (int i = 0; bits_ != nullptr && i < height_; ++i) {
    const uint8_t* const row = Row(layout_.bottom_up ? height_ - 1 - i : i);
    const auto begin = static_cast<size_t>(row - block_);
    ForPadding(end_of_row, begin, expect);
    end_of_row = begin + static_cast<size_t>(RowBytes());
  }
  ForPadding(end_of_row, block_size_, expect);
  return intact;
}

}  // namespace qel::check
