#ifndef QEL_OPERATIONS_COMPOSED_COMMON_H_
#define QEL_OPERATIONS_COMPOSED_COMMON_H_

#include "compose/pixels.h"
#include "compose/placement.h"
#include "operations/arguments.h"
#include "operations/rows/common.h"

namespace qel::operations {

// What the rows of composed operations share.

inline constexpr std::string_view kEveryday = "Everyday";

/// Parameters that several rows have.
extern const Parameter kGravityParameter;
Parameter OffsetParameter(std::string_view name, std::string_view help);
Parameter ExtentParameter(std::string_view name, std::string_view help);
/// What fills room beside the picture; left out: transparent if it has alpha, else white.
extern const Parameter kBackgroundParameter;

// Shapes in the words of compose/: whole bytes are channels.
inline compose::Size SizeOf(const Shape& shape) { return {shape.width, shape.height}; }
inline int ChannelsOf(const Shape& shape) { return shape.bits / 8; }

/// The pixels of an image of 8 bits grey, 24 or 32 bits. Throws `StepError` for others, which are
/// those with a palette and those below 8 bits.
compose::Pixels PixelsOf(const Given& given, IQEL& image);

/// A new image of the host. Throws `StepError` for a size that it does not make.
SmartPtr<IQEL> MakeImage(Call& call, const compose::Size& size, int channels);

/// An image of `channels` with the picture at (x, y), and `color` where the picture is not.
SmartPtr<IQEL> MakeWithPicture(Call& call, const compose::Size& size, int channels,
                               compose::Color color, int x, int y);

/// The part of `rows` that a picture of `height` rows has, or the nearest of its rows.
RowRange ClampRows(RowRange rows, int height);

/// The colour that an argument of kind `kPaint` gives.
compose::Color PaintOf(const Given& given, std::string_view name);
/// The background for a picture of this shape.
compose::Color BackgroundOf(const Given& given, const Shape& shape);

/// The side or corner that gravity= names.
compose::Gravity GravityOf(const Given& given);

/// An extent in whole pixels, rounded.
int PixelsIn(const Given& given, std::string_view name, int whole);

/// Proportions as "16:9", "3/2" or 1.5. Throws `StepError`.
double RatioOf(const Given& given, std::string_view name);

// The rows by what they do.
Operation ResizeRow();
std::vector<Operation> CanvasRows();
std::vector<Operation> LayerRows();

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_COMPOSED_COMMON_H_
