#ifndef QEL_PYTHON_RUNTIME_H_
#define QEL_PYTHON_RUNTIME_H_

#include <string>

#include "host/host_collection.h"
#include "host/module_library.h"
#include "operations/engine.h"
#include "python/extension/array_image.h"

namespace qel::python {

/// The module as this process uses it, loaded once.
class Runtime {
 public:
  /// Loads the module at `path`, unless one is loaded. Throws `host::ModuleError`.
  static void Load(const std::string& path);
  /// Throws `std::logic_error` before `Load`.
  static const Runtime& Get();

  const operations::Engine& engine() const { return engine_; }

  /// Exchanges the first and the third channel of pixels that have three or four.
  void SwapChannels(const Pixels& pixels) const;

  /// While this lives, the next image that the module makes on this thread is `image`; null for
  /// none.
  class NextImage {
   public:
    explicit NextImage(ArrayImage* image);
    ~NextImage();
    NextImage(const NextImage&) = delete;
    NextImage& operator=(const NextImage&) = delete;
  };

 private:
  explicit Runtime(const std::string& path);

  SmartPtr<host::HostCollection> collection_;
  host::ModuleLibrary library_;
  operations::Engine engine_;
};

}  // namespace qel::python

#endif  // QEL_PYTHON_RUNTIME_H_
