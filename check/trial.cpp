#include "check/trial.h"

#include <cstdlib>

namespace qel::check {

Workbench::Workbench(Subject& subject) {
  const host::ModuleLibrary& library = subject.library();
  library.Initialize(host_.collection());
  components_ = operations::MakeComponents(library);
}

Workbench::~Workbench() = default;

Trial Try(Workbench& bench, const OperationCall& operation, int depth, int width, int height) {
  WatchedHost& host = bench.host();
  Trial trial;
  std::vector<IQELImage*> pointers;
  for (int i = 0; i < operation.images; ++i) {
    trial.arguments.push_back(&host.MakeImage(width, height, depth));
    trial.before.push_back(trial.arguments.back()->Pixels());
    pointers.push_back(trial.arguments.back());
  }
  std::srand(1);  // operations that draw random numbers get the same ones each time
  IQEL* result = nullptr;
  host.calls = 0;
  try {
    trial.code = operation.call(bench.components(), pointers, &result);
  } catch (const WatchedHost::Exception&) {
    trial.thrown = true;
  }
  trial.host_calls = host.calls;
  trial.result = host.FindImage(result);
  Require(result == nullptr || trial.result != nullptr, "the result is no image of the host");
  return trial;
}

void WarmUp(Workbench& bench) {
  for (const OperationCall& operation : AllOperationCalls()) {
    Doing(operation.name + " at 24 bits");
    Try(bench, operation, 24);
  }
  bench.host().ForgetImages();
}

}  // namespace qel::check
