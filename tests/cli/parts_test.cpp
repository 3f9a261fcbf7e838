// Parts of the tool that are tried without starting it.

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <sstream>
#include <stdexcept>

#include "cli/batch/shard.h"
#include "cli/operations.h"
#include "cli/session/session.h"
#include "cli/session/sha256.h"
#include "cli/terminal/errors.h"
#include "cli/terminal/json_reader.h"
#include "pictures/byte_reader.h"

namespace qel::cli {
namespace {

TEST(Json, ReadsTextsAndRefusesWhatIsNone) {
  const auto texts = ReadJsonTexts(
      " { \"a\" : \"\\u00e4\\ud83d\\ude00\\/\\t\" , \"b\":[1e3,{\"a\":[]},null],\"\":true} ");
  EXPECT_EQ(texts, (std::map<std::string, std::string>{{"a", "\xC3\xA4\xF0\x9F\x98\x80/\t"}}));
  for (const std::string wrong :
       {"", "[]", "{", "{\"a\"}", "{\"a\":}", "{\"a\":1,}", "{\"a\":nan}", "{\"a\":\"\\x\"}",
        "{\"a\":\"\\", "{\"a\":\"\\ud800\"}", "{\"a\":\"\\u12g4\"}", "{} x", "{\"a\":[1 2]}"}) {
    EXPECT_THROW(ReadJsonTexts(wrong), std::invalid_argument) << wrong;
  }
  EXPECT_THROW(ReadJsonTexts("{\"a\":" + std::string(100000, '[')), std::invalid_argument);
}

// The first and the last character of each length; bytes beyond them stand by themselves.
TEST(Json, KeepsCharactersAndEscapesOtherBytes) {
  for (const std::string character :
       {"\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(JsonText(character), "\"" + character + "\"");
  }
  for (const std::string bytes :
       {"\x80", "\xC1\xBF", "\xC2", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xEF\xBF", "\xF0\x8F\xBF\xBF",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xC3\xFF"}) {
    std::string escaped;
    for (const char c : bytes) escaped += fmt::format("\\udc{:02x}", static_cast<uint8_t>(c));
    EXPECT_EQ(JsonText(bytes), "\"" + escaped + "\"");
  }
}

// What the dry run counts on: sizes and depths as they are told are those that come out.
TEST(Operations, TellTheShapeOfTheirResult) {
  const Session session;
  std::vector<std::string> steps = {"rotate angle=90 keep-size=yes force-alpha=yes",
                                    "rotate angle=0 force-alpha=yes",
                                    "rotate angle=30 keep-size=yes force-alpha=yes",
                                    "rotate angle=2005",
                                    "rotate angle=1000000000",
                                    "resample height=33",
                                    "resample width=99 height=50% fit=yes",
                                    "quad bottom-right=50%,40% height=77",
                                    "increase-bpp bits=24",
                                    "scale depth=8",
                                    "skew x-gain=1 alpha=yes",
                                    "circle mode=fold alpha=yes",
                                    "transform affine=1,0,0,0,1,0 width=11",
                                    "text text=Hi size=20 colour=red",
                                    "text text=Hi size=20 background=#0000FF80",
                                    "overlay with=colours.png",
                                    "overlay with=mask.png",
                                    "pad border=3 background=red",
                                    "pad border=3 background=#FF000080",
                                    "turn angle=3 background=transparent"};
  for (const Operation& operation : OperationTable()) steps.emplace_back(operation.example);
  for (const int bits : {1, 4, 8, 24, 32}) {
    PictureFiles second_pictures;
    second_pictures.Provide("other.png", MakeImage(320, 200, bits));
    second_pictures.Provide("mask.png", MakeImage(320, 200, 8));
    second_pictures.Provide("colours.png", MakeImage(20, 10, 24));
    for (const std::string& text : steps) {
      SCOPED_TRACE(text + " at " + std::to_string(bits));
      const Step step = ParseSteps({text}).front();
      const auto source = MakeImage(320, 200, bits);
      try {
        const Shape told = operations::ShapeAfter(
            step, ShapeOf(*source), 1 << 20,
            [&](const std::string& name) { return ShapeOf(second_pictures.Get(name)); });
        const Shape made = ShapeOf(*session.Run({step}, source, second_pictures));
        EXPECT_EQ(made.Size() + " " + made.Bits(), told.Size() + " " + told.Bits());
      } catch (const std::exception& error) {
        // It never comes to a failure of the module.
        EXPECT_EQ(ExitCodeOf(error), kWrongDepth) << error.what();
        EXPECT_LT(bits, 32) << error.what();
      }
    }
  }
}

TEST(Shards, ComeFromTheEnvironment) {
  const struct {
    const char*
        tasks;  ///< number, count, and where they differ from 0, count - 1 and 1: min max step
    size_t index, count;  ///< no count: refused
  } cases[] = {{"0 4", 0, 4},
               {"7 3 5", 2, 3},
               {"9 3 5 9 2", 2, 3},
               // Tasks 1, 3 and 7: the third of three parts would be done by nobody.
               {"3 3 1 7", 0, 0},
               {"4 4", 0, 0},
               {"2", 0, 0},
               {"two 4", 0, 0},
               {"", 0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tasks);
    std::istringstream words(c.tasks);
    for (const std::string name : {"ID", "COUNT", "MIN", "MAX", "STEP"}) {
      const std::string variable = "SLURM_ARRAY_TASK_" + name;
      std::string value;
      words >> value ? setenv(variable.c_str(), value.c_str(), 1) : unsetenv(variable.c_str());
    }
    if (c.count == 0) {
      EXPECT_THROW(ParseShard("auto"), Failure);
      continue;
    }
    EXPECT_EQ(ParseShard("auto").index, c.index);
    EXPECT_EQ(ParseShard("auto").count, c.count);
  }
}

TEST(Hashes, AreThoseOfTheStandard) {
  EXPECT_EQ(Sha256(pictures::BytesOf("abc")),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

}  // namespace
}  // namespace qel::cli
