#ifndef QEL_PICTURES_FORMAT_TABLE_H_
#define QEL_PICTURES_FORMAT_TABLE_H_

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pictures/codec.h"
#include "pictures/rows.h"

namespace qel::pictures {

/// What there is for a format.
struct FormatRow {
  Format format;
  std::string_view name;
  std::array<std::string_view, 5> extensions;
  bool (*recognise)(Bytes file);
  PictureInfo (*read)(const Input& input);
  std::vector<uint8_t> (*encode)(const Output& output);  ///< null for formats that are only read
  void (*check_shape)(const OutputShape& shape) = nullptr;
  /// Opens a file that `recognise` knows for reading by rows that stream; null when this one needs
  /// all of its rows at once. The function is null when all files of the format do.
  std::unique_ptr<RowReader> (*open_rows)(const RowInput& input) = nullptr;
  /// Opens a picture of a shape that has been checked for writing by rows that stream; null when
  /// this one cannot. The function is null when none can.
  std::unique_ptr<RowWriter> (*make_rows)(const RowOutput& output) = nullptr;
};

const FormatRow& RowOf(Format format);
/// The format whose first bytes these are. Throws `PictureError`.
const FormatRow& RowOf(Bytes beginning, const std::string& name);
/// The format for writing that options or the extension of `path` name. Throws `PictureError`.
const FormatRow& RowForWriting(const std::string& path, const WriteOptions& options);

/// Reads a file of any format, or without `allocate` its header. `planned_bytes`, if not null, gets
/// the memory that decoding takes, the picture's own rows included. Throws `PictureError`.
PictureInfo ReadAnyFormat(ByteSource& source, const std::string& name, const ReadOptions& options,
                          const Allocate* allocate, uint64_t* planned_bytes = nullptr);

/// Throws `PictureError` (kDoesNotFit) for shapes that cannot be written.
void CheckOutput(const FormatRow& row, const std::string& path, const PictureView& shape,
                 const WriteOptions& options);
/// What is written of the metadata: without what is not wanted, and with the sides of the picture.
Metadata PrepareMetadata(const Metadata& metadata, const PictureView& shape, Strip strip);

/// Enough of a file's beginning to know every format by.
inline constexpr size_t kSignatureBytes = 64;

}  // namespace qel::pictures

#endif  // QEL_PICTURES_FORMAT_TABLE_H_
