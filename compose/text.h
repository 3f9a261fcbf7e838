#ifndef QEL_COMPOSE_TEXT_H_
#define QEL_COMPOSE_TEXT_H_

#include <stdexcept>
#include <string>
#include <vector>

#include "compose/pixels.h"

namespace qel::compose {

/// A line of text cannot be drawn; the message says why and what would be right.
class TextError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// True when the library was built with fontconfig and FreeType.
bool HasText();

/// Drawn text: how much of each pixel the letters cover, rows from top to bottom. All lines of one
/// font and size have the same height, from its ascender to its descender.
struct TextMask {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> cover;
  bool lacks_letters = false;  ///< no font has some of the characters; boxes stand for them
};

/// Draws one line of UTF-8 `text`. `font` is a pattern of fontconfig, such as "sans" or
/// "DejaVu Serif:bold"; letters that its font lacks come from the next one that has them. `size` is
/// the height of the font in pixels. Letters are set one after the other with kerning; scripts that
/// need shaping are not shaped.
/// Throws `TextError`: text that is not UTF-8, has line ends or nothing to draw, no font, or a
/// build without fonts.
TextMask DrawText(const std::string& text, const std::string& font, int size);

/// The mask as pixels of `color`, 4 channels, rows without gaps.
std::vector<uint8_t> PaintText(const TextMask& mask, Color color);

}  // namespace qel::compose

#endif  // QEL_COMPOSE_TEXT_H_
