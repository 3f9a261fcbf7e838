#include "pictures/png_chunks.h"

#include <zlib.h>

#include <algorithm>
#include <sstream>
#include <string_view>

#include "pictures/png_session.h"
#include "pictures/text_blocks.h"

namespace qel::pictures {
namespace {

/// Unpacks a deflate stream of a text; nothing for a damaged or very long one.
std::string Inflate(Bytes packed) {
  constexpr size_t kMost = size_t{16} << 20;
  std::string text;
  z_stream stream{};
  stream.next_in = const_cast<Bytef*>(packed.data());  // the library only reads it
  stream.avail_in = static_cast<uInt>(packed.size());
  if (inflateInit(&stream) != Z_OK) throw std::bad_alloc();
  int status = Z_OK;
  while (status == Z_OK && text.size() < kMost) {
    Bytef block[4096];
    stream.next_out = block;
    stream.avail_out = sizeof(block);
    status = inflate(&stream, Z_NO_FLUSH);
    text.append(block, block + (sizeof(block) - stream.avail_out));
    if (stream.avail_in == 0 && stream.avail_out == sizeof(block)) break;
  }
  inflateEnd(&stream);
  return status == Z_STREAM_END ? text : std::string();
}

/// The text behind `fields` strings that end with a 0, packed or not.
std::string TextOf(Bytes content, int fields, bool packed) {
  for (; fields > 0; --fields) {
    const auto end = std::ranges::find(content, 0);
    if (end == content.end()) return {};
    content = content.subspan(static_cast<size_t>(end - content.begin()) + 1);
  }
  return packed ? Inflate(content) : std::string(content.begin(), content.end());
}

/// Bytes that a text has as pairs of hexadecimal digits, behind two lines with a name and their
/// number.
std::vector<uint8_t> BytesOfHex(const std::string& text) {
  std::vector<uint8_t> bytes;
  std::istringstream words(text);
  std::string word;
  words >> word >> word;
  int high = -1;
  while (words >> word) {
    for (const char c : word) {
      const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
      if (digit < 0) return {};
      if (high >= 0) bytes.push_back(static_cast<uint8_t>(high << 4 | digit));
      high = high >= 0 ? -1 : digit;
    }
  }
  return bytes;
}

/// Metadata that stand in texts under names that writers agree on.
void TakeText(Bytes content, std::string_view kind, PngChunks& chunks) {
  const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
  const auto named = [text](std::string_view name) {
    return text.starts_with(name) && text.size() > name.size() && text[name.size()] == '\0';
  };
  if (kind == "iTXt" && named(kPngXmpName) && content.size() > kPngXmpName.size() + 3) {
    const Bytes behind = content.subspan(kPngXmpName.size() + 1);
    chunks.xmp = TextOf(behind.subspan(2), 2, behind[0] != 0);
  } else if (kind != "iTXt" && named(kPngIptcName)) {
    const bool packed = kind == "zTXt";
    const size_t skipped = kPngIptcName.size() + (packed ? 2 : 1);
    if (content.size() <= skipped) return;
    const std::vector<uint8_t> bytes = BytesOfHex(TextOf(content.subspan(skipped), 0, packed));
    const Bytes iptc = StartsWith(bytes, "8BIM") ? IptcOfResources(bytes) : Bytes(bytes);
    chunks.iptc.assign(iptc.begin(), iptc.end());
  }
}

}  // namespace

PngChunks FindPngChunks(const Input& input) {
  constexpr size_t kChunkHeader = 8, kChecksum = 4;
  PngChunks chunks;
  size_t at = kPngSignatureBytes;
  while (true) {
    uint8_t bytes[kChunkHeader];
    const Bytes header(bytes, input.source.Copy(at, bytes));
    if (header.size() < kChunkHeader || StartsWith(header.subspan(4), "IEND")) return chunks;
    const auto is = [&](const char* name) { return StartsWith(header.subspan(4), name); };
    const size_t length = ByteReader(header, ByteOrder::kBig).U32(0);
    if (is("IDAT")) chunks.pixel_bytes += length;
    if (is("iCCP")) chunks.has_profile = true;
    const bool text = is("iTXt") || is("zTXt") || is("tEXt");
    if (is("eXIf") || is("acTL") || is("tRNS") || text) {
      const Bytes whole = input.source.Load(at + 4, length + 4 + kChecksum);
      if (whole.size() < length + 4 + kChecksum) input.Truncated();
      const Bytes content = whole.subspan(4, length);
      const bool intact = ByteReader(whole, ByteOrder::kBig).U32(length + 4) ==
                          crc32(0, whole.data(), static_cast<uInt>(length + 4));
      if (is("tRNS") && !intact) input.Broken("damaged PNG: tRNS: CRC error");
      if (is("eXIf") && intact) chunks.exif.assign(content.begin(), content.end());
      if (text && intact) {
        TakeText(content, {reinterpret_cast<const char*>(whole.data()), 4}, chunks);
      }
      if (is("acTL") && intact) chunks.frames = ByteReader(whole, ByteOrder::kBig).U32(4);
    }
    at += kChunkHeader + length + kChecksum;
  }
}

}  // namespace qel::pictures
