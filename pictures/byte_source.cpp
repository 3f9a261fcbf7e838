#include "pictures/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "pictures/picture_error.h"

namespace qel::pictures {
namespace {

constexpr size_t kBlock = size_t{1} << 16;

}  // namespace

ByteSource::ByteSource(const std::string& path, const Limits& limits)
    : path_(path), limits_(limits), owns_descriptor_(path != "-") {
  descriptor_ = owns_descriptor_ ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO;
  struct stat status {};
  if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) FailReading(errno);
  if (S_ISDIR(status.st_mode)) FailReading(EISDIR);
  // Standard input may stand anywhere in its file: it is read on from there.
  seekable_ = known_size_ = S_ISREG(status.st_mode) && status.st_size > 0 && owns_descriptor_;
  if (!seekable_) return;
  size_ = static_cast<size_t>(status.st_size);
  pages_.Resize(size_);
  blocks_.resize((size_ + kBlock - 1) / kBlock);
}

ByteSource::~ByteSource() {
  if (owns_descriptor_ && descriptor_ >= 0) close(descriptor_);
}

size_t ByteSource::size() {
  if (!known_size_) ReadTo(SIZE_MAX);
  return size_;
}

Bytes ByteSource::Load(size_t at, size_t count) {
  size_t end = count > SIZE_MAX - at ? SIZE_MAX : at + count;
  if (!known_size_) ReadTo(end);
  end = std::min(end, size_);
  if (at >= end) return {};
  if (seekable_ && held_ < size_) LoadBlocks(at, end);
  return (seekable_ || descriptor_ >= 0 ? pages_.bytes() : memory_).subspan(at, end - at);
}

void ByteSource::Drop(size_t end) {
  if (descriptor_ < 0) return;
  const size_t past = std::min(end, size_) / kBlock;
  size_t dropped = 0;
  for (size_t block = lowest_; block < past; ++block) {
    if (seekable_ && !blocks_[block]) continue;
    if (seekable_) blocks_[block] = false;
    pages_.Discard(block * kBlock, kBlock);
    dropped += kBlock;
  }
  held_ -= dropped;
  lowest_ = std::max(lowest_, past);
}

void ByteSource::FailReading(int error) const {
  throw PictureError(PictureError::Kind::kNotReadable, path_, std::strerror(error));
}

void ByteSource::CheckHeld(size_t bytes) const {
  if (limits_.AllowMemory(bytes)) return;
  throw PictureError(
      PictureError::Kind::kTooLarge, path_,
      "the file has more bytes than the limit of " + std::to_string(limits_.max_memory));
}

size_t ByteSource::ReadAt(size_t at, size_t count) {
  while (true) {
    const ssize_t got = seekable_
                            ? pread(descriptor_, pages_.data() + at, count, static_cast<off_t>(at))
                            : read(descriptor_, pages_.data() + at, count);
    if (got >= 0) return static_cast<size_t>(got);
    if (errno != EINTR) FailReading(errno);
  }
}

/// Reads a pipe on until `end` bytes are there, or all.
void ByteSource::ReadTo(size_t end) {
  while (!known_size_ && size_ < end) {
    if (size_ == pages_.size()) pages_.Resize(std::max(2 * size_, kBlock));
    const size_t got = ReadAt(size_, pages_.size() - size_);
    known_size_ = got == 0;
    size_ += got;
    held_ += got;
    CheckHeld(held_);
  }
}

/// Bytes of a range of blocks that are not there.
size_t ByteSource::MissingIn(size_t first, size_t last) const {
  size_t missing = 0;
  for (size_t block = first; block < last; ++block) {
    if (!blocks_[block]) missing += std::min(kBlock, size_ - block * kBlock);
  }
  return missing;
}

void ByteSource::LoadBlocks(size_t begin, size_t end) {
  const size_t past = (end + kBlock - 1) / kBlock;
  CheckHeld(held_ + MissingIn(begin / kBlock, past));
  lowest_ = std::min(lowest_, begin / kBlock);
  for (size_t block = begin / kBlock; block < past; ++block) {
    if (blocks_[block]) continue;
    // Neighbours that are missing too come in one go.
    size_t last = block + 1;
    while (last < past && !blocks_[last]) ++last;
    size_t at = block * kBlock;
    const size_t stop = std::min(last * kBlock, size_);
    for (size_t got; at < stop; at += got, held_ += got) {
      got = ReadAt(at, stop - at);
      if (got > 0) continue;
      throw PictureError(PictureError::Kind::kNotReadable, path_,
                         "the file became shorter while it was read");
    }
    std::fill(blocks_.begin() + static_cast<ptrdiff_t>(block),
              blocks_.begin() + static_cast<ptrdiff_t>(last), true);
    block = last - 1;
  }
}

}  // namespace qel::pictures
