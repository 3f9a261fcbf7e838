#ifndef QEL_CLI_SESSION_SESSION_H_
#define QEL_CLI_SESSION_SESSION_H_

#include <optional>
#include <string>
#include <vector>

#include "cli/operations.h"
#include "cli/session/picture_io.h"
#include "host/host_collection.h"
#include "host/module_library.h"

namespace qel::cli {

/// Where the module of this program is: beside it in a build tree, in the library folder when
/// installed. Throws `Failure(kModuleFault)` when there is none.
std::string OwnModulePath();

/// Tells where the plug-ins for picture formats are: in a folder beside the one of the module.
void FindFormatPlugins();

/// Reads steps as `ParseSteps` does; numbers after an @ come from a file. Throws `StepError`, and
/// `pictures::PictureError` for a file that cannot be read.
std::vector<Step> ReadSteps(const std::vector<std::string>& words);

/// The module, loaded and initialised as any host does it, with its components.
/// Threads: any for `Run`, on pictures of their own.
class Session {
 public:
  /// Loads the module at `path`; empty means the one that belongs to this program. Steps are
  /// refused that would make larger pictures than `limits` allow. Throws `Failure(kModuleFault)`.
  explicit Session(const std::string& path = {}, const pictures::Limits& limits = {});

  /// `operations::Engine::Run` on images of the tool.
  SmartPtr<host::HostImage> Run(const std::vector<Step>& steps, SmartPtr<host::HostImage> picture,
                                operations::PictureSource& pictures,
                                std::vector<std::string>& notes) const;
  /// The same for callers who do not care for notes.
  SmartPtr<host::HostImage> Run(const std::vector<Step>& steps, SmartPtr<host::HostImage> picture,
                                operations::PictureSource& pictures) const {
    std::vector<std::string> notes;
    return Run(steps, std::move(picture), pictures, notes);
  }

  /// The file of the module.
  const std::string& module_path() const { return path_; }
  /// A function in it.
  const void* module_function() const;
  const operations::Engine& engine() const { return *engine_; }
  /// For calls without steps.
  const Components& components() const { return engine_->components(); }

 private:
  std::string path_;
  SmartPtr<host::HostCollection> collection_;
  host::ModuleLibrary library_;
  std::optional<operations::Engine> engine_;  // released before the library is closed
};

}  // namespace qel::cli

#endif  // QEL_CLI_SESSION_SESSION_H_
