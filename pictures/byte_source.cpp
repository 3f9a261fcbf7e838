#include "pictures/byte_source.h"

#include <fcntl.h>
#include <fmt/core.h>
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
  if (at < lost_) {
    throw PictureError(PictureError::Kind::kNotReadable, path_,
                       "this file cannot be read from a pipe; save it first");
  }
  end = std::min(end, size_);
  if (at >= end) return {};
  if (seekable_ && held_ < size_) LoadBlocks(at, end);
  return (seekable_ || descriptor_ >= 0 ? pages_.bytes() : memory_).subspan(at, end - at);
}

size_t ByteSource::Copy(size_t at, std::span<uint8_t> out) {
  if (!seekable_ || held_ == size_) {
    const Bytes bytes = Load(at, out.size());
    std::ranges::copy(bytes, out.data());
    return bytes.size();
  }
  const size_t count = at < size_ ? std::min(out.size(), size_ - at) : 0;
  ReadFully(at, out.first(count));
  return count;
}

void ByteSource::KeepOnly(size_t begin, size_t end) {
  // Larger steps cost fewer calls.
  constexpr size_t kLittle = size_t{1} << 20;
  if (IsMemory() || held_ <= kLittle) return;
  if (seekable_) {
    DropBlocks(begin_block_, std::min(end_block_, begin / kBlock));
    DropBlocks(std::max(begin_block_, end / kBlock + (end % kBlock != 0)), end_block_);
    return;
  }
  const size_t lost = std::min(begin, size_) / kBlock * kBlock;
  if (lost <= lost_) return;
  pages_.Discard(lost_, lost - lost_);
  lost_ = lost;
  held_ = size_ - lost_;
}

void ByteSource::FailReading(int error) const {
  throw PictureError(PictureError::Kind::kNotReadable, path_, std::strerror(error));
}

void ByteSource::CheckHeld(size_t bytes) const {
  if (limits_.AllowMemory(bytes)) return;
  throw PictureError(
      PictureError::Kind::kTooLarge, path_,
      fmt::format("the file has more bytes than the limit of {}", limits_.max_memory));
}

size_t ByteSource::ReadAt(size_t at, uint8_t* out, size_t count) {
  while (true) {
    const ssize_t got = seekable_ ? pread(descriptor_, out, count, static_cast<off_t>(at))
                                  : read(descriptor_, out, count);
    if (got >= 0) return static_cast<size_t>(got);
    if (errno != EINTR) FailReading(errno);
  }
}

void ByteSource::ReadFully(size_t at, std::span<uint8_t> out) {
  while (!out.empty()) {
    const size_t got = ReadAt(at, out.data(), out.size());
    if (got == 0) {
      throw PictureError(PictureError::Kind::kNotReadable, path_,
                         "the file became shorter while it was read");
    }
    at += got;
    out = out.subspan(got);
  }
}

/// Reads a pipe on until `end` bytes are there, or all.
void ByteSource::ReadTo(size_t end) {
  constexpr size_t kMost = 16 * kBlock;
  while (!known_size_ && size_ < end) {
    if (size_ == pages_.size()) pages_.Resize(std::max(2 * size_, kBlock));
    const size_t wanted = std::clamp(end - size_, kBlock, kMost);
    const size_t got =
        ReadAt(size_, pages_.data() + size_, std::min(wanted, pages_.size() - size_));
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
  begin_block_ = std::min(begin_block_, begin / kBlock);
  end_block_ = std::max(end_block_, past);
  for (size_t block = begin / kBlock; block < past; ++block) {
    if (blocks_[block]) continue;
    // Neighbours that are missing too come in one go.
    size_t last = block + 1;
    while (last < past && !blocks_[last]) ++last;
    const size_t at = block * kBlock;
    const size_t count = std::min(last * kBlock, size_) - at;
    ReadFully(at, {pages_.data() + at, count});
    held_ += count;
    std::fill(blocks_.begin() + static_cast<ptrdiff_t>(block),
              blocks_.begin() + static_cast<ptrdiff_t>(last), true);
    block = last - 1;
  }
}

/// Drops the blocks [begin, end), the first ones or the last ones of those that are there.
void ByteSource::DropBlocks(size_t begin, size_t end) {
  if (begin >= end) return;
  for (size_t block = begin; block < end; ++block) {
    if (blocks_[block]) held_ -= std::min(kBlock, size_ - block * kBlock);
    blocks_[block] = false;
  }
  pages_.Discard(begin * kBlock, std::min(end * kBlock, size_) - begin * kBlock);
  if (begin == begin_block_) {
    begin_block_ = end;
  } else {
    end_block_ = begin;
  }
}

}  // namespace qel::pictures
