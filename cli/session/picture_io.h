#ifndef QEL_CLI_SESSION_PICTURE_IO_H_
#define QEL_CLI_SESSION_PICTURE_IO_H_

#include <map>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "cli/operations.h"
#include "host/host_image.h"
#include "pictures/picture_file.h"

namespace qel::cli {

/// Images of the tool start out black and transparent, so that bytes which an operation leaves
/// alone are the same in every run.
inline constexpr host::ImageOptions kImageOptions{.clear = true};

/// A picture with what came with it.
struct Picture {
  SmartPtr<host::HostImage> image;
  pictures::Metadata metadata;
};

/// The shape of the image that a file becomes.
Shape ShapeOf(const pictures::PictureInfo& info);

/// Prints what there is to say about a file.
void PrintNotes(const std::string& path, const std::vector<std::string>& notes);

// Palettes, of images and of files.
std::vector<RGBQUAD> ToHostPalette(const std::vector<pictures::PaletteEntry>& entries);
std::vector<pictures::PaletteEntry> ToFilePalette(std::span<const RGBQUAD> entries);

/// An image of `width` x `height` pixels. Throws `Failure(kModuleFault)` when there is no memory.
SmartPtr<host::HostImage> MakeImage(int width, int height, int bit_count);

/// Decodes a picture file straight into an image; `name` stands for the file in messages, notes go
/// to standard error. Throws `pictures::PictureError`.
Picture DecodePicture(pictures::ByteSource& file, const std::string& name,
                      const pictures::ReadOptions& options);
/// The same for a file.
Picture LoadPicture(const std::string& path, const pictures::ReadOptions& options);

/// Throws `Failure(kUsage)` when the extension of an output names no picture format.
void CheckOutputName(const std::string& path);
/// Throws `Failure(kUsage)` when `output` is one of the files `read`, under any name.
void CheckOutputIsApart(const std::string& output, const std::vector<std::string>& read);

/// The bytes of a picture file as the extension of `path` wants them; notes go to standard error.
/// Throws `pictures::PictureError`.
std::vector<uint8_t> EncodeImage(const std::string& path, const host::HostImage& image,
                                 const pictures::Metadata& metadata,
                                 const pictures::WriteOptions& options);
/// Writes bytes of a picture file to standard output. Throws `pictures::PictureError`.
void WriteToStandardOutput(std::span<const uint8_t> bytes);

/// Encodes and writes a picture file.
void SavePicture(const std::string& path, const host::HostImage& image,
                 const pictures::Metadata& metadata, const pictures::WriteOptions& options);

/// An image of its own with the same content.
SmartPtr<host::HostImage> CopyOf(host::HostImage& image);

/// The image as 32 bits, for sheets: greys and colours become opaque.
SmartPtr<host::HostImage> AsColor(const host::HostImage& image);

/// Second pictures of steps, by their paths. Each file is read once.
/// Threads: any.
class PictureFiles final : public operations::PictureSource {
 public:
  explicit PictureFiles(const pictures::ReadOptions& options = {}) : options_(options) {}

  /// The picture called `path`. Throws `pictures::PictureError`.
  host::HostImage& Get(const std::string& path) override;
  /// Puts a picture under a name, as if it were a file.
  void Provide(const std::string& name, SmartPtr<host::HostImage> image);

 private:
  pictures::ReadOptions options_;
  std::mutex mutex_;
  std::map<std::string, SmartPtr<host::HostImage>> images_;
};

}  // namespace qel::cli

#endif  // QEL_CLI_SESSION_PICTURE_IO_H_
