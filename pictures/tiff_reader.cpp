#include <fmt/core.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>

#include "pictures/codec.h"
#include "pictures/color_profile.h"
#include "pictures/fresh_pages.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/sample_math.h"
#include "pictures/tiff_header.h"
#include "pictures/tiff_session.h"

namespace qel::pictures {
namespace {

/// Hands out rows of interleaved samples of one byte, from the strips or tiles of the file. Samples
/// below 8 bits keep their values.
class PieceReader {
 public:
  PieceReader(const Input& input, TiffFile& file, TIFF* tiff, const TiffHeader& header)
      : input_(input), file_(file), tiff_(tiff), header_(header), width_(header.width) {
    uint32_t height = 1;
    // Strips are decoded row by row, but for those of one channel each.
    if (TIFFIsTiled(tiff)) {
      TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &width_);
      TIFFGetField(tiff, TIFFTAG_TILELENGTH, &height);
    } else if (header.IsPlanar()) {
      TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &height);
      height = std::min(height, header.height);
    }
    if (width_ == 0 || height == 0) input.Broken("damaged TIFF: pieces without pixels");
    height_ = height;
    stored_samples_ = header.IsPlanar() ? 1 : header.samples;
    planes_ = header.IsPlanar() ? header.UsedSamples() : 1;
    row_bytes_ = (width_ * stored_samples_ * header.bits + 7) / 8;
    piece_bytes_ = TIFFIsTiled(tiff)   ? TIFFTileSize64(tiff)
                   : header.IsPlanar() ? TIFFStripSize64(tiff)
                                       : TIFFScanlineSize64(tiff);
    const uint64_t across = (uint64_t{header.width} + width_ - 1) / width_;
    held_bytes_ = CheckedProduct(piece_bytes_, static_cast<uint64_t>(planes_) * across);
    input.Plan(held_bytes_);
    if (piece_bytes_ < CheckedProduct(row_bytes_, height_)) {
      input.Broken("damaged TIFF: pieces of the wrong size");
    }
  }

  /// Calls `put(samples, count, x)` for each piece of the next row.
  template <typename Put>
  void ForEachInRow(const Put& put) {
    if (pieces_.size() == 0) {
      pieces_.Resize(held_bytes_);
      samples_.Resize(std::min<uint64_t>(width_, header_.width) *
                      static_cast<uint64_t>(header_.UsedSamples()));
    }
    const uint64_t row = y_ % height_;
    // Bytes that already lie as they are handed out.
    const bool ready =
        header_.bits == 8 && header_.samples == header_.UsedSamples() && planes_ == 1;
    uint8_t* piece = pieces_.data();
    for (uint64_t left = 0; left < header_.width; left += width_) {
      const uint64_t count = std::min<uint64_t>(width_, header_.width - left);
      for (int plane = 0; row == 0 && plane < planes_; ++plane) ReadPiece(piece, left, plane);
      const uint8_t* from = piece + row * row_bytes_;
      if (!ready) {
        Unpack(from, count, samples_.data());
        from = samples_.data();
      }
      put(from, static_cast<int>(count), static_cast<int>(left));
      piece += piece_bytes_ * static_cast<uint64_t>(planes_);
    }
    ++y_;
  }

 private:
  void ReadPiece(uint8_t* pieces, uint64_t left, int plane) {
    uint8_t* const piece = pieces + piece_bytes_ * static_cast<uint64_t>(plane);
    const auto x = static_cast<uint32_t>(left);
    const auto y = static_cast<uint32_t>(y_);
    const auto sample = static_cast<uint16_t>(plane);
    const auto room = static_cast<tmsize_t>(piece_bytes_);
    const uint64_t rows = std::min(height_, header_.height - y_);
    tmsize_t got;
    file_.decoding = true;
    if (TIFFIsTiled(tiff_)) {
      got = TIFFReadEncodedTile(tiff_, TIFFComputeTile(tiff_, x, y, 0, sample), piece, room);
    } else if (header_.IsPlanar()) {
      got = TIFFReadEncodedStrip(tiff_, TIFFComputeStrip(tiff_, y, sample), piece, room);
    } else {
      got = TIFFReadScanline(tiff_, piece, y, 0) == 1 ? room : -1;
    }
    file_.decoding = false;
    const bool complete = got >= 0 && static_cast<uint64_t>(got) >= row_bytes_ * rows;
    if (!complete || file_.HasFailed()) file_.Fail(input_);
  }

  /// `row` is the row in the first plane's piece.
  void Unpack(const uint8_t* row, uint64_t count, uint8_t* out) const {
    const auto used = static_cast<uint64_t>(header_.UsedSamples());
    for (uint64_t sample = 0; sample < used; ++sample) {
      const uint64_t plane = planes_ > 1 ? sample : 0;
      const uint64_t first = planes_ > 1 ? 0 : sample;
      for (uint64_t x = 0; x < count; ++x) {
        out[x * used + sample] = Sample(row + plane * piece_bytes_, x * stored_samples_ + first);
      }
    }
  }

  uint8_t Sample(const uint8_t* row, uint64_t index) const {
    if (header_.bits == 8) return row[index];
    if (header_.bits < 8) return LoadIndex(row, header_.bits, static_cast<int64_t>(index));
    uint16_t value;
    std::memcpy(&value, row + 2 * index, sizeof(value));
    return ReduceToByte(value);
  }

  const Input& input_;
  TiffFile& file_;
  TIFF* tiff_;
  const TiffHeader& header_;
  uint32_t width_;  ///< of a piece
  uint64_t height_;
  uint64_t stored_samples_;  ///< side by side in a piece
  int planes_;
  uint64_t row_bytes_;
  uint64_t piece_bytes_;
  uint64_t held_bytes_;  ///< of all pieces side by side
  FreshPages pieces_;
  FreshPages samples_;  ///< of a row of a piece
  uint64_t y_ = 0;      ///< the next row
};

/// Colours, or grey with alpha or of 16 bits: samples to pixels.
void ConvertSamples(const TiffHeader& header, const std::optional<InkConversion>& inks,
                    const uint8_t* samples, int count, uint8_t* pixel) {
  if (inks && header.alpha == TiffAlpha::kNone) {
    inks->Convert(samples, count, pixel);
    return;
  }
  const int used = header.UsedSamples();
  const int colors = header.ColorSamples();
  const uint8_t flip = header.photometric == PHOTOMETRIC_MINISWHITE ? 255 : 0;
  for (int x = 0; x < count; ++x, samples += used) {
    uint8_t* const begin = pixel;
    if (colors == 1) {
      const int repeats = used == 1 ? 1 : 3;
      pixel = std::fill_n(pixel, repeats, static_cast<uint8_t>(samples[0] ^ flip));
    } else if (colors == 3) {
      pixel = std::reverse_copy(samples, samples + 3, pixel);
    } else {
      inks->Convert(samples, 1, pixel);
      pixel += 3;
    }
    if (header.alpha == TiffAlpha::kNone) continue;
    const uint8_t alpha = samples[colors];
    if (header.alpha == TiffAlpha::kAssociated) {
      for (uint8_t* c = begin; c < pixel; ++c) *c = DivideByAlpha(*c, alpha);
    }
    *pixel++ = alpha;
  }
}

/// What the library takes for its own conversion.
struct RgbaImage : TIFFRGBAImage {
  RgbaImage(const Input& input, TIFF* tiff) : TIFFRGBAImage{} {
    char reason[1024] = "";
    if (!TIFFRGBAImageBegin(this, tiff, 1, reason)) {
      input.Unsupported("this kind of TIFF is not read: {}", reason);
    }
    req_orientation = orientation;  // rows as they are stored
  }
  ~RgbaImage() { TIFFRGBAImageEnd(this); }
  RgbaImage(const RgbaImage&) = delete;
  RgbaImage& operator=(const RgbaImage&) = delete;
};

/// The library's own conversion, for kinds of colour that we do not know ourselves; row by row.
class LibraryConversion {
 public:
  LibraryConversion(const Input& input, TiffFile& file, TIFF* tiff)
      : input_(input), file_(file), image_(input, tiff), band_rows_(BandRows(tiff)) {
    input.Plan(2 * BandBytes());  // and about as much inside the library
  }

  bool HasAlpha() const { return image_.alpha != 0; }

  /// Reads the next row.
  void Read(uint8_t* pixel) {
    if (y_ % band_rows_ == 0) ReadBand();
    const uint32_t* from = Band() + uint64_t{y_++ % band_rows_} * image_.width;
    for (uint32_t x = 0; x < image_.width; ++x, ++from) {
      const unsigned a = TIFFGetA(*from);
      // Colours come multiplied by alpha.
      for (const unsigned level : {TIFFGetB(*from), TIFFGetG(*from), TIFFGetR(*from)}) {
        *pixel++ = HasAlpha() ? DivideByAlpha(level, a) : static_cast<uint8_t>(level);
      }
      if (HasAlpha()) *pixel++ = static_cast<uint8_t>(a);
    }
  }

 private:
  /// Rows that are best converted together.
  uint32_t BandRows(TIFF* tiff) const {
    constexpr uint32_t kEnough = 64;
    uint32_t rows = 0;
    if (TIFFIsTiled(tiff)) {
      TIFFGetField(tiff, TIFFTAG_TILELENGTH, &rows);
    } else {
      TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rows);
    }
    if (rows >= kEnough || rows == 0) return std::min(std::max(rows, 1u), image_.height);
    return std::min(kEnough / rows * rows, image_.height);
  }
  uint64_t BandBytes() const { return uint64_t{image_.width} * band_rows_ * sizeof(uint32_t); }
  uint32_t* Band() const { return reinterpret_cast<uint32_t*>(band_.data()); }

  void ReadBand() {
    band_.Resize(BandBytes());
    const uint32_t rows = std::min(band_rows_, image_.height - y_);
    image_.row_offset = static_cast<int>(y_);
    file_.decoding = true;
    const bool read = TIFFRGBAImageGet(&image_, Band(), image_.width, rows) != 0;
    if (!read || file_.HasFailed()) file_.Fail(input_);
    file_.decoding = false;
  }

  const Input& input_;
  TiffFile& file_;
  RgbaImage image_;
  uint32_t band_rows_;
  FreshPages band_;
  uint32_t y_ = 0;  ///< the next row
};

class TiffDecoder final : public RowDecoder {
 public:
  explicit TiffDecoder(const Input& input) : file_(input.source) {
    // Directories need some memory however small the picture must be.
    constexpr int64_t kForDirectories = int64_t{1} << 24;
    tiff_ = OpenTiffFile(file_, "r", std::max(input.options.limits.max_memory, kForDirectories));
    if (tiff_ == nullptr || file_.palette_lost) file_.Fail(input);
    header_ = ReadTiffHeader(tiff_.get());
    CheckSize(input, header_.width, header_.height);
    CheckTiffPieces(input, tiff_.get(), header_);
    info.format = Format::kTiff;
    info.width = static_cast<int>(header_.width);
    info.height = static_cast<int>(header_.height);
    orientation = header_.orientation;
    ReadTiffMetadata(input, tiff_.get(), header_, info);
    if (!header_.ConvertsDirectly()) {
      conversion_.emplace(input, file_, tiff_.get());
      info.bit_count = conversion_->HasAlpha() ? 32 : 24;
      return;
    }
    if (header_.bits <= 8 && header_.UsedSamples() == 1) {
      const auto meaning =
          header_.IsGray() ? IndexRows::Meaning::kGray : IndexRows::Meaning::kColor;
      indices_.emplace(input.options, header_.bits, ReadTiffPalette(input, tiff_.get(), header_),
                       meaning, info);
    } else {
      info.bit_count = header_.alpha != TiffAlpha::kNone ? 32 : header_.IsGray() ? 8 : 24;
    }
    if (header_.HasInks()) inks_.emplace(input.options, info);
    pieces_.emplace(input, file_, tiff_.get(), header_);
  }

  void Read(const PixelBuffer& rows, int count) override {
    const ptrdiff_t bytes = info.bit_count / 8;
    for (int i = 0; i < count; ++i) {
      uint8_t* const row = rows.bits + i * rows.stride;
      if (conversion_) {
        conversion_->Read(row);
        continue;
      }
      pieces_->ForEachInRow([&](const uint8_t* samples, int length, int x) {
        if (indices_) {
          indices_->Put(samples, length, row, x);
        } else {
          ConvertSamples(header_, inks_, samples, length, row + x * bytes);
        }
      });
    }
  }

  void Finish() override {
    if (file_.note[0] == '\0') return;
    info.notes.push_back(fmt::format("the file has faults that cost no pixels: {}", file_.note));
  }

 private:
  TiffFile file_;
  Tiff tiff_;
  TiffHeader header_;
  std::optional<LibraryConversion> conversion_;
  std::optional<PieceReader> pieces_;
  std::optional<IndexRows> indices_;
  std::optional<InkConversion> inks_;
};

}  // namespace

bool IsTiff(Bytes file) {
  if (file.size() < 8) return false;
  const bool little = StartsWith(file, "II");
  if (!little && !StartsWith(file, "MM")) return false;
  constexpr uint16_t kClassic = 42, kBig = 43;
  const uint16_t version = ByteReader(file, little ? ByteOrder::kLittle : ByteOrder::kBig).U16(2);
  return version == kClassic || version == kBig;
}

std::unique_ptr<RowDecoder> OpenTiff(const Input& input) {
  return std::make_unique<TiffDecoder>(input);
}

}  // namespace qel::pictures
