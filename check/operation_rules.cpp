// Rules that all operations keep alike: arguments, results, references and memory.

#include <algorithm>

#include "check/trial.h"

namespace qel::check {
namespace {

using Fence = WatchedLayout::Fence;

constexpr int kLongestReach = 128;  // twice the largest width below

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::ranges::find(names, name) != names.end();
}

/// Operations that, by contract, read or write outside the rows; see docs/abi.md.
bool ReachesPastRows(const OperationCall& operation, int depth) {
  return (depth == 8 && IsOneOf(operation.name, {"GrayScale", "Threshold", "RotatePaste"})) ||
         (depth == 24 && operation.name == "Rotate180");
}

// Arguments.

void RefusesNullImages(Subject& subject) {
  Workbench bench(subject);
  for (const OperationCall& operation : AllOperationCalls()) {
    Doing(operation.name + " of null images");
    const std::vector<IQELImage*> nothing(static_cast<size_t>(operation.images), nullptr);
    IQEL* result = nullptr;
    const result_t code = operation.call(bench.components(), nothing, &result);
    // Filling knows no failure.
    Require(Failed(code) || operation.name.starts_with("Equal"), "it succeeds");
    Require(result == nullptr, "it gives a result");
  }
}

void TakesNullOutputs(Subject& subject) {
  Workbench bench(subject);
  WarmUp(bench);
  WatchedHost& host = bench.host();
  const int64_t before = host.References();
  for (const OperationCall& operation : AllOperationCalls()) {
    if (operation.images > 1 || operation.changed_images > 0) continue;
    Doing(operation.name + " with a null output");
    WatchedImage& image = host.MakeImage(33, 21, 24);
    IQELImage* const argument = &image;
    operation.call(bench.components(), {&argument, 1}, nullptr);
    image.Release();
    Require(host.References() == before, "references to objects of the host stay behind");
    host.ForgetImages();
  }
}

void TakesEmptyImages(Subject& subject) {
  Workbench bench(subject);
  ForEachOperation(kTriedDepths, [&](const OperationCall& operation, int depth) {
    for (const auto& [width, height] : {std::pair(0, 0), {0, 9}, {9, 0}, {1, 1}, {2, 1}}) {
      RequireCounted(Try(bench, operation, depth, width, height));
      bench.host().ForgetImages();
    }
  });
}

// Results.

void MakesResults(Subject& subject) {
  Workbench bench(subject);
  for (const OperationCall& operation : AllOperationCalls()) {
    Doing(operation.name + " at 24 bits");
    const Trial trial = Try(bench, operation, 24);
    const bool gives = operation.makes_image && operation.changed_images == 0;
    Require((trial.result != nullptr) == gives, gives ? "it gives no result" : "it gives a result");
    Require(!gives || Succeeded(trial.code), "it fails");
    bench.host().ForgetImages();
  }
}

void HoldsOneReferencePerResult(Subject& subject) {
  Workbench bench(subject);
  ForEachOperation(kTriedDepths, [&](const OperationCall& operation, int depth) {
    const Trial trial = Try(bench, operation, depth);
    const bool is_argument =
        std::ranges::find(trial.arguments, trial.result) != trial.arguments.end();
    if (trial.result != nullptr) {
      Require(trial.result->references() == (is_argument ? 2 : 1),
              "the result holds " + std::to_string(trial.result->references()) +
                  " references instead of one for the caller");
    }
    bench.host().ForgetImages();
  });
}

void KeepsNoReferences(Subject& subject) {
  Workbench bench(subject);
  WarmUp(bench);
  WatchedHost& host = bench.host();
  const int64_t before = host.References();
  ForEachOperation(kTriedDepths, [&](const OperationCall& operation, int depth) {
    const Trial trial = Try(bench, operation, depth);
    RequireCounted(trial);
    if (trial.result != nullptr) trial.result->Release();
    for (WatchedImage* const image : trial.arguments) image->Release();
    const int64_t more = host.References() - before;
    Require(more == 0, "references to objects of the host are " + std::to_string(more) + " off");
    host.ForgetImages();
  });
}

void LeavesSourcesAlone(Subject& subject) {
  Workbench bench(subject);
  ForEachOperation(kTriedDepths, [&](const OperationCall& operation, int depth) {
    const Trial trial = Try(bench, operation, depth);
    for (size_t i = static_cast<size_t>(operation.changed_images); i < trial.before.size(); ++i) {
      Require(trial.arguments[i]->Pixels() == trial.before[i],
              "image " + std::to_string(i + 1) + " of the call is only read, but changed");
    }
    bench.host().ForgetImages();
  });
}

/// All that a call shows: its code and the pixels of every image.
std::string OutcomeOf(Workbench& bench, const OperationCall& operation, int depth,
                      const WatchedLayout& layout) {
  bench.host().layout = layout;
  const Trial trial = Try(bench, operation, depth);
  std::string outcome = std::to_string(trial.code);
  for (const WatchedImage* const image : trial.arguments) outcome += '|' + image->Pixels();
  if (trial.result != nullptr) outcome += '|' + trial.result->Pixels();
  bench.host().ForgetImages();
  return outcome;
}

void FollowsStrides(Subject& subject) {
  Workbench bench(subject);
  ForEachOperation(kByteDepths, [&](const OperationCall& operation, int depth) {
    if (ReachesPastRows(operation, depth)) return;
    const std::string usual = OutcomeOf(bench, operation, depth, {});
    for (const WatchedLayout& layout :
         {WatchedLayout{.bottom_up = true}, {.padding = 0}, {.padding = 44}}) {
      Require(OutcomeOf(bench, operation, depth, layout) == usual,
              layout.bottom_up ? "a negative stride changes the outcome"
                               : "the padding of rows changes the outcome");
    }
  });
}

// Memory.

void LeavesPaddingAlone(Subject& subject) {
  Workbench bench(subject);
  for (const bool bottom_up : {false, true}) {
    bench.host().layout.bottom_up = bottom_up;
    ForEachOperation(kByteDepths, [&](const OperationCall& operation, int depth) {
      Try(bench, operation, depth);
      // These copy whole rows, or take three bytes for every pixel of the target.
      const bool may_write =
          operation.name == "Flip" || (operation.name == "RotatePaste" && depth == 8);
      for (const auto& image : bench.host().images()) {
        Require(image->PaddingIntact() || may_write,
                "bytes outside the rows of an image are written");
      }
      bench.host().ForgetImages();
    });
  }
}

void StaysInMemory(Subject& subject) {
  Workbench bench(subject);
  WatchedLayout& layout = bench.host().layout;
  for (const Fence fence : {Fence::kBefore, Fence::kAfter}) {
    for (const bool bottom_up : {false, true}) {
      for (const auto& size : {std::pair(33, 21), {64, 5}, {1, 1}}) {
        ForEachOperation(kByteDepths, [&](const OperationCall& operation, int depth) {
          const int reach = ReachesPastRows(operation, depth) ? kLongestReach : 0;
          layout = {.bottom_up = bottom_up, .fence = fence};
          (depth == 8 ? layout.reach_after : layout.reach_before) = reach;
          Try(bench, operation, depth, size.first, size.second);
          bench.host().ForgetImages();
        });
      }
    }
  }
}

}  // namespace

void RequireCounted(const Trial& trial) {
  for (size_t i = 0; i < trial.arguments.size(); ++i) {
    // A result that is the argument itself has a reference more, for the caller.
    const int64_t more =
        trial.arguments[i]->references() - (trial.arguments[i] == trial.result ? 2 : 1);
    Require(more == 0, "the references to image " + std::to_string(i + 1) + " of the call are " +
                           std::to_string(more) + " off");
  }
}

Rules ArgumentRules() {
  return {
      {"arguments", "null-images", "Null images are refused without a crash.", &RefusesNullImages},
      {"arguments", "null-outputs", "A null output leaves no references behind.",
       &TakesNullOutputs},
      {"arguments", "empty-images", "Images without pixels, or with one, are harmless.",
       &TakesEmptyImages},
  };
}

Rules ResultRules() {
  return {
      {"results", "made", "Operations that make an image give it.", &MakesResults},
      {"results", "one-reference", "A result comes with one reference for the caller.",
       &HoldsOneReferencePerResult},
      {"results", "no-references", "No operation keeps or loses references to host objects.",
       &KeepsNoReferences},
      {"results", "sources", "Images that are only read keep their pixels.", &LeavesSourcesAlone},
      {"results", "strides", "Padding and the sign of the stride change no pixel.",
       &FollowsStrides},
      {"memory", "padding", "Bytes outside the rows of images stay as they are.",
       &LeavesPaddingAlone},
      {"memory", "reach", "Nothing beyond the images' own memory is touched.", &StaysInMemory},
  };
}

}  // namespace qel::check
