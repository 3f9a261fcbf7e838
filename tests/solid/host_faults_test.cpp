#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

/// Every operation, at every depth, with a host that goes wrong somewhere.
class HostFaults : public OperationTest {
 protected:
  /// What one call left behind.
  struct Aftermath {
    bool thrown = false;
    result_t code = kOk;
    bool made = false;
    int host_calls = 0;
  };

  /// Calls an operation on fresh images of `depth` bits, with the host as it is set up, and checks
  /// what must hold however the host behaves: references, objects, and bytes that are only read.
  Aftermath Run(const OperationCall& operation, int depth) {
    TestHost& host = TestHost::Instance();
    Aftermath aftermath;
    const int live_before = host.live_objects;
    {
      Rng rng(7);
      std::vector<Raster> before;
      std::vector<SmartPtr<TestImage>> images;
      std::vector<IQELImage*> pointers;
      for (int i = 0; i < operation.images; ++i) {
        before.push_back(RandomRaster(rng, 31, 21, depth));
        images.push_back(TestImage::Make(before.back()));
        pointers.push_back(images.back().Get());
      }
      SmartPtr<IQEL> result;
      host.calls = 0;
      try {
        aftermath.code = operation.call(*module_, pointers, result.Put());
      } catch (const TestHost::Exception&) {
        aftermath.thrown = true;
      }
      aftermath.host_calls = host.calls;
      aftermath.made = static_cast<bool>(result);
      result.Reset();
      for (size_t i = 0; i < images.size(); ++i) {
        EXPECT_EQ(images[i]->references(), 1u) << "references of image " << i;
        if (static_cast<int>(i) >= operation.changed_images) {
          EXPECT_EQ(images[i]->raster.Difference(before[i]), "")
              << "image " << i << " is only read";
        }
      }
    }
    EXPECT_EQ(host.live_objects, live_before) << "objects left behind";
    return aftermath;
  }
};
INSTANTIATE_TEST_SUITE_P(Active, HostFaults, testing::Values(DetectCpuLevel()), LevelParamName);

TEST_P(HostFaults, NeitherLeakNorCrashNorTouchSources) {
  TestHost& host = TestHost::Instance();
  using Fault = TestHost::Fault;
  for (const OperationCall& operation : AllOperationCalls()) {
    for (const int depth : kCommonDepths) {
      host.Reset();
      const int calls = Run(operation, depth).host_calls;
      for (const Fault fault : {Fault::kThrow, Fault::kFail, Fault::kNull}) {
        for (int k = 0; k < calls; ++k) {
          SCOPED_TRACE(testing::Message() << operation.name << " at " << depth << " bits, call "
                                          << k << ", fault " << static_cast<int>(fault));
          host.Reset();
          host.fault = fault;
          host.fault_at = k;
          const Aftermath aftermath = Run(operation, depth);
          EXPECT_EQ(aftermath.thrown, fault == Fault::kThrow) << "exceptions pass through";
          if (Failed(aftermath.code) && operation.name != "Resample") {
            EXPECT_TRUE(aftermath.code == kFail || aftermath.code == kInvalidArgument ||
                        aftermath.code == kNotMono)
                << std::hex << aftermath.code;
          }
        }
      }
    }
  }
  host.Reset();
}

TEST_P(HostFaults, WithoutNewImagesOperationsThatNeedOneFail) {
  TestHost& host = TestHost::Instance();
  for (const OperationCall& operation : AllOperationCalls()) {
    for (const int depth : kCommonDepths) {
      SCOPED_TRACE(testing::Message() << operation.name << " at " << depth << " bits");
      host.Reset();
      const result_t usual = Run(operation, depth).code;
      host.refuses_images = true;
      const Aftermath refused = Run(operation, depth);
      const bool goes_on = !operation.makes_image || operation.name == "Threshold";
      EXPECT_EQ(refused.code, goes_on ? usual : kFail);
      EXPECT_FALSE(refused.made);
    }
  }
  host.Reset();
}

TEST_P(HostFaults, ImagesThatAnswerNoInterfaceKeepTheirContent) {
  TestHost& host = TestHost::Instance();
  for (const OperationCall& operation : AllOperationCalls()) {
    if (!operation.makes_image || operation.changed_images == 0) continue;
    if (operation.name == "Threshold") continue;  // writes in place as well
    SCOPED_TRACE(operation.name);
    host.Reset();
    host.refuses_queries = true;
    OperationCall reads_only = operation;
    reads_only.changed_images = 0;
    EXPECT_EQ(Run(reads_only, 24).code, kOk);
  }
  host.Reset();
}

TEST_P(HostFaults, EmptyAndAbsurdShapesAreHarmless) {
  for (const OperationCall& operation : AllOperationCalls()) {
    for (const int depth : {0, 1, 4, 7, 8, 16, 24, 25, 32, 33, 64}) {
      for (const auto& [width, height] :
           {std::pair(0, 0), {0, 9}, {9, 0}, {1, 1}, {2, 1}, {-3, 5}}) {
        SCOPED_TRACE(testing::Message()
                     << operation.name << " at " << depth << " bits, " << width << " x " << height);
        Rng rng(3);
        std::vector<SmartPtr<TestImage>> images;
        std::vector<IQELImage*> pointers;
        for (int i = 0; i < operation.images; ++i) {
          images.push_back(TestImage::Make(RandomRaster(rng, width, height, depth)));
          pointers.push_back(images.back().Get());
        }
        SmartPtr<IQEL> result;
        operation.call(*module_, pointers, result.Put());
        result.Reset();
        for (const auto& image : images) EXPECT_EQ(image->references(), 1u);
      }
    }
  }
}

}  // namespace
}  // namespace qel::test
