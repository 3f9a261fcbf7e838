#include "cli/batch/session.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "cli/terminal/errors.h"

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

std::string ReadTextFile(const std::string& path) {
  std::ifstream file(path);
  std::string text(std::istreambuf_iterator<char>(file), {});
  if (!file) throw Failure(kNoInput, "cannot read " + path);
  return text;
}

}  // namespace

std::vector<Step> ReadSteps(const std::vector<std::string>& words) {
  return ParseSteps(words, &ReadTextFile);
}

Session::Session(const std::string& path)
    : collection_(host::HostCollection::MakeWithImages(kImageOptions)), library_(LoadModule(path)) {
  library_.Initialize(collection_.Get());
  try {
    engine_.emplace(operations::MakeComponents(library_),
                    SmartPtr<IComponentCollection>::Retain(collection_.Get()));
  } catch (const host::ModuleError& error) {
    throw Failure(kModuleFault, error.what());
  }
}

SmartPtr<host::HostImage> Session::Run(const std::vector<Step>& steps,
                                       SmartPtr<host::HostImage> picture,
                                       operations::PictureSource& pictures,
                                       std::vector<std::string>& notes) const {
  const SmartPtr<IQEL> result =
      engine_->Run(steps, SmartPtr<IQEL>::Retain(picture.Get()), pictures, notes);
  // Every image of this session comes from its own collection.
  return SmartPtr<host::HostImage>::Retain(static_cast<host::HostImage*>(result.Get()));
}

}  // namespace qel::cli
