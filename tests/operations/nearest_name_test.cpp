#include "operations/text/nearest_name.h"

#include <gtest/gtest.h>

namespace qel::operations {
namespace {

TEST(NearestName, IsHintedWhereItIsLikelyMeant) {
  struct Case {
    std::string_view wrong, hint;
  };
  for (const auto& [wrong, hint] : {Case{"blur2", "blur"},
                                    {"rotate", "rotate"},
                                    {"rotat", "rotate or rotate-paste"},
                                    {"guassian", "gaussian-blur"},
                                    {"mirr", "mirror"},
                                    {"lbur", "blur"},
                                    {"slur", ""},
                                    {"skip", ""},
                                    {"fli", "flip"},
                                    {"x", ""},
                                    {"", ""},
                                    {"flatter", "flatten"},
                                    {"fold", ""},
                                    {"rowers", ""}}) {
    const std::string expected = hint.empty() ? "!" : "; did you mean " + std::string(hint) + "?";
    EXPECT_EQ(DidYouMean(wrong,
                         {"blur", "flip", "flatten", "gaussian-blur", "mirror", "rotate",
                          "rotate-paste", "skew", "blur"},
                         "!"),
              expected)
        << wrong;
  }
}

}  // namespace
}  // namespace qel::operations
