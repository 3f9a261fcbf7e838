#include "pictures/picture_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "pictures/atomic_file.h"
#include "pictures/codec.h"

namespace qel::pictures {
namespace {

struct FormatRow {
  Format format;
  std::string_view name;
  std::vector<std::string_view> extensions;
  bool (*recognise)(Bytes file);
  PictureInfo (*read)(const Input& input);
  std::vector<uint8_t> (*encode)(const Output& output);
};

const std::vector<FormatRow>& Formats() {
  static const std::vector<FormatRow> formats = {
      {Format::kPng, "PNG", {"png"}, &IsPng, &ReadPng, &EncodePng},
      {Format::kJpeg, "JPEG", {"jpg", "jpeg", "jpe"}, &IsJpeg, &ReadJpeg, &EncodeJpeg},
      {Format::kTiff, "TIFF", {"tif", "tiff"}, &IsTiff, &ReadTiff, &EncodeTiff},
      {Format::kWebp, "WebP", {"webp"}, &IsWebp, &ReadWebp, &EncodeWebp},
      {Format::kBmp, "BMP", {"bmp", "dib"}, &IsBmp, &ReadBmp, &EncodeBmp},
      {Format::kPnm, "PNM", {"pnm", "pbm", "pgm", "ppm", "pam"}, &IsPnm, &ReadPnm, &EncodePnm},
  };
  return formats;
}

const FormatRow& RowOfPath(const std::string& path) {
  const size_t slash = path.rfind('/');
  const size_t dot = path.rfind('.');
  std::string extension;
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) {
    extension = path.substr(dot + 1);
  }
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  std::string known;
  for (const FormatRow& row : Formats()) {
    if (std::ranges::find(row.extensions, extension) != row.extensions.end()) return row;
    for (const std::string_view name : row.extensions) known += " ." + std::string(name);
  }
  throw PictureError(PictureError::Kind::kUnknownFormat, path,
                     "the extension names no picture format; known are" + known);
}

/// Reads a whole file, regular or not (a pipe ends when it ends), up to the limit.
std::vector<uint8_t> ReadFile(const std::string& path, int64_t max_bytes) {
  const auto fail = [&] {
    throw PictureError(PictureError::Kind::kNotReadable, path, std::strerror(errno));
  };
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) fail();
  struct Closer {
    int descriptor;
    ~Closer() { close(descriptor); }
  } const closer{descriptor};
  struct stat status;
  if (fstat(descriptor, &status) != 0) fail();
  if (S_ISDIR(status.st_mode)) {
    errno = EISDIR;
    fail();
  }
  std::vector<uint8_t> content;
  size_t room = S_ISREG(status.st_mode) ? static_cast<size_t>(status.st_size) : 0;
  for (size_t size = 0;;) {
    if (static_cast<int64_t>(std::max(size, room)) > max_bytes) {
      throw PictureError(
          PictureError::Kind::kTooLarge, path,
          "the file is larger than the limit of " + std::to_string(max_bytes) + " bytes");
    }
    content.resize(std::max(room, size + (size == 0 ? size_t{4096} : size)));
    if (room == 0 || size < room) {
      const ssize_t got = read(descriptor, content.data() + size, content.size() - size);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) fail();
      size += static_cast<size_t>(got);
      if (got > 0 && (room == 0 || size < room)) continue;
    }
    content.resize(size);
    return content;
  }
}

}  // namespace

Format FormatOfPath(const std::string& path) { return RowOfPath(path).format; }

PictureInfo ReadPictureFromMemory(std::span<const uint8_t> file, const std::string& name,
                                  const ReadOptions& options, const Allocate& allocate) {
  if (file.empty()) {
    throw PictureError(PictureError::Kind::kBroken, name, "the file is empty");
  }
  for (const FormatRow& row : Formats()) {
    if (row.recognise(file)) return row.read({file, name, options, allocate});
  }
  throw PictureError(PictureError::Kind::kUnknownFormat, name,
                     "not a picture that is known; PNG, JPEG, TIFF, WebP, BMP and PNM are");
}

PictureInfo ReadPicture(const std::string& path, const ReadOptions& options,
                        const Allocate& allocate) {
  const std::vector<uint8_t> content = ReadFile(path, options.limits.max_file_bytes);
  return ReadPictureFromMemory(content, path, options, allocate);
}

std::vector<std::string> WritePicture(const std::string& path, const PictureView& picture,
                                      const Metadata& metadata, const WriteOptions& options) {
  const FormatRow& row = RowOfPath(path);
  if (picture.bits == nullptr || picture.width < 1 || picture.height < 1) {
    throw PictureError(PictureError::Kind::kNotWritable, path, "a picture without pixels");
  }
  if (picture.bit_count != 1 && picture.bit_count != 4 && picture.bit_count != 8 &&
      picture.bit_count != 24 && picture.bit_count != 32) {
    throw PictureError(PictureError::Kind::kNotWritable, path,
                       std::to_string(picture.bit_count) +
                           " bits per pixel cannot be written; 1, 4, 8, 24 and 32 can");
  }
  std::vector<std::string> notes;
  const std::vector<uint8_t> bytes = row.encode({path, picture, metadata, options, notes});
  WriteFileAtomically(path, bytes);
  return notes;
}

}  // namespace qel::pictures
