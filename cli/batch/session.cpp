#include "cli/batch/session.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <sstream>

#include "operations/errors.h"

namespace qel::cli {
namespace {

namespace fs = std::filesystem;

}  // namespace

std::string OwnModulePath() {
  const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path().parent_path();
  for (const char* const place : {"_binLIN64", QEL_MODULE_FOLDER}) {
    const fs::path path = folder / place / "QELMaths.so";
    if (fs::exists(path)) return path.lexically_normal();
  }
  throw Failure(kModuleFault, "the module QELMaths.so is neither in " +
                                  (folder / "_binLIN64").string() + " nor in " +
                                  (folder / QEL_MODULE_FOLDER).string() +
                                  "; name it with --module PATH");
}

namespace {

host::ModuleLibrary LoadModule(const std::string& path) {
  try {
    return host::ModuleLibrary(path.empty() ? OwnModulePath() : fs::absolute(path).string());
  } catch (const host::ModuleError& error) {
    throw Failure(kModuleFault, error.what());
  }
}

/// The process's random numbers for one picture, from their first: results depend neither on the
/// order of the pictures nor on other threads, which wait.
std::unique_lock<std::mutex> ClaimRandomNumbers() {
  static std::mutex mutex;
  std::unique_lock lock(mutex);
  std::srand(1);
  return lock;
}

/// True when `bits` is in a list such as "8, 24, 32".
bool Lists(std::string_view depths, int bits) {
  std::istringstream words{std::string(depths)};
  for (std::string word; words >> word;) {
    if (std::stoi(word) == bits) return true;
  }
  return false;
}

/// What a result code means to somebody at the command line, and what would be right.
std::string Explain(const Operation& operation, result_t code, int bits) {
  char number[16];
  std::snprintf(number, sizeof(number), "0x%08X", static_cast<unsigned>(code));
  std::string text = std::string(operation.name) + ": failure " + number + ": ";
  if (!Lists(operation.depths, bits)) {
    text += "it works on " + std::string(operation.depths) + " bits per pixel, the picture has " +
            std::to_string(bits);
    if (bits < 32 && Lists(operation.depths, 32)) text += "; put increase-bpp before it";
    return text;
  }
  return text + (code == kFail              ? "the picture's shape does not fit"
                 : code == kInvalidArgument ? "an argument is not accepted"
                 : code == kNotMono         ? "the picture is not monochrome"
                                            : "see the result codes in qel/types.h");
}

}  // namespace

Session::Session(const std::string& path)
    : collection_(host::HostCollection::MakeWithImages(kImageOptions)), library_(LoadModule(path)) {
  library_.Initialize(collection_.Get());
  try {
    components_.color = library_.Create<IQELColorTransform>(RefString(kColorTransformName));
    components_.transform = library_.Create<IQELTransform>(RefString(kTransformName));
    components_.deform = library_.Create<IQELDeform>(RefString(kDeformName));
    components_.filter = library_.Create<IQELFilterTransform>(RefString(kFilterTransformName));
    components_.maths = library_.Create<IQELMaths>(RefString(kMathsName));
  } catch (const host::ModuleError& error) {
    throw Failure(kModuleFault, error.what());
  }
}

SmartPtr<host::HostImage> Session::Run(const std::vector<Step>& steps,
                                       SmartPtr<host::HostImage> picture,
                                       PictureSource& pictures) const {
  std::unique_lock<std::mutex> random_numbers;
  if (std::ranges::any_of(steps, [](const Step& step) { return step.operation->random; })) {
    random_numbers = ClaimRandomNumbers();
  }
  for (const Step& step : steps) {
    SmartPtr<IQEL> result;
    Call call{
        {step.operation->name, step.arguments}, components_, pictures, picture.Get(), result.Put()};
    const result_t code = step.operation->call(call);
    if (Failed(code)) {
      throw Failure(kModuleFault, Explain(*step.operation, code, picture->bit_count()));
    }
    // Every image of this session comes from its own collection.
    if (result) {
      picture = SmartPtr<host::HostImage>::Retain(static_cast<host::HostImage*>(result.Get()));
    }
  }
  return picture;
}

}  // namespace qel::cli
