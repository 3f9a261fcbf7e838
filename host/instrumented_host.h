#ifndef QEL_HOST_INSTRUMENTED_HOST_H_
#define QEL_HOST_INSTRUMENTED_HOST_H_

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/host_collection.h"

namespace qel::host {

/// What calls of a module into a host pass through: counts them, writes their names down, and lets
/// one of them go wrong. Threads: any while nothing is written down and no call goes wrong.
class CallWatch {
 public:
  /// What the call number `fault_at` does instead of its work.
  enum class Fault {
    kNone,
    kThrow,  ///< throws `Exception`
    kFail,   ///< fails with `kFaultCode` and leaves its outputs alone
    kNull,   ///< succeeds, but gives a null pointer where it gives one
  };
  struct Exception : std::runtime_error {
    Exception() : std::runtime_error("an exception of the host") {}
  };
  /// No code that operations know of their own.
  static constexpr result_t kFaultCode = static_cast<result_t>(0x80041234u);

  Fault fault = Fault::kNone;
  int fault_at = -1;
  int calls = 0;                 ///< since this was last set to 0
  std::vector<std::string> log;  ///< their names and those of images, while `logging`
  bool logging = false;

  /// Every call of the host passes here first. False when it must fail. `image` and `plane` say in
  /// the log what it was called on.
  bool OnCall(const char* name, const std::string& image = {}, int plane = 0) {
    if (logging) log.push_back(name + image + (plane == 0 ? "" : "/" + std::to_string(plane)));
    if (calls++ != fault_at) return true;
    if (fault == Fault::kThrow) throw Exception();
    return fault != Fault::kFail;
  }
  /// Calls that give a pointer ask this after `OnCall`: true when the pointer must be null.
  bool GivesNull() const { return fault == Fault::kNull && calls - 1 == fault_at; }
};

/// A host whose every call passes a watch: collection, locators and strings. Images are made by
/// those who use it, since they look into them in ways of their own.
class InstrumentedHost : public CallWatch {
 public:
  InstrumentedHost();
  InstrumentedHost(const InstrumentedHost&) = delete;
  InstrumentedHost& operator=(const InstrumentedHost&) = delete;

  /// The collection to hand to modules. The caller gets no reference of his own.
  IComponentCollection* collection() const { return collection_.Get(); }

  /// Strings, locators and collections that are alive.
  std::atomic<int> live_objects{0};

  /// Makes an image with one reference for the caller, or null.
  virtual IQELImageDIB* NewImage() = 0;

 protected:
  virtual ~InstrumentedHost();

 private:
  SmartPtr<IComponentCollection> collection_;
};

}  // namespace qel::host

#endif  // QEL_HOST_INSTRUMENTED_HOST_H_
