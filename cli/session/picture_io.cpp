#include "cli/session/picture_io.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "cli/terminal/console.h"
#include "cli/terminal/errors.h"
#include "pictures/atomic_file.h"

namespace qel::cli {

std::vector<RGBQUAD> ToHostPalette(const std::vector<pictures::PaletteEntry>& entries) {
  std::vector<RGBQUAD> palette;
  for (const auto& entry : entries) {
    palette.push_back({entry.blue, entry.green, entry.red, entry.reserved});
  }
  return palette;
}

std::vector<pictures::PaletteEntry> ToFilePalette(std::span<const RGBQUAD> entries) {
  std::vector<pictures::PaletteEntry> palette;
  for (const RGBQUAD& entry : entries) {
    palette.push_back({entry.blue, entry.green, entry.red, entry.reserved});
  }
  return palette;
}

Shape ShapeOf(const pictures::PictureInfo& info) {
  return {info.width, info.height, info.bit_count, operations::ModelOf(info.bit_count)};
}

void PrintNotes(const std::string& path, const std::vector<std::string>& notes) {
  for (const std::string& note : notes) PrintNote(path, note);
}

SmartPtr<host::HostImage> MakeImage(int width, int height, int bit_count) {
  auto image = host::HostImage::Make(kImageOptions);
  if (image->Create(width, height, 1, bit_count, operations::ModelOf(bit_count)) != kOk) {
    throw Failure(kModuleFault, "no memory for an image of {} x {} pixels", width, height);
  }
  return image;
}

Picture DecodePicture(pictures::ByteSource& file, const std::string& name,
                      const pictures::ReadOptions& options) {
  Picture picture;
  const pictures::PictureInfo info =
      pictures::ReadPicture(file, name, options, [&](const pictures::PictureInfo& header) {
        picture.image = MakeImage(header.width, header.height, header.bit_count);
        return pictures::PixelBuffer{picture.image->Bits(), picture.image->stride()};
      });
  picture.image->SetPalette(ToHostPalette(info.palette));
  picture.metadata = info.metadata;
  PrintNotes(name, info.notes);
  return picture;
}

Picture LoadPicture(const std::string& path, const pictures::ReadOptions& options) {
  pictures::ByteSource file(path, options.limits);
  return DecodePicture(file, path, options);
}

void CheckOutputName(const std::string& path) {
  try {
    pictures::FormatOfPath(path);
  } catch (const pictures::PictureError& error) {
    throw Failure(kUsage, "{}", error.what());
  }
}

void CheckOutputIsApart(const std::string& output, const std::vector<std::string>& read) {
  for (const std::string& path : read) {
    std::error_code ignored;
    if (!std::filesystem::equivalent(output, path, ignored)) continue;
    throw Failure(kUsage, "{} would be replaced by the output; give that a name of its own", path);
  }
}

std::vector<uint8_t> EncodeImage(const std::string& path, const host::HostImage& image,
                                 const pictures::Metadata& metadata,
                                 const pictures::WriteOptions& options) {
  const std::vector<pictures::PaletteEntry> palette = ToFilePalette(image.palette());
  const pictures::PictureView view{image.Bits(),   image.stride(),    image.width(),
                                   image.height(), image.bit_count(), palette};
  pictures::EncodedPicture encoded = pictures::EncodePicture(path, view, metadata, options);
  PrintNotes(path, encoded.notes);
  return std::move(encoded.file);
}

void WriteToStandardOutput(std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      throw pictures::PictureError(pictures::PictureError::Kind::kNotWritable, "standard output",
                                   std::strerror(errno));
    }
    bytes = bytes.subspan(static_cast<size_t>(written));
  }
}

void SavePicture(const std::string& path, const host::HostImage& image,
                 const pictures::Metadata& metadata, const pictures::WriteOptions& options) {
  pictures::WriteFileAtomically(path, EncodeImage(path, image, metadata, options));
}

SmartPtr<host::HostImage> CopyOf(host::HostImage& image) {
  auto copy = host::HostImage::Make(kImageOptions);
  copy->Assign(&image, 0);
  return copy;
}

SmartPtr<host::HostImage> AsColor(const host::HostImage& image) {
  SmartPtr<host::HostImage> color = MakeImage(image.width(), image.height(), 32);
  for (int y = 0; y < image.height(); ++y) {
    const uint8_t* const from = image.Row(y);
    uint8_t* const to = color->Row(y);
    if (image.bit_count() == 32) {
      std::memcpy(to, from, static_cast<size_t>(image.RowBytes()));
      continue;
    }
    for (int x = 0; x < image.width(); ++x) {
      uint8_t* const pixel = to + int64_t{4} * x;
      if (image.bit_count() == 24) {
        std::memcpy(pixel, from + int64_t{3} * x, 3);
      } else {
        const int bits = image.bit_count();
        const int64_t position = int64_t{x} * bits;
        const int largest = (1 << bits) - 1;
        const int level = from[position >> 3] >> (8 - bits - (position & 7)) & largest;
        std::memset(pixel, level * 255 / largest, 3);
      }
      pixel[3] = 255;
    }
  }
  return color;
}

host::HostImage& PictureFiles::Get(const std::string& path) {
  const std::lock_guard lock(mutex_);
  SmartPtr<host::HostImage>& image = images_[path];
  if (!image) image = LoadPicture(path, options_).image;
  return *image;
}

void PictureFiles::Provide(const std::string& name, SmartPtr<host::HostImage> image) {
  const std::lock_guard lock(mutex_);
  images_[name] = std::move(image);
}

}  // namespace qel::cli
