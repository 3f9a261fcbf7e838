#ifndef QEL_COMPOSE_PLACEMENT_H_
#define QEL_COMPOSE_PLACEMENT_H_

namespace qel::compose {

/// The side or corner that something is laid against.
enum class Gravity {
  kNorthWest,
  kNorth,
  kNorthEast,
  kWest,
  kCenter,
  kEast,
  kSouthWest,
  kSouth,
  kSouthEast,
};

/// Width and height in pixels.
struct Size {
  int width = 0;
  int height = 0;

  bool operator==(const Size&) const = default;
};

/// A rectangle of pixels.
struct Box {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  bool LiesIn(const Size& size) const {
    return x >= 0 && y >= 0 && x <= size.width - width && y <= size.height - height;
  }
  bool operator==(const Box&) const = default;
};

/// Where `inner` comes to lie in `outer`. (`dx`, `dy`) lead inwards from the sides that `gravity`
/// names, and to the right and down along an axis on which it is central. What `inner` is larger
/// than `outer` stands over.
Box Place(Gravity gravity, const Size& outer, const Size& inner, int dx, int dy);

/// How a picture comes to a wanted size of other proportions.
enum class Fit {
  kInside,  ///< the largest size of the picture's proportions that lies in the wanted one
  kCover,   ///< scaled to cover the wanted size, of which that much is taken
  kExact,   ///< the wanted size, whatever the proportions
};

/// What becomes of a picture's size: it is scaled to `scaled`, and `taken` of that is kept.
struct FittedSize {
  Size scaled;
  Size taken;
};

/// Fits a picture of `source` pixels to `wanted`; 0 stands for an extent that follows from the
/// other by the proportions. Unless `enlarges`, a picture that would get larger along either axis
/// stays as it is.
FittedSize FitSize(const Size& source, double wanted_width, double wanted_height, Fit fit,
                   bool enlarges);

/// The largest size of proportions `ratio` (width by height) inside `size`.
Size LargestInside(const Size& size, double ratio);
/// The smallest size of proportions `ratio` round `size`.
Size SmallestRound(const Size& size, double ratio);

}  // namespace qel::compose

#endif  // QEL_COMPOSE_PLACEMENT_H_
