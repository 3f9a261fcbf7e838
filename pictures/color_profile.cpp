#include "pictures/color_profile.h"

#include <fmt/core.h>
#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

#include "pictures/icc.h"
#include "pictures/sample_math.h"

namespace qel::pictures {
namespace {

template <auto kClose>
struct Closer {
  void operator()(void* handle) const { kClose(handle); }
};
using Profile = std::unique_ptr<void, Closer<&cmsCloseProfile>>;
using Transform = std::unique_ptr<void, Closer<&cmsDeleteTransform>>;

/// sRGB, or greys with its tones.
Profile Standard(bool gray) {
  if (!gray) return Profile(cmsCreate_sRGBProfile());
  // The curve of sRGB, of IEC 61966-2-1.
  const cmsFloat64Number parameters[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
  cmsToneCurve* const curve = cmsBuildParametricToneCurve(nullptr, 4, parameters);
  Profile profile(cmsCreateGrayProfile(cmsD50_xyY(), curve));
  cmsFreeToneCurve(curve);
  return profile;
}

constexpr char kSimpleInksNote[] =
    "CMYK was converted to colours without its profile, which was left out";

/// From the profile to the standard one; alpha is not touched.
Transform MakeTransform(const Profile& profile, bool gray, int bytes) {
  const Profile standard = Standard(gray);
  const cmsUInt32Number format = gray ? TYPE_GRAY_8 : bytes == 4 ? TYPE_BGRA_8 : TYPE_BGR_8;
  return Transform(cmsCreateTransform(profile.get(), format, standard.get(), format,
                                      INTENT_RELATIVE_COLORIMETRIC,
                                      cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_COPY_ALPHA));
}

/// Whether no colour of a lattice moves by more than rounding does.
bool ChangesNothing(const Transform& transform, bool gray) {
  constexpr int kStep = 51, kTolerance = 2;
  std::vector<uint8_t> colors;
  for (int b = 0; b <= 255; b += kStep) {
    if (gray) {
      colors.push_back(static_cast<uint8_t>(b));
      continue;
    }
    for (int g = 0; g <= 255; g += kStep) {
      for (int r = 0; r <= 255; r += kStep) {
        for (const int level : {b, g, r}) colors.push_back(static_cast<uint8_t>(level));
      }
    }
  }
  std::vector<uint8_t> converted(colors.size());
  cmsDoTransform(transform.get(), colors.data(), converted.data(),
                 static_cast<cmsUInt32Number>(colors.size() / (gray ? 1 : 3)));
  return std::ranges::equal(colors, converted, [](int before, int after) {
    return std::abs(before - after) <= kTolerance;
  });
}

}  // namespace

ColorConversion::ColorConversion(const ReadOptions& options, PictureInfo& info) {
  const std::vector<uint8_t>& icc = info.metadata.icc_profile;
  if (icc.empty()) return;
  const Profile profile(
      cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size())));
  if (profile == nullptr) return;
  const bool gray = info.bit_count <= 8 && info.palette.empty();
  if (cmsGetColorSpace(profile.get()) != (gray ? cmsSigGrayData : cmsSigRgbData)) return;
  const Transform probe = MakeTransform(profile, gray, 3);
  if (probe == nullptr || ChangesNothing(probe, gray)) return;
  if (!options.to_srgb) {
    info.notes.push_back(fmt::format(
        "its colours are those of the profile {}, not sRGB; steps take them as they are",
        ProfileName(icc)));
    return;
  }
  if (!info.palette.empty()) {
    static_assert(sizeof(PaletteEntry) == 4);
    const Transform transform = MakeTransform(profile, false, 4);
    cmsDoTransform(transform.get(), info.palette.data(), info.palette.data(),
                   static_cast<cmsUInt32Number>(info.palette.size()));
  } else {
    transform_ = MakeTransform(profile, gray, info.bit_count / 8);
  }
  info.metadata.icc_profile.clear();
}

void ColorConversion::Convert(const PixelBuffer& rows, int width, int count) const {
  for (int y = 0; transform_ != nullptr && y < count; ++y) {
    uint8_t* const row = rows.bits + y * rows.stride;
    cmsDoTransform(transform_.get(), row, row, static_cast<cmsUInt32Number>(width));
  }
}

InkConversion::InkConversion(const ReadOptions& options, PictureInfo& info) {
  const std::vector<uint8_t> icc = std::move(info.metadata.icc_profile);
  info.metadata.icc_profile.clear();
  if (options.to_srgb) {
    const Profile profile(
        cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size())));
    const bool fits = profile != nullptr && cmsGetColorSpace(profile.get()) == cmsSigCmykData;
    if (fits) {
      transform_ = Transform(cmsCreateTransform(profile.get(), TYPE_CMYK_8, Standard(false).get(),
                                                TYPE_BGR_8, INTENT_RELATIVE_COLORIMETRIC,
                                                cmsFLAGS_BLACKPOINTCOMPENSATION));
    }
  }
  if (transform_ == nullptr) info.notes.emplace_back(kSimpleInksNote);
}

void InkConversion::Convert(const uint8_t* inks, int count, uint8_t* pixels) const {
  if (transform_ != nullptr) {
    cmsDoTransform(transform_.get(), inks, pixels, static_cast<cmsUInt32Number>(count));
    return;
  }
  for (int x = 0; x < count; ++x, inks += 4, pixels += 3) InkToLight(inks, pixels);
}

}  // namespace qel::pictures
