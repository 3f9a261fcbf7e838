#ifndef QEL_CLI_BATCH_SHA256_H_
#define QEL_CLI_BATCH_SHA256_H_

#include <cstdint>
#include <span>
#include <string>

namespace qel::cli {

/// The SHA-256 of `bytes` as 64 hexadecimal digits.
std::string Sha256(std::span<const uint8_t> bytes);

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_SHA256_H_
