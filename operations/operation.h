#ifndef QEL_OPERATIONS_OPERATION_H_
#define QEL_OPERATIONS_OPERATION_H_

#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "operations/components.h"
#include "operations/method.h"
#include "operations/parameter.h"
#include "operations/shape.h"

namespace qel::operations {

class Arguments;

/// What a step says, whatever the picture.
struct Given {
  std::string_view name;  ///< of the operation, for messages
  const Arguments& arguments;
};

/// What an operation does with pixels whose channels lie in the order red, green, blue, instead of
/// blue, green, red as the module takes them.
enum class ChannelOrder {
  kAlike,              ///< the same to every color channel
  kAlikeWithoutAlpha,  ///< the same to every color channel, at 32 bits something else
  kByArguments,   ///< the same, once colors among the arguments, and `swapped`, are exchanged too
  kBlueGreenRed,  ///< something else: pixels must be put in order
};

/// "alike", "alike without alpha", "by arguments" or "blue green red".
std::string_view NameOf(ChannelOrder order);

/// Second pictures of steps, by the text of their argument.
class PictureSource {
 public:
  virtual ~PictureSource() = default;
  /// The picture called `name`, valid as long as the source; steps only read it. Throws what its
  /// reader throws.
  virtual IQEL& Get(const std::string& name) = 0;
};

/// Where an image belongs that may be a part of a picture: rows of it, in its whole width.
struct Band {
  Shape whole;        ///< of the picture
  int first_row = 0;  ///< of the picture, which is row 0 of the image
  /// Rows of the picture's result that are to be made. An operation without `source_rows` makes
  /// those of the image instead, as do ones that change the image or leave it as it is.
  RowRange result;
};

/// One execution of a step: what the row's function gets.
struct Call : Given {
  const Components& components;
  PictureSource& pictures;
  IComponentCollection& host;       ///< where images come from
  std::vector<std::string>& notes;  ///< for the caller to show
  IQEL* image;                      ///< the picture so far; in-place operations change it
  const Band& band;                 ///< what of the picture that is; matters to `compose` only
  IQEL** result;                    ///< where a new picture goes; it replaces `image`

  /// An empty image of the host. Throws `std::bad_alloc` when there is none.
  SmartPtr<IQELImageDIB> NewImage() const;
};

/// What a user would not expect of an operation, and when.
struct Surprise {
  std::string_view text = {};  ///< a sentence or two
  /// True for the steps on pictures of this shape that it is about.
  bool (*meets)(const Given& given, const Shape& shape) = nullptr;
};

/// One row of the operation table. One of `method`, `call` and `compose` is there.
struct Operation {
  std::string_view name = {};       ///< kebab case
  std::string_view component = {};  ///< object name of the component; of composed rows a heading
  std::string_view summary = {};    ///< one line
  std::string_view depths = {};     ///< bit counts that it takes
  bool in_place = false;            ///< changes the picture instead of making a new one
  bool random = false;              ///< draws from the process's random generator
  std::vector<Parameter> parameters = {};
  std::string_view example = {};         ///< a step as one would type it
  std::string_view picture_step = {};    ///< a step for a picture of 176 x 106; empty: the example
  std::string_view note = {};            ///< what may surprise whenever it is used; may be empty
  std::vector<Surprise> surprises = {};  ///< what is told when a step meets it
  /// The parameter whose value needs no name; empty: see `Positional`.
  std::string_view positional = {};
  bool sets_alpha = false;  ///< changing alpha is what it is for

  ChannelOrder channel_order = ChannelOrder::kAlike;
  /// Two numeric arguments that change places with red and blue; may be empty.
  std::string_view swapped[2] = {};
  /// How far a pixel looks on a picture of this shape; null: the whole picture.
  Border (*border)(const Given& given, const Shape& shape) = nullptr;
  /// What is touched outside the rows, on a picture of this shape; null: nothing.
  Reach (*reach)(const Given& given, const Shape& shape) = nullptr;
  /// On a picture of a few rows a call costs next to nothing but what it does to their pixels.
  bool cheap_on_rows = false;
  /// Every pixel of a new picture is written, whatever its memory held.
  bool fills_result = false;

  /// The method of the module that carries the step out alone: with the picture, the place of the
  /// result if it gives one, and `numbers`.
  const Method* method = nullptr;
  /// The arguments that `method` takes, in its order, "" for 0. Empty: all of them.
  std::vector<std::string_view> numbers = {};
  /// What comes before the method; may be null.
  void (*prepare)(const Call& call) = nullptr;
  /// Carries the step out by the module where more than that is to be done.
  result_t (*call)(Call& call) = nullptr;
  /// Of operations that the module does not have: makes a new picture from `Call::image`, which
  /// only rows in place change, by several calls or other libraries. Throws `StepError` and
  /// `CallError`; a null result leaves the picture as it is.
  SmartPtr<IQEL> (*compose)(Call& call) = nullptr;
  /// Of operations that `compose` by bands: the rows of a picture of this shape that rows of the
  /// result are made of, or none when the picture must be one image. Null: see `border`.
  RowRange (*source_rows)(const Given& given, const Shape& shape, RowRange result) = nullptr;
  /// It notes something that it has counted in the whole picture.
  bool counts = false;
  /// Throws `StepError` for arguments that do not go together; null when all do.
  void (*check)(const Given& given) = nullptr;
  /// The same for pictures that do not fit, the second ones included, by their shapes; may be null.
  void (*check_shapes)(const Given& given, const Shape& shape,
                       const ShapeOfPicture& second) = nullptr;
  /// What becomes of the shape of a picture; null when it stays. The model is not looked at.
  Shape (*result_shape)(const Given& given, Shape shape) = nullptr;
  /// The same where it depends on a second picture, whose shape comes last.
  Shape (*shape_with_second)(const Given& given, Shape shape, const Shape& second) = nullptr;

  /// The parameter whose value needs no name, as in "median 5" and "overlay logo.png": the only one
  /// that is required, or that there is, if it is a number; a text or picture if it is required.
  /// Null when that is not clear.
  const Parameter* Positional() const;
  /// All that may surprise, for pages: the note and the surprises.
  std::string Caveats() const;
  /// The bit counts that `depths` lists.
  std::vector<int> Depths() const;
  bool WorksOn(int bits) const;
  /// What `method` takes beside pictures.
  MethodArguments ArgumentsOf(const Arguments& arguments) const;
  /// Carries a step out that is not composed.
  result_t Run(Call& step) const;
  bool composed() const { return compose != nullptr; }
  std::string_view PictureStep() const { return picture_step.empty() ? example : picture_step; }
  /// The shape of the result; `second` may be empty where the second pictures are not known yet.
  Shape ResultShape(const Given& given, const Shape& shape, const ShapeOfPicture& second) const;
  Border BorderOf(const Given& given, const Shape& shape) const {
    return border == nullptr ? Border{Border::kAll, Border::kAll} : border(given, shape);
  }
  Reach ReachOf(const Given& given, const Shape& shape) const {
    return reach == nullptr ? Reach::kRows : reach(given, shape);
  }
  /// The parameter called `parameter`, or null.
  const Parameter* Find(std::string_view parameter) const {
    const auto found = std::ranges::find(parameters, parameter, &Parameter::name);
    return found == parameters.end() ? nullptr : &*found;
  }
};

/// What is to be told about a step on a picture of this shape before it runs.
std::vector<std::string_view> SurprisesOf(const Operation& operation, const Given& given,
                                          const Shape& shape);

/// Ends the step with a `StepError` under its name.
[[noreturn]] void Refuse(const Given& given, const std::string& message,
                         std::string_view argument = {});
/// The same with a `DepthError`.
[[noreturn]] void RefuseDepth(const Given& given, const std::string& message,
                              std::string_view argument = {});

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_OPERATION_H_
