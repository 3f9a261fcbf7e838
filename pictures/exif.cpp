#include "pictures/exif.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "pictures/codec.h"

namespace qel::pictures {
namespace {

enum Type : uint16_t {
  kByte = 1,
  kAscii,
  kShort,
  kLong,
  kRational,
  kSignedByte,
  kUndefined,
  kSignedShort,
  kSignedLong,
  kSignedRational,
  kFloat,
  kDouble
};
constexpr uint32_t kInch = 2, kCentimetre = 3;
constexpr size_t kHeaderBytes = 8, kEntryBytes = 12, kInlineBytes = 4;

/// Bytes of a value, and of the numbers that it consists of.
struct TypeSize {
  size_t value, number;
};
TypeSize SizeOf(uint16_t type) {
  constexpr TypeSize kSizes[] = {{0, 1}, {1, 1}, {1, 1}, {2, 2}, {4, 4}, {8, 4}, {1, 1},
                                 {1, 1}, {2, 2}, {4, 4}, {8, 4}, {4, 4}, {8, 8}, {4, 4}};
  return type < std::size(kSizes) ? kSizes[type] : kSizes[0];
}

const ExifEntry* Find(const ExifDirectory& directory, uint16_t tag) {
  const auto found = std::ranges::find(directory, tag, &ExifEntry::tag);
  return found == directory.end() ? nullptr : &*found;
}

uint32_t NumberOf(const ExifEntry& entry) {
  const ByteReader reader{Bytes(entry.data)};
  constexpr uint16_t kDirectory = 13;
  const bool whole = entry.type == kLong || entry.type == kDirectory;
  return entry.type == kShort ? reader.U16(0) : whole ? reader.U32(0) : 0;
}

/// Puts an entry in the place of the one with its tag, or where the order of tags wants it.
void Set(ExifDirectory& directory, ExifEntry entry) {
  const auto place = std::ranges::lower_bound(directory, entry.tag, {}, &ExifEntry::tag);
  if (place != directory.end() && place->tag == entry.tag) {
    *place = std::move(entry);
  } else {
    directory.insert(place, std::move(entry));
  }
}

ExifEntry Number(uint16_t tag, Type type, uint32_t value) {
  ExifEntry entry{tag, type, 1, {}};
  AppendLittle(entry.data, value, static_cast<int>(SizeOf(type).value));
  return entry;
}

ExifEntry Quotient(uint16_t tag, double value) {
  constexpr uint32_t kDivisor = 1000;
  ExifEntry entry{tag, kRational, 1, {}};
  AppendLittle(entry.data, static_cast<uint32_t>(std::lround(std::min(value, 1e6) * kDivisor)), 4);
  AppendLittle(entry.data, kDivisor, 4);
  return entry;
}

/// Reads directories. All together they may not hold more than the file: entries that share their
/// bytes, over and over, are no work of a writer.
class Parser {
 public:
  Parser(ByteSource& source, ByteOrder order) : source_(source), order_(order) {}

  /// Reads the directory at a position, of which only entries with a tag in `tags` unless that is
  /// empty. False for a damaged one.
  bool Read(size_t at, ExifDirectory& directory, std::span<const uint16_t> tags = {}) {
    if (at == 0) return true;
    const size_t count = ReaderAt(at, 2).U16(0);
    for (size_t i = 0; i < count; ++i) {
      const size_t entry_at = at + 2 + kEntryBytes * i;
      const Bytes entry = source_.Load(entry_at, kEntryBytes);
      if (entry.size() < kEntryBytes) return false;
      const bool wanted =
          tags.empty() || std::ranges::find(tags, ByteReader(entry, order_).U16(0)) != tags.end();
      if (wanted && !ReadEntry(ByteReader(entry, order_), entry_at, directory)) return false;
    }
    std::ranges::stable_sort(directory, {}, &ExifEntry::tag);
    const auto same = [](const ExifEntry& a, const ExifEntry& b) { return a.tag == b.tag; };
    directory.erase(std::unique(directory.begin(), directory.end(), same), directory.end());
    return true;
  }
  size_t maker_note_at() const { return maker_note_at_; }

 private:
  ByteReader ReaderAt(size_t at, size_t count) {
    return ByteReader(source_.Load(at, count), order_);
  }

  /// Entries of unknown kind, and those whose bytes lie outside, are passed over.
  bool ReadEntry(const ByteReader& fields, size_t at, ExifDirectory& directory) {
    ExifEntry entry{fields.U16(0), fields.U16(2), fields.U32(4), {}};
    const auto [value, number] = SizeOf(entry.type);
    const size_t size = value * entry.count;
    const size_t from = size <= kInlineBytes ? at + 8 : fields.U32(8);
    const Bytes bytes = source_.Load(from, size);
    if (size == 0 || bytes.size() < size) return true;
    taken_ += size;
    if (taken_ > source_.size()) return false;
    entry.data.assign(bytes.begin(), bytes.end());
    for (size_t i = 0; order_ == ByteOrder::kBig && i < size; i += number) {
      std::reverse(entry.data.begin() + static_cast<ptrdiff_t>(i),
                   entry.data.begin() + static_cast<ptrdiff_t>(i + number));
    }
    if (entry.tag == kMakerNoteTag) maker_note_at_ = from;
    directory.push_back(std::move(entry));
    return true;
  }

  ByteSource& source_;
  ByteOrder order_;
  size_t taken_ = 0;
  size_t maker_note_at_ = 0;
};

/// Takes the pointer to another directory out of one.
size_t TakePointer(ExifDirectory& directory, uint16_t tag) {
  const ExifEntry entry = TakeEntry(directory, tag);
  return entry.data.empty() ? 0 : NumberOf(entry);
}

/// Lays directories out behind one another, round a place that is taken.
class Layout {
 public:
  /// Positions count from the beginning of the file or block, of which the bytes before `begin`
  /// are not written here.
  Layout(size_t begin, size_t base, size_t taken_at, size_t taken_size)
      : base_(base), end_(begin), taken_at_(taken_at), taken_size_(taken_size) {}

  /// Writes a directory with its values, of which a maker's note may go to the taken place; its
  /// position.
  uint32_t Put(const ExifDirectory& directory, bool has_note = false) {
    const size_t size = 2 + kEntryBytes * directory.size() + 4;
    const size_t at = Reserve(size);
    Grow(at + size);
    Write(at, directory.size(), 2);
    for (size_t i = 0; i < directory.size(); ++i) {
      const ExifEntry& entry = directory[i];
      const size_t field = at + 2 + kEntryBytes * i;
      Write(field, entry.tag, 2);
      Write(field + 2, entry.type, 2);
      Write(field + 4, entry.count, 4);
      size_t values_at = field + 8;
      if (entry.data.size() > kInlineBytes) {
        const bool pinned = has_note && entry.tag == kMakerNoteTag && taken_size_ > 0;
        values_at = pinned ? taken_at_ : Reserve(entry.data.size());
        Write(field + 8, values_at, 4);
      }
      Grow(values_at + entry.data.size());
      std::ranges::copy(entry.data, bytes_.begin() + static_cast<ptrdiff_t>(values_at - base_));
    }
    return static_cast<uint32_t>(at);
  }
  void Write(size_t at, size_t value, size_t count) {
    Grow(at + count);
    for (size_t i = 0; i < count; ++i) {
      bytes_[at - base_ + i] = static_cast<uint8_t>(value >> (8 * i));
    }
  }
  std::vector<uint8_t> TakeBytes() { return std::move(bytes_); }

 private:
  size_t Reserve(size_t size) {
    end_ += end_ % 2;
    if (end_ < taken_at_ + taken_size_ && end_ + size > taken_at_) {
      end_ = taken_at_ + taken_size_;
      end_ += end_ % 2;
    }
    const size_t at = end_;
    end_ += size;
    return at;
  }
  void Grow(size_t end) {
    if (end - base_ > bytes_.size()) bytes_.resize(end - base_);
  }

  size_t base_;
  size_t end_;
  size_t taken_at_;
  size_t taken_size_;
  std::vector<uint8_t> bytes_;
};

/// Writes the directories that `photo` and `places` stand for; their positions, 0 for empty ones.
std::pair<uint32_t, uint32_t> PutOthers(Layout& layout, const Exif& exif) {
  ExifDirectory photo = exif.photo;
  if (!exif.interop.empty()) Set(photo, Number(kInteropTag, kLong, layout.Put(exif.interop)));
  return {photo.empty() ? 0 : layout.Put(photo, true),
          exif.places.empty() ? 0 : layout.Put(exif.places)};
}

}  // namespace

int Exif::Orientation() const {
  const ExifEntry* const entry = Find(main, kOrientationTag);
  const uint32_t value = entry == nullptr ? 1 : NumberOf(*entry);
  return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
}

double Exif::Dpi(uint16_t tag) const {
  const ExifEntry* const entry = Find(main, tag);
  if (entry == nullptr || entry->type != kRational) return 0;
  const ByteReader reader{Bytes(entry->data)};
  const ExifEntry* const unit_entry = Find(main, kUnitTag);
  const uint32_t unit = unit_entry == nullptr ? kInch : NumberOf(*unit_entry);
  const double scale = unit == kInch ? 1 : unit == kCentimetre ? kCentimetresPerInch : 0;
  const double divisor = reader.U32(4);
  return divisor == 0 ? 0 : reader.U32(0) / divisor * scale;
}

void Exif::SetOrientation(int orientation) {
  Set(main, Number(kOrientationTag, kShort, static_cast<uint32_t>(orientation)));
}

void Exif::SetResolution(double dpi_x, double dpi_y) {
  Set(main, Quotient(kXResolutionTag, dpi_x));
  Set(main, Quotient(kYResolutionTag, dpi_y));
  Set(main, Number(kUnitTag, kShort, kInch));
}

bool Exif::HasResolution() const { return Find(main, kXResolutionTag) != nullptr; }

void Exif::SetSize(int width, int height) {
  const auto correct = [](ExifDirectory& directory, uint16_t tag, int side) {
    if (Find(directory, tag) == nullptr) return;
    Set(directory, Number(tag, kLong, static_cast<uint32_t>(side)));
  };
  correct(main, kWidthTag, width);
  correct(main, kHeightTag, height);
  correct(photo, kPixelWidthTag, width);
  correct(photo, kPixelHeightTag, height);
}

std::optional<Exif> ParseExif(Bytes block) {
  constexpr size_t kPrefixBytes = 6;
  if (StartsWith(block, "Exif") && block.size() > kPrefixBytes) block = block.subspan(kPrefixBytes);
  ByteSource source(block);
  return ParseExif(source);
}

std::optional<Exif> ParseExif(ByteSource& source, std::span<const uint16_t> main_tags) {
  const Bytes header = source.Load(0, kHeaderBytes);
  const bool big = StartsWith(header, "MM");
  if (header.size() < kHeaderBytes || (!big && !StartsWith(header, "II"))) return {};
  const ByteOrder order = big ? ByteOrder::kBig : ByteOrder::kLittle;
  Parser parser(source, order);
  Exif exif;
  if (!parser.Read(ByteReader(header, order).U32(4), exif.main, main_tags)) return {};
  const size_t photo_at = TakePointer(exif.main, kExifTag);
  const size_t places_at = TakePointer(exif.main, kGpsTag);
  // What is damaged further on leaves the rest as it is.
  if (!parser.Read(photo_at, exif.photo)) exif.photo.clear();
  exif.maker_note_at = Find(exif.photo, kMakerNoteTag) == nullptr ? 0 : parser.maker_note_at();
  if (!parser.Read(TakePointer(exif.photo, kInteropTag), exif.interop)) exif.interop.clear();
  if (!parser.Read(places_at, exif.places)) exif.places.clear();
  return exif;
}

ExifEntry TakeEntry(ExifDirectory& directory, uint16_t tag) {
  ExifEntry entry;
  if (const ExifEntry* const found = Find(directory, tag)) entry = *found;
  std::erase_if(directory, [tag](const ExifEntry& each) { return each.tag == tag; });
  return entry;
}

std::vector<uint8_t> SerializeExif(const Exif& exif) {
  const ExifEntry* const note = Find(exif.photo, kMakerNoteTag);
  const bool pinned =
      note != nullptr && note->data.size() > kInlineBytes && exif.maker_note_at >= kHeaderBytes;
  Layout layout(kHeaderBytes, 0, pinned ? exif.maker_note_at : 0, pinned ? note->data.size() : 0);
  layout.Write(0, 'I' | 'I' << 8 | 42 << 16, 4);
  // Readers expect the main directory first: its pointers are filled in afterwards.
  ExifDirectory main = exif.main;
  if (!exif.photo.empty() || !exif.interop.empty()) Set(main, Number(kExifTag, kLong, 0));
  if (!exif.places.empty()) Set(main, Number(kGpsTag, kLong, 0));
  const size_t main_at = layout.Put(main);
  layout.Write(4, main_at, 4);
  const auto [photo_at, places_at] = PutOthers(layout, exif);
  for (const auto& [tag, at] : {std::pair(kExifTag, photo_at), std::pair(kGpsTag, places_at)}) {
    const auto index =
        static_cast<size_t>(std::ranges::find(main, tag, &ExifEntry::tag) - main.begin());
    if (at != 0) layout.Write(main_at + 2 + kEntryBytes * index + 8, at, 4);
  }
  return layout.TakeBytes();
}

ExifAppendix SerializeExifForTiff(const Exif& exif, size_t base) {
  Layout layout(base, base, 0, 0);
  const auto [photo_at, places_at] = PutOthers(layout, exif);
  return {layout.TakeBytes(), photo_at, places_at};
}

}  // namespace qel::pictures
