#include "cli/batch/sha256.h"

#include <nettle/sha2.h>

namespace qel::cli {

std::string Sha256(std::span<const uint8_t> bytes) {
  sha256_ctx context;
  uint8_t digest[SHA256_DIGEST_SIZE];
  sha256_init(&context);
  sha256_update(&context, bytes.size(), bytes.data());
  sha256_digest(&context, sizeof(digest), digest);
  std::string text;
  for (const uint8_t byte : digest) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

}  // namespace qel::cli
