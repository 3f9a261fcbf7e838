#include "reference/raster.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "host/pixel_slack.h"

namespace qel::reference {
namespace {

constexpr int64_t kGuardBytes = 256;
constexpr int64_t kLargestBlock = int64_t{1} << 26;

/// Kinds of content: what a fast path may get wrong differs between them.
void FillContent(Rng& rng, Block& memory) {
  const int kind = rng.Int(0, 3);
  const int low = rng.Int(0, 255);
  const int high = rng.Int(low, 255);
  // More bytes are drawn than anything else: two from each number.
  const auto fill = [&](const auto& value_of) {
    uint32_t drawn = 0;
    bool is_second = false;
    for (uint8_t& byte : memory) {
      drawn = is_second ? drawn >> 16 : rng.Next();
      is_second = !is_second;
      byte = static_cast<uint8_t>(value_of(static_cast<int>(drawn & 0xFFFF)));
    }
  };
  int grade = 0;
  switch (kind) {
    case 0:
      return fill([](int lot) { return lot; });
    case 1:
      return fill([=](int lot) { return lot % 3 == 0 ? low : high; });
    case 2:
      return fill([=](int lot) {
        return lot % 4 == 0 ? lot / 4 % 2 * 255 : low + (lot / 4 * (high - low + 1) >> 14);
      });
    default:
      return fill([&](int lot) { return grade += lot % 6 - 2; });
  }
}

/// What operations may touch round the rows is the image's as well, and more of it, which shows
/// what is touched beyond.
Layout::Reach GuardsOf(const Raster& image) {
  const host::PixelSlack slack = host::SlackOf(std::max(image.width, 0), std::max(image.height, 0),
                                               image.stride, image.bit_count, image.model);
  const auto whole_lines = [](int64_t bytes) { return (kGuardBytes + bytes + 63) / 64 * 64; };
  return {whole_lines(slack.before), whole_lines(slack.after)};
}

/// Pages between two unreadable ones. Kept when given back: to map them takes longer than most
/// calls, and what is touched after its release is for AddressSanitizer to tell, in blocks without
/// fences.
class FencedPages {
 public:
  static FencedPages& Instance() {
    static FencedPages pages;
    return pages;
  }
  ~FencedPages() {
    for (const auto& [size, mappings] : free_) {
      for (uint8_t* const mapping : mappings) munmap(mapping, size);
    }
  }

  /// A mapping of `size` bytes whose first and last page cannot be read.
  uint8_t* Take(size_t size, size_t page) {
    const std::lock_guard lock(mutex_);
    std::vector<uint8_t*>& mappings = free_[size];
    if (!mappings.empty()) {
      uint8_t* const mapping = mappings.back();
      mappings.pop_back();
      return mapping;
    }
    void* const mapped = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    auto* const mapping = static_cast<uint8_t*>(mapped);
    const size_t inner = size - 2 * page;
    // No bytes at all are an error for some emulators.
    if (inner > 0 && mprotect(mapping + page, inner, PROT_READ | PROT_WRITE) != 0) {
      throw std::bad_alloc();
    }
    return mapping;
  }
  void GiveBack(uint8_t* mapping, size_t size) {
    const std::lock_guard lock(mutex_);
    free_[size].push_back(mapping);
  }

 private:
  std::mutex mutex_;
  std::map<size_t, std::vector<uint8_t*>> free_;
};

}  // namespace

Block::Block(size_t size, Layout::Fence fence) : size_(size), fence_(fence) {
  if (fence_ == Layout::Fence::kNone) {
    data_ = static_cast<uint8_t*>(operator new (size, std::align_val_t{64}));
    return;
  }
  static const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t inner = (size + page - 1) / page * page;
  mapping_size_ = inner + 2 * page;
  mapping_ = FencedPages::Instance().Take(mapping_size_, page);
  data_ = mapping_ + page + (fence_ == Layout::Fence::kAfter ? inner - size : 0);
}

Block::Block(const Block& other) : Block(other.size_, other.fence_) {
  std::copy(other.begin(), other.end(), begin());
}

Block& Block::operator=(Block other) noexcept {
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  std::swap(fence_, other.fence_);
  std::swap(mapping_, other.mapping_);
  std::swap(mapping_size_, other.mapping_size_);
  return *this;
}

Block::~Block() {
  if (mapping_ != nullptr) {
    FencedPages::Instance().GiveBack(mapping_, mapping_size_);
  } else if (data_ != nullptr) {
    operator delete (data_, std::align_val_t{64});
  }
}

Layout& Raster::NewImageLayout() {
  static Layout layout;
  return layout;
}

Raster::Raster(Rng& rng, int new_width, int new_height, int new_bit_count, uint32_t new_model,
               const Layout& layout, int new_planes) {
  Allocate(new_width, new_height, new_planes, new_bit_count, new_model, layout);
  FillContent(rng, memory_);
}

int64_t Raster::RowBytes() const {
  return (static_cast<int64_t>(std::max(width, 0)) * std::max(bit_count, 0) + 7) / 8;
}

void Raster::Allocate(int new_width, int new_height, int new_planes, int new_bit_count,
                      uint32_t new_model, const Layout& layout) {
  width = new_width;
  height = new_height;
  planes = new_planes;
  bit_count = new_bit_count;
  model = new_model;
  const int64_t step = RowBytes() + layout.padding;
  const int64_t block = step * std::max(height, 0);
  const bool fenced = layout.fence != Layout::Fence::kNone;
  stride = static_cast<int>(layout.bottom_up ? -step : step);
  const auto [before, after] = layout.reach ? layout.reach(*this)
                               : fenced     ? Layout::Reach{}
                                            : GuardsOf(*this);
  plane_offsets_.clear();
  int64_t end = 0;
  // Hosts that report no planes still have one.
  for (int plane = 0; plane < std::max(planes, 1) && width >= 0 && block > 0; ++plane) {
    const int64_t first = end + before + layout.misalignment;
    plane_offsets_.push_back(static_cast<size_t>(layout.bottom_up ? first + block - step : first));
    end = (fenced ? first + block : (first + block + 63) / 64 * 64) + after;
  }
  memory_ = Block(static_cast<size_t>(plane_offsets_.empty() ? after : end), layout.fence);
}

bool Raster::Create(int new_width, int new_height, int new_planes, int new_bit_count,
                    uint32_t new_model) {
  const int64_t row = (int64_t{std::max(new_width, 0)} * std::max(new_bit_count, 0) + 7) / 8;
  const bool absurd = new_bit_count < 1 || new_bit_count > 64 || new_planes > 64 ||
                      row > kLargestBlock || row * std::max(new_height, 0) > kLargestBlock;
  palette.clear();
  if (absurd) {
    *this = Raster();
    return false;
  }
  Allocate(new_width, new_height, new_planes, new_bit_count, new_model, NewImageLayout());
  std::fill(memory_.begin(), memory_.end(), uint8_t{0xCD});
  return true;
}

void Raster::Assign(const Raster& source) {
  const Raster copy = source;
  Create(copy.width, copy.height, copy.planes, copy.bit_count, copy.model);
  palette = copy.palette;
  for (int plane = 0; plane < std::max(planes, 1); ++plane) {
    if (Bits(plane) == nullptr || copy.Bits(plane) == nullptr) continue;
    for (int64_t y = 0; y < height; ++y) {
      std::copy_n(copy.Row(y, plane), copy.RowBytes(), Row(y, plane));
    }
  }
}

void Raster::Fill(uint32_t color) {
  if (Bits() == nullptr) return;
  const int64_t bytes = bit_count < 24 ? 1 : bit_count == 32 ? 4 : 3;
  const int64_t units = bit_count < 24 ? RowBytes() : width;
  for (int64_t y = 0; y < height; ++y) {
    for (int64_t i = 0; i < units * bytes; ++i) {
      Row(y)[i] = static_cast<uint8_t>(color >> (8 * (i % bytes)));
    }
  }
}

Raster Raster::Window(int x, int y, int new_width, int new_height) {
  Raster window;
  window.width = new_width;
  window.height = new_height;
  window.planes = 1;
  window.bit_count = bit_count;
  window.model = model;
  window.stride = stride;
  window.window_ = Row(y) + int64_t{x} * bit_count / 8;
  return window;
}

uint8_t* Raster::Bits(int plane) {
  if (window_ != nullptr) return plane == 0 ? window_ : nullptr;
  if (plane < 0 || static_cast<size_t>(plane) >= plane_offsets_.size()) return nullptr;
  return memory_.begin() + plane_offsets_[static_cast<size_t>(plane)];
}

bool Raster::operator==(const Raster& other) const { return Difference(other).empty(); }

std::string Raster::Describe() const {
  char text[160];
  std::snprintf(text, sizeof(text), "%d x %d x %d planes, %d bits, model %08X, stride %d", width,
                height, planes, bit_count, model, stride);
  return text;
}

std::string Raster::Difference(const Raster& other) const {
  if (Describe() != other.Describe()) return Describe() + " against " + other.Describe();
  if (plane_offsets_ != other.plane_offsets_) return "other layout";
  if (std::ranges::equal(Memory(), other.Memory())) return {};
  const auto [here, there] =
      std::mismatch(memory_.begin(), memory_.end(), other.memory_.begin(), other.memory_.end());
  if (here == memory_.end()) return {};
  const int64_t step = std::max(std::abs(stride), 1);
  const int64_t at = here - memory_.begin() -
                     (plane_offsets_.empty() ? 0 : static_cast<int64_t>(plane_offsets_[0]));
  const int64_t row = at >= 0 ? at / step : (at - step + 1) / step;
  return Describe() + ": byte " + std::to_string(at - row * step) + " of stored row " +
         std::to_string(stride < 0 ? -row : row) + " is " + std::to_string(*here) + ", not " +
         std::to_string(*there);
}

uint32_t UsualModel(int bit_count) {
  return bit_count == 24   ? kModelBgr
         : bit_count == 32 ? kModelArgb
         : bit_count <= 8  ? kModelMono
                           : 0;
}

Layout RandomLayout(Rng& rng) {
  return {.padding = rng.OneIn(2) ? 0 : rng.Int(0, 70),
          .bottom_up = rng.OneIn(4),
          .misalignment = rng.OneIn(2) ? 0 : rng.Int(0, 63)};
}

Raster RandomRaster(Rng& rng, int width, int height, int bit_count) {
  return Raster(rng, width, height, bit_count, UsualModel(bit_count), RandomLayout(rng));
}

}  // namespace qel::reference
