#include "pictures/tiff_session.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace qel::pictures {
namespace {

/// Where a file says at which position its first directory is.
constexpr uint64_t kPointerAt = 4;

}  // namespace

void TiffFile::Fail(const Input& input) const {
  if (failure) std::rethrow_exception(failure);
  std::string reason = message;
  // The library appends what its own libraries say, which may be nothing.
  while (!reason.empty() && std::strchr(": \n", reason.back()) != nullptr) reason.pop_back();
  if (reason.empty()) reason = "pixels are missing";
  throw TruncatedPicture(input.name, "truncated or damaged TIFF: " + reason);
}

void TiffFile::Fail(const Output& output) const {
  if (failure) std::rethrow_exception(failure);
  output.EncoderFailed(message);
}

// No exception may pass through the frames of the library.

tmsize_t TiffFile::OnRead(thandle_t handle, void* data, tmsize_t count) noexcept {
  TiffFile& file = Of(handle);
  try {
    return static_cast<tmsize_t>(
        file.Read({static_cast<uint8_t*>(data), static_cast<size_t>(count)}));
  } catch (...) {
    file.failure = std::current_exception();
    return 0;
  }
}

tmsize_t TiffFile::OnWrite(thandle_t handle, void* data, tmsize_t count) noexcept {
  TiffFile& file = Of(handle);
  try {
    file.Write({static_cast<const uint8_t*>(data), static_cast<size_t>(count)});
    return count;
  } catch (...) {
    file.failure = std::current_exception();
    return -1;
  }
}

toff_t TiffFile::OnSeek(thandle_t handle, toff_t offset, int whence) noexcept {
  TiffFile& file = Of(handle);
  const uint64_t origin = whence == SEEK_CUR   ? file.position
                          : whence == SEEK_END ? OnSize(handle)
                                               : 0;
  return file.position = origin + offset;
}

toff_t TiffFile::OnSize(thandle_t handle) noexcept {
  TiffFile& file = Of(handle);
  try {
    return file.Size();
  } catch (...) {
    file.failure = std::current_exception();
    return 0;
  }
}

// Both handlers answer 1, handled: nothing of the process is asked.

int TiffFile::OnError(TIFF*, void* user, const char*, const char* format, va_list arguments) {
  char text[sizeof(message)];
  std::vsnprintf(text, sizeof(text), format, arguments);
  Keep(static_cast<TiffFile*>(user)->message, text);
  return 1;
}
int TiffFile::OnWarning(TIFF*, void* user, const char* module, const char* format,
                        va_list arguments) {
  auto* const file = static_cast<TiffFile*>(user);
  char text[sizeof(file->message)];
  std::vsnprintf(text, sizeof(text), format, arguments);
  // Without a readable palette the library takes the indices for greys.
  if (std::strstr(text, "ColorMap") != nullptr) file->palette_lost = true;
  // A run that is longer than what is left to fill.
  const bool harmless = module != nullptr && std::strcmp(module, "PackBitsDecode") == 0 &&
                        std::strncmp(text, "Discarding", 10) == 0;
  if (file->palette_lost || (file->decoding && !harmless)) {
    Keep(file->message, text);
  } else if (harmless) {
    Keep(file->note, text);
  }
  return 1;
}

size_t TiffFile::Read(std::span<uint8_t> out) {
  if (source == nullptr) return 0;
  const size_t count = source->Copy(position, out);
  position += count;
  // Pieces come in any order; what is in the same block is likely to be next.
  if (source->CanReadAgain()) source->KeepOnly(position, position);
  return count;
}

void TiffFile::Write(Bytes bytes) {
  const uint64_t end = position + bytes.size();
  if (position > written) {
    sink->Write(std::vector<uint8_t>(position - written));
    written = position;
  }
  const size_t replaced = std::min<uint64_t>(bytes.size(), written - position);
  if (replaced > 0) sink->WriteAt(position, bytes.first(replaced));
  if (replaced < bytes.size()) sink->Write(bytes.subspan(replaced));
  written = std::max(written, end);
  if (position == kPointerAt && replaced == sizeof(uint32_t)) {
    directory_at = ByteReader(bytes).U32(0);
  }
  if (tail_at > 0 && position >= tail_at) {
    tail.resize(written - tail_at);
    std::ranges::copy(bytes, tail.begin() + static_cast<ptrdiff_t>(position - tail_at));
  }
  position = end;
}

void TiffFile::Keep(char (&kept)[200], const char (&text)[200]) {
  if (kept[0] == '\0') std::memcpy(kept, text, sizeof(kept));
}

Tiff OpenTiffFile(TiffFile& file, const char* mode, int64_t most_bytes) {
  TIFFOpenOptions* const options = TIFFOpenOptionsAlloc();
  if (options == nullptr) throw std::bad_alloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options, &TiffFile::OnError, &file);
  TIFFOpenOptionsSetWarningHandlerExtR(options, &TiffFile::OnWarning, &file);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options, most_bytes);
  TIFF* const tiff = TIFFClientOpenExt("picture", mode, &file, &TiffFile::OnRead,
                                       &TiffFile::OnWrite, &TiffFile::OnSeek, &TiffFile::OnClose,
                                       &TiffFile::OnSize, nullptr, nullptr, options);
  TIFFOpenOptionsFree(options);
  return Tiff(tiff);
}

}  // namespace qel::pictures
