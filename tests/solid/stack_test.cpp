#include <pthread.h>
#include <sys/mman.h>

#include <cstring>
#include <functional>
#include <memory>

#include "tests/support/module_under_test.h"
#include "tests/support/sanitized.h"

namespace qel::test {
namespace {

/// A stack whose depth can be read from what was painted over.
class PaintedStack {
 public:
  PaintedStack()
      : bottom_(static_cast<uint8_t*>(
            mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {}
  PaintedStack(const PaintedStack&) = delete;
  PaintedStack& operator=(const PaintedStack&) = delete;
  ~PaintedStack() { munmap(bottom_, kBytes); }

  /// How many bytes deep `work` goes, on a thread of its own.
  int64_t Depth(const std::function<void()>& work) {
    std::memset(bottom_, kPaint, kBytes);
    work_ = &work;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, bottom_, kBytes);
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, &attributes, &Run, this), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    const uint8_t* deepest = bottom_;
    while (deepest < top_ && std::memcmp(deepest, deepest + 1, 63) == 0) deepest += 64;
    return top_ - deepest;
  }

 private:
  static constexpr size_t kBytes = size_t{256} * 1024;
  static constexpr uint8_t kPaint = 0xA7;

  static void* Run(void* self) {
    auto& stack = *static_cast<PaintedStack*>(self);
    stack.top_ = static_cast<const uint8_t*>(__builtin_frame_address(0));
    (*stack.work_)();
    return nullptr;
  }

  uint8_t* const bottom_;
  const uint8_t* top_ = nullptr;
  const std::function<void()>* work_ = nullptr;
};

using Images = std::span<IQELImage* const>;

/// Filters of every way of computing them, by kernels of each kind and by size.
std::vector<OperationCall> SizedFilters(int size) {
  std::vector<OperationCall> calls;
  const auto add = [&](const std::string& name, auto call) {
    calls.push_back({name + " " + std::to_string(size), 1, 0, true,
                     [=](const ComponentSet& c, Images i, IQEL** result) {
                       return call(*c.filter, i[0], result);
                     }});
  };
  add("Erode", [=](auto& f, IQEL* i, IQEL** r) { return f.Erode(i, size, r); });
  add("Edge", [=](auto& f, IQEL* i, IQEL** r) { return f.Edge(i, size, r); });
  add("Median", [=](auto& f, IQEL* i, IQEL** r) { return f.Median(i, size, r); });
  const auto add_kernel = [&](const std::string& name, int divisor, auto weight) {
    const auto kernel = std::make_shared<std::vector<int>>();
    for (int j = 0; j < size; ++j) {
      for (int i = 0; i < size; ++i) kernel->push_back(weight(j, i));
    }
    add(name, [=](auto& f, IQEL* i, IQEL** r) {
      return f.Filter(i, kernel->data(), size, divisor, 0, r);
    });
  };
  add_kernel("equal", size * size, [](int, int) { return 1; });
  add_kernel("equal, wide sums", 7, [](int, int) { return 1 << 20; });
  add_kernel("product", 50, [](int j, int i) { return (j % 3 + 1) * (i % 5 + 1); });
  add_kernel("product of any sign", 9, [](int j, int i) { return (j % 4 - 2) * (i % 5 + 1); });
  add_kernel("sparse", 0, [](int j, int i) { return i == j && i % 4 == 0 ? 3 : 0; });
  add_kernel("small", 11, [](int j, int i) { return (j * 37 + i * 11) % 19 - 6; });
  add_kernel("large", 999, [](int j, int i) { return (j * 3701 + i * 1109) % 19937; });
  add_kernel("huge", -1, [](int j, int i) { return (j * 37 + i * 11) % 19 << 26; });
  return calls;
}

/// What samples between pixels, by every method.
std::vector<OperationCall> Samplers() {
  std::vector<OperationCall> calls;
  for (int method = 0; method < 16; ++method) {
    const auto add = [&](const std::string& name, int images, auto call) {
      calls.push_back({name + ", method " + std::to_string(method), images, images - 1, true,
                       [=](const ComponentSet& c, Images i, IQEL** result) {
                         return call(*c.transform, i, result);
                       }});
    };
    add("Rotate", 1,
        [=](auto& t, Images i, IQEL** r) { return t.Rotate(i[0], r, 33, method, 0, 0); });
    add("RotatePaste", 2,
        [=](auto& t, Images i, IQEL**) { return t.RotatePaste(i[1], i[0], 0.4, method, 0); });
    for (const Shape& size : {Shape{950, 70, 0}, {3, 2, 0}, {9000, 3, 0}}) {
      add("Resample to " + std::to_string(size.width), 1, [=](auto& t, Images i, IQEL** r) {
        return t.Resample(i[0], r, size.width, size.height, method, 0);
      });
    }
  }
  return calls;
}

class StackDepth : public OperationTest {
 protected:
  void ExpectShallow(const OperationCall& operation, const Shape& shape) {
    Rng rng(5);
    TestImages given;
    for (int i = 0; i < operation.images; ++i) {
      given.Add(RandomRaster(rng, shape.width, shape.height, shape.bit_count));
    }
    SmartPtr<IQEL> result;
    const int64_t depth =
        stack_.Depth([&] { operation.call(*module_, given.pointers, result.Put()); });
    EXPECT_LE(depth, 64 * 1024) << operation.name << ", " << given.images[0]->raster.Describe();
  }

 private:
  PaintedStack stack_;
};
QEL_INSTANTIATE_LEVELS(StackDepth);

// With the frames of the test host, which are small.
TEST_P(StackDepth, StaysWithin64KiB) {
#ifdef NDEBUG
  constexpr bool kOptimised = !kSanitized;
#else
  constexpr bool kOptimised = false;
#endif
  if (!kOptimised) GTEST_SKIP() << "frames are larger without optimisation";
  for (const auto& [width, height] : {std::pair(31, 9), {4500, 2}}) {
    for (const int depth : kAllDepths) {
      for (const OperationCall& operation : AllOperationCalls()) {
        ExpectShallow(operation, {width, height, depth});
      }
    }
  }
  for (const int depth : {4, 24, 32}) {
    for (const int size : {2, 5, 7, 9, 15, 31, 130}) {
      for (const OperationCall& operation : SizedFilters(size)) {
        ExpectShallow(operation, {size < 20 ? 900 : 300, size < 100 ? 5 : 2, depth});
      }
    }
    for (const OperationCall& operation : Samplers()) ExpectShallow(operation, {120, 40, depth});
  }
}

}  // namespace
}  // namespace qel::test
