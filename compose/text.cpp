#include "compose/text.h"

#include <algorithm>
#include <cmath>

#ifdef QEL_COMPOSE_FONTS
#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <map>
#include <memory>
#include <type_traits>
#endif

#if defined(__SANITIZE_ADDRESS__) && defined(QEL_COMPOSE_FONTS)
/// The leak sanitizer asks this: what fontconfig keeps until the process ends is no leak.
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions() {
  return "leak:libfontconfig";
}
#endif

namespace qel::compose {

std::vector<uint8_t> PaintText(const TextMask& mask, Color color) {
  std::vector<uint8_t> pixels;
  pixels.reserve(mask.cover.size() * 4);
  for (const uint8_t cover : mask.cover) {
    const auto alpha = static_cast<uint8_t>((cover * color.alpha + 127) / 255);
    pixels.insert(pixels.end(), {color.blue, color.green, color.red, alpha});
  }
  return pixels;
}

#ifndef QEL_COMPOSE_FONTS

bool HasText() { return false; }

TextMask DrawText(const std::string&, const std::string&, int) {
  throw TextError("this build has no fonts; build it with fontconfig and FreeType");
}

#else

namespace {

/// Owns what a C library made.
template <auto destroy>
struct Destroy {
  template <typename T>
  void operator()(T* object) const {
    destroy(object);
  }
};
using Pattern = std::unique_ptr<FcPattern, Destroy<&FcPatternDestroy>>;
using FontSet = std::unique_ptr<FcFontSet, Destroy<&FcFontSetDestroy>>;
using Library = std::unique_ptr<std::remove_pointer_t<FT_Library>, Destroy<&FT_Done_FreeType>>;
using Face = std::unique_ptr<std::remove_pointer_t<FT_Face>, Destroy<&FT_Done_Face>>;

/// Sizes of FreeType are 64ths of pixels.
constexpr int kUnit = 64;
constexpr FT_Pos kLongestLine = FT_Pos{1} << 20;

int Ceil(FT_Pos units) { return static_cast<int>((units + kUnit - 1) / kUnit); }

/// The characters of a text. Throws `TextError` for bytes that are no UTF-8.
std::vector<FcChar32> Characters(const std::string& text) {
  std::vector<FcChar32> characters;
  const auto* at = reinterpret_cast<const FcChar8*>(text.data());
  for (auto left = static_cast<int>(text.size()); left > 0;) {
    FcChar32 character = 0;
    const int used = FcUtf8ToUcs4(at, &character, left);
    if (used <= 0) throw TextError("the text is not UTF-8");
    if (character < ' ')
      throw TextError("the text is more than one line, or has control characters");
    characters.push_back(character);
    at += used;
    left -= used;
  }
  return characters;
}

/// The fonts that a pattern stands for, best first, opened when a character needs them.
class Fonts {
 public:
  Fonts(const std::string& name, int size) : size_(size) {
    FT_Library library = nullptr;
    if (FT_Init_FreeType(&library) != 0) throw TextError("FreeType cannot be used");
    library_.reset(library);
    const Pattern pattern(FcNameParse(reinterpret_cast<const FcChar8*>(name.c_str())));
    if (pattern == nullptr) throw TextError("\"" + name + "\" is no font pattern");
    FcConfigSubstitute(nullptr, pattern.get(), FcMatchPattern);
    FcDefaultSubstitute(pattern.get());
    FcResult result = FcResultMatch;
    fonts_.reset(FcFontSort(nullptr, pattern.get(), FcTrue, nullptr, &result));
    if (fonts_ == nullptr || fonts_->nfont == 0 || Open(0) == nullptr) {
      throw TextError("no font is installed; install fonts-dejavu-core or another");
    }
  }

  FT_Face First() { return Open(0); }

  /// The first font that has the character, or the first of all.
  FT_Face For(FcChar32 character) {
    for (int i = 0; i < fonts_->nfont; ++i) {
      FcCharSet* characters = nullptr;
      if (FcPatternGetCharSet(fonts_->fonts[i], FC_CHARSET, 0, &characters) != FcResultMatch ||
          FcCharSetHasChar(characters, character) == FcFalse) {
        continue;
      }
      const FT_Face face = Open(i);
      if (face != nullptr && FT_Get_Char_Index(face, character) != 0) return face;
    }
    return First();
  }

 private:
  /// Null when the file cannot be used.
  FT_Face Open(int number) {
    const auto [found, is_new] = faces_.try_emplace(number);
    FcChar8* file = nullptr;
    int index = 0;
    if (!is_new) return found->second.get();
    if (FcPatternGetString(fonts_->fonts[number], FC_FILE, 0, &file) != FcResultMatch) {
      return nullptr;
    }
    FcPatternGetInteger(fonts_->fonts[number], FC_INDEX, 0, &index);
    FT_Face face = nullptr;
    if (FT_New_Face(library_.get(), reinterpret_cast<const char*>(file), index, &face) != 0) {
      return nullptr;
    }
    found->second.reset(face);
    // Pictures instead of outlines come in few sizes, which do not fit.
    if (!FT_IS_SCALABLE(face) || FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(size_)) != 0) {
      found->second.reset();
    }
    return found->second.get();
  }

  int size_;
  Library library_;
  FontSet fonts_;
  std::map<int, Face> faces_;
};

/// Where a letter stands on the line.
struct PlacedLetter {
  FT_Face face;
  FT_UInt glyph;
  FT_Pos x;  ///< of its origin, in units
};

/// Loads a letter at a fraction of a pixel, so that the distances on the line stay even.
FT_GlyphSlot LoadLetter(const PlacedLetter& letter, FT_Pos x, FT_Int32 flags) {
  FT_Vector shift = {x & (kUnit - 1), 0};
  FT_Set_Transform(letter.face, nullptr, &shift);
  if (FT_Load_Glyph(letter.face, letter.glyph, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP | flags) !=
      0) {
    throw TextError("the font cannot be read");
  }
  return letter.face->glyph;
}

/// Sets the letters from x = 0 on; `end` becomes where the next one would stand.
std::vector<PlacedLetter> SetLetters(const std::vector<FcChar32>& characters, Fonts& fonts,
                                     FT_Pos& end) {
  std::vector<PlacedLetter> line;
  FT_Pos x = 0;
  for (const FcChar32 character : characters) {
    const FT_Face face = fonts.For(character);
    PlacedLetter letter = {face, FT_Get_Char_Index(face, character), x};
    if (!line.empty() && line.back().face == face && FT_HAS_KERNING(face)) {
      FT_Vector kerning = {};
      FT_Get_Kerning(face, line.back().glyph, letter.glyph, FT_KERNING_UNFITTED, &kerning);
      letter.x += kerning.x;
    }
    line.push_back(letter);
    // In 65536ths of pixels.
    x = letter.x + (LoadLetter(letter, 0, FT_LOAD_DEFAULT)->linearHoriAdvance >> 10);
    if (x > kLongestLine * kUnit) throw TextError("the line is too long for a picture");
  }
  end = x;
  return line;
}

/// Calls `draw(glyph slot, left, top)` with every letter's bitmap and place, (0, 0) being where the
/// line begins on its baseline.
template <typename Draw>
void ForEachBitmap(const std::vector<PlacedLetter>& line, const Draw& draw) {
  for (const PlacedLetter& letter : line) {
    const FT_GlyphSlot slot = LoadLetter(letter, letter.x, FT_LOAD_RENDER);
    // Shifts down to whole pixels also left of the origin.
    const int origin = static_cast<int>(letter.x >> 6);
    draw(slot->bitmap, origin + slot->bitmap_left, -slot->bitmap_top);
  }
}

}  // namespace

bool HasText() { return true; }

TextMask DrawText(const std::string& text, const std::string& font, int size) {
  const std::vector<FcChar32> characters = Characters(text);
  Fonts fonts(font, size);
  FT_Pos end = 0;
  const std::vector<PlacedLetter> line = SetLetters(characters, fonts, end);

  // Letters may lean out of the line on every side.
  const FT_Size_Metrics& metrics = fonts.First()->size->metrics;
  int left = 0, right = Ceil(end), top = -Ceil(metrics.ascender), bottom = Ceil(-metrics.descender);
  bool has_ink = false;
  ForEachBitmap(line, [&](const FT_Bitmap& bitmap, int x, int y) {
    if (bitmap.width == 0) return;
    has_ink = true;
    left = std::min(left, x);
    right = std::max(right, x + static_cast<int>(bitmap.width));
    top = std::min(top, y);
    bottom = std::max(bottom, y + static_cast<int>(bitmap.rows));
  });
  if (!has_ink) throw TextError("the text has nothing to draw");

  TextMask mask{right - left, bottom - top, {}};
  mask.lacks_letters =
      std::ranges::any_of(line, [](const PlacedLetter& letter) { return letter.glyph == 0; });
  mask.cover.resize(static_cast<size_t>(mask.width) * static_cast<size_t>(mask.height));
  ForEachBitmap(line, [&](const FT_Bitmap& bitmap, int x, int y) {
    for (unsigned row = 0; row < bitmap.rows; ++row) {
      const uint8_t* const from = bitmap.buffer + static_cast<ptrdiff_t>(row) * bitmap.pitch;
      uint8_t* const to = mask.cover.data() +
                          static_cast<ptrdiff_t>(y - top + static_cast<int>(row)) * mask.width +
                          (x - left);
      for (unsigned i = 0; i < bitmap.width; ++i) to[i] = std::max(to[i], from[i]);
    }
  });
  return mask;
}

#endif  // QEL_COMPOSE_FONTS

}  // namespace qel::compose
