#include "operations/text/table_json.h"

#include "operations/steps.h"
#include "operations/table.h"
#include "operations/text/json.h"

namespace qel::operations {
namespace {

std::string ParameterAsJson(const Parameter& parameter) {
  JsonObject object;
  object.Text("name", parameter.name)
      .Text("type", KindName(parameter.kind))
      .Text("help", parameter.help);
  if (parameter.IsNumber()) {
    const Range usual = parameter.Usual();
    object.Real("minimum", parameter.minimum)
        .Real("maximum", parameter.maximum)
        .Json("usual", "[" + JsonReal(usual.low) + ", " + JsonReal(usual.high) + "]");
  }
  if (!parameter.unit.empty()) object.Text("unit", parameter.unit);
  if (!parameter.standard.empty()) object.Text("default", parameter.standard);
  if (!parameter.choices.empty()) {
    std::vector<std::string> labels;
    for (const Choice& choice : parameter.choices) labels.push_back(JsonText(choice.label));
    object.Json("choices", JsonArray(labels));
  }
  object.Flag("required", parameter.required());
  return object.Object();
}

std::string_view ReachName(operations::Reach reach) {
  switch (reach) {
    case operations::Reach::kRows:
      return "rows";
    case operations::Reach::kPadding:
      return "padding";
    case operations::Reach::kBeyond:
      return "beyond rows";
  }
  return "";
}

/// What the example needs of a picture's surroundings at each depth with whole bytes: rows and
/// columns of neighbours, and the memory that it touches.
std::string SurroundingsAsJson(const Operation& operation) {
  const Step example = ParseSteps({std::string(operation.example)}).front();
  const auto extent = [](int count) {
    return count == Border::kAll ? JsonText("all") : std::to_string(count);
  };
  JsonObject depths;
  for (const int bits : {8, 24, 32}) {
    const Shape shape{640, 480, bits, ModelOf(bits)};
    const Border border = operation.BorderOf(example.AsGiven(), shape);
    JsonObject object;
    object.Json("rows", extent(border.rows))
        .Json("columns", extent(border.columns))
        .Text("touches", ReachName(operation.ReachOf(example.AsGiven(), shape)));
    depths.Json(std::to_string(bits), object.Object());
  }
  return depths.Object();
}

std::string OperationAsJson(const Operation& operation) {
  std::vector<std::string> parameters;
  for (const Parameter& parameter : operation.parameters) {
    parameters.push_back(ParameterAsJson(parameter));
  }
  JsonObject object;
  object.Text("name", operation.name)
      .Text("component", operation.component)
      .Text("summary", operation.summary)
      .Json("depths", "[" + std::string(operation.depths) + "]")
      .Flag("in_place", operation.in_place)
      .Flag("random", operation.random)
      .Flag("composed", operation.composed())
      .Text("example", operation.example)
      .Text("picture_step", operation.PictureStep())
      .Text("note", operation.Caveats())
      .Text("channel_order", NameOf(operation.channel_order));
  if (!operation.swapped[0].empty()) {
    object.Json("swapped",
                JsonArray({JsonText(operation.swapped[0]), JsonText(operation.swapped[1])}));
  }
  object.Json("surroundings_of_example", SurroundingsAsJson(operation))
      .Json("parameters", JsonArray(parameters, "\n    "));
  return object.Object();
}

}  // namespace

std::string TableAsJson() {
  std::vector<std::string> operations;
  for (const Operation& operation : OperationTable()) {
    operations.push_back(OperationAsJson(operation));
  }
  JsonObject table;
  table.Number("version", kTableVersion).Json("operations", JsonArray(operations, "\n  "));
  return table.Line();
}

}  // namespace qel::operations
