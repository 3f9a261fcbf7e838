#include <algorithm>
#include <cmath>
#include <exception>
#include <memory>
#include <string_view>

#include "pictures/codec.h"
#include "pictures/color_rows.h"
#include "pictures/jpeg_session.h"
#include "pictures/text_blocks.h"

namespace qel::pictures {
namespace {

/// The library on a sink.
class JpegWriteSession {
 public:
  explicit JpegWriteSession(const Output& output) : output_(output) {
    jpeg.err = &errors_.manager;
    jpeg.client_data = &errors_;
    Run([&] { jpeg_create_compress(&jpeg); });
    destination_.init_destination = &OnStart;
    destination_.empty_output_buffer = &OnFull;
    destination_.term_destination = &OnEnd;
    destination_.sink = &output.sink;
    jpeg.dest = &destination_;
  }
  ~JpegWriteSession() { jpeg_destroy_compress(&jpeg); }
  JpegWriteSession(const JpegWriteSession&) = delete;
  JpegWriteSession& operator=(const JpegWriteSession&) = delete;

  template <typename Step>
  void Run(const Step& step) {
    if (errors_.Run(step)) return;
    if (destination_.failure) std::rethrow_exception(destination_.failure);
    output_.EncoderFailed(errors_.message);
  }

  jpeg_compress_struct jpeg{};

 private:
  struct Destination : jpeg_destination_mgr {
    uint8_t buffer[1 << 16];
    ByteSink* sink = nullptr;
    std::exception_ptr failure;

    void Rewind() {
      next_output_byte = buffer;
      free_in_buffer = sizeof(buffer);
    }
    /// No exception may pass through the frames of the library.
    bool Flush(size_t count) noexcept try {
      sink->Write({buffer, count});
      return true;
    } catch (...) {
      failure = std::current_exception();
      return false;
    }
  };
  static Destination& DestinationOf(j_compress_ptr jpeg) {
    return *static_cast<Destination*>(jpeg->dest);
  }
  static void OnStart(j_compress_ptr jpeg) { DestinationOf(jpeg).Rewind(); }
  static boolean OnFull(j_compress_ptr jpeg) {
    Destination& destination = DestinationOf(jpeg);
    if (!destination.Flush(sizeof(destination.buffer))) ERREXIT(jpeg, JERR_FILE_WRITE);
    destination.Rewind();
    return TRUE;
  }
  static void OnEnd(j_compress_ptr jpeg) {
    Destination& destination = DestinationOf(jpeg);
    const size_t used = sizeof(destination.buffer) - destination.free_in_buffer;
    if (!destination.Flush(used)) ERREXIT(jpeg, JERR_FILE_WRITE);
  }

  const Output& output_;
  JpegErrors errors_;
  Destination destination_;
};

/// Tables made for the picture spare a twentieth of the file. They take a second pass over all of
/// its coefficients, which larger pictures would hold at a high price: those get the usual tables.
bool MakesTables(const PictureView& shape) {
  constexpr int64_t kMostPixels = int64_t{1} << 22;
  return int64_t{shape.width} * shape.height <= kMostPixels;
}

void DescribePicture(const Output& output, int bit_count, jpeg_compress_struct& jpeg) {
  constexpr int kFullResolutionQuality = 90;
  const int quality = output.options.jpeg_quality;
  jpeg.image_width = static_cast<JDIMENSION>(output.shape.width);
  jpeg.image_height = static_cast<JDIMENSION>(output.shape.height);
  jpeg.input_components = bit_count / 8;
  jpeg.in_color_space = bit_count == 8 ? JCS_GRAYSCALE : JCS_EXT_BGR;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, quality, TRUE);
  if (quality >= kFullResolutionQuality) {
    jpeg.comp_info[0].h_samp_factor = jpeg.comp_info[0].v_samp_factor = 1;
  }
  jpeg.optimize_coding = MakesTables(output.shape);
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
void WriteSegments(const Output& output, JpegWriteSession& session) {
  const Metadata& metadata = output.metadata;
  const auto write = [&](int marker, std::string_view prefix, Bytes content, const char* name) {
    if (content.empty()) return;
    if (prefix.size() + content.size() > kMostInSegment) {
      output.Note("JPEG holds no {} of this size; left out", name);
      return;
    }
    std::vector<uint8_t> segment(prefix.begin(), prefix.end());
    segment.insert(segment.end(), content.begin(), content.end());
    session.Run([&] {
      jpeg_write_marker(&session.jpeg, marker, segment.data(),
                        static_cast<unsigned>(segment.size()));
    });
  };
  const std::vector<uint8_t> resources =
      metadata.iptc.empty() ? metadata.iptc : ResourcesOfIptc(metadata.iptc);
  write(kExifMarker, kExifPrefix, metadata.exif, "EXIF");
  write(kExifMarker, kXmpPrefix, BytesOf(metadata.xmp), "XMP");
  write(kResourceMarker, kResourcePrefix, resources, "IPTC");
}

class JpegEncoder final : public RowEncoder {
 public:
  explicit JpegEncoder(const Output& output)
      : RowEncoder(output), rows_(output.shape, ColorRows::Alpha::kDrop), session_(output) {
    const Bytes profile = output.Profile(rows_.bit_count() == 8);
    jpeg_compress_struct& jpeg = session_.jpeg;
    session_.Run([&] {
      DescribePicture(output, rows_.bit_count(), jpeg);
      jpeg_start_compress(&jpeg, TRUE);
    });
    WriteSegments(output, session_);
    session_.Run([&] {
      if (!profile.empty()) {
        jpeg_write_icc_profile(&jpeg, profile.data(), static_cast<unsigned>(profile.size()));
      }
    });
    alpha_lost_by = "JPEG";
    if (!MakesTables(output.shape)) return;
    for (int i = 0; i < jpeg.num_components; ++i) {
      const jpeg_component_info& component = jpeg.comp_info[i];
      held_bytes +=
          uint64_t{component.width_in_blocks} * component.height_in_blocks * sizeof(JBLOCK);
    }
  }

  void Write(const PictureView& rows) override {
    for (int y = 0; y < rows.height; ++y) {
      // The library does not write to its input.
      JSAMPROW row = const_cast<JSAMPROW>(rows_.Convert(rows.Row(y)));
      session_.Run([&] { jpeg_write_scanlines(&session_.jpeg, &row, 1); });
    }
  }

  void Finish() override {
    session_.Run([&] { jpeg_finish_compress(&session_.jpeg); });
  }

 private:
  ColorRows rows_;
  JpegWriteSession session_;
};

}  // namespace

void CheckJpegShape(const OutputShape& shape) { shape.CheckSides("JPEG", JPEG_MAX_DIMENSION); }

std::unique_ptr<RowEncoder> StartJpeg(const Output& output) {
  return std::make_unique<JpegEncoder>(output);
}

}  // namespace qel::pictures
