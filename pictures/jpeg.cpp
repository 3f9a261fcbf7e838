#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>  // before the library's header, which uses its types
#include <cstdlib>
#include <exception>
#include <memory>
#include <string_view>

// clang-format off
#include <jpeglib.h>
#include <jerror.h>
// clang-format on

#include "pictures/codec.h"
#include "pictures/colour_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/sample_math.h"
#include "pictures/text_blocks.h"

namespace qel::pictures {
namespace {

constexpr int kExifMarker = JPEG_APP0 + 1;
constexpr int kProfileMarker = JPEG_APP0 + 2;
constexpr int kResourceMarker = JPEG_APP0 + 13;
constexpr unsigned kWholeMarker = 0xFFFF;
constexpr size_t kMostInSegment = 65533;

// What the contents of segments begin with; each ends with a 0.
using std::string_view_literals::operator""sv;
constexpr std::string_view kExifPrefix = "Exif\0\0"sv;
constexpr std::string_view kXmpPrefix = "http://ns.adobe.com/xap/1.0/\0"sv;
constexpr std::string_view kMoreXmpPrefix = "http://ns.adobe.com/xmp/extension/\0"sv;
constexpr std::string_view kResourcePrefix = "Photoshop 3.0\0"sv;

/// The library leaves by longjmp when something is wrong: every call that can fail runs inside
/// `Run`, in functions that hold nothing to be destroyed.
struct Errors {
  Errors() {
    jpeg_std_error(&manager);
    manager.error_exit = &OnError;
    manager.emit_message = &OnMessage;
  }

  /// Runs `step`; false when the library has left it.
  template <typename Step>
  [[gnu::noinline]] bool Run(const Step& step) {
    if (setjmp(escape) != 0) return false;
    step();
    return true;
  }

  [[noreturn]] static void OnError(j_common_ptr jpeg) {
    auto* const errors = static_cast<Errors*>(jpeg->client_data);
    errors->code = jpeg->err->msg_code;
    jpeg->err->format_message(jpeg, errors->message);
    std::longjmp(errors->escape, 1);
  }

  /// Warnings say that the library makes up what is damaged. Where that is pixels they are errors
  /// here; of others the first is kept.
  static void OnMessage(j_common_ptr jpeg, int level) {
    if (level >= 0) return;
    auto* const errors = static_cast<Errors*>(jpeg->client_data);
    const bool harmless = errors->is_harmless != nullptr && errors->is_harmless(jpeg);
    if (!harmless) OnError(jpeg);
    if (errors->warning[0] == '\0') jpeg->err->format_message(jpeg, errors->warning);
  }

  jpeg_error_mgr manager;
  bool (*is_harmless)(j_common_ptr jpeg) = nullptr;
  std::jmp_buf escape;
  int code = 0;
  char message[JMSG_LENGTH_MAX] = "";
  char warning[JMSG_LENGTH_MAX] = "";
};

/// A decoder on a file.
class Decoder {
 public:
  explicit Decoder(const Input& input) : input_(input) {
    jpeg.err = &errors_.manager;
    jpeg.client_data = &errors_;
    errors_.is_harmless = &IsHarmless;
    Run([&] {
      jpeg_create_decompress(&jpeg);
      source_.owner = this;
      source_.init_source = source_.term_source = [](j_decompress_ptr) {};
      source_.fill_input_buffer = &OnEmpty;
      source_.skip_input_data = &OnSkip;
      source_.resync_to_restart = &jpeg_resync_to_restart;
      jpeg.src = &source_;
      progress_.owner = this;
      progress_.progress_monitor = &OnProgress;
      jpeg.progress = &progress_;
    });
  }
  ~Decoder() { jpeg_destroy_decompress(&jpeg); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  template <typename Step>
  void Run(const Step& step) {
    if (errors_.Run(step)) return;
    if (failure_) std::rethrow_exception(failure_);
    switch (errors_.code) {
      case JWRN_JPEG_EOF:
      case JWRN_HIT_MARKER:
      case JERR_INPUT_EOF:
        input_.Truncated();
      case JERR_BAD_PRECISION:
      case JERR_CONVERSION_NOTIMPL:
      case JERR_SOF_UNSUPPORTED:
        input_.Unsupported(std::string("this kind of JPEG is not read: ") + errors_.message);
      default:
        input_.Broken(std::string("damaged JPEG: ") + errors_.message);
    }
  }

  /// The first of the warnings that cost no pixels; may be empty.
  const char* warning() const { return errors_.warning; }
  /// Bit c is set once component c was in a scan.
  unsigned seen_components() const { return seen_components_; }

  jpeg_decompress_struct jpeg{};

 private:
  struct Source : jpeg_source_mgr {
    Decoder* owner = nullptr;
    size_t next = 0;  ///< position in the file of what the library does not have yet
  };
  struct Progress : jpeg_progress_mgr {
    Decoder* owner = nullptr;
  };
  static Decoder& Of(j_decompress_ptr jpeg) { return *static_cast<Source*>(jpeg->src)->owner; }

  /// No exception may pass through the frames of the library.
  Bytes Load(size_t at, size_t count) noexcept try {
    return input_.source.Load(at, count);
  } catch (...) {
    failure_ = std::current_exception();
    return {};
  }

  static boolean OnEmpty(j_decompress_ptr jpeg) {
    constexpr size_t kBlock = size_t{1} << 16;
    Decoder& decoder = Of(jpeg);
    Source& source = decoder.source_;
    const bool header_only = decoder.input_.allocate == nullptr;
    const Bytes block = decoder.Load(source.next, header_only ? kBlock : SIZE_MAX);
    if (block.empty()) ERREXIT(jpeg, JERR_INPUT_EOF);
    source.next_input_byte = block.data();
    source.bytes_in_buffer = block.size();
    source.next += block.size();
    return TRUE;
  }

  static void OnSkip(j_decompress_ptr jpeg, long count) {
    if (count <= 0) return;
    Source& source = Of(jpeg).source_;
    const size_t from_buffer = std::min(static_cast<size_t>(count), source.bytes_in_buffer);
    source.next_input_byte += from_buffer;
    source.bytes_in_buffer -= from_buffer;
    source.next += static_cast<size_t>(count) - from_buffer;
  }

  /// A small file can ask for thousands of passes over a large picture. No writer does.
  static void OnProgress(j_common_ptr common) {
    constexpr int kMostScans = 500, kMostScansOfLarge = 100;
    constexpr int64_t kLarge = int64_t{1} << 22;
    auto* const jpeg = reinterpret_cast<j_decompress_ptr>(common);
    const int64_t pixels = int64_t{jpeg->image_width} * jpeg->image_height;
    if (jpeg->input_scan_number > (pixels > kLarge ? kMostScansOfLarge : kMostScans)) {
      ERREXIT(common, JERR_BAD_PROGRESSION);
    }
    unsigned& seen = Of(jpeg).seen_components_;
    for (int i = 0; i < jpeg->comps_in_scan; ++i) {
      seen |= 1u << jpeg->cur_comp_info[i]->component_index;
    }
  }

  static bool IsHarmless(j_common_ptr common) {
    const auto* const jpeg = reinterpret_cast<j_decompress_ptr>(common);
    switch (common->err->msg_code) {
      case JWRN_EXTRANEOUS_DATA:
        // Between the segments of the header nothing is lost. Behind the data of a scan bytes are
        // left over when the data was damaged, but for writers that fill up with zeros.
        return jpeg->input_scan_number == 0 ||
               Of(const_cast<j_decompress_ptr>(jpeg)).SkippedZeros();
      case JWRN_ADOBE_XFORM:
      case JWRN_BOGUS_ICC:
      case JWRN_JFIF_MAJOR:
      case JWRN_NOT_SEQUENTIAL:
        return true;
      default:
        return false;
    }
  }

  /// Whether all the bytes are 0 that the library passes over just now, in search of a marker.
  bool SkippedZeros() {
    const auto count = static_cast<size_t>(jpeg.err->msg_parm.i[0]);
    const size_t here = source_.next - source_.bytes_in_buffer;  // behind them
    return here >= count &&
           std::ranges::all_of(Load(here - count, count), [](uint8_t byte) { return byte == 0; });
  }

  const Input& input_;
  Errors errors_;
  Source source_{};
  Progress progress_{};
  unsigned seen_components_ = 0;
  std::exception_ptr failure_;
};

/// The metadata in the segments of a file.
struct Segments {
  Exif exif;
  Bytes xmp;
  std::vector<uint8_t> resources;
  bool has_more_xmp = false;
};

Segments ReadSegments(const jpeg_decompress_struct& jpeg) {
  Segments segments;
  for (const auto* marker = jpeg.marker_list; marker != nullptr; marker = marker->next) {
    const Bytes data(marker->data, marker->data_length);
    const auto content = [&](std::string_view prefix) { return data.subspan(prefix.size()); };
    if (marker->marker == kResourceMarker && StartsWith(data, kResourcePrefix.data())) {
      const Bytes part = content(kResourcePrefix);
      segments.resources.insert(segments.resources.end(), part.begin(), part.end());
    }
    if (marker->marker != kExifMarker) continue;
    if (StartsWith(data, "Exif") && segments.exif.IsEmpty()) {
      segments.exif = ParseExif(data).value_or(Exif());
    } else if (StartsWith(data, kXmpPrefix.data()) && segments.xmp.empty()) {
      segments.xmp = content(kXmpPrefix);
    } else if (StartsWith(data, kMoreXmpPrefix.data())) {
      segments.has_more_xmp = true;
    }
  }
  return segments;
}

std::vector<uint8_t> ReadProfile(Decoder& decoder) {
  JOCTET* profile = nullptr;
  unsigned length = 0;
  decoder.Run([&] { jpeg_read_icc_profile(&decoder.jpeg, &profile, &length); });
  if (profile == nullptr) return {};
  const std::unique_ptr<JOCTET, void (*)(void*)> owner(profile, &std::free);
  return {profile, profile + length};
}

Metadata ReadMetadata(const Input& input, Decoder& decoder, const Segments& segments) {
  const jpeg_decompress_struct& jpeg = decoder.jpeg;
  Metadata metadata;
  metadata.icc_profile = ReadProfile(decoder);
  TakeExif(input, segments.exif, metadata);
  TakeXmp(input, segments.xmp, metadata);
  const Bytes iptc = IptcOfResources(segments.resources);
  metadata.iptc.assign(iptc.begin(), iptc.end());
  enum Unit { kNone, kInch, kCentimetre };
  if (jpeg.saw_JFIF_marker && jpeg.density_unit != kNone) {
    const double scale = jpeg.density_unit == kCentimetre ? kCentimetresPerInch : 1;
    metadata.dpi_x = jpeg.X_density * scale;
    metadata.dpi_y = jpeg.Y_density * scale;
  }
  return metadata;
}

/// Blocks of 8 x 8 samples in the picture.
uint64_t CountBlocks(const jpeg_decompress_struct& jpeg) {
  uint64_t blocks = 0;
  for (int i = 0; i < jpeg.num_components; ++i) {
    blocks += uint64_t{jpeg.comp_info[i].width_in_blocks} * jpeg.comp_info[i].height_in_blocks;
  }
  return blocks;
}

bool HasSeveralScans(const jpeg_decompress_struct& jpeg) {
  return jpeg.progressive_mode || jpeg.comps_in_scan < jpeg.num_components;
}

/// Checks what the frame header asks for before anything of its size is made.
void CheckFrame(const Input& input, const jpeg_decompress_struct& jpeg) {
  CheckSize(input, jpeg.image_width, jpeg.image_height);
  const uint64_t blocks = CountBlocks(jpeg);
  // A block takes a bit for its mean, and without progression one more for its end. Arithmetic
  // coding has no such bound, but what it packs tighter is no picture.
  input.CheckHolds(blocks, jpeg.arith_code ? 64 : jpeg.progressive_mode ? 8 : 4);
  if (HasSeveralScans(jpeg)) input.Plan(blocks * sizeof(JBLOCK));
}

/// Decodes rows of inks, which files with an Adobe marker store inverted, through a row of our own.
void ReadInks(Decoder& decoder, const PixelTarget& target) {
  jpeg_decompress_struct& jpeg = decoder.jpeg;
  std::vector<uint8_t> inks(size_t{jpeg.output_width} * 4);
  JSAMPROW row = inks.data();
  while (jpeg.output_scanline < jpeg.output_height) {
    uint8_t* pixel = target.Row(static_cast<int>(jpeg.output_scanline));
    decoder.Run([&] { jpeg_read_scanlines(&jpeg, &row, 1); });
    if (jpeg.saw_Adobe_marker) {
      for (uint8_t& ink : inks) ink = static_cast<uint8_t>(255 - ink);
    }
    for (size_t i = 0; i < inks.size(); i += 4, pixel += 3) InkToLight(&inks[i], pixel);
  }
}

void ReadRows(Decoder& decoder, const PixelTarget& target) {
  jpeg_decompress_struct& jpeg = decoder.jpeg;
  decoder.Run([&] {
    while (jpeg.output_scanline < jpeg.output_height) {
      JSAMPROW row = target.Row(static_cast<int>(jpeg.output_scanline));
      jpeg_read_scanlines(&jpeg, &row, 1);
    }
  });
}

/// An encoder into memory.
class Encoder {
 public:
  explicit Encoder(const Output& output) : output_(output) {
    jpeg.err = &errors_.manager;
    jpeg.client_data = &errors_;
    Run([&] { jpeg_create_compress(&jpeg); });
    destination_.init_destination = &OnStart;
    destination_.empty_output_buffer = &OnFull;
    destination_.term_destination = &OnEnd;
    jpeg.dest = &destination_;
  }
  ~Encoder() { jpeg_destroy_compress(&jpeg); }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  template <typename Step>
  void Run(const Step& step) {
    if (!errors_.Run(step)) output_.EncoderFailed(errors_.message);
  }
  std::vector<uint8_t> TakeFile() { return std::move(destination_.file); }

  jpeg_compress_struct jpeg{};

 private:
  struct Destination : jpeg_destination_mgr {
    uint8_t buffer[1 << 16];
    std::vector<uint8_t> file;

    void Rewind() {
      next_output_byte = buffer;
      free_in_buffer = sizeof(buffer);
    }
    /// No exception may pass through the frames of the library.
    bool Flush(size_t count) noexcept try {
      file.insert(file.end(), buffer, buffer + count);
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  };
  static Destination& DestinationOf(j_compress_ptr jpeg) {
    return *static_cast<Destination*>(jpeg->dest);
  }
  static void OnStart(j_compress_ptr jpeg) { DestinationOf(jpeg).Rewind(); }
  static boolean OnFull(j_compress_ptr jpeg) {
    Destination& destination = DestinationOf(jpeg);
    if (!destination.Flush(sizeof(destination.buffer))) ERREXIT1(jpeg, JERR_OUT_OF_MEMORY, 0);
    destination.Rewind();
    return TRUE;
  }
  static void OnEnd(j_compress_ptr jpeg) {
    Destination& destination = DestinationOf(jpeg);
    const size_t used = sizeof(destination.buffer) - destination.free_in_buffer;
    if (!destination.Flush(used)) ERREXIT1(jpeg, JERR_OUT_OF_MEMORY, 0);
  }

  const Output& output_;
  Errors errors_;
  Destination destination_;
};

void DescribePicture(const Output& output, int bit_count, jpeg_compress_struct& jpeg) {
  constexpr int kFullResolutionQuality = 90;
  const int quality = output.options.jpeg_quality;
  jpeg.image_width = static_cast<JDIMENSION>(output.picture.width);
  jpeg.image_height = static_cast<JDIMENSION>(output.picture.height);
  jpeg.input_components = bit_count / 8;
  jpeg.in_color_space = bit_count == 8 ? JCS_GRAYSCALE : JCS_EXT_BGR;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, quality, TRUE);
  if (quality >= kFullResolutionQuality) {
    jpeg.comp_info[0].h_samp_factor = jpeg.comp_info[0].v_samp_factor = 1;
  }
  jpeg.optimize_coding = TRUE;
  if (output.HasResolution()) {
    const auto density = [](double dpi) {
      return static_cast<UINT16>(std::lround(std::clamp(dpi, 1.0, 65535.0)));
    };
    jpeg.density_unit = 1;
    jpeg.X_density = density(output.metadata.dpi_x);
    jpeg.Y_density = density(output.metadata.dpi_y);
  }
}

/// Writes segments with the metadata that fit into one each.
void WriteSegments(const Output& output, Encoder& encoder) {
  const Metadata& metadata = output.metadata;
  const auto write = [&](int marker, std::string_view prefix, Bytes content, const char* name) {
    if (content.empty()) return;
    if (prefix.size() + content.size() > kMostInSegment) {
      output.notes.push_back(std::string("JPEG holds no ") + name + " of this size; left out");
      return;
    }
    std::vector<uint8_t> segment(prefix.begin(), prefix.end());
    segment.insert(segment.end(), content.begin(), content.end());
    encoder.Run([&] {
      jpeg_write_marker(&encoder.jpeg, marker, segment.data(),
                        static_cast<unsigned>(segment.size()));
    });
  };
  const std::vector<uint8_t> resources =
      metadata.iptc.empty() ? metadata.iptc : ResourcesOfIptc(metadata.iptc);
  write(kExifMarker, kExifPrefix, metadata.exif, "EXIF");
  write(kExifMarker, kXmpPrefix, BytesOf(metadata.xmp), "XMP");
  write(kResourceMarker, kResourcePrefix, resources, "IPTC");
}

}  // namespace

bool IsJpeg(Bytes file) { return StartsWith(file, "\xFF\xD8\xFF"); }

PictureInfo ReadJpeg(const Input& input) {
  Decoder decoder(input);
  jpeg_decompress_struct& jpeg = decoder.jpeg;
  decoder.Run([&] {
    jpeg_save_markers(&jpeg, kExifMarker, kWholeMarker);
    jpeg_save_markers(&jpeg, kProfileMarker, kWholeMarker);
    jpeg_save_markers(&jpeg, kResourceMarker, kWholeMarker);
    jpeg_read_header(&jpeg, TRUE);
  });
  const Segments segments = ReadSegments(jpeg);
  const bool grey = jpeg.jpeg_color_space == JCS_GRAYSCALE;
  const bool inks = jpeg.jpeg_color_space == JCS_CMYK || jpeg.jpeg_color_space == JCS_YCCK;
  if (jpeg.jpeg_color_space == JCS_UNKNOWN) {
    input.Unsupported("a JPEG of " + std::to_string(jpeg.num_components) +
                      " channels of unknown colours is not read");
  }
  jpeg.out_color_space = grey ? JCS_GRAYSCALE : inks ? JCS_CMYK : JCS_EXT_BGR;
  PictureInfo info;
  info.format = Format::kJpeg;
  info.width = static_cast<int>(jpeg.image_width);
  info.height = static_cast<int>(jpeg.image_height);
  info.bit_count = grey ? 8 : 24;
  info.metadata = ReadMetadata(input, decoder, segments);
  if (segments.has_more_xmp) {
    info.notes.emplace_back("of XMP in several segments only the first was kept");
  }
  if (inks) {
    info.metadata.icc_profile.clear();
    info.notes.emplace_back(kCmykNote);
  }
  CheckFrame(input, jpeg);
  PixelTarget target(input, info, segments.exif.Orientation());
  if (!target.WantsPixels()) return info;
  decoder.Run([&] { jpeg_start_decompress(&jpeg); });
  if (inks) {
    ReadInks(decoder, target);
  } else {
    ReadRows(decoder, target);
  }
  decoder.Run([&] { jpeg_finish_decompress(&jpeg); });
  if (HasSeveralScans(jpeg) && decoder.seen_components() != (1u << jpeg.num_components) - 1) {
    input.Broken("damaged JPEG: it has no data for one of its channels");
  }
  if (decoder.warning()[0] != '\0') {
    info.notes.push_back(std::string("the file has faults that cost no pixels: ") +
                         decoder.warning());
  }
  target.Finish();
  return info;
}

void CheckJpegShape(const OutputShape& shape) { shape.CheckSides("JPEG", JPEG_MAX_DIMENSION); }

std::vector<uint8_t> EncodeJpeg(const Output& output) {
  output.NoteLostAlpha("JPEG");
  ColourRows rows(output.picture, ColourRows::Alpha::kDrop);
  const Bytes profile = output.Profile(rows.bit_count() == 8);
  Encoder encoder(output);
  jpeg_compress_struct& jpeg = encoder.jpeg;
  encoder.Run([&] {
    DescribePicture(output, rows.bit_count(), jpeg);
    jpeg_start_compress(&jpeg, TRUE);
  });
  WriteSegments(output, encoder);
  encoder.Run([&] {
    if (!profile.empty()) {
      jpeg_write_icc_profile(&jpeg, profile.data(), static_cast<unsigned>(profile.size()));
    }
  });
  for (int y = 0; y < output.picture.height; ++y) {
    // The library does not write to its input.
    JSAMPROW row = const_cast<JSAMPROW>(rows.Row(y));
    encoder.Run([&] { jpeg_write_scanlines(&jpeg, &row, 1); });
  }
  encoder.Run([&] { jpeg_finish_compress(&jpeg); });
  return encoder.TakeFile();
}

}  // namespace qel::pictures
