#ifndef QEL_DOCS_GENERATOR_PAGE_H_
#define QEL_DOCS_GENERATOR_PAGE_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "image/plan.h"
#include "qel/qel.h"

namespace qel::docs {

/// What the C++ examples work on.
struct Scene {
  IQELColorTransform* color;
  IQELTransform* transform;
  IQELDeform* deform;
  IQELFilterTransform* filter;
  IQELMaths* maths;
  IQEL* image;       ///< the picture; operations in place change it
  IQEL* other;       ///< another one of the same size and depth
  IQEL* mask;        ///< 8 bits
  ITransform* map;   ///< the map of the tool's example
  IQELImage* empty;  ///< without pixels so far
  IQEL** result;     ///< where a new picture goes
};

/// A statement of C++ as it stands on a page, and the same compiled.
struct Example {
  std::string_view text;
  result_t (*run)(const Scene& scene);
};

/// What a page says beside what the tool's own table knows.
struct Page {
  std::string_view name;  ///< of the operation in the tool
  std::string formula;    ///< Markdown
  std::string cost;       ///< Markdown, one sentence or two
  /// Does the same as the tool's example; empty where that is one call of a method, and for
  /// operations that the module does not have.
  Example example = {};
  bool for_32_bits = false;  ///< other depths take other arguments
};

/// The cost of an operation with several methods, of which the page's example takes `taken`.
std::string CostOf(std::span<const MethodText> methods, const MethodText& taken);

std::vector<Page> ColorPages();
std::vector<Page> TransformPages();
std::vector<Page> FilterPages();
std::vector<Page> MathsPages();
std::vector<Page> ComposedPages();

/// Something that people do every day, with the steps that do it.
struct Job {
  std::string_view name;  ///< of its picture
  std::string_view title;
  std::string_view input;  ///< as one would type it
  std::string_view output;
  std::string_view steps;    ///< for the pictures of the pages
  std::string_view text;     ///< Markdown
  std::string_view command;  ///< the steps as the page shows them; empty: `steps`
};
std::vector<Job> EverydayJobs();

#define QEL_EXAMPLE(...)                                                                 \
  ::qel::docs::Example {                                                                 \
#__VA_ARGS__, [](const ::qel::docs::Scene& scene) -> ::qel::result_t {                 \
      [[maybe_unused]] const auto& [color, transform, deform, filter, maths, image, other, \
                                    mask, map, empty, result] = scene;                     \
      __VA_ARGS__                                                                          \
    } \
  }

}  // namespace qel::docs

#endif  // QEL_DOCS_GENERATOR_PAGE_H_
