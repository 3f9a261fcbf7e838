#ifndef QEL_PICTURES_ROWS_H_
#define QEL_PICTURES_ROWS_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pictures/byte_sink.h"
#include "pictures/byte_source.h"
#include "pictures/color_profile.h"
#include "pictures/picture_file.h"

namespace qel::pictures {

struct Input;
struct Output;
class RowDecoder;
class RowEncoder;

/// Reads the rows of one picture from the top down, a few at a time, and gives exactly what
/// `ReadPicture` gives. Threads: one at a time, whichever.
///
/// A reader that streams holds a few rows and the part of the file that they come from, whatever
/// the size of the picture. Others need all rows at once: files that store them in another order
/// (interlaced, or with an orientation other than 1 and 2), and formats whose libraries decode
/// whole pictures.
///
/// Limits: `max_memory` is for what the reader holds; `max_pixels` for the whole picture if the
/// reader does not stream, and otherwise not looked at. Sides are below 2^31 in any case.
class RowReader {
 public:
  ~RowReader();
  RowReader(const RowReader&) = delete;
  RowReader& operator=(const RowReader&) = delete;

  /// What `ReadPicture` returns, but for `notes`, which are complete after the last row.
  const PictureInfo& info() const { return info_; }
  /// False: the only call of `Read` must be for all rows.
  bool streams() const { return streams_; }
  /// Bytes of memory that are in use at a time at most, besides the rows of the caller.
  uint64_t held_bytes() const { return held_bytes_; }
  /// Rows that have been read.
  int rows_read() const { return rows_read_; }

  /// Decodes the next `count` rows, at least 1 and at most as many as are left, into `rows`, whose
  /// first row is the first of them. Bytes between rows are not touched; unused bits of the last
  /// byte of a row become 0. What follows the last row is looked at with it, so that a damaged file
  /// is found out as by `ReadPicture`.
  /// Throws `PictureError`; nothing can be read after that.
  void Read(const PixelBuffer& rows, int count);

 private:
  friend class RowOpener;
  RowReader();

  std::unique_ptr<const Input> input_;
  std::unique_ptr<RowDecoder> decoder_;
  PictureInfo info_;
  ColorConversion colors_;
  int orientation_ = 1;  ///< that is to be turned
  bool streams_ = false;
  uint64_t held_bytes_ = 0;
  int rows_read_ = 0;
};

/// Opens a picture for reading by rows. Only its header is read; nothing is decoded before the
/// first `Read`. `source` must outlive the reader, which gives back the parts of it that it is done
/// with (see `ByteSource::KeepOnly`). `name` stands for it in messages. Throws as
/// `ReadPictureHeader`.
std::unique_ptr<RowReader> OpenRows(ByteSource& source, const std::string& name,
                                    const ReadOptions& options);

/// Encodes the rows of one picture from the top down, a few at a time, into the bytes that
/// `EncodePicture` gives. Threads: one at a time, whichever.
///
/// A writer that streams holds a few rows, whatever the size of the picture.
class RowWriter {
 public:
  ~RowWriter();
  RowWriter(const RowWriter&) = delete;
  RowWriter& operator=(const RowWriter&) = delete;

  /// False: the only call of `Write` must be for all rows.
  bool streams() const { return streams_; }
  /// Bytes of memory that are in use at a time at most, besides the rows of the caller and what the
  /// sink takes.
  uint64_t held_bytes() const { return held_bytes_; }
  int rows_written() const { return rows_written_; }

  /// Takes the next `rows.height` rows, at least 1 and at most as many as are left. Width, depth
  /// and palette are those that the writer was made for; the palette of `rows` is not looked at.
  /// Throws `PictureError` when encoding fails, and what the sink throws; nothing can be written
  /// after that.
  void Write(const PictureView& rows);
  /// To be called once, after the last row: the file is complete then, as far as the sink is
  /// concerned. Throws as `Write`. Returns notes on what the format could not hold.
  std::vector<std::string> Finish();

 private:
  friend std::unique_ptr<RowWriter> WriteByRows(ByteSink& sink, const std::string& path,
                                                const PictureView& shape, const Metadata& metadata,
                                                const WriteOptions& options);
  RowWriter();

  std::vector<PaletteEntry> palette_;
  std::unique_ptr<const Output> output_;
  std::unique_ptr<RowEncoder> encoder_;
  bool is_transparent_ = false;  ///< as far as was looked at
  bool streams_ = false;
  uint64_t held_bytes_ = 0;
  int rows_written_ = 0;
};

/// Opens a picture for writing by rows. `shape` has the size, depth and palette of the whole
/// picture; its pixels are not looked at and may be null. `path` stands for the file in messages,
/// and its extension names the format unless `options` do. `sink` must outlive the writer; it may
/// get the file's header before the first row. Throws as `EncodePicture`.
std::unique_ptr<RowWriter> WriteByRows(ByteSink& sink, const std::string& path,
                                       const PictureView& shape, const Metadata& metadata,
                                       const WriteOptions& options);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_ROWS_H_
