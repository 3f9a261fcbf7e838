#ifndef QEL_CLI_BATCH_SESSION_H_
#define QEL_CLI_BATCH_SESSION_H_

#include <string>

#include "cli/batch/picture_io.h"
#include "cli/steps.h"
#include "host/host_collection.h"
#include "host/module_library.h"

namespace qel::cli {

/// Where the module of this program is: beside it in a build tree, in the library folder when
/// installed. Throws `Failure(kModuleFault)` when there is none.
std::string OwnModulePath();

/// The module, loaded and initialised as any host does it, with its components.
/// Threads: any for `Run`, on pictures of their own.
class Session {
 public:
  /// Loads the module at `path`; empty means the one that belongs to this program.
  /// Throws `Failure(kModuleFault)`.
  explicit Session(const std::string& path = {});

  /// Runs the steps one after the other on `picture` and returns the final one. Steps that draw
  /// random numbers get the same ones for every picture, as if it were the only one.
  /// Throws `Failure(kModuleFault)` that names the step, and what reading second pictures throws.
  SmartPtr<host::HostImage> Run(const std::vector<Step>& steps, SmartPtr<host::HostImage> picture,
                                PictureSource& pictures) const;

  /// For calls without steps.
  const Components& components() const { return components_; }

 private:
  SmartPtr<host::HostCollection> collection_;
  host::ModuleLibrary library_;
  Components components_;  // released before the library is closed
};

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_SESSION_H_
