#include "python/extension/call.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>

#include "operations/errors.h"
#include "operations/text/python_line.h"
#include "python/extension/arrays.h"
#include "python/extension/call_arguments.h"
#include "python/extension/errors.h"
#include "python/extension/runtime.h"

namespace qel::python {
namespace {

namespace py = pybind11;
using operations::ChannelOrder;
using operations::Operation;
using operations::Reach;

/// Below, giving the interpreter up for others costs more than the operation.
constexpr int64_t kPixelsWorthUnlocking = 4096;
/// Parts of the second and of the first cache of a core.
constexpr size_t kStripBytes = 256 * 1024;
constexpr size_t kSmallStripBytes = 8 * 1024;

/// The images of arrays that are second pictures, by the names of their parameters.
class ArraySource final : public operations::PictureSource {
 public:
  void Add(std::string_view name, const Pixels& rows) {
    images_.emplace(name, ArrayImage::Of(rows));
  }
  IQEL& Get(const std::string& name) override { return *images_.at(name).Get(); }

 private:
  std::map<std::string, SmartPtr<ArrayImage>> images_;
};

/// One call on its way: arguments first, then pixels.
class Runner {
 public:
  explicit Runner(const FunctionCall& call)
      : call_(call),
        operation_(call.operation),
        image_(ReadArray(call.image, operation_.name, "image")),
        rgb_(IsRgb(operation_.name, call.order)),
        swaps_(MustSwap()),
        given_(call, rgb_ && !swaps_ && image_.channels > 1) {
    if (!operation_.WorksOn(image_.shape().bits)) RefuseChannels();
  }

  py::object Run();
  operations::Border Border() const { return operation_.BorderOf(AsGiven(), image_.shape()); }

 private:
  operations::Given AsGiven() const { return {operation_.name, given_.arguments()}; }
  [[noreturn]] void Refuse(std::string_view argument, const std::string& message) const {
    RefuseArgument(operation_.name, argument, message);
  }

  [[noreturn]] void RefuseChannels() const;

  bool MustSwap() const;
  operations::Shape ResultShape() const;
  void CheckOut(const operations::Shape& shape);
  void PreparePictures();
  void SwapChannels(const PixelArray& pixels) const;
  SmartPtr<IQEL> Execute(IQEL* subject, ArrayImage* next);
  bool WorksByStrips(const operations::Shape& shape) const;
  void RunByStrips(const PixelArray& work);
  py::object RunInPlace(const operations::Shape& shape);
  py::object RunToResult(const operations::Shape& shape);
  py::object HandOver(const PixelArray& pixels);
  PixelArray ToArray(IQEL& image) const;
  void Warn(const char* reason) const;

  const FunctionCall& call_;
  const Operation& operation_;
  PixelArray image_;
  bool rgb_;    ///< the order of the arrays
  bool swaps_;  ///< pixels with channels are put in order for the operation
  CallArguments given_;
  bool unlocks_ = true;  ///< other threads may run meanwhile
  Reach reach_ = Reach::kRows;
  std::optional<PixelArray> out_;
  ArraySource pictures_;
  std::vector<std::string> notes_;
};

void Runner::RefuseChannels() const {
  std::string taken;
  for (const int channels : {1, 3, 4}) {
    if (!operation_.WorksOn(8 * channels)) continue;
    taken += (taken.empty() ? "" : " or ") + std::to_string(channels);
  }
  Refuse("image", "has " + std::to_string(image_.channels) + " channels, it works on " + taken);
}

bool Runner::MustSwap() const {
  const ChannelOrder wanted = operation_.channel_order;
  // Greys may get colors from the arguments.
  return rgb_ && (wanted == ChannelOrder::kBlueGreenRed ||
                  (wanted == ChannelOrder::kAlikeWithoutAlpha && image_.channels == 4));
}

operations::Shape Runner::ResultShape() const {
  const auto second = [&](const std::string& given) {
    // Second pictures are called by their arguments.
    return std::ranges::find(given_.seconds(), given, &CallArguments::Second::first)
        ->second.shape();
  };
  return operation_.ResultShape(AsGiven(), image_.shape(), second);
}

/// What is written to must be ready for it before anything is.
void Runner::CheckOut(const operations::Shape& shape) {
  if (call_.out.is_none()) return;
  out_ = ReadArray(call_.out, operation_.name, "out");
  if (!out_->array.writeable()) Refuse("out", "is read-only");
  if (out_->width != shape.width || out_->height != shape.height ||
      out_->channels != shape.bits / 8) {
    Refuse("out", "has the shape " + ShapeText(out_->width, out_->height, out_->channels) +
                      ", the result has " + ShapeText(shape.width, shape.height, shape.bits / 8));
  }
  if (!SamePixels(*out_, image_) && ShareMemory(*out_, image_)) {
    Refuse("out", "overlaps the image; pass the image itself, or another array");
  }
  for (const auto& [name, pixels] : given_.seconds()) {
    if (ShareMemory(*out_, pixels)) {
      Refuse("out", "overlaps " + operations::PythonName(name) + "; pass another array");
    }
  }
  for (py::ssize_t i = 0; i < out_->array.ndim(); ++i) {
    if (out_->array.strides(i) == 0 && out_->array.shape(i) > 1) Refuse("out", "overlaps itself");
  }
}

void Runner::Warn(const char* reason) const {
  WarnOfCopy(operation_.name, std::string("pixels are copied, ") + reason);
}

/// Images of the second pictures: where they are, or copied once.
void Runner::PreparePictures() {
  for (auto& [name, pixels] : given_.seconds()) {
    const bool swaps = swaps_ && pixels.channels > 1;
    if (!pixels.rows || swaps) pixels = CopyOf(pixels);
    if (swaps) SwapChannels(pixels);
    pictures_.Add(name, *pixels.rows);
  }
}

void Runner::SwapChannels(const PixelArray& pixels) const {
  const py::gil_scoped_release unlocked;
  Runtime::Get().SwapChannels(*pixels.rows);
}

SmartPtr<IQEL> Runner::Execute(IQEL* subject, ArrayImage* next) {
  const operations::Step step{&operation_, given_.arguments(), {}};
  const operations::Engine& engine = Runtime::Get().engine();
  SmartPtr<IQEL> result;
  {
    std::optional<py::gil_scoped_release> unlocked;
    if (unlocks_) unlocked.emplace();
    const Runtime::NextImage next_image(next);
    std::optional<operations::RandomNumbers> random_numbers;
    if (operation_.random) random_numbers.emplace();
    result = engine.RunStep(step, SmartPtr<IQEL>::Retain(subject), pictures_, notes_);
  }
  given_.map().Check();
  for (const std::string& note : notes_) WarnOfNote(note);
  return result;
}

PixelArray Runner::ToArray(IQEL& image) const {
  const operations::Shape shape = operations::ShapeOf(image);
  if (!shape.HasBytes()) Refuse("image", "would become " + shape.Bits() + " deep");
  PixelArray array = NewArray(shape.width, shape.height, shape.bits / 8, false);
  if (shape.width > 0 && shape.height > 0) ArrayImage::Into(*array.rows)->Assign(&image, 0);
  return array;
}

/// What goes back to the caller: the array that was made, or the caller's own with its pixels.
py::object Runner::HandOver(const PixelArray& pixels) {
  if (swaps_ && pixels.channels > 1) SwapChannels(pixels);
  if (!out_) return pixels.array;
  if (!SamePixels(*out_, pixels)) {
    AssignPixels(pixels, *out_);
  }
  return out_->array;
}

/// True when every pixel can be copied, put in order and changed by itself, and there are enough of
/// them that several passes would fetch them again from memory.
bool Runner::WorksByStrips(const operations::Shape& shape) const {
  const operations::Border border = Border();
  const bool same_shape = shape.bits == 8 * image_.channels;
  return border.rows == 0 && border.columns == 0 && same_shape && reach_ == Reach::kRows &&
         image_.rows && given_.seconds().empty() && !operation_.random && !operation_.composed() &&
         image_.rows->RowBytes() * static_cast<size_t>(image_.height) > 2 * kStripBytes;
}

/// Does on strips of rows what else is done on all of `work`, pass by pass.
void Runner::RunByStrips(const PixelArray& work) {
  const bool copies = !SamePixels(work, image_);
  const bool swaps = swaps_ && work.channels > 1;
  const operations::Engine& engine = Runtime::Get().engine();
  IQELTransform& transform = *engine.components().transform;
  const bool small = copies && !swaps && operation_.cheap_on_rows;
  const size_t strip_bytes = small ? kSmallStripBytes : kStripBytes;
  const int rows = static_cast<int>(std::max<size_t>(1, strip_bytes / work.rows->RowBytes()));
  const operations::Band band{work.shape(), 0, {0, work.height}};
  const SmartPtr<ArrayImage> subject = ArrayImage::Of(*work.rows);
  SmartPtr<IQEL> no_result;
  operations::Call call{AsGiven(), engine.components(), pictures_, engine.host(),
                        notes_,    subject.Get(),       band,      no_result.Put()};
  const py::gil_scoped_release unlocked;
  for (int y = 0; y < work.height; y += rows) {
    const int height = std::min(rows, work.height - y);
    const Pixels strip = work.rows->Part(y, height);
    if (copies) (small ? CopyRowsAhead : CopyRows)(image_.rows->Part(y, height), strip);
    subject->MoveTo(strip);
    if (swaps) transform.FlipBits(subject.Get());
    operations::Check(operation_, operation_.Run(call));
    if (swaps) transform.FlipBits(subject.Get());
  }
}

/// Operations that change their picture work on a copy, or on the array that they are to fill.
py::object Runner::RunInPlace(const operations::Shape& shape) {
  const bool same_shape = shape.width == image_.width && shape.height == image_.height &&
                          shape.bits == 8 * image_.channels;
  const bool beyond = reach_ == Reach::kBeyond;
  const bool into_out = out_ && out_->rows && same_shape && !beyond &&
                        out_->width == image_.width && out_->height == image_.height &&
                        out_->channels == image_.channels;
  PixelArray work =
      into_out ? *out_ : NewArray(image_.width, image_.height, image_.channels, false);
  if (WorksByStrips(shape)) {
    RunByStrips(work);
    swaps_ = false;  // they are in the caller's order again
    return HandOver(work);
  }
  if (!SamePixels(work, image_)) AssignPixels(image_, work);
  if (swaps_ && work.channels > 1) SwapChannels(work);
  if (!beyond) {
    const SmartPtr<ArrayImage> subject = ArrayImage::Of(*work.rows);
    const SmartPtr<IQEL> result = Execute(subject.Get(), nullptr);
    const bool in_place = subject->fits() && result.Get() == static_cast<IQEL*>(subject.Get());
    return HandOver(in_place ? work : ToArray(*result.Get()));
  }
  const auto padded = host::HostImage::Make({.clear = true});
  if (Failed(padded->Assign(ArrayImage::Of(*work.rows).Get(), 0))) throw std::bad_alloc();
  return HandOver(ToArray(*Execute(padded.Get(), nullptr).Get()));
}

py::object Runner::RunToResult(const operations::Shape& shape) {
  const bool beyond = reach_ == Reach::kBeyond;
  PixelArray source = image_;
  const bool swaps = swaps_ && image_.channels > 1;
  if (!source.rows || swaps) source = CopyOf(image_);
  if (swaps) SwapChannels(source);
  SmartPtr<IQEL> subject = SmartPtr<IQEL>::Retain(ArrayImage::Of(*source.rows).Get());
  if (beyond) {
    auto padded = host::HostImage::Make({.clear = true});
    if (Failed(padded->Assign(subject.Get(), 0))) throw std::bad_alloc();
    subject = SmartPtr<IQEL>::Retain(padded.Get());
  }
  const bool fits_rows = out_ && out_->rows && (reach_ == Reach::kRows || out_->rows->IsPacked());
  const bool into_out = fits_rows && operation_.fills_result && !SamePixels(*out_, image_);
  const PixelArray target =
      into_out ? *out_
               : NewArray(shape.width, shape.height, shape.bits / 8, !operation_.fills_result);
  const SmartPtr<ArrayImage> next = ArrayImage::Into(*target.rows);
  const SmartPtr<IQEL> result = Execute(subject.Get(), next.Get());
  const bool in_target = next->fits() && result.Get() == static_cast<IQEL*>(next.Get());
  return HandOver(in_target ? target : ToArray(*result.Get()));
}

py::object Runner::Run() {
  const operations::Shape shape = ResultShape();
  CheckOut(shape);
  if (!shape.HasBytes()) Refuse("image", "would become " + shape.Bits() + " deep");
  reach_ = operation_.ReachOf(AsGiven(), image_.shape());
  unlocks_ = !given_.map().calls_python &&
             (operation_.random || int64_t{image_.width} * image_.height > kPixelsWorthUnlocking);
  if (swaps_ && image_.channels > 1) {
    Warn("their channels must be in the order blue, green, red");
  } else if (reach_ == Reach::kBeyond) {
    Warn("the operation looks beyond their rows");
  } else if (!image_.rows) {
    Warn("they do not lie side by side");
  } else if (out_ && !out_->rows) {
    Warn("those of out do not lie side by side");
  }
  PreparePictures();
  return operation_.in_place ? RunInPlace(shape) : RunToResult(shape);
}

}  // namespace

py::object RunFunction(const FunctionCall& call) {
  try {
    return Runner(call).Run();
  } catch (...) {
    TranslateErrors(call.operation.name);
    throw;
  }
}

py::tuple BorderOf(const FunctionCall& call) {
  try {
    const operations::Border border = Runner(call).Border();
    const auto extent = [](int count) -> py::object {
      if (count == operations::Border::kAll) return py::none();
      return py::int_(count);
    };
    return py::make_tuple(extent(border.rows), extent(border.columns));
  } catch (...) {
    TranslateErrors(call.operation.name);
    throw;
  }
}

}  // namespace qel::python
