#include <fnmatch.h>

#include <map>

#include "tests/solid/failing_memory.h"
#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

bool Matches(const char* pattern, const std::string& text) {
  return fnmatch(pattern, text.c_str(), 0) == 0;
}

/// What operations answer when a host call fails; each kind of call is counted from 0. All others
/// answer as if nothing had happened, with what an untouched output, an empty image, gives them.
struct StatedCode {
  const char* operations;
  const char* host_call;
  result_t code;
};
constexpr StatedCode kStatedCodes[] = {
    // No image made.
    {"*", "CreateInstance*", kFail},
    {"[!T]*", "CreateComponent*", kFail},  // all but Threshold
    // The host's own code.
    {"IncreaseBpp", "Create0", TestHost::kFaultCode},
    {"Resample*", "GetFormat0", TestHost::kFaultCode},
    {"Rotate*0", "GetFormat0", TestHost::kFaultCode},
    // Formats that do not fit each other, or the operation.
    {"Add*", "GetFormat*", kFail},
    {"Copy*", "GetFormat*", kFail},
    {"Scale", "GetFormat*", kFail},
    {"ScaleMasked", "GetFormat*", kFail},
    {"Scale8", "GetFormat0", kNotMono},
    {"SetImage*", "GetFormat0", kFail},
    {"Subtract*", "GetFormat*", kFail},
    // No place to copy to, nothing to transform, no differences to count.
    {"Copy*", "GetSize0", kFail},
    {"Transform", "GetSize0", kFail},
    {"Subtract*", "GetSize*", 0},
    {"Subtract*", "GetBits*", 0},
};

result_t CodeAfterFault(const std::string& operation, const std::string& host_call,
                        result_t usual) {
  for (const StatedCode& row : kStatedCodes) {
    if (Matches(row.operations, operation) && Matches(row.host_call, host_call)) return row.code;
  }
  return usual;
}

/// True for operations that call `Create` on their first image.
bool CreatesGivenImage(const OperationCall& operation) {
  return operation.name == "Add" || operation.name == "Scale8";
}

/// Every operation, at every depth, with a host that goes wrong somewhere.
class HostFaults : public OperationTest {
 protected:
  /// What one call left behind.
  struct Aftermath {
    bool thrown = false;
    result_t code = kOk;
    bool made = false;
    int host_calls = 0;
    int requests = 0;              ///< of memory
    std::vector<uint8_t> content;  ///< of all images
  };

  /// Calls an operation on fresh images of `depth` bits, with the host as it is set up, and checks
  /// what must hold however the host behaves: memory, references, objects, and bytes that are only
  /// read. Refuses one request for memory, unless `refused` is negative.
  Aftermath Run(const OperationCall& operation, int depth, int refused = -1,
                const Shape& shape = {31, 21, 0}) {
    TestHost& host = TestHost::Instance();
    Aftermath aftermath;
    const int live_before = host.live_objects;
    {
      Rng rng(7);
      std::vector<Raster> before;
      TestImages given;
      for (int i = 0; i < operation.images; ++i) {
        before.push_back(RandomRaster(rng, shape.width, shape.height, depth));
        if (operation.name == "Scale8" && depth == 32) before.back().model = kModelMono;
        if (operation.name == "IncreaseBpp" && depth == 8) before.back().palette.resize(256);
        if (i == 0 && CreatesGivenImage(operation) && host.keeps_pixels) {
          before.back() = host.new_image;
        }
        given.Add(before.back());
      }
      SmartPtr<IQEL> result;
      host.calls = 0;
      std::srand(1);
      {
        const FailingMemory memory(reinterpret_cast<const void*>(module_->create_function),
                                   refused);
        try {
          aftermath.code = operation.call(*module_, given.pointers, result.Put());
        } catch (const TestHost::Exception&) {
          aftermath.thrown = true;
        }
        aftermath.requests = memory.requests();
        EXPECT_EQ(memory.live(), 0) << "memory left behind";
      }
      aftermath.host_calls = host.calls;
      aftermath.made = static_cast<bool>(result);
      const auto keep = [&](const Raster& raster) {
        const auto memory = raster.Memory();
        aftermath.content.insert(aftermath.content.end(), memory.begin(), memory.end());
      };
      if (result) keep(static_cast<TestImage*>(result.Get())->raster);
      result.Reset();
      for (size_t i = 0; i < given.images.size(); ++i) {
        keep(given.images[i]->raster);
        EXPECT_EQ(given.images[i]->references(), 1u) << "references of image " << i;
        if (static_cast<int>(i) >= operation.changed_images) {
          EXPECT_EQ(given.images[i]->raster.Difference(before[i]), "")
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
      host.logging = true;
      const Aftermath usual = Run(operation, depth);
      const std::vector<std::string> calls = host.log;
      for (const Fault fault : {Fault::kThrow, Fault::kFail, Fault::kNull}) {
        std::map<std::string, int> counts;
        for (int k = 0; k < usual.host_calls; ++k) {
          const std::string& name = calls[static_cast<size_t>(k)];
          const std::string counted = name + std::to_string(counts[name]++);
          SCOPED_TRACE(testing::Message() << operation.name << " at " << depth << " bits, "
                                          << counted << ", fault " << static_cast<int>(fault));
          host.Reset();
          host.fault = fault;
          host.fault_at = k;
          const Aftermath aftermath = Run(operation, depth);
          EXPECT_EQ(aftermath.thrown, fault == Fault::kThrow) << "exceptions pass through";
          if (fault == Fault::kThrow) continue;
          const bool gives_no_pointer =
              name == "GetSize" || name == "GetFormat" || name == "Create";
          const bool harmless = fault == Fault::kNull && gives_no_pointer;
          EXPECT_EQ(aftermath.code,
                    harmless ? usual.code : CodeAfterFault(operation.name, counted, usual.code));
        }
      }
    }
  }
  host.Reset();
}

// `Median` may need memory, asked for once; other filters take none. What else asks does without.
TEST_P(HostFaults, RefusedMemoryIsDoneWithoutOrReported) {
  int refusals = 0;
  const auto refuse = [&](const OperationCall& operation, int depth, const Shape& shape) {
    const Aftermath usual = Run(operation, depth, -1, shape);
    for (const char* const filter : {"Filter*", "Erode*", "Dilate*", "Edge*", "Contour*"}) {
      EXPECT_FALSE(Matches(filter, operation.name) && usual.requests > 0) << operation.name;
    }
    EXPECT_FALSE(Matches("Median*", operation.name) && usual.requests > 1) << operation.name;
    for (int k = 0; k < usual.requests; ++k, ++refusals) {
      SCOPED_TRACE(testing::Message() << operation.name << " at " << depth << " bits, "
                                      << shape.width << " columns, request " << k);
      const Aftermath aftermath = Run(operation, depth, k, shape);
      if (operation.name.starts_with("Median")) {
        EXPECT_EQ(aftermath.code, kFail);
        EXPECT_FALSE(aftermath.made);
      } else {
        EXPECT_EQ(aftermath.code, usual.code);
        EXPECT_EQ(aftermath.content, usual.content);
      }
    }
  };
  for (const int depth : kCommonDepths) {
    for (const OperationCall& operation : AllOperationCalls()) {
      refuse(operation, depth, {31, 21, depth});
    }
    for (const int size : {40, 300, 5000}) {
      const auto median = [=](const ComponentSet& c, std::span<IQELImage* const> i, IQEL** result) {
        return c.filter->Median(i[0], size, result);
      };
      refuse({"Median", 1, 0, true, median}, depth, {31, 21, depth});
    }
    const auto edge = [](const ComponentSet& c, std::span<IQELImage* const> i, IQEL** result) {
      return c.filter->Edge(i[0], 130, result);
    };
    refuse({"Edge", 1, 0, true, edge}, depth, {31, 21, depth});
    // From some size on, weights are remembered.
    const auto rotate = [](const ComponentSet& c, std::span<IQELImage* const> i, IQEL** result) {
      return c.transform->Rotate(i[0], result, 33, 12, 0, 0);
    };
    refuse({"Rotate", 1, 0, true, rotate}, depth, {260, 260, depth});
  }
  EXPECT_GE(refusals, FailingMemory::kFollowsCalloc ? 15 : 12);
  for (const tagREFString name :
       {RefString(kColorTransformName), RefString(kTransformName), RefString(kDeformName),
        RefString(kFilterTransformName), RefString(kMathsName)}) {
    CreationFunction create = nullptr;
    ASSERT_EQ(module_->create_function(name, &create), kOk);
    const FailingMemory memory(reinterpret_cast<const void*>(create), 0);
    void* object = &create;
    EXPECT_EQ(create(nullptr, &IID_IUnknown, &object), kFail);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(memory.requests(), 1);
  }
}

// Nothing is asked of the host, and results stay as they are.
TEST_P(HostFaults, NullArgumentsAreRefused) {
  TestHost& host = TestHost::Instance();
  Rng rng(1);
  const auto image = TestImage::Make(RandomRaster(rng, 9, 7, 24));
  const auto expect_refusal = [&](const std::string& what, result_t code, auto call) {
    host.Reset();
    IQEL* result = image.Get();
    EXPECT_EQ(call(&result), code) << what;
    EXPECT_EQ(host.calls, 0) << what;
    EXPECT_EQ(result, image.Get()) << what;
    EXPECT_EQ(image->references(), 1u) << what;
  };
  for (const OperationCall& operation : AllOperationCalls()) {
    const std::string& name = operation.name;
    const bool masked = name.ends_with("Masked");
    for (int null = 0; null < operation.images - (masked ? 1 : 0); ++null) {
      std::vector<IQELImage*> images(static_cast<size_t>(operation.images), image.Get());
      images[static_cast<size_t>(null)] = nullptr;
      const result_t code = name.starts_with("Equal")            ? kOk
                            : name == "RotatePaste" && null == 0 ? kNullOutput
                            : name == "CreateDestImage"          ? kInvalidArgument
                            : name.starts_with("Subtract")       ? kInvalidArgument
                                                                 : kFail;
      expect_refusal(name + ", image " + std::to_string(null), code,
                     [&](IQEL** result) { return operation.call(*module_, images, result); });
    }
    const bool needs_output = operation.makes_image && operation.images == 1 &&
                              (Matches("Rotate*", name) || Matches("Resample*", name) ||
                               name == "Skew" || name == "IncreaseBpp" || name == "Quad" ||
                               name == "Transform" || name == "CreateDestImage");
    if (!needs_output) continue;
    IQELImage* const images[] = {image.Get()};
    EXPECT_EQ(operation.call(*module_, images, nullptr), kNullOutput) << name;
  }
  IQEL* const i = image.Get();
  expect_refusal("Lut", kFail, [&](IQEL**) { return module_->color->Lut(i, nullptr); });
  expect_refusal("Circle", kInvalidArgument,
                 [&](IQEL**) { return module_->deform->CircleTransform(i, -1, 0, 1); });
  expect_refusal("Filter", kFail, [&](IQEL** result) {
    return module_->filter->Filter(i, nullptr, 3, 1, 0, result);
  });
  expect_refusal("GaussianBlur", kFail,
                 [&](IQEL** result) { return module_->filter->GaussianBlur(i, 4, result); });
  expect_refusal("Transform", kFail, [&](IQEL** result) {
    return module_->transform->Transform(nullptr, i, result, 0, 0, 0, 0, 0, 0);
  });
  expect_refusal("TransformPaste", kFail, [&](IQEL**) {
    return module_->transform->TransformPaste(nullptr, i, i, 0, 0, 0, 0);
  });
  host.Reset();
  host.refuses_images = true;
  IQEL* out = i;
  EXPECT_EQ(module_->maths->CreateDestImage(&out, i, 0, 0), kFail);
  EXPECT_EQ(out, nullptr);
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

// Images whose `Create` fails and that keep what they had, right before memory that nobody may
// touch.
TEST_P(HostFaults, AfterAFailedCreateOnlyPixelsThatSufficeAreWritten) {
  TestHost& host = TestHost::Instance();
  const auto kept = [](int width, int height, int planes, int bit_count) {
    Raster raster;
    raster.Create(width, height, planes, bit_count, UsualModel(bit_count));
    return raster;
  };
  for (const OperationCall& operation : AllOperationCalls()) {
    if (!operation.makes_image && !CreatesGivenImage(operation)) continue;
    for (const int depth : kCommonDepths) {
      host.Reset();
      Raster::NewImageLayout() = {.fence = Layout::Fence::kAfter};
      const Aftermath usual = Run(operation, depth);
      const Raster asked = host.asked;
      if (asked.bit_count == 0) continue;  // nothing was created
      const int width = asked.width, height = asked.height, bits = asked.bit_count;
      // Fails when the host does, or leaves the new image alone.
      const bool passes_on = operation.name == "IncreaseBpp";
      const bool draws = operation.name != "Rotate33";
      for (const auto& [suffices, old] :
           {std::pair(true, kept(width, height, 1, bits)),
            {true, kept(width + 3, height + 1, 2, bits)},
            {false, Raster()},
            {false, kept(width - 1, height, 1, bits)},
            {false, kept(width, height - 1, 1, bits)},
            {false, kept(width, height, 1, bits > 8 ? bits - 8 : bits / 2)},
            {false, kept(width, height, 1, bits + 8)}}) {
        SCOPED_TRACE(testing::Message() << operation.name << " at " << depth << " bits, asked for "
                                        << asked.Describe() << ", kept " << old.Describe());
        host.new_image = old;
        host.keeps_pixels = true;
        const Aftermath aftermath = Run(operation, depth);
        EXPECT_EQ(aftermath.code, passes_on ? TestHost::kFaultCode : usual.code);
        if (passes_on) continue;
        const bool same_shape = old.width == width && old.height == height;
        if (suffices && same_shape && draws) {
          EXPECT_EQ(aftermath.content, usual.content);
        }
        // `Fill` is the image's own affair, and `Threshold` goes on in place.
        if (suffices || operation.name == "Transform" || operation.name == "Threshold") continue;
        const auto size = static_cast<int64_t>(old.Bits() != nullptr ? old.Memory().size() : 0);
        EXPECT_EQ(std::count(aftermath.content.begin(), aftermath.content.begin() + size, 0xCD),
                  size)
            << "written";
      }
    }
  }
  host.Reset();
  Raster::NewImageLayout() = {};
}

TEST_P(HostFaults, EmptyAndAbsurdShapesAreHarmless) {
  const Shape shapes[] = {{0, 0, 0}, {0, 9, 0},  {9, 0, 0},  {1, 1, 0},
                          {2, 1, 0}, {-3, 5, 0}, {3, -5, 0}, {INT32_MIN, 1, 0}};
  const Shape without_pixels[] = {
      {70000, 70000, 0}, {INT32_MAX, 3, 0}, {3, INT32_MAX, 0}, {20, 20, 0}};
  const auto call = [&](const OperationCall& operation, const Raster& raster) {
    SCOPED_TRACE(operation.name + ", " + raster.Describe());
    const TestImages given(std::vector(static_cast<size_t>(operation.images), raster));
    SmartPtr<IQEL> result;
    operation.call(*module_, given.pointers, result.Put());
    result.Reset();
    for (const auto& image : given.images) EXPECT_EQ(image->references(), 1u);
  };
  for (const OperationCall& operation : AllOperationCalls()) {
    for (const int depth : {0, 1, 4, 7, 8, 16, 24, 25, 32, 33, 64}) {
      Rng rng(3);
      for (const Shape& shape : shapes) {
        call(operation, RandomRaster(rng, shape.width, shape.height, depth));
      }
      // Sizes that act as zero, with memory.
      for (const Shape& shape : {Shape{INT32_MIN, 20, 0}, {20, INT32_MIN, 0}, {-1, -1, 0}}) {
        Raster raster = RandomRaster(rng, 20, 20, depth);
        raster.width = shape.width;
        raster.height = shape.height;
        call(operation, raster);
      }
      // These go through all pixels whether there are any or not: pastes ask the transform about
      // each, the others draw a random number for each.
      if (Matches("*Paste*", operation.name) || Matches("Jitter*", operation.name) ||
          Matches("Noise*", operation.name)) {
        continue;
      }
      for (const Shape& shape : without_pixels) {
        Raster raster = RandomRaster(rng, 0, 0, depth);
        raster.width = shape.width;
        raster.height = shape.height;
        call(operation, raster);
      }
    }
  }
}

}  // namespace
}  // namespace qel::test
