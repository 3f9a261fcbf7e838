#ifndef QEL_CLI_DRAWING_DEMO_SCENE_H_
#define QEL_CLI_DRAWING_DEMO_SCENE_H_

#include "cli/drawing/canvas.h"

namespace qel::cli {

inline constexpr int kDemoWidth = 480;
inline constexpr int kDemoHeight = 320;

/// Draws the built-in picture: a landscape with soft gradients, a star of fine spokes and a ring
/// pattern for detail, colour patches, a grey scale, lettering in three sizes, and a corner that
/// fades to transparent. `canvas` is kDemoWidth x kDemoHeight.
void DrawDemoScene(const Canvas& canvas);

}  // namespace qel::cli

#endif  // QEL_CLI_DRAWING_DEMO_SCENE_H_
