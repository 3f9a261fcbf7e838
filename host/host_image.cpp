#include "host/host_image.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace qel::host {
namespace {

constexpr int kLargestBitCount = 64;
constexpr int kLargestPlanes = 64;
constexpr int64_t kLargestStride = std::numeric_limits<int>::max();

int64_t RoundUp(int64_t value, int64_t unit) { return (value + unit - 1) / unit * unit; }

}  // namespace

SmartPtr<HostImage> HostImage::Make(const ImageOptions& options) {
  return SmartPtr<HostImage>::Adopt(new HostImage(options));
}

result_t HostImage::QueryInterface(const IID& iid, void** object) {
  if (object == nullptr) return kNullOutput;
  *object = nullptr;
  if (iid == IID_IUnknown || iid == IID_IQEL || iid == IID_IQELImage || iid == IID_IQELImageDIB) {
    *object = static_cast<IQELImageDIB*>(this);
  } else if (iid == IID_IQELImagePalette && !palette_.empty()) {
    *object = static_cast<IQELImagePalette*>(this);
  } else {
    return kNoInterface;
  }
  AddRef();
  return kOk;
}

uint32_t HostImage::AddRef() { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }

uint32_t HostImage::Release() {
  const uint32_t left = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (left == 0) delete this;
  return left;
}

result_t HostImage::GetSize(int* width, int* height, int* planes) {
  *width = width_;
  *height = height_;
  *planes = planes_;
  return kOk;
}

result_t HostImage::GetFormat(int* bit_count, uint32_t* model, int* reserved) {
  *bit_count = bit_count_;
  *model = model_;
  *reserved = 0;
  return kOk;
}

uint8_t* HostImage::Bits(int plane) const {
  if (pixels_.data() == nullptr || plane < 0 || plane >= std::max(planes_, 1)) return nullptr;
  uint8_t* const first = pixels_.data() + plane * plane_bytes_ + kGuardBytes;
  return options_.bottom_up ? first - int64_t{height_ - 1} * stride_ : first;
}

result_t HostImage::GetBits(int plane, int* reserved, uint8_t** bits, int* stride) {
  *reserved = 0;
  *bits = Bits(plane);
  *stride = stride_;
  return *bits != nullptr ? kOk : kInvalidArgument;
}

void HostImage::Clear() {
  width_ = height_ = planes_ = bit_count_ = stride_ = 0;
  model_ = 0;
  plane_bytes_ = 0;
  pixels_ = PixelBlock();
  palette_.clear();
}

result_t HostImage::Create(int width, int height, int planes, int bit_count, uint32_t model) {
  Clear();
  if (bit_count < 1 || bit_count > kLargestBitCount || planes > kLargestPlanes) {
    return kInvalidArgument;
  }
  const int64_t columns = std::max(width, 0);
  const int64_t rows = std::max(height, 0);
  const int64_t step =
      RoundUp((columns * bit_count + 7) / 8 + options_.padding, options_.alignment);
  if (step > kLargestStride) return kInvalidArgument;
  if (columns > 0 && rows > 0) {
    const int64_t plane_bytes = RoundUp(rows * step + 2 * kGuardBytes, 64);
    const int64_t count = std::max(planes, 1);
    pixels_ = PixelBlock(static_cast<size_t>(plane_bytes * count));
    if (pixels_.data() == nullptr) return kFail;
    for (int64_t plane = 0; plane < count; ++plane) {
      uint8_t* const start = pixels_.data() + plane * plane_bytes;
      if (options_.clear) std::memset(start, 0, static_cast<size_t>(plane_bytes));
      std::memset(start, 0, kGuardBytes);
      const int64_t after = kGuardBytes + rows * step;
      std::memset(start + after, 0, static_cast<size_t>(plane_bytes - after));
    }
    plane_bytes_ = plane_bytes;
  }
  width_ = static_cast<int>(columns);
  height_ = static_cast<int>(rows);
  planes_ = planes;
  bit_count_ = bit_count;
  model_ = model;
  stride_ = static_cast<int>(options_.bottom_up ? -step : step);
  return kOk;
}

result_t HostImage::Assign(IQEL* source, int /*flags*/) {
  if (source == nullptr) return kFail;
  if (source == static_cast<IQEL*>(this)) return kOk;
  int width = 0, height = 0, planes = 0, bit_count = 0, unread = 0;
  uint32_t model = 0;
  source->GetSize(&width, &height, &planes);
  source->GetFormat(&bit_count, &model, &unread);
  RGBQUAD* entries = nullptr;
  uint32_t entry_count = 0;
  if (const auto palette = QueryFor<IQELImagePalette>(source)) {
    palette->GetPalette(&entries, &entry_count);
  }
  const result_t created = Create(width, height, planes, bit_count, model);
  if (Failed(created)) return created;
  SetPalette({entries, entry_count});
  for (int plane = 0; plane < std::max(planes, 1); ++plane) {
    uint8_t* from = nullptr;
    int from_stride = 0;
    source->GetBits(plane, &unread, &from, &from_stride);
    if (from == nullptr || Bits(plane) == nullptr) continue;
    for (int64_t y = 0; y < height_; ++y) {
      std::memcpy(Bits(plane) + y * stride_, from + y * from_stride,
                  static_cast<size_t>(RowBytes()));
    }
  }
  return kOk;
}

result_t HostImage::Fill(uint32_t colour) {
  if (Bits() == nullptr) return kOk;
  // One row is built pixel by pixel, the others are copies of it.
  uint8_t* const first = Row(0);
  if (bit_count_ == 24 || bit_count_ == 32) {
    const int bytes = bit_count_ / 8;
    for (int64_t i = 0; i < RowBytes(); ++i) {
      first[i] = static_cast<uint8_t>(colour >> (8 * (i % bytes)));
    }
  } else {
    const unsigned low = colour & 0xFF;
    const unsigned byte = bit_count_ == 1   ? (low & 1) * 0xFF
                          : bit_count_ == 4 ? (low & 15) * 0x11
                                            : low;
    std::memset(first, static_cast<int>(byte), static_cast<size_t>(RowBytes()));
  }
  for (int y = 1; y < height_; ++y) {
    std::memcpy(Row(y), first, static_cast<size_t>(RowBytes()));
  }
  return kOk;
}

result_t HostImage::GetPalette(RGBQUAD** entries, uint32_t* count) {
  *entries = palette_.data();
  *count = static_cast<uint32_t>(palette_.size());
  return kOk;
}

void HostImage::SetPalette(std::span<const RGBQUAD> entries) {
  palette_.assign(entries.begin(), entries.end());
}

}  // namespace qel::host
