#include "python/extension/array_image.h"

#include <algorithm>
#include <cstring>

namespace qel::python {
namespace {

Pixels RowsOf(IQEL& image, const operations::Shape& shape) {
  int unread = 0, stride = 0;
  uint8_t* bits = nullptr;
  image.GetBits(0, &unread, &bits, &stride);
  return {bits, stride, shape.width, shape.height, shape.bits / 8};
}

/// Asks for a line of the cache, which need not be there.
template <int kWrite>
void Prefetch(const uint8_t* run, size_t at) {
  __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(run) + at), kWrite);
}

void CopyRunAhead(const uint8_t* from, uint8_t* to, size_t bytes) {
  constexpr size_t kPiece = 1024, kAhead = 2048, kLine = 64;
  for (size_t at = 0; at < bytes; at += kPiece) {
    for (size_t line = 0; line < kPiece; line += kLine) {
      Prefetch<0>(from, at + kAhead + line);
      Prefetch<1>(to, at + kAhead + line);
    }
    std::memcpy(to + at, from + at, std::min(kPiece, bytes - at));
  }
}

}  // namespace

void CopyRows(const Pixels& from, const Pixels& to) {
  if (from.IsPacked() && to.IsPacked()) {
    std::memcpy(to.bits, from.bits, from.RowBytes() * static_cast<size_t>(from.height));
    return;
  }
  for (int y = 0; y < from.height; ++y) std::memcpy(to.Row(y), from.Row(y), from.RowBytes());
}

void CopyRowsAhead(const Pixels& from, const Pixels& to) {
  for (int y = 0; y < from.height; ++y) CopyRunAhead(from.Row(y), to.Row(y), from.RowBytes());
}

host::HostImage& ArrayImage::Own() {
  if (!own_) own_ = host::HostImage::Make({.clear = true});
  return *own_;
}

result_t ArrayImage::GetSize(int* width, int* height, int* planes) {
  if (!fits_) return Own().GetSize(width, height, planes);
  *width = rows_.width;
  *height = rows_.height;
  *planes = 1;
  return kOk;
}

result_t ArrayImage::GetFormat(int* bit_count, uint32_t* model, int* reserved) {
  if (!fits_) return Own().GetFormat(bit_count, model, reserved);
  *bit_count = 8 * rows_.channels;
  *model = model_;
  *reserved = 0;
  return kOk;
}

result_t ArrayImage::GetBits(int plane, int* reserved, uint8_t** bits, int* stride) {
  if (!fits_) return Own().GetBits(plane, reserved, bits, stride);
  *reserved = 0;
  *bits = plane == 0 ? rows_.bits : nullptr;
  *stride = static_cast<int>(rows_.stride);
  return plane == 0 ? kOk : kInvalidArgument;
}

result_t ArrayImage::Create(int width, int height, int planes, int bit_count, uint32_t model) {
  fits_ = Fits(width, height, planes, bit_count);
  model_ = model;
  return fits_ ? kOk : Own().Create(width, height, planes, bit_count, model);
}

result_t ArrayImage::Assign(IQEL* source, int flags) {
  if (source == nullptr) return kFail;
  const operations::Shape shape = operations::ShapeOf(*source);
  fits_ = Fits(shape.width, shape.height, 1, shape.bits);
  model_ = shape.model;
  if (!fits_) return Own().Assign(source, flags);
  const Pixels from = RowsOf(*source, shape);
  if (from.bits != nullptr) CopyRows(from, rows_);
  return kOk;
}

result_t ArrayImage::Fill(uint32_t color) {
  if (!fits_) return Own().Fill(color);
  const auto bytes = static_cast<size_t>(rows_.channels);
  for (int y = 0; y < rows_.height; ++y) {
    for (int x = 0; x < rows_.width; ++x) {
      std::memcpy(rows_.Row(y) + static_cast<size_t>(x) * bytes, &color, bytes);
    }
  }
  return kOk;
}

}  // namespace qel::python
