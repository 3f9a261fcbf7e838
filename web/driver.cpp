// What the page calls: pictures go in and out as canvases have them, chains of steps come as text.
// Messages come back as JSON; nothing is thrown across the border to JavaScript.

#include <emscripten/emscripten.h>
#include <wasm_simd128.h>

#include <algorithm>
#include <map>
#include <memory>
#include <new>
#include <string>

#include "host/host_collection.h"
#include "host/host_image.h"
#include "operations/engine.h"
#include "operations/errors.h"
#include "operations/table.h"
#include "operations/text/json.h"
#include "operations/text/python_line.h"
#include "operations/text/table_json.h"
#include "qel/entry.h"

extern "C" {
qel::result_t InitializeModule(void* reserved, qel::IComponentCollection* collection);
qel::result_t CreateFunction(qel::tagREFString name, qel::CreationFunction* function);
}

namespace qel::host {

// There are no libraries to load in a page.
CreationFunction FindInSiblingModule(std::wstring_view, tagREFString, IComponentCollection*) {
  return nullptr;
}

}  // namespace qel::host

namespace {

using qel::IQEL;
using qel::SmartPtr;
using qel::host::HostImage;

/// One object of a component of the module, which is linked in.
template <typename Interface>
SmartPtr<Interface> Make(qel::tagREFString name) {
  SmartPtr<Interface> object;
  qel::CreationFunction function = nullptr;
  if (CreateFunction(name, &function) == qel::kOk) {
    function(nullptr, qel::kIidOf<Interface>, object.PutVoid());
  }
  return object;
}

/// Second pictures, by the names that steps call them by.
class NamedPictures final : public qel::operations::PictureSource {
 public:
  void Put(const std::string& name, SmartPtr<HostImage> picture) {
    pictures_[name] = std::move(picture);
  }
  IQEL& Get(const std::string& name) override {
    const auto found = pictures_.find(name);
    if (found == pictures_.end()) {
      throw qel::operations::StepError("there is no second picture called '" + name +
                                       "': open one for this step");
    }
    return *found->second.Get();
  }

 private:
  std::map<std::string, SmartPtr<HostImage>> pictures_;
};

struct Page {
  SmartPtr<qel::host::HostCollection> collection =
      qel::host::HostCollection::MakeWithImages({.clear = true});
  NamedPictures pictures;
  qel::operations::Engine engine;
  SmartPtr<IQEL> source;           ///< what chains run on
  std::vector<std::string> steps;  ///< of the last chain
  /// The picture before the step in which the last two chains began to differ, and the steps before
  /// it: while a slider is dragged, its step and those after it run alone.
  SmartPtr<IQEL> kept;
  std::vector<std::string> kept_steps;
  std::vector<std::string> kept_notes;
  std::unique_ptr<uint8_t[]> rgba;  ///< the last result
  std::string answer;
  std::vector<std::string> python;  ///< lines of the last chain

  Page()
      : engine(Components(collection.Get()),
               SmartPtr<qel::IComponentCollection>::Retain(collection.Get())) {}

  void KeepSource() {
    kept = source;
    kept_steps.clear();
    kept_notes.clear();
  }

  static qel::operations::Components Components(qel::IComponentCollection* collection) {
    InitializeModule(nullptr, collection);
    return {Make<qel::IQELColorTransform>(qel::RefString(qel::kColorTransformName)),
            Make<qel::IQELTransform>(qel::RefString(qel::kTransformName)),
            Make<qel::IQELDeform>(qel::RefString(qel::kDeformName)),
            Make<qel::IQELFilterTransform>(qel::RefString(qel::kFilterTransformName)),
            Make<qel::IQELMaths>(qel::RefString(qel::kMathsName))};
  }
};

Page& ThePage() {
  static Page page;
  return page;
}

std::string TextsAsJson(const std::vector<std::string>& texts) {
  std::vector<std::string> quoted;
  for (const std::string& text : texts) quoted.push_back(qel::operations::JsonText(text));
  return qel::operations::JsonArray(quoted);
}

std::string ErrorAsJson(const std::string& error, const std::string& operation = "",
                        const std::string& argument = "") {
  return qel::operations::JsonObject()
      .Text("error", error)
      .Text("operation", operation)
      .Text("argument", argument)
      .Json("python", TextsAsJson(ThePage().python))
      .Object();
}

std::vector<std::string> Lines(const char* text) {
  std::vector<std::string> lines(1);
  for (; *text != '\0'; ++text) {
    if (*text != '\n') {
      lines.back() += *text;
    } else {
      lines.emplace_back();
    }
  }
  if (lines.back().empty()) lines.pop_back();
  return lines;
}

// Tells the page how many steps of the chain are done.
EM_JS(void, TellProgress, (int done, int total), {
  if (Module.onStep) Module.onStep(done, total);
});

SmartPtr<IQEL> CopyOf(IQEL& picture) {
  const SmartPtr<HostImage> copy = HostImage::Make({.clear = true});
  if (!copy || qel::Failed(copy->Assign(&picture, 0))) throw std::bad_alloc();
  return SmartPtr<IQEL>::Retain(copy.Get());
}

/// Runs a chain on the page's source, from the picture that is kept if the chain begins as its
/// steps do. Without steps the source stays as it is.
SmartPtr<IQEL> RunChain(const std::vector<std::string>& lines, std::vector<std::string>& notes) {
  Page& page = ThePage();
  page.python.clear();
  std::vector<qel::operations::Step> chain;
  if (!lines.empty()) chain = qel::operations::ParseSteps(lines);
  page.python = qel::operations::PythonLines(chain);

  const auto common = [&](const std::vector<std::string>& other) {
    const size_t most = std::min(lines.size(), other.size());
    return static_cast<size_t>(
        std::mismatch(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(most), other.begin())
            .first -
        lines.begin());
  };
  // Random steps draw what those before them left.
  const bool random = std::ranges::any_of(
      chain, [](const qel::operations::Step& step) { return step.operation->random; });
  if (random || common(page.kept_steps) < page.kept_steps.size()) page.KeepSource();
  const size_t first_new = random ? 0 : common(page.steps);
  page.steps = lines;

  const qel::operations::RandomNumbers random_numbers;
  const int total = static_cast<int>(chain.size());
  SmartPtr<IQEL> picture = page.kept;
  notes = page.kept_notes;
  for (size_t i = page.kept_steps.size(); i < chain.size(); ++i) {
    TellProgress(static_cast<int>(i), total);
    if (i == first_new) {
      page.kept = picture;
      page.kept_steps.assign(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(i));
      page.kept_notes = notes;
    }
    const bool spoils = chain[i].operation->in_place && picture.Get() == page.kept.Get();
    if (spoils) picture = CopyOf(*picture.Get());
    picture = page.engine.RunStep(chain[i], std::move(picture), page.pictures, notes);
  }
  TellProgress(total, total);
  return picture;
}

constexpr int kPixelsAtOnce = 4;

/// Where the bytes of four pixels stand in as many of `bits`; what is nowhere becomes 0.
v128_t PlacesOfRgba(int bits) {
  constexpr int kNowhere = 16;
  uint8_t places[16];
  for (int i = 0; i < 16; ++i) {
    const int pixel = i / 4 * (bits / 8), channel = i % 4;
    places[i] = static_cast<uint8_t>(bits == 8     ? (channel < 3 ? pixel : kNowhere)
                                     : channel < 3 ? pixel + 2 - channel
                                     : bits == 32  ? pixel + 3
                                                   : kNowhere);
  }
  return wasm_v128_load(places);
}

/// The picture as a canvas takes it: red first, rows without padding, pixels without alpha opaque.
/// Reads up to 15 bytes behind rows, which images of the host have.
std::unique_ptr<uint8_t[]> RgbaOf(HostImage& picture) {
  const int width = picture.width(), bits = picture.bit_count();
  if (!qel::operations::ShapeOf(picture).HasBytes()) {
    throw qel::operations::StepError("the result has " + std::to_string(bits) +
                                     " bits per pixel, which this page cannot show");
  }
  const size_t row_bytes = 4 * static_cast<size_t>(width);
  auto rgba = std::make_unique_for_overwrite<uint8_t[]>(
      row_bytes * static_cast<size_t>(picture.height()) + 4 * kPixelsAtOnce);
  const v128_t places = PlacesOfRgba(bits);
  const v128_t opaque = wasm_u32x4_splat(bits == 32 ? 0 : 0xFF000000);
  for (int y = 0; y < picture.height(); ++y) {
    const uint8_t* from = picture.Row(y);
    uint8_t* const to = rgba.get() + row_bytes * static_cast<size_t>(y);
    for (int x = 0; x < width; x += kPixelsAtOnce, from += kPixelsAtOnce * bits / 8) {
      const v128_t pixels = wasm_i8x16_swizzle(wasm_v128_load(from), places);
      wasm_v128_store(to + 4 * x, wasm_v128_or(pixels, opaque));
    }
  }
  return rgba;
}

void FillFromRgba(HostImage& picture, const uint8_t* rgba) {
  const int bytes = picture.bit_count() / 8;
  for (int y = 0; y < picture.height(); ++y) {
    uint8_t* to = picture.Row(y);
    for (int x = 0; x < picture.width(); ++x, rgba += 4, to += bytes) {
      for (int c = 0; c < bytes; ++c) to[c] = rgba[c < 3 && bytes > 1 ? 2 - c : c];
    }
  }
}

}  // namespace

extern "C" {

/// The table of operations as JSON, as `qel list --json` prints it.
EMSCRIPTEN_KEEPALIVE const char* qel_table() {
  static const std::string table = qel::operations::TableAsJson();
  return table.c_str();
}

/// Keeps a picture of `bits` per pixel, made of the first of the channels red, green, blue and
/// alpha: as the source of chains, or, with a name, as the second picture that steps call so.
/// Returns false when there is no memory for it.
EMSCRIPTEN_KEEPALIVE bool qel_enter(const char* name, const uint8_t* rgba, int width, int height,
                                    int bits) {
  Page& page = ThePage();
  SmartPtr<HostImage> picture =
      HostImage::Make(width, height, bits, qel::operations::ModelOf(bits), {.clear = true});
  if (!picture) return false;
  FillFromRgba(*picture.Get(), rgba);
  if (*name == '\0') {
    page.source = SmartPtr<IQEL>::Retain(picture.Get());
  } else {
    page.pictures.Put(name, std::move(picture));
  }
  page.KeepSource();
  return true;
}

/// Runs a chain, one step a line, on the source. Returns the bytes red, green, blue and alpha of
/// every pixel of the result, valid until the next call, or null. `qel_answer` tells its shape, or
/// what is wrong.
EMSCRIPTEN_KEEPALIVE const uint8_t* qel_run(const char* steps) {
  Page& page = ThePage();
  page.rgba.reset();
  try {
    std::vector<std::string> notes;
    const SmartPtr<IQEL> result = RunChain(Lines(steps), notes);
    auto& picture = static_cast<HostImage&>(*result.Get());  // every image is this host's
    page.rgba = RgbaOf(picture);
    page.answer = qel::operations::JsonObject()
                      .Number("width", picture.width())
                      .Number("height", picture.height())
                      .Number("bits", picture.bit_count())
                      .Json("notes", TextsAsJson(notes))
                      .Json("python", TextsAsJson(page.python))
                      .Object();
  } catch (const qel::operations::StepError& error) {
    page.answer = ErrorAsJson(error.what(), error.operation(), error.argument());
  } catch (const qel::operations::CallError& error) {
    page.answer = ErrorAsJson(error.what(), error.operation());
  } catch (const std::bad_alloc&) {
    page.answer = ErrorAsJson("there is not enough memory for this: try a smaller picture");
  } catch (const std::exception& error) {
    page.answer = ErrorAsJson(error.what());
  }
  return page.rgba.get();
}

/// What the last `qel_run` had to say: {"width", "height", "bits", "notes", "python"} or {"error",
/// "operation", "argument", "python"}; "python" has the lines of the Python package that do the
/// same.
EMSCRIPTEN_KEEPALIVE const char* qel_answer() { return ThePage().answer.c_str(); }

}  // extern "C"
