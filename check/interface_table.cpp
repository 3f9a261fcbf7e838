#include "check/interface_table.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "host/host_collection.h"

namespace qel::check {
namespace {

/// A row for `name` that goes on where its base interface ends.
InterfaceRow Row(std::string_view name, std::string_view base_slots, std::string_view own_slots) {
  InterfaceRow row{name, __IIDOfc(name.data()), {"QueryInterface", "AddRef", "Release"}};
  for (std::string_view slots : {base_slots, own_slots}) {
    while (!slots.empty()) {
      const size_t end = std::min(slots.find(' '), slots.size());
      row.slots.push_back(slots.substr(0, end));
      slots.remove_prefix(std::min(end + 1, slots.size()));
    }
  }
  return row;
}

constexpr std::string_view kString = "ReservedSlot3 ReservedSlot4";
constexpr std::string_view kImage = "GetSize GetFormat GetBits Create ReservedSlot7";
constexpr std::string_view kAssignable = "GetSize GetFormat GetBits Create ReservedSlot7 Assign";

}  // namespace

const std::vector<InterfaceRow>& InterfaceTable() {
  static const std::vector<InterfaceRow> table = [] {
    std::vector<InterfaceRow> rows = {
        Row("IUnknown", "", ""),
        Row("IObjectInfo", "", "GetName"),
        Row("IQELColorTransform", "",
            "Colorize Lut Negative GrayScale ShiftRGB Gamma Light SetImageAlpha "
            "SetImageAlphaTransparency SetImageTransparentPixel Threshold"),
        Row("IQELTransform", "",
            "Flip Mirror Rotate Skew Resample IncreaseBpp RotatePaste FlipBits Quad Transform "
            "TransformPaste FlipImageAndBits"),
        Row("IQELDeform", "", "CircleTransform"),
        Row("IQELFilterTransform", "",
            "Erode Edge Dilate Filter Contour Jitter Noise Median Emboss Blur Soften Sharpen "
            "GaussianBlur"),
        Row("IQELMaths", "", "Equal Copy AddScale Scale Subtract CreateDestImage Add Scale8"),
        Row("ITransform", "", "TransformPoint"),
        Row("IComponentCollection", "",
            "ReservedSlot3 GetItem FindItem ReservedSlot6 ReservedSlot7 ReservedSlot8 "
            "ReservedSlot9 ReservedSlot10 ReservedSlot11 ReservedSlot12 ReservedSlot13 "
            "ReservedSlot14 ReservedSlot15 CreateComponent"),
        Row("IString", kString, ""),
        Row("ICreatableString", kString, "AppendChars"),
        Row("IComponentString", kString, "CreateInstance SetPart"),
        Row("IQEL", kImage, ""),
        Row("IQELImage", kAssignable, ""),
        Row("IQELImageDIB", kAssignable, "Fill"),
        Row("IQELImagePalette", "", "ReservedSlot3 GetPalette"),
    };
    rows.front().iid = IID_IUnknown;  // the one that does not come from a name
    return rows;
  }();
  return table;
}

const InterfaceRow& ComponentRow::Interface() const {
  const auto found = std::ranges::find(InterfaceTable(), interface_name, &InterfaceRow::name);
  if (found == InterfaceTable().end()) throw std::logic_error("no interface of this name");
  return *found;
}

const std::vector<ComponentRow>& ModuleComponents() {
  static const std::vector<ComponentRow> rows = {
      {kColorTransformName, "IQELColorTransform"},
      {kTransformName, "IQELTransform"},
      {kDeformName, "IQELDeform"},
      {kFilterTransformName, "IQELFilterTransform"},
      {kMathsName, "IQELMaths"},
  };
  return rows;
}

const std::vector<ComponentRow>& HostComponents() {
  static const std::vector<ComponentRow> rows = {
      {kCollectionComponentName, "IComponentCollection"},
      {kLocatorComponentName, "IComponentString"},
      {kStringComponentName, "ICreatableString"},
      {kImageComponentName, "IQELImageDIB"},
  };
  return rows;
}

std::string PlainName(std::wstring_view name) {
  std::string plain;
  for (const wchar_t c : name) plain += c > 0 && c < 0x80 ? static_cast<char>(c) : '?';
  return plain;
}

std::string FormatIid(const IID& iid) {
  std::string text;
  for (size_t i = 0; i < sizeof(iid.bytes); ++i) {
    char byte[3];
    std::snprintf(byte, sizeof(byte), "%02X", iid.bytes[i]);
    if (i > 0 && i % 4 == 0) text += '-';
    text += byte;
  }
  return text;
}

}  // namespace qel::check
