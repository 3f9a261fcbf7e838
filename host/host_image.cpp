#include "host/host_image.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "host/host_object.h"
#include "host/pixel_slack.h"

namespace qel::host {
namespace {

constexpr int kLargestBitCount = 64;
constexpr int kLargestPlanes = 64;
constexpr int64_t kLargestStride = std::numeric_limits<int>::max();
constexpr int64_t kLargestBlock = int64_t{1} << 34;
constexpr int64_t kBlockAlignment = 64;
constexpr size_t kReadableEntries = 256;

int64_t RoundUp(int64_t value, int64_t unit) { return (value + unit - 1) / unit * unit; }

void SetBytes(uint8_t* start, int64_t count, uint8_t value) {
  std::memset(start, value, static_cast<size_t>(count));
}

}  // namespace

SmartPtr<HostImage> HostImage::Make(const ImageOptions& options) {
  return SmartPtr<HostImage>::Adopt(new HostImage(options));
}

SmartPtr<HostImage> HostImage::Make(int width, int height, int bit_count, uint32_t model,
                                    const ImageOptions& options) {
  SmartPtr<HostImage> image = Make(options);
  if (Failed(image->Create(width, height, 1, bit_count, model))) image.Reset();
  return image;
}

result_t HostImage::QueryInterface(const IID& iid, void** object) {
  if (object == nullptr) return kNullOutput;
  *object = nullptr;
  if (iid == IID_IUnknown || iid == IID_IQEL || iid == IID_IQELImage || iid == IID_IQELImageDIB) {
    *object = static_cast<IQELImageDIB*>(this);
  } else if (iid == IID_IQELImagePalette && palette_count_ > 0) {
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

int HostImage::PlanesInMemory() const {
  return memory_.data() == nullptr ? 0 : std::max(planes_, 1);
}

uint8_t* HostImage::Bits(int plane) const {
  if (plane < 0 || plane >= PlanesInMemory()) return nullptr;
  return memory_.data() + first_row_ + plane * plane_bytes_;
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
  memory_ = PixelBlock();
  palette_count_ = 0;
}

result_t HostImage::Create(int width, int height, int planes, int bit_count, uint32_t model) {
  Clear();
  if (bit_count < 1 || bit_count > kLargestBitCount || planes > kLargestPlanes) {
    return kInvalidArgument;
  }
  const int64_t columns = std::max(width, 0);
  const int64_t rows = std::max(height, 0);
  const int64_t step = RoundUp((columns * bit_count + 7) / 8 + std::max(options_.padding, 0),
                               std::max(options_.alignment, 1));
  if (step > kLargestStride || rows > kLargestBlock / std::max<int64_t>(step, 1)) {
    return kInvalidArgument;
  }
  const int64_t rows_bytes = rows * step;
  const PixelSlack slack = SlackOf(columns, rows, step, bit_count, model);
  const int64_t guard = RoundUp(slack.before, kBlockAlignment);
  const int64_t plane_bytes = RoundUp(2 * guard + rows_bytes, kBlockAlignment);
  const int64_t reserve = slack.after - slack.before;
  if (plane_bytes * std::max(planes, 1) + reserve >= kLargestBlock) return kInvalidArgument;

  planes_ = std::max(planes, 0);
  stride_ = static_cast<int>(options_.bottom_up ? -step : step);
  if (columns > 0 && rows > 0 && !Allocate(guard, rows_bytes, plane_bytes, reserve)) {
    Clear();
    return kFail;
  }
  width_ = static_cast<int>(columns);
  height_ = static_cast<int>(rows);
  bit_count_ = bit_count;
  model_ = model;
  return kOk;
}

/// Takes memory for all planes, the reserve on the side where the rows run to.
bool HostImage::Allocate(int64_t guard, int64_t rows_bytes, int64_t plane_bytes, int64_t reserve) {
  const int64_t planes_bytes = plane_bytes * std::max(planes_, 1);
  memory_ = PixelBlock(static_cast<size_t>(planes_bytes + RoundUp(reserve, kBlockAlignment)));
  if (memory_.data() == nullptr) return false;
  uint8_t* plane = memory_.data();
  uint8_t* reserved = plane + planes_bytes;
  if (stride_ < 0) {
    reserved = plane;
    plane += RoundUp(reserve, kBlockAlignment);
  }
  const bool clear = options_.clear && !(memory_.IsZero() && options_.clear_byte == 0);
  if (clear) memory_.Zero(reserved, static_cast<size_t>(reserve));
  first_row_ = plane + guard - memory_.data() + (stride_ < 0 ? rows_bytes + stride_ : 0);
  plane_bytes_ = plane_bytes;
  for (int i = 0; i < PlanesInMemory(); ++i, plane += plane_bytes) {
    SetBytes(plane, guard, 0);
    if (clear) SetBytes(plane + guard, rows_bytes, options_.clear_byte);
    SetBytes(plane + guard + rows_bytes, plane_bytes - guard - rows_bytes, 0);
  }
  return true;
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
  const auto palette = QueryFor<IQELImagePalette>(source);
  if (palette) palette->GetPalette(&entries, &entry_count);

  const result_t created = FailWithoutMemory([&] {
    const result_t result = Create(width, height, planes, bit_count, model);
    if (Succeeded(result)) SetPalette({entries, entries != nullptr ? entry_count : 0});
    return result;
  });
  if (Failed(created)) {
    Clear();
    return created;
  }
  for (int plane = 0; plane < PlanesInMemory(); ++plane) {
    uint8_t* from = nullptr;
    int from_stride = 0;
    source->GetBits(plane, &unread, &from, &from_stride);
    for (int y = 0; from != nullptr && y < height_; ++y) {
      std::memcpy(Row(y, plane), from + int64_t{y} * from_stride, static_cast<size_t>(RowBytes()));
    }
  }
  return kOk;
}

result_t HostImage::Fill(uint32_t color) {
  const uint32_t pattern = bit_count_ == 1   ? (color & 1) * 0xFF
                           : bit_count_ == 4 ? (color & 0xF) * 0x11
                                             : color;
  const int period = bit_count_ == 32 ? 4 : bit_count_ >= 24 ? 3 : 1;
  for (int plane = 0; plane < PlanesInMemory(); ++plane) {
    // One row is made byte by byte, the others are copies of it.
    uint8_t* const first = Row(0, plane);
    for (int64_t i = 0; i < RowBytes(); ++i) {
      first[i] = static_cast<uint8_t>(pattern >> (8 * (i % period)));
    }
    for (int y = 1; y < height_; ++y) {
      std::memcpy(Row(y, plane), first, static_cast<size_t>(RowBytes()));
    }
  }
  return kOk;
}

result_t HostImage::GetPalette(RGBQUAD** entries, uint32_t* count) {
  *entries = palette_count_ > 0 ? palette_.data() : nullptr;
  *count = static_cast<uint32_t>(palette_count_);
  return kOk;
}

void HostImage::SetPalette(std::span<const RGBQUAD> entries) {
  std::vector<RGBQUAD> copy(entries.begin(), entries.end());
  if (copy.size() < kReadableEntries) copy.resize(kReadableEntries);
  palette_count_ = entries.size();
  palette_.swap(copy);
}

}  // namespace qel::host
