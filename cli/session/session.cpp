#include "cli/session/session.h"

#include <filesystem>
#include <string>

#include "cli/session/input_list.h"
#include "cli/terminal/errors.h"
#include "pictures/picture_file.h"

namespace qel::cli {
namespace {

namespace fs = std::filesystem;

host::ModuleLibrary LoadModule(const std::string& path) {
  try {
    return host::ModuleLibrary(path);
  } catch (const host::ModuleError& error) {
    throw Failure(kModuleFault, "{}", error.what());
  }
}

}  // namespace

std::string OwnModulePath() {
  const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path().parent_path();
  for (const char* const place : {"_binLIN64", QEL_MODULE_FOLDER}) {
    const fs::path path = folder / place / "QELMaths.so";
    if (fs::exists(path)) return path.lexically_normal();
  }
  throw Failure(kModuleFault,
                "the module QELMaths.so is neither in {} nor in {}; name it with --module PATH",
                (folder / "_binLIN64").string(), (folder / QEL_MODULE_FOLDER).string());
}

void FindFormatPlugins() {
  std::error_code none;
  const fs::path tool = fs::read_symlink("/proc/self/exe", none);
  const fs::path folder = tool.parent_path().parent_path();
  for (const char* const place : {"formats", QEL_FORMATS_FOLDER}) {
    if (fs::is_directory(folder / place, none)) {
      pictures::SetPluginFolder((folder / place).lexically_normal().string());
      return;
    }
  }
}

std::vector<Step> ReadSteps(const std::vector<std::string>& words) {
  return ParseSteps(words, [](const std::string& path) { return ReadTextFile(path); });
}

Session::Session(const std::string& path, const pictures::Limits& limits)
    : path_(path.empty() ? OwnModulePath() : fs::absolute(path).string()),
      collection_(host::HostCollection::MakeWithImages(kImageOptions)),
      library_(LoadModule(path_)) {
  library_.Initialize(collection_.Get());
  try {
    engine_.emplace(operations::MakeComponents(library_),
                    SmartPtr<IComponentCollection>::Retain(collection_.Get()), limits.max_pixels);
  } catch (const host::ModuleError& error) {
    throw Failure(kModuleFault, "{}", error.what());
  }
}

const void* Session::module_function() const {
  return reinterpret_cast<const void*>(library_.create_function());
}

SmartPtr<host::HostImage> Session::Run(const std::vector<Step>& steps,
                                       SmartPtr<host::HostImage> picture,
                                       operations::PictureSource& pictures,
                                       std::vector<std::string>& notes) const {
  auto source = SmartPtr<IQEL>::Retain(picture.Get());
  picture.Reset();
  const SmartPtr<IQEL> result = engine_->Run(steps, std::move(source), pictures, notes);
  // Every image of this session comes from its own collection.
  return SmartPtr<host::HostImage>::Retain(static_cast<host::HostImage*>(result.Get()));
}

}  // namespace qel::cli
