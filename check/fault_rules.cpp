// Rules about hosts that go wrong in the middle of an operation.

#include "check/trial.h"

namespace qel::check {
namespace {

using Fault = WatchedHost::Fault;

/// Runs every operation with `fault` at each of its host calls in turn.
template <typename Body>
void ForEachFault(Subject& subject, Fault fault, Body&& body) {
  Workbench bench(subject);
  WarmUp(bench);
  WatchedHost& host = bench.host();
  const int64_t before = host.References();
  ForEachOperation(kTriedDepths, [&](const OperationCall& operation, int depth) {
    const int calls = Try(bench, operation, depth).host_calls;
    host.ForgetImages();
    for (int k = 0; k < calls; ++k) {
      host.fault = fault;
      host.fault_at = k;
      const Trial trial = Try(bench, operation, depth);
      host.fault = Fault::kNone;
      const std::string where = " (host call " + std::to_string(k + 1) + ")";
      body(trial, where);
      if (trial.result != nullptr) trial.result->Release();
      for (WatchedImage* const image : trial.arguments) image->Release();
      Require(host.References() == before, "references to host objects are off by " +
                                               std::to_string(host.References() - before) + where);
      host.ForgetImages();
    }
  });
}

void SurvivesExceptions(Subject& subject) {
  ForEachFault(subject, Fault::kThrow, [](const Trial& trial, const std::string& where) {
    Require(trial.thrown, "an exception of the host does not reach the caller" + where);
  });
}

void SurvivesFailures(Subject& subject) {
  ForEachFault(subject, Fault::kFail, [](const Trial&, const std::string&) {});
}

void SurvivesNullPointers(Subject& subject) {
  ForEachFault(subject, Fault::kNull, [](const Trial&, const std::string&) {});
}

void FailsWithoutNewImages(Subject& subject) {
  Workbench bench(subject);
  WatchedHost& host = bench.host();
  host.refuses_images = true;
  ForEachOperation(kTriedDepths, [&](const OperationCall& operation, int depth) {
    const Trial trial = Try(bench, operation, depth);
    Require(trial.result == nullptr, "it gives a result although the host made no image");
    Require(Failed(trial.code) || !operation.makes_image, "it succeeds without a new image");
    RequireCounted(trial);
    host.ForgetImages();
  });
}

}  // namespace

Rules FaultRules() {
  return {
      {"faults", "throwing", "A throwing host call passes through; nothing stays behind.",
       &SurvivesExceptions},
      {"faults", "failing", "A failing host call leaves no references behind.", &SurvivesFailures},
      {"faults", "null", "A host call that gives null leaves no references behind.",
       &SurvivesNullPointers},
      {"faults", "no-images", "Operations that need a new image fail without one.",
       &FailsWithoutNewImages},
  };
}

}  // namespace qel::check
