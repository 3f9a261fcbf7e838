#include <algorithm>
#include <cstring>
#include <memory>

#include "pictures/codec.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/tiff_session.h"

namespace qel::pictures {
namespace {

void WriteColors(const Output& output, TIFF* tiff) {
  const PictureView& picture = output.shape;
  const auto set = [tiff](uint32_t tag, unsigned value) { TIFFSetField(tiff, tag, value); };
  set(TIFFTAG_BITSPERSAMPLE, static_cast<unsigned>(std::min(picture.bit_count, 8)));
  if (picture.bit_count >= 24) {
    set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    set(TIFFTAG_SAMPLESPERPIXEL, static_cast<unsigned>(picture.bit_count / 8));
    const uint16_t kind = EXTRASAMPLE_UNASSALPHA;
    if (picture.bit_count == 32) TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &kind);
    return;
  }
  set(TIFFTAG_SAMPLESPERPIXEL, 1);
  if (picture.palette.empty()) {
    set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    return;
  }
  set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
  uint16_t red[256] = {};
  uint16_t green[256] = {};
  uint16_t blue[256] = {};
  size_t i = 0;
  for (const PaletteEntry& entry : PaletteOf(picture)) {
    red[i] = static_cast<uint16_t>(entry.red * 257);
    green[i] = static_cast<uint16_t>(entry.green * 257);
    blue[i++] = static_cast<uint16_t>(entry.blue * 257);
  }
  TIFFSetField(tiff, TIFFTAG_COLORMAP, red, green, blue);
}

void WriteTexts(const Metadata& metadata, const Exif& exif, TIFF* tiff) {
  TIFFSetField(tiff, TIFFTAG_ORIENTATION, exif.Orientation());
  for (const ExifEntry& entry : exif.main) {
    if (std::ranges::find(kTiffTextTags, entry.tag) == std::end(kTiffTextTags)) continue;
    const std::string text(entry.data.begin(), entry.data.end());
    TIFFSetField(tiff, entry.tag, text.c_str());
  }
  if (!metadata.xmp.empty()) {
    TIFFSetField(tiff, TIFFTAG_XMLPACKET, static_cast<uint32_t>(metadata.xmp.size()),
                 metadata.xmp.data());
  }
  if (!metadata.iptc.empty()) {
    TIFFSetField(tiff, TIFFTAG_RICHTIFFIPTC, static_cast<uint32_t>(metadata.iptc.size()),
                 metadata.iptc.data());
  }
  // Positions that are known only when the file is there.
  constexpr uint64_t kLater = 8;
  if (!exif.photo.empty()) TIFFSetField(tiff, TIFFTAG_EXIFIFD, kLater);
  if (!exif.places.empty()) TIFFSetField(tiff, TIFFTAG_GPSIFD, kLater);
}

/// Appends the directories that the library does not write, and points to them.
void AppendDirectories(const Exif& exif, TiffFile& file) {
  if (exif.photo.empty() && exif.places.empty()) return;
  const ExifAppendix appendix = SerializeExifForTiff(exif, (file.written + 1) / 2 * 2);
  const ByteReader reader{Bytes(file.tail)};
  const size_t first = file.directory_at - file.tail_at + 2;
  for (size_t i = 0; i < reader.U16(first - 2); ++i) {
    const size_t at = first + 12 * i;
    const uint16_t tag = reader.U16(at);
    const uint32_t position = tag == kExifTag  ? appendix.photo_at
                              : tag == kGpsTag ? appendix.places_at
                                               : 0;
    std::vector<uint8_t> bytes;
    AppendLittle(bytes, position, sizeof(position));
    if (position != 0) file.sink->WriteAt(file.tail_at + at + 8, bytes);
  }
  if (file.written % 2 != 0) file.sink->Write(std::vector<uint8_t>(1));
  file.sink->Write(appendix.bytes);
}

void WriteHeader(const Output& output, TIFF* tiff) {
  const PictureView& picture = output.shape;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(picture.width));
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(picture.height));
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  WriteColors(output, tiff);
  const bool levels = picture.bit_count >= 8 && picture.palette.empty();
  TIFFSetField(tiff, TIFFTAG_PREDICTOR, levels ? PREDICTOR_HORIZONTAL : PREDICTOR_NONE);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
  const Bytes profile = output.Profile(picture.bit_count <= 8 && picture.palette.empty());
  if (!profile.empty()) {
    TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(profile.size()), profile.data());
  }
  if (output.HasResolution()) {
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, output.metadata.dpi_x);
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, output.metadata.dpi_y);
  }
}

/// Positions of 32 bits end at 4 GiB, and packed noise takes half more than plain.
bool NeedsWidePositions(const PictureView& shape) {
  const uint64_t bytes =
      RowBytes(shape.width, shape.bit_count) * static_cast<uint64_t>(shape.height);
  return bytes / 2 * 3 > UINT32_MAX;
}

class TiffEncoder final : public RowEncoder {
 public:
  explicit TiffEncoder(const Output& output)
      : RowEncoder(output),
        file_(output.sink),
        tiff_(OpenTiffFile(file_, NeedsWidePositions(output.shape) ? "w8" : "w", 0)),
        exif_(ParseExif(output.metadata.exif).value_or(Exif())),
        row_(RowBytes(output.shape.width, output.shape.bit_count)) {
    if (tiff_ == nullptr) file_.Fail(output);
    if (NeedsWidePositions(output.shape) && !(exif_.photo.empty() && exif_.places.empty())) {
      output.Note("TIFF of this size holds no EXIF; left out");
      exif_.photo.clear();
      exif_.places.clear();
    }
    WriteHeader(output, tiff_.get());
    WriteTexts(output.metadata, exif_, tiff_.get());
  }

  void Write(const PictureView& rows) override {
    const ptrdiff_t samples = rows.bit_count / 8;
    for (int y = 0; y < rows.height; ++y) {
      std::copy_n(rows.Row(y), row_.size(), row_.begin());
      uint8_t* const end = row_.data() + row_.size();
      for (uint8_t* out = row_.data(); samples >= 3 && out < end; out += samples) {
        std::swap(out[0], out[2]);
      }
      if (TIFFWriteScanline(tiff_.get(), row_.data(), next_++) != 1) file_.Fail(output_);
    }
  }

  void Finish() override {
    if (TIFFFlushData(tiff_.get()) != 1) file_.Fail(output_);
    file_.tail_at = file_.written;
    if (TIFFFlush(tiff_.get()) != 1) file_.Fail(output_);
    tiff_.reset();
    AppendDirectories(exif_, file_);
  }

 private:
  TiffFile file_;
  Tiff tiff_;
  Exif exif_;
  std::vector<uint8_t> row_;
  uint32_t next_ = 0;
};

}  // namespace

std::unique_ptr<RowEncoder> StartTiff(const Output& output) {
  return std::make_unique<TiffEncoder>(output);
}

}  // namespace qel::pictures
