#ifndef QEL_CHECK_TRIAL_H_
#define QEL_CHECK_TRIAL_H_

#include "check/operation_calls.h"
#include "check/rule.h"
#include "check/watched_host.h"

namespace qel::check {

/// A module at work for a watched host, with one object of each component.
class Workbench {
 public:
  /// Initialises the module of `subject`. Throws `host::ModuleError`.
  explicit Workbench(Subject& subject);
  ~Workbench();

  WatchedHost& host() { return host_; }
  const Components& components() const { return components_; }
  /// Gives the components back; nothing can be called afterwards.
  void ReleaseComponents() { components_ = {}; }

 private:
  WatchedHost host_;
  Components components_;
};

/// What one call of an operation left behind. The images are those of the host, arguments first.
struct Trial {
  bool thrown = false;
  result_t code = kOk;
  WatchedImage* result = nullptr;  ///< what came out, an image of the host
  std::vector<WatchedImage*> arguments;
  std::vector<std::string> before;  ///< pixels of the arguments
  int host_calls = 0;
};

/// Calls `operation` on fresh images of `depth` bits, as the host of `bench` is set up, and takes
/// the result without giving it back. Throws `Broken` when the result is no image of the host.
Trial Try(Workbench& bench, const OperationCall& operation, int depth, int width = 33,
          int height = 21);

/// Throws `Broken` unless every argument holds the references that it had.
void RequireCounted(const Trial& trial);

/// The depths that operations are tried at.
inline constexpr int kTriedDepths[] = {1, 4, 8, 24, 32};
/// Those with whole bytes per pixel: below, some operations take a byte for every pixel.
inline constexpr int kByteDepths[] = {8, 24, 32};

/// Calls `body(operation, depth)` for every operation and depth, noted for the report.
template <typename Body>
void ForEachOperation(std::span<const int> depths, Body&& body) {
  for (const OperationCall& operation : AllOperationCalls()) {
    for (const int depth : depths) {
      Doing(operation.name + " at " + std::to_string(depth) + " bits");
      body(operation, depth);
    }
  }
}

/// Brings the module to where it has looked up all that it keeps, so that later counts compare.
void WarmUp(Workbench& bench);

}  // namespace qel::check

#endif  // QEL_CHECK_TRIAL_H_
