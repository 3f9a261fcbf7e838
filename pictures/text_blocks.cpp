#include "pictures/text_blocks.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace qel::pictures {
namespace {

constexpr std::string_view kResourceMark = "8BIM";
constexpr uint16_t kIptcResource = 0x0404;

bool EndsName(char c) {
  return c == '=' || c == '>' || c == '/' || std::isspace(static_cast<unsigned char>(c));
}

/// Where a property stands in XMP: as an attribute, name="value", or as an element.
struct Property {
  size_t begin, end;              ///< of all of it
  size_t value_begin, value_end;  ///< of its text; npos for an element without
};

/// The next property from `from` on whose name begins with `name`; with the whole name unless
/// `by_beginning`. `begin` is npos when there is none.
Property FindProperty(const std::string& xmp, std::string_view name, size_t from,
                      bool by_beginning) {
  constexpr size_t kNone = std::string::npos;
  for (size_t at = xmp.find(name, from); at != kNone; at = xmp.find(name, at + 1)) {
    if (at == 0) continue;
    size_t past = at + name.size();
    while (by_beginning && past < xmp.size() && !EndsName(xmp[past])) ++past;
    if (past >= xmp.size() || !EndsName(xmp[past])) continue;
    const char before = xmp[at - 1];
    if (before == '<') {
      const size_t open_end = xmp.find('>', past);
      if (open_end == kNone) break;
      if (xmp[open_end - 1] == '/') return {at - 1, open_end + 1, kNone, kNone};
      const std::string closing = "</" + xmp.substr(at, past - at) + ">";
      const size_t close = xmp.find(closing, open_end);
      if (close == kNone) break;
      return {at - 1, close + closing.size(), open_end + 1, close};
    }
    if (std::isspace(static_cast<unsigned char>(before)) && xmp[past] == '=' &&
        past + 1 < xmp.size()) {
      const size_t close = xmp.find(xmp[past + 1], past + 2);
      if (close == kNone) break;
      return {at - 1, close + 1, past + 2, close};
    }
  }
  return {kNone, kNone, kNone, kNone};
}

void ReplaceAll(std::string& xmp, std::string_view name, const std::string& value) {
  const Property found = FindProperty(xmp, name, 0, false);
  if (found.value_begin == std::string::npos) return;
  xmp.replace(found.value_begin, found.value_end - found.value_begin, value);
}

void Drop(std::string& xmp, std::string_view name, bool by_beginning = false) {
  for (size_t from = 0;;) {
    const Property found = FindProperty(xmp, name, from, by_beginning);
    if (found.begin == std::string::npos) return;
    xmp.erase(found.begin, found.end - found.begin);
    from = found.begin;
  }
}

}  // namespace

void MakeXmpUpright(std::string& xmp) {
  ReplaceAll(xmp, "tiff:Orientation", "1");
  Drop(xmp, "xmp:Thumbnails");
  Drop(xmp, "xap:Thumbnails");
}

void SetXmpSize(std::string& xmp, int width, int height) {
  for (const char* const name : {"tiff:ImageWidth", "exif:PixelXDimension"}) {
    ReplaceAll(xmp, name, std::to_string(width));
  }
  for (const char* const name : {"tiff:ImageLength", "exif:PixelYDimension"}) {
    ReplaceAll(xmp, name, std::to_string(height));
  }
}

void DropXmpPlaces(std::string& xmp) {
  Drop(xmp, "exif:GPS", true);
  for (const char* const name :
       {"photoshop:City", "photoshop:State", "photoshop:Country", "Iptc4xmpCore:Location",
        "Iptc4xmpCore:CountryCode", "Iptc4xmpExt:LocationCreated", "Iptc4xmpExt:LocationShown"}) {
    Drop(xmp, name);
  }
}

std::vector<uint8_t> WithoutIptcPlaces(Bytes iptc) {
  constexpr uint8_t kMark = 0x1C, kApplication = 2, kLongSize = 0x80;
  constexpr std::array<uint8_t, 7> kPlaces{26, 27, 90, 92, 95, 100, 101};
  constexpr size_t kHeaderBytes = 5;
  const ByteReader reader(iptc, ByteOrder::kBig);
  std::vector<uint8_t> kept;
  size_t at = 0;
  while (reader.Holds(at, kHeaderBytes) && iptc[at] == kMark) {
    const size_t size = reader.U16(at + 3);
    if (iptc[at + 3] >= kLongSize || !reader.Holds(at + kHeaderBytes, size)) break;
    const Bytes dataset = iptc.subspan(at, kHeaderBytes + size);
    const bool place =
        iptc[at + 1] == kApplication && std::ranges::find(kPlaces, iptc[at + 2]) != kPlaces.end();
    if (!place) kept.insert(kept.end(), dataset.begin(), dataset.end());
    at += dataset.size();
  }
  return kept;
}

Bytes IptcOfResources(Bytes resources) {
  constexpr size_t kNameAt = 6;
  const ByteReader reader(resources, ByteOrder::kBig);
  size_t at = 0;
  while (reader.Holds(at, kNameAt + 1) && StartsWith(resources.subspan(at), kResourceMark.data())) {
    const size_t name_bytes = (size_t{resources[at + kNameAt]} + 2) / 2 * 2;
    const size_t size_at = at + kNameAt + name_bytes;
    const size_t size = reader.U32(size_at);
    if (!reader.Holds(size_at + 4, size)) break;
    if (reader.U16(at + 4) == kIptcResource) return resources.subspan(size_at + 4, size);
    at = size_at + 4 + (size + 1) / 2 * 2;
  }
  return {};
}

std::vector<uint8_t> ResourcesOfIptc(Bytes iptc) {
  constexpr size_t kHeaderBytes = 12;
  std::vector<uint8_t> resources(kHeaderBytes + (iptc.size() + 1) / 2 * 2);
  std::ranges::copy(kResourceMark, resources.begin());
  resources[4] = kIptcResource >> 8;
  resources[5] = kIptcResource & 0xFF;
  for (size_t i = 0; i < 4; ++i) {
    resources[8 + i] = static_cast<uint8_t>(iptc.size() >> (24 - 8 * i));
  }
  std::ranges::copy(iptc, resources.begin() + kHeaderBytes);
  return resources;
}

}  // namespace qel::pictures
