#include "cli/commands/describe.h"
#include "cli/operation_table.h"
#include "cli/terminal/json.h"

namespace qel::cli {
namespace {

std::string_view KindName(Kind kind) {
  switch (kind) {
    case Kind::kInt:
      return "integer";
    case Kind::kNumber:
      return "number";
    case Kind::kExtent:
      return "extent";
    case Kind::kFlag:
      return "flag";
    case Kind::kColour:
      return "colour";
    case Kind::kChoice:
      return "choice";
    case Kind::kText:
      return "text";
    case Kind::kPicture:
      return "picture";
  }
  return "";
}

std::string ParameterAsJson(const Parameter& parameter) {
  JsonObject object;
  object.Text("name", parameter.name)
      .Text("type", KindName(parameter.kind))
      .Text("help", parameter.help);
  const Kind kind = parameter.kind;
  if (kind == Kind::kInt || kind == Kind::kNumber || kind == Kind::kExtent) {
    object.Real("minimum", parameter.minimum).Real("maximum", parameter.maximum);
  }
  if (!parameter.unit.empty()) object.Text("unit", parameter.unit);
  if (!parameter.standard.empty()) object.Text("default", parameter.standard);
  if (!parameter.choices.empty()) {
    std::vector<std::string> labels;
    for (const Choice& choice : parameter.choices) labels.push_back(JsonText(choice.label));
    object.Json("choices", JsonArray(labels));
  }
  object.Flag("required", parameter.standard.empty() && !parameter.optional);
  return object.Object();
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
      .Text("example", operation.example)
      .Text("note", operation.note)
      .Json("parameters", JsonArray(parameters, "\n    "));
  return object.Object();
}

}  // namespace

std::string ListOperationsAsJson() {
  std::vector<std::string> operations;
  for (const Operation& operation : OperationTable()) {
    operations.push_back(OperationAsJson(operation));
  }
  return JsonArray(operations, "\n  ") + "\n";
}

}  // namespace qel::cli
