#include "pictures/codec.h"

#include <cctype>
#include <cmath>
#include <string_view>

#include "pictures/text_blocks.h"

namespace qel::pictures {
namespace {

constexpr double kInchesPerMetre = 100 / kCentimetresPerInch;

/// The colour space that a profile states for its pixels: four characters such as "RGB ".
std::string_view ProfileSpace(Bytes profile) {
  constexpr size_t kSpaceAt = 16, kHeaderBytes = 128;
  if (profile.size() < kHeaderBytes) return {};
  return {reinterpret_cast<const char*>(profile.data()) + kSpaceAt, 4};
}

}  // namespace

void Input::Plan(uint64_t count) const {
  if (__builtin_add_overflow(planned_bytes, count, &planned_bytes)) planned_bytes = UINT64_MAX;
  if (options.limits.AllowMemory(planned_bytes)) return;
  Fail(PictureError::Kind::kTooLarge, "decoding needs {} bytes, more than the limit of {}",
       planned_bytes, options.limits.max_memory);
}

void Input::CheckHolds(uint64_t promised, uint64_t best_ratio, uint64_t held) const {
  uint64_t most;
  if (__builtin_mul_overflow(held, best_ratio, &most) || promised <= most) return;
  Truncated();
}

void OutputShape::CheckSides(const char* format, int longest) const {
  if (width <= longest && height <= longest) return;
  DoesNotFit("{} holds at most {} pixels a side; choose PNG or TIFF", format, longest);
}

Bytes Output::Profile(bool gray) const {
  const Bytes profile(metadata.icc_profile);
  if (profile.empty() || ProfileSpace(profile) == (gray ? "GRAY" : "RGB ")) return profile;
  Note("the colour profile is not one for such pixels; it was left out");
  return {};
}

void Output::NoteLostProfile(const char* format) const {
  if (metadata.icc_profile.empty()) return;
  Note("{} holds no colour profile; it was left out", format);
}

void Output::NoteLostResolution(const char* format) const {
  if (!HasResolution()) return;
  Note("{} holds no resolution; it was left out", format);
}

void Output::NoteLostTexts(const char* format) const {
  std::string lost;
  const auto add = [&](bool there, const char* name) {
    if (there) lost += (lost.empty() ? "" : ", ") + std::string(name);
  };
  add(!metadata.exif.empty(), "EXIF");
  add(!metadata.xmp.empty(), "XMP");
  add(!metadata.iptc.empty(), "IPTC");
  if (!lost.empty()) Note("{} holds no {}; left out", format, lost);
}

void TakeExif(const Input& input, const Exif& exif, Metadata& metadata) {
  metadata.dpi_x = exif.DpiX();
  metadata.dpi_y = exif.DpiY();
  Exif kept = exif;
  if (input.options.upright && exif.Orientation() != 1) kept.SetOrientation(1);
  if (!kept.IsEmpty()) metadata.exif = SerializeExif(kept);
}

void TakeXmp(const Input& input, Bytes xmp, Metadata& metadata) {
  metadata.xmp.assign(xmp.begin(), xmp.end());
  if (input.options.upright) MakeXmpUpright(metadata.xmp);
}

std::string ExtensionOf(const std::string& path) {
  const size_t name = path.rfind('/') + 1;  // 0 without a slash
  const size_t dot = path.rfind('.');
  std::string extension = dot == std::string::npos || dot < name ? "" : path.substr(dot);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return extension;
}

double DpiFromMetre(double dots_per_metre) {
  return std::round(dots_per_metre / kInchesPerMetre * 100) / 100;
}

uint32_t DotsPerMetre(double dpi) {
  const double dots = dpi * kInchesPerMetre;
  return dots > 0 && dots < 2e9 ? static_cast<uint32_t>(std::lround(dots)) : 0;
}

}  // namespace qel::pictures
