#ifndef QEL_COMPOSE_TURN_H_
#define QEL_COMPOSE_TURN_H_

#include "compose/pixels.h"
#include "compose/placement.h"

namespace qel::compose {

/// The smallest canvas that holds a picture of `source` pixels turned by `degrees`.
Size TurnedSize(const Size& source, double degrees);

/// Turns a picture about its middle, counter-clockwise for positive `degrees`, onto the rows of
/// `dest` from row `first_row` of a canvas of `TurnedSize` on. Quarter and half turns move pixels;
/// other angles interpolate by the cubic of Catmull and Rom, with colours weighted by their alpha,
/// and the picture's edges are smooth. What the picture does not cover takes `background`.
/// `dest` has the canvas's width and at least the channels of `source` and of the background;
/// `source` has 3 or 4 channels unless `dest` has 1 as well.
void Turn(const ConstPixels& source, double degrees, Color background, const Pixels& dest,
          int first_row);

}  // namespace qel::compose

#endif  // QEL_COMPOSE_TURN_H_
