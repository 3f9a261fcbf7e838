#ifndef QEL_PICTURES_ATOMIC_FILE_H_
#define QEL_PICTURES_ATOMIC_FILE_H_

#include <cstdint>
#include <span>
#include <string>

namespace qel::pictures {

/// Replaces the file at `path` by `content`, whole or not at all: written to a temporary file in
/// the same folder, synced, renamed. A file that is replaced keeps its permissions. On failure the
/// old file stays and the temporary one is removed. Throws `PictureError`.
void WriteFileAtomically(const std::string& path, std::span<const uint8_t> content);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_ATOMIC_FILE_H_
