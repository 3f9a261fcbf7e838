#ifndef QEL_COMPOSE_BLEND_H_
#define QEL_COMPOSE_BLEND_H_

#include "compose/pixels.h"

namespace qel::compose {

/// The channels that a picture of `channels` needs to hold `color` as well.
int ChannelsWith(int channels, Color color);

/// Gives every pixel one colour. One channel takes the grey nearest to it.
void Fill(const Pixels& dest, Color color);

/// Writes `source` into `dest` with the pixel (0, 0) at (x, y), where it lies inside. `dest` has
/// the same channels or more; greys become colours, and pixels without alpha opaque.
void CopyTo(const ConstPixels& source, const Pixels& dest, int x, int y);

/// Lays `over` on `dest` with its pixel (0, 0) at (x, y), where it lies inside (Porter and Duff,
/// 1984: over). Alpha of `over` and `opacity`, 0 to 1, tell how much of it shows. Colours on one
/// channel become greys.
void BlendOver(const ConstPixels& over, double opacity, const Pixels& dest, int x, int y);
/// The same for as many copies, side by side, as cover `dest`; one of them lies at (x, y).
void BlendTiles(const ConstPixels& over, double opacity, const Pixels& dest, int x, int y);

/// Lays pixels with alpha on a ground of one colour: 4 channels become 3.
void Flatten(const ConstPixels& source, Color ground, const Pixels& dest);

/// Colours become one channel by their luma, 0.299 red + 0.587 green + 0.114 blue (ITU-R BT.601),
/// rounded. `dest` has 1 channel, `source` 3.
void ToGray(const ConstPixels& source, const Pixels& dest);

/// True when a pixel has an alpha below 255.
bool HasTransparency(const ConstPixels& source);

}  // namespace qel::compose

#endif  // QEL_COMPOSE_BLEND_H_
