#include <fmt/core.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>

#include "pictures/codec.h"
#include "pictures/color_profile.h"
#include "pictures/jpeg_session.h"
#include "pictures/pixel_target.h"
#include "pictures/text_blocks.h"

namespace qel::pictures {
namespace {

/// The library on a file.
class JpegReadSession {
 public:
  explicit JpegReadSession(const Input& input) : input_(input) {
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
  ~JpegReadSession() { jpeg_destroy_decompress(&jpeg); }
  JpegReadSession(const JpegReadSession&) = delete;
  JpegReadSession& operator=(const JpegReadSession&) = delete;

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
        input_.Unsupported("this kind of JPEG is not read: {}", errors_.message);
      default:
        input_.Broken("damaged JPEG: {}", errors_.message);
    }
  }

  /// The first of the warnings that cost no pixels; may be empty.
  const char* warning() const { return errors_.warning; }
  /// Bit c is set once component c was in a scan.
  unsigned seen_components() const { return seen_components_; }

  jpeg_decompress_struct jpeg{};

 private:
  struct Source : jpeg_source_mgr {
    JpegReadSession* owner = nullptr;
    size_t next = 0;  ///< position in the file of what the library does not have yet
  };
  struct Progress : jpeg_progress_mgr {
    JpegReadSession* owner = nullptr;
  };
  static JpegReadSession& Of(j_decompress_ptr jpeg) {
    return *static_cast<Source*>(jpeg->src)->owner;
  }

  /// No exception may pass through the frames of the library.
  Bytes Load(size_t at, size_t count) noexcept try {
    // Some stays for `SkippedZeros`.
    constexpr size_t kBehind = size_t{1} << 20;
    input_.source.KeepOnly(std::max(at, kBehind) - kBehind);
    return input_.source.Load(at, count);
  } catch (...) {
    failure_ = std::current_exception();
    return {};
  }

  static boolean OnEmpty(j_decompress_ptr jpeg) {
    constexpr size_t kAtOnce = size_t{1} << 16;
    JpegReadSession& session = Of(jpeg);
    Source& source = session.source_;
    const Bytes block = session.Load(source.next, kAtOnce);
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
  JpegErrors errors_;
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

std::vector<uint8_t> ReadProfile(JpegReadSession& session) {
  JOCTET* profile = nullptr;
  unsigned length = 0;
  session.Run([&] { jpeg_read_icc_profile(&session.jpeg, &profile, &length); });
  if (profile == nullptr) return {};
  const std::unique_ptr<JOCTET, void (*)(void*)> owner(profile, &std::free);
  return {profile, profile + length};
}

Metadata ReadMetadata(const Input& input, JpegReadSession& session, const Segments& segments) {
  const jpeg_decompress_struct& jpeg = session.jpeg;
  Metadata metadata;
  metadata.icc_profile = ReadProfile(session);
  TakeExif(input, segments.exif, metadata);
  TakeXmp(input, segments.xmp, metadata);
  const Bytes iptc = IptcOfResources(segments.resources);
  metadata.iptc.assign(iptc.begin(), iptc.end());
  enum Unit { kNoUnit, kPerInch, kPerCentimetre };
  if (jpeg.saw_JFIF_marker && jpeg.density_unit != kNoUnit) {
    const double scale = jpeg.density_unit == kPerCentimetre ? kCentimetresPerInch : 1;
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

class JpegDecoder final : public RowDecoder {
 public:
  explicit JpegDecoder(const Input& input) : input_(input), session_(input) {
    jpeg_decompress_struct& jpeg = session_.jpeg;
    session_.Run([&] {
      constexpr unsigned kWhole = 0xFFFF;
      for (const int marker : {kExifMarker, kProfileMarker, kResourceMarker}) {
        jpeg_save_markers(&jpeg, marker, kWhole);
      }
      jpeg_read_header(&jpeg, TRUE);
    });
    const Segments segments = ReadSegments(jpeg);
    const bool gray = jpeg.jpeg_color_space == JCS_GRAYSCALE;
    const bool inks = jpeg.jpeg_color_space == JCS_CMYK || jpeg.jpeg_color_space == JCS_YCCK;
    if (jpeg.jpeg_color_space == JCS_UNKNOWN) {
      input.Unsupported("a JPEG of {} channels of unknown colours is not read",
                        jpeg.num_components);
    }
    jpeg.out_color_space = gray ? JCS_GRAYSCALE : inks ? JCS_CMYK : JCS_EXT_BGR;
    const auto most_shrunk = static_cast<unsigned>(std::max(input.options.most_shrunk, 1));
    while (jpeg.scale_denom < 8 && 2 * jpeg.scale_denom <= most_shrunk) jpeg.scale_denom *= 2;
    session_.Run([&] { jpeg_calc_output_dimensions(&jpeg); });
    info.format = Format::kJpeg;
    info.width = static_cast<int>(jpeg.output_width);
    info.height = static_cast<int>(jpeg.output_height);
    info.bit_count = gray ? 8 : 24;
    orientation = segments.exif.Orientation();
    info.metadata = ReadMetadata(input, session_, segments);
    if (segments.has_more_xmp) {
      info.notes.emplace_back("of XMP in several segments only the first was kept");
    }
    if (inks) {
      conversion_.emplace(input.options, info);
      inks_.resize(size_t{jpeg.output_width} * 4);
    }
    CheckFrame(input, jpeg);
  }

  void Read(const PixelBuffer& rows, int count) override {
    jpeg_decompress_struct& jpeg = session_.jpeg;
    if (jpeg.output_scanline == 0) session_.Run([&] { jpeg_start_decompress(&jpeg); });
    if (conversion_) {
      for (int y = 0; y < count; ++y) ReadInks(rows.bits + y * rows.stride);
      return;
    }
    session_.Run([&] {
      for (int y = 0; y < count; ++y) {
        JSAMPROW row = rows.bits + y * rows.stride;
        jpeg_read_scanlines(&jpeg, &row, 1);
      }
    });
  }

  void Finish() override {
    const jpeg_decompress_struct& jpeg = session_.jpeg;
    session_.Run([&] { jpeg_finish_decompress(&session_.jpeg); });
    if (HasSeveralScans(jpeg) && session_.seen_components() != (1u << jpeg.num_components) - 1) {
      input_.Broken("damaged JPEG: it has no data for one of its channels");
    }
    if (session_.warning()[0] != '\0') {
      info.notes.push_back(
          fmt::format("the file has faults that cost no pixels: {}", session_.warning()));
    }
  }

 private:
  /// Files with an Adobe marker store inks inverted.
  void ReadInks(uint8_t* pixel) {
    JSAMPROW row = inks_.data();
    session_.Run([&] { jpeg_read_scanlines(&session_.jpeg, &row, 1); });
    if (session_.jpeg.saw_Adobe_marker) {
      for (uint8_t& ink : inks_) ink = static_cast<uint8_t>(255 - ink);
    }
    conversion_->Convert(inks_.data(), info.width, pixel);
  }

  const Input& input_;
  JpegReadSession session_;
  std::optional<InkConversion> conversion_;  ///< of pictures of inks
  std::vector<uint8_t> inks_;                ///< of a row of them
};

}  // namespace

bool IsJpeg(Bytes file) { return StartsWith(file, "\xFF\xD8\xFF"); }

std::unique_ptr<RowDecoder> OpenJpeg(const Input& input) {
  return std::make_unique<JpegDecoder>(input);
}

}  // namespace qel::pictures
