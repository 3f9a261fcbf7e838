#ifndef QEL_CLI_SESSION_SHA256_H_
#define QEL_CLI_SESSION_SHA256_H_

#include <cstdint>
#include <span>
#include <string>

#include "pictures/atomic_file.h"
#include "pictures/byte_source.h"

namespace qel::cli {

/// The SHA-256 of `bytes` as 64 hexadecimal digits.
std::string Sha256(std::span<const uint8_t> bytes);
/// The same of a file, of which little is in memory at a time; of a pipe all of it, and stays
/// there. Throws `pictures::PictureError`.
std::string Sha256(pictures::ByteSource& file);
/// The same by name.
std::string HashOfFile(const std::string& path, const pictures::Limits& limits = {});
/// The same of a file that is being written.
std::string Sha256(const pictures::AtomicFile& file);

}  // namespace qel::cli

#endif  // QEL_CLI_SESSION_SHA256_H_
