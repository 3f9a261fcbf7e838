#include "docs/generator/page.h"

namespace qel::docs {

std::vector<Page> ComposedPages() {
  return {
      {"resize",
       "Every pixel is the weighted mean of the source pixels round its place: with `s` source "
       "pixels a pixel, weights are `k((x + 0.5 - c) / max(s, 1))`, `k` being Lanczos of three "
       "lobes, Mitchell and Netravali, or the share of the area. Beyond the edges the outermost "
       "pixels repeat. Colours count by their alpha.",
       "About six products for every source pixel and channel down the columns, and the share "
       "`1 / s` of that along the rows, in 32-bit floats with one rounding at the end."},
      {"crop", "`out(x, y) = in(x + left, y + top)`.", "A copy of the rows that are kept."},
      {"pad", "The picture on a ground of one colour.", "A copy and a fill."},
      {"turn",
       "Every pixel of the result is turned back about the middle, and the source is read there "
       "by the cubic of Catmull and Rom, colours by their alpha. Pixels at the picture's edge are "
       "mixed with the background by the share that the picture has of them.",
       "Sixteen products a pixel and channel; quarter and half turns only move pixels."},
      {"overlay",
       "`out = over * a + in * (1 - a)`, `a` being alpha times opacity; where this picture has "
       "alpha as well, both are weighted by it (Porter and Duff's over).",
       "One pass over what the second picture covers."},
      {"text",
       "Letters are drawn with smooth edges by FreeType in the font that fontconfig finds, and "
       "laid on the picture as [overlay](overlay.md) does.",
       "The search for the font, which takes some milliseconds, is most of it."},
      {"flatten", "`out = in * alpha + background * (1 - alpha)`, at 24 bits.", "One pass."},
      {"grey", "`0.299 red + 0.587 green + 0.114 blue`, rounded, at 8 bits (ITU-R BT.601).",
       "One pass, and [flatten](flatten.md) before it at 32 bits."},
  };
}

std::vector<Job> EverydayJobs() {
  return {
      {"web", "Photos for the web", "photos/*.jpg", "web/", "resize width=120 height=120",
       "At most 1600 pixels either way; smaller photos stay as they are. Here at most 120.",
       "resize width=1600 height=1600"},
      {"thumbnail", "Square thumbnails", "photos/*.jpg", "thumbs/",
       "resize width=80 height=80 fit=cover",
       "The middle of each picture; gravity= keeps another part.",
       "resize width=200 height=200 fit=cover"},
      {"straighten",
       "Straighten the horizon",
       "photo.jpg",
       "straight.jpg",
       "turn angle=2.5 background=white",
       "Positive angles turn counter-clockwise. Nothing is cut off; add a crop to lose the "
       "corners.",
       {}},
      {"quarter",
       "Turn a picture that lies on its side",
       "photo.jpg",
       "upright.jpg",
       "turn angle=90",
       "Exact. Photos whose camera noted how it was held come upright by themselves.",
       {}},
      {"crop",
       "Cut to 16:9",
       "photo.jpg",
       "wide.jpg",
       "crop aspect=16:9 gravity=south",
       "The largest part of these proportions; x=, y=, width= and height= name any other.",
       {}},
      {"square",
       "Make it square with a margin",
       "photo.jpg",
       "square.png",
       "pad aspect=1 background=white",
       "background=transparent works for PNG, WebP and TIFF.",
       {}},
      {"logo", "Put a logo into the corner", "photos/*.jpg", "out/",
       "overlay with=other.png x=8 y=8 opacity=0.8",
       "Transparent parts of the logo stay transparent. tile=yes repeats it all over.",
       "overlay with=logo.png x=20 y=20 opacity=0.8"},
      {"caption",
       "Write a caption",
       "photo.jpg",
       "named.jpg",
       "text 'text=At the lake' size=18 gravity=south y=4 'font=DejaVu Sans' background=#00000080",
       "size= may be a share of the height, such as 5%.",
       {}},
      {"flatten",
       "A picture with transparency as JPEG",
       "logo.png",
       "logo.jpg",
       "flatten background=white",
       "JPEG has no transparency: without the step the tool says what it did.",
       {}},
      {"grey",
       "Grey, brighter, sharper",
       "scan.png",
       "page.png",
       "grey light brightness=20 contrast=15 sharpen",
       "Steps run one after the other; grey leaves one channel in the file.",
       {}},
  };
}

}  // namespace qel::docs
