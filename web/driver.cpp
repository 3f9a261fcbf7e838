// What the page calls: pictures in the host's memory, chains of steps as text. Messages come back
// as JSON; nothing is thrown across the border to JavaScript.

#include <emscripten/emscripten.h>

#include <map>
#include <new>
#include <string>

#include "host/host_collection.h"
#include "host/host_image.h"
#include "operations/engine.h"
#include "operations/errors.h"
#include "operations/json.h"
#include "operations/python_line.h"
#include "operations/table.h"
#include "operations/table_json.h"
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
  qel::IQEL& Get(const std::string& name) override {
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
  std::string answer;
  std::vector<std::string> python;  ///< lines of the last chain

  Page()
      : engine(Components(collection.Get()),
               SmartPtr<qel::IComponentCollection>::Retain(collection.Get())) {}

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

std::string AnswerOf(const std::string& error, const std::string& operation,
                     const std::string& argument, const std::vector<std::string>& notes) {
  qel::operations::JsonObject answer;
  answer.Text("error", error).Text("operation", operation).Text("argument", argument);
  return answer.Json("notes", TextsAsJson(notes))
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

SmartPtr<qel::IQEL> RunChain(HostImage& source, const char* steps,
                             std::vector<std::string>& notes) {
  Page& page = ThePage();
  std::vector<qel::operations::Step> chain;  // without steps the picture stays as it is
  page.python.clear();
  if (*steps != '\0') chain = qel::operations::ParseSteps(Lines(steps));
  page.python = qel::operations::PythonLines(chain);
  SmartPtr<HostImage> copy = HostImage::Make({.clear = true});
  if (!copy || qel::Failed(copy->Assign(&source, 0))) throw std::bad_alloc();
  SmartPtr<qel::IQEL> picture = SmartPtr<qel::IQEL>::Retain(copy.Get());
  copy.Reset();
  const int total = static_cast<int>(chain.size());
  const qel::operations::RandomNumbers random_numbers;
  for (int i = 0; i < total; ++i) {
    TellProgress(i, total);
    picture = page.engine.RunStep(chain[static_cast<size_t>(i)], std::move(picture), page.pictures,
                                  notes);
  }
  TellProgress(total, total);
  return picture;
}

}  // namespace

extern "C" {

/// The table of operations as JSON, as `qel list --json` prints it.
EMSCRIPTEN_KEEPALIVE const char* qel_table() {
  static const std::string table = qel::operations::TableAsJson();
  return table.c_str();
}

/// A new picture of `bits` per pixel, owned by the caller, or null when there is no memory for it.
EMSCRIPTEN_KEEPALIVE HostImage* qel_make(int width, int height, int bits) {
  return HostImage::Make(width, height, bits, qel::operations::ModelOf(bits), {.clear = true})
      .Detach();
}
EMSCRIPTEN_KEEPALIVE void qel_free(HostImage* picture) { picture->Release(); }
EMSCRIPTEN_KEEPALIVE uint8_t* qel_bits(HostImage* picture) { return picture->Bits(); }
EMSCRIPTEN_KEEPALIVE int qel_stride(HostImage* picture) { return picture->stride(); }
EMSCRIPTEN_KEEPALIVE int qel_width(HostImage* picture) { return picture->width(); }
EMSCRIPTEN_KEEPALIVE int qel_height(HostImage* picture) { return picture->height(); }
EMSCRIPTEN_KEEPALIVE int qel_depth(HostImage* picture) { return picture->bit_count(); }

/// Offers a picture to steps under a name. The page keeps its own reference.
EMSCRIPTEN_KEEPALIVE void qel_name(const char* name, HostImage* picture) {
  ThePage().pictures.Put(name, SmartPtr<HostImage>::Retain(picture));
}

/// Runs a chain, one step a line, on a copy of `picture`. Returns the result, owned by the caller,
/// or null; `qel_answer` then says why.
EMSCRIPTEN_KEEPALIVE HostImage* qel_run(HostImage* picture, const char* steps) {
  Page& page = ThePage();
  std::vector<std::string> notes;
  try {
    SmartPtr<qel::IQEL> result = RunChain(*picture, steps, notes);
    page.answer = AnswerOf("", "", "", notes);
    return static_cast<HostImage*>(result.Detach());  // every image is this host's
  } catch (const qel::operations::StepError& error) {
    page.answer = AnswerOf(error.what(), error.operation(), error.argument(), notes);
  } catch (const qel::operations::CallError& error) {
    page.answer = AnswerOf(error.what(), error.operation(), "", notes);
  } catch (const std::bad_alloc&) {
    page.answer =
        AnswerOf("there is not enough memory for this: try a smaller picture", "", "", {});
  } catch (const std::exception& error) {
    page.answer = AnswerOf(error.what(), "", "", notes);
  }
  return nullptr;
}

/// What the last `qel_run` had to say: {"error", "operation", "argument", "notes", "python"}, the
/// last of which are the lines of the Python package that do the same.
EMSCRIPTEN_KEEPALIVE const char* qel_answer() { return ThePage().answer.c_str(); }

}  // extern "C"
