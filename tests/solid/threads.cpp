#include <gtest/gtest.h>
#include <malloc.h>

#include <barrier>
#include <cstring>
#include <thread>

#include "host/host_collection.h"
#include "host/module_library.h"
#include "operations/operation.h"
#include "tests/support/build_paths.h"
#include "tests/support/host_images.h"
#include "tests/support/operation_calls.h"
#include "tests/support/sanitized.h"

namespace qel::test {
namespace {

constexpr int kThreads = 8;

/// The shipped module with the reference host, as a program with threads uses it.
class Program {
 public:
  Program()
      : collection_(host::HostCollection::MakeWithImages({.clear = true})), library_(ModulePath()) {
    library_.Initialize(collection_.Get());
    components_ = operations::MakeComponents(library_);
  }
  const ComponentSet& components() const { return components_; }
  const host::ModuleLibrary& library() const { return library_; }

 private:
  SmartPtr<host::HostCollection> collection_;
  host::ModuleLibrary library_;
  ComponentSet components_;
};

SmartPtr<host::HostImage> NoisyImage(int depth, uint64_t seed) {
  return test::NoisyImage(40, 30, depth, operations::ModelOf(depth), seed);
}

void RunOnThreads(const std::function<void(int thread)>& work) {
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < kThreads; ++thread) threads.emplace_back(work, thread);
}

bool DrawsFromRand(const OperationCall& operation) {
  return operation.name.starts_with("Noise") || operation.name.starts_with("Jitter");
}

/// What an operation leaves on images of its own, with a read-only source shared by all threads.
std::string Outcome(const ComponentSet& components, const OperationCall& operation,
                    const std::vector<SmartPtr<host::HostImage>>& shared, int depth) {
  std::vector<SmartPtr<host::HostImage>> own;
  std::vector<IQELImage*> images;
  for (int i = 0; i < operation.images; ++i) {
    if (i >= operation.changed_images) {
      images.push_back(shared[static_cast<size_t>(i)].Get());
      continue;
    }
    own.push_back(NoisyImage(depth, static_cast<uint64_t>(i)));
    images.push_back(own.back().Get());
  }
  SmartPtr<IQEL> result;
  operation.call(components, images, result.Put());
  std::string outcome = result ? Content(*result.Get()) : "";
  for (const auto& image : own) outcome += Content(*image.Get());
  return outcome;
}

TEST(Threads, EveryOperationGivesTheSameOnAllOfThem) {
  const Program program;
  for (const int depth : {8, 24, 32}) {
    const std::vector<SmartPtr<host::HostImage>> shared = {
        NoisyImage(depth, 0), NoisyImage(depth, 1), NoisyImage(depth, 2), NoisyImage(depth, 3)};
    std::vector<std::string> expected;
    for (const OperationCall& operation : AllOperationCalls()) {
      expected.push_back(Outcome(program.components(), operation, shared, depth));
    }
    std::atomic<int> differences{0};
    RunOnThreads([&](int thread) {
      const auto& operations = AllOperationCalls();
      for (size_t i = 0; i < operations.size(); ++i) {
        // Threads start at different operations, so that different ones meet.
        const size_t at = (i + static_cast<size_t>(thread) * 9) % operations.size();
        const std::string outcome = Outcome(program.components(), operations[at], shared, depth);
        if (outcome != expected[at] && !DrawsFromRand(operations[at])) ++differences;
      }
    });
    EXPECT_EQ(differences, 0) << depth << " bits";
  }
}

TEST(Threads, RaceOnTheFirstImageIsHarmless) {
  for (int round = 0; round < 20; ++round) {
    const Program program;  // a fresh load: nothing has been looked up yet
    std::barrier start(kThreads);
    std::atomic<int> failures{0};
    RunOnThreads([&](int) {
      const auto image = NoisyImage(24, 5);
      start.arrive_and_wait();
      SmartPtr<IQEL> result;
      if (program.components().filter->Dilate(image.Get(), 3, result.Put()) != kOk) ++failures;
    });
    EXPECT_EQ(failures, 0);
  }
}

TEST(Threads, TheLastOfThemDestroys) {
  constexpr int kRounds = 2000;
  const Program program;
  IQELMaths* object = nullptr;
  std::atomic<int> destructions{0};
  const auto next_object = [&]() noexcept {
    object = program.library().Create<IQELMaths>(RefString(kMathsName)).Detach();
    for (int i = 1; i < kThreads; ++i) object->AddRef();
  };
  next_object();
  std::barrier together(kThreads, next_object);
  RunOnThreads([&](int) {
    for (int round = 0; round < kRounds; ++round) {
      if (object->Release() == 0) ++destructions;
      together.arrive_and_wait();
    }
  });
  EXPECT_EQ(destructions, kRounds);
  for (int i = 0; i < kThreads; ++i) object->Release();
}

TEST(Loading, ThousandTimesLeavesNothing) {
  if (kSanitized) GTEST_SKIP() << "sanitizers keep freed memory; they report leaks themselves";
  struct Memory {
    size_t allocated;
    long mapped_pages;
  };
  const auto measure = [] {
    long mapped = 0;
    std::FILE* const file = std::fopen("/proc/self/statm", "r");
    EXPECT_EQ(std::fscanf(file, "%ld", &mapped), 1);
    std::fclose(file);
    const struct mallinfo2 heap = mallinfo2();
    return Memory{heap.uordblks + heap.hblkhd, mapped};
  };
  const auto load = [] {
    const Program program;
    const auto image = NoisyImage(24, 1);
    program.components().filter->Blur(image.Get(), nullptr);
  };
  for (int i = 0; i < 50; ++i) load();
  const Memory before = measure();
  for (int i = 0; i < 1000; ++i) load();
  const Memory after = measure();
  EXPECT_LT(after.allocated, before.allocated + 1000) << "less than a byte for each time";
  EXPECT_LT(after.mapped_pages, before.mapped_pages + 200);
}

}  // namespace
}  // namespace qel::test
