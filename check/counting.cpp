#include "check/counting.h"

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

#include "check/rule.h"
#include "check/single_step.h"

namespace qel::check {
namespace {

constexpr int kThreads = 6;
constexpr int kRoundsPerThread = 4000;
constexpr int kRoundsWhenStepped = 1000;
constexpr int kMostHeld = 25;
constexpr int kReserve = 100'000;  // what is lost must not be the last reference
constexpr char kLost[] = "references are lost between threads";

/// A count that is read, changed and written in several instructions loses what happens between
/// them. False when that cannot be tried.
bool RequireCountsBetweenInstructions(IUnknown* object, IUnknown* pointer) {
  const uint32_t before = CountOf(object);
  const auto turn = [=] { object->AddRef(); };
  int turns = CallWithTurns([](IUnknown* counted) { counted->AddRef(); }, pointer, turn);
  turns += CallWithTurns([](IUnknown* counted) { counted->Release(); }, pointer, turn);
  Require(CountOf(object) == before + static_cast<uint32_t>(turns), kLost);
  for (int i = 0; i < turns; ++i) object->Release();
  return turns > 0;
}

}  // namespace

void RequireCountsFromThreads(std::span<IUnknown* const> pointers) {
  IUnknown* const object = pointers.front();
  for (int i = 0; i < kReserve; ++i) object->AddRef();
  bool stepped = true;
  for (IUnknown* const pointer : pointers) {
    stepped = RequireCountsBetweenInstructions(object, pointer) && stepped;
  }
  // What is left then are counts of one instruction, which only processors lose between them.
  const int rounds = stepped ? kRoundsWhenStepped : kRoundsPerThread;
  const uint32_t before = CountOf(object);
  std::latch start(kThreads);
  std::atomic<int> unfinished = kThreads;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      IUnknown* const pointer = pointers[static_cast<size_t>(i) % pointers.size()];
      start.arrive_and_wait();
      // Unless that was tried step by step, a thread that is held up between reading and writing
      // the count must find another one afterwards, also where all threads share one busy
      // processor: so they hold different numbers of references when they give way, and nobody
      // stops before all have done enough.
      for (int n = 0; unfinished > 0; ++n) {
        const int held = 1 + (7 * n + i) % kMostHeld;
        for (int k = 0; k < held; ++k) pointer->AddRef();
        if (!stepped && n % 4 == 0) std::this_thread::yield();
        for (int k = 0; k < held; ++k) pointer->Release();
        if (n == rounds) --unfinished;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  Require(CountOf(object) == before, kLost);
  for (int i = 0; i < kReserve; ++i) object->Release();
}

}  // namespace qel::check
