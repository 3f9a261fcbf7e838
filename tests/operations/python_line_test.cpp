#include "operations/text/python_line.h"

#include <gtest/gtest.h>

namespace qel::operations {
namespace {

TEST(PythonLine, NamesVariablesLikeFilesWhereTheLanguageAllows) {
  const auto line = [](const char* path) {
    return PythonLine(ParseSteps({std::string("subtract ") + path}).front());
  };
  EXPECT_NE(line("night/second-one.png").find("second_one"), std::string::npos);
  for (const char* const path : {"lambda.png", "None.png", "2.png", "image.png"}) {
    EXPECT_EQ(line(path), line("other.png")) << path;
  }
}

}  // namespace
}  // namespace qel::operations
