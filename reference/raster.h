#ifndef QEL_REFERENCE_RASTER_H_
#define QEL_REFERENCE_RASTER_H_

#include <cstdint>
#include <functional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "qel/types.h"
#include "reference/rng.h"

namespace qel::reference {

class Raster;

/// How an image lies in memory.
struct Layout {
  int padding = 0;         ///< bytes after each row
  bool bottom_up = false;  ///< negative stride
  int misalignment = 0;    ///< bytes by which the first row is off a 64-byte boundary

  /// Where unreadable pages lie: one of the two pages round the block touches its very end.
  enum class Fence { kNone, kBefore, kAfter };
  Fence fence = Fence::kNone;
  /// With a fence: how many bytes before its lowest row and after its highest an image has.
  struct Reach {
    int64_t before = 0;
    int64_t after = 0;
  };
  std::function<Reach(const Raster& shape)> reach = {};
};

/// Memory of an image, yet to be filled; with a fence, between two unreadable pages. Copies lie
/// likewise.
class Block {
 public:
  Block() = default;
  Block(size_t size, Layout::Fence fence);
  Block(const Block& other);
  Block& operator=(Block other) noexcept;
  ~Block();

  uint8_t* begin() { return data_; }
  uint8_t* end() { return data_ + size_; }
  const uint8_t* begin() const { return data_; }
  const uint8_t* end() const { return data_ + size_; }

 private:
  uint8_t* data_ = nullptr;
  size_t size_ = 0;
  Layout::Fence fence_ = Layout::Fence::kNone;
  uint8_t* mapping_ = nullptr;
  size_t mapping_size_ = 0;
};

/// An image as the plain readings see it: shape and bytes, with guard zones before and after the
/// rows of every plane. Two rasters are equal when every byte is, guards and padding included.
class Raster {
 public:
  int width = 0;
  int height = 0;
  int planes = 0;
  int bit_count = 0;
  uint32_t model = 0;
  int stride = 0;  ///< bytes from row to row, may be negative
  std::vector<RGBQUAD> palette;

  Raster() = default;
  /// An image filled with deterministic noise, its guards too.
  Raster(Rng& rng, int new_width, int new_height, int new_bit_count, uint32_t new_model,
         const Layout& layout, int new_planes = 1);

  /// Makes fresh pixels as the test host does: every byte 0xCD, layout as `NewImageLayout`.
  /// False, and an empty image, for sizes that no test host makes.
  bool Create(int new_width, int new_height, int new_planes, int new_bit_count, uint32_t new_model);
  /// `Create` in the shape of `source`, then a copy of its rows without their padding.
  void Assign(const Raster& source);
  /// Sets every pixel of plane 0: the low byte of `color` below 24 bits, else its bytes.
  void Fill(uint32_t color);

  /// Row 0 of a plane; null when the image has no pixels or no such plane.
  uint8_t* Bits(int plane = 0);
  const uint8_t* Bits(int plane = 0) const { return const_cast<Raster*>(this)->Bits(plane); }
  uint8_t* Row(int64_t y, int plane = 0) { return Bits(plane) + y * stride; }
  const uint8_t* Row(int64_t y, int plane = 0) const { return Bits(plane) + y * stride; }
  /// Bytes of a row without padding.
  int64_t RowBytes() const;
  /// An image of one plane that lies in this one's, which must live on: its top left is pixel
  /// (x, y). At whole bytes only.
  Raster Window(int x, int y, int new_width, int new_height);

  /// Rows, padding and guards, from the first byte to the last.
  std::span<const uint8_t> Memory() const { return {memory_.begin(), memory_.end()}; }

  bool operator==(const Raster& other) const;
  /// Where two rasters differ first, in words; empty when they are equal.
  std::string Difference(const Raster& other) const;
  std::string Describe() const;
  friend void PrintTo(const Raster& raster, std::ostream* out) { *out << raster.Describe(); }

  /// The layout of images made by `Create`; tests vary it.
  static Layout& NewImageLayout();

 private:
  void Allocate(int new_width, int new_height, int new_planes, int new_bit_count,
                uint32_t new_model, const Layout& layout);

  Block memory_;
  std::vector<size_t> plane_offsets_;
  uint8_t* window_ = nullptr;  ///< row 0, where that lies in another image
};

/// Width, height and depth of one test image.
struct Shape {
  int width;
  int height;
  int bit_count;
};

/// The depths that pixel access knows, and some odd ones of each family.
inline const std::vector<int> kAllDepths = {1, 4, 8, 16, 24, 25, 32, 40};
inline const std::vector<int> kCommonDepths = {8, 24, 32};

/// The usual colour model of a bit count.
uint32_t UsualModel(int bit_count);

/// A random layout.
Layout RandomLayout(Rng& rng);
/// A random image: noisy, flat, two-valued or graded.
Raster RandomRaster(Rng& rng, int width, int height, int bit_count);

/// Sizes round the vector lengths, single rows and columns, empty ones.
inline constexpr Shape kSizes[] = {{1, 1, 0},  {2, 3, 0},   {3, 2, 0},   {7, 5, 0},  {15, 4, 0},
                                   {16, 3, 0}, {17, 9, 0},  {31, 6, 0},  {33, 4, 0}, {63, 3, 0},
                                   {64, 5, 0}, {65, 7, 0},  {100, 3, 0}, {1, 9, 0},  {0, 5, 0},
                                   {5, 0, 0},  {130, 2, 0}, {230, 6, 0}};

}  // namespace qel::reference

#endif  // QEL_REFERENCE_RASTER_H_
