#ifndef QEL_PICTURES_FORMAT_TABLE_H_
#define QEL_PICTURES_FORMAT_TABLE_H_

#include <array>
#include <memory>
#include <string>
#include <string_view>

#include "pictures/codec.h"

namespace qel::pictures {

/// What there is for a format.
struct FormatRow {
  Format format;
  std::string_view name;
  std::array<std::string_view, 5> extensions;
  bool (*recognise)(Bytes file);
  std::unique_ptr<RowDecoder> (*open)(const Input& input);
  std::unique_ptr<RowEncoder> (*start)(
      const Output& output);  ///< null for formats that are only read
  void (*check_shape)(const OutputShape& shape) = nullptr;
};

const FormatRow& RowOf(Format format);
/// The format whose first bytes these are. Throws `PictureError`.
const FormatRow& RowOf(Bytes beginning, const std::string& name);
/// The format for writing that options or the extension of `path` name. Throws `PictureError`.
const FormatRow& RowForWriting(const std::string& path, const WriteOptions& options);

/// Enough of a file's beginning to know every format by.
inline constexpr size_t kSignatureBytes = 64;

}  // namespace qel::pictures

#endif  // QEL_PICTURES_FORMAT_TABLE_H_
