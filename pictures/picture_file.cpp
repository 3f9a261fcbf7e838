#include "pictures/picture_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "pictures/atomic_file.h"
#include "pictures/codec.h"

namespace qel::pictures {
namespace {

struct FormatRow {
  Format format;
  std::string_view name;
  std::array<std::string_view, 5> extensions;
  bool (*recognise)(Bytes file);
  PictureInfo (*read)(const Input& input);
  std::vector<uint8_t> (*encode)(const Output& output);
};

constexpr FormatRow kFormats[] = {
    {Format::kPng, "PNG", {".png"}, &IsPng, &ReadPng, &EncodePng},
    {Format::kJpeg, "JPEG", {".jpg", ".jpeg", ".jpe"}, &IsJpeg, &ReadJpeg, &EncodeJpeg},
    {Format::kTiff, "TIFF", {".tif", ".tiff"}, &IsTiff, &ReadTiff, &EncodeTiff},
    {Format::kWebp, "WebP", {".webp"}, &IsWebp, &ReadWebp, &EncodeWebp},
    {Format::kBmp, "BMP", {".bmp", ".dib"}, &IsBmp, &ReadBmp, &EncodeBmp},
    {Format::kPnm, "PNM", {".pnm", ".pbm", ".pgm", ".ppm", ".pam"}, &IsPnm, &ReadPnm, &EncodePnm},
};

const FormatRow& RowOf(Format format) {
  return *std::ranges::find(kFormats, format, &FormatRow::format);
}

/// Closes a descriptor at the end of its block.
struct Closer {
  int descriptor;
  ~Closer() { close(descriptor); }
};

/// A regular file as memory that is read when it is touched; empty for all others.
class Mapping {
 public:
  Mapping(const std::string& path, const Limits& limits) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    if (status.st_size == 0 || !limits.AllowMemory(static_cast<uint64_t>(status.st_size))) return;
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return;
    const Closer closer{descriptor};
    const auto size = static_cast<size_t>(status.st_size);
    void* const start = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
    if (start != MAP_FAILED) content_ = {static_cast<const uint8_t*>(start), size};
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  ~Mapping() {
    if (!content_.empty()) munmap(const_cast<uint8_t*>(content_.data()), content_.size());
  }
  Bytes content() const { return content_; }

 private:
  Bytes content_;
};

PictureInfo Read(Bytes file, const std::string& name, const ReadOptions& options,
                 const Allocate* allocate) {
  if (file.empty()) throw PictureError(PictureError::Kind::kBroken, name, "the file is empty");
  const auto* const row =
      std::ranges::find_if(kFormats, [&](const FormatRow& each) { return each.recognise(file); });
  if (row == std::end(kFormats)) {
    std::string known;
    for (const FormatRow& each : kFormats) known.append(" ").append(each.name);
    throw PictureError(PictureError::Kind::kUnknownFormat, name,
                       "the content is of no known picture format; known are" + known);
  }
  return row->read({file, name, options, allocate});
}

}  // namespace

Format FormatOfPath(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  std::string known;
  for (const FormatRow& row : kFormats) {
    for (const std::string_view candidate : row.extensions) {
      if (candidate.empty()) continue;
      if (candidate == extension) return row.format;
      known.append(" ").append(candidate);
    }
  }
  throw PictureError(PictureError::Kind::kUnknownFormat, path,
                     "the extension names no picture format; known are" + known);
}

std::vector<uint8_t> ReadFile(const std::string& path, const Limits& limits) {
  const auto fail = [&](int error) {
    throw PictureError(PictureError::Kind::kNotReadable, path, std::strerror(error));
  };
  const auto check = [&](uint64_t size) {
    if (limits.AllowMemory(size)) return;
    throw PictureError(
        PictureError::Kind::kTooLarge, path,
        "the file has more bytes than the limit of " + std::to_string(limits.max_memory));
  };
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) fail(errno);
  const Closer closer{descriptor};
  struct stat status;
  if (fstat(descriptor, &status) != 0) fail(errno);
  if (S_ISREG(status.st_mode)) check(static_cast<uint64_t>(status.st_size));

  // One byte more than the file is said to have, so that its end is met without growing.
  std::vector<uint8_t> content(static_cast<size_t>(std::max<off_t>(status.st_size, 4095)) + 1);
  size_t size = 0;
  while (true) {
    const ssize_t got = read(descriptor, content.data() + size, content.size() - size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail(errno);
    if (got == 0) break;
    size += static_cast<size_t>(got);
    check(size);
    if (size == content.size()) content.resize(2 * size);
  }
  content.resize(size);
  return content;
}

PictureInfo ReadPicture(const std::string& path, const ReadOptions& options,
                        const Allocate& allocate) {
  return Read(ReadFile(path, options.limits), path, options, &allocate);
}

PictureInfo ReadPictureFromMemory(std::span<const uint8_t> file, const std::string& name,
                                  const ReadOptions& options, const Allocate& allocate) {
  return Read(file, name, options, &allocate);
}

PictureInfo ReadPictureHeader(const std::string& path, const ReadOptions& options) {
  const Mapping mapping(path, options.limits);
  if (!mapping.content().empty()) return Read(mapping.content(), path, options, nullptr);
  return Read(ReadFile(path, options.limits), path, options, nullptr);
}

PictureInfo ReadPictureHeaderFromMemory(std::span<const uint8_t> file, const std::string& name,
                                        const ReadOptions& options) {
  return Read(file, name, options, nullptr);
}

EncodedPicture EncodePicture(const std::string& name, const PictureView& picture,
                             const Metadata& metadata, const WriteOptions& options) {
  const FormatRow& row = RowOf(options.format ? *options.format : FormatOfPath(name));
  constexpr int kDepths[] = {1, 4, 8, 24, 32};
  EncodedPicture encoded;
  const Output output{name, picture, metadata, options, encoded.notes};
  if (picture.bits == nullptr || picture.width < 1 || picture.height < 1) {
    output.DoesNotFit("a picture without pixels cannot be written");
  }
  if (std::ranges::find(kDepths, picture.bit_count) == std::end(kDepths)) {
    output.DoesNotFit(std::to_string(picture.bit_count) +
                      " bits per pixel cannot be written; 1, 4, 8, 24 and 32 can");
  }
  encoded.file = row.encode(output);
  return encoded;
}

std::vector<std::string> WritePicture(const std::string& path, const PictureView& picture,
                                      const Metadata& metadata, const WriteOptions& options) {
  EncodedPicture encoded = EncodePicture(path, picture, metadata, options);
  WriteFileAtomically(path, encoded.file);
  return std::move(encoded.notes);
}

}  // namespace qel::pictures
