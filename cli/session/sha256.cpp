#include "cli/session/sha256.h"

#include <nettle/sha2.h>

#include <vector>

namespace qel::cli {
namespace {

constexpr size_t kPart = size_t{1} << 20;

class Hash {
 public:
  Hash() { sha256_init(&context_); }
  void Add(std::span<const uint8_t> bytes) { sha256_update(&context_, bytes.size(), bytes.data()); }

  std::string Text() {
    uint8_t digest[SHA256_DIGEST_SIZE];
    sha256_digest(&context_, sizeof(digest), digest);
    std::string text;
    for (const uint8_t byte : digest) {
      text += "0123456789abcdef"[byte >> 4];
      text += "0123456789abcdef"[byte & 15];
    }
    return text;
  }

 private:
  sha256_ctx context_;
};

}  // namespace

std::string Sha256(std::span<const uint8_t> bytes) {
  Hash hash;
  hash.Add(bytes);
  return hash.Text();
}

std::string Sha256(pictures::ByteSource& file) {
  Hash hash;
  const bool can_drop = file.KnowsSize();
  size_t at = 0;
  while (true) {
    const std::span<const uint8_t> part = file.Load(at, kPart);
    if (part.empty()) return hash.Text();
    hash.Add(part);
    at += part.size();
    if (can_drop) file.KeepOnly(at);
  }
}

std::string HashOfFile(const std::string& path, const pictures::Limits& limits) {
  pictures::ByteSource file(path, limits);
  return Sha256(file);
}

std::string Sha256(const pictures::AtomicFile& file) {
  Hash hash;
  std::vector<uint8_t> part(kPart);
  uint64_t at = 0;
  while (const size_t count = file.ReadAt(at, part)) {
    hash.Add({part.data(), count});
    at += count;
  }
  return hash.Text();
}

}  // namespace qel::cli
