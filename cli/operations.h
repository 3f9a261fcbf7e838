#ifndef QEL_CLI_OPERATIONS_H_
#define QEL_CLI_OPERATIONS_H_

#include "operations/engine.h"
#include "operations/errors.h"
#include "operations/shape_after.h"
#include "operations/table.h"
#include "operations/text/json.h"
#include "operations/text/nearest_name.h"
#include "operations/text/utf8.h"

namespace qel::cli {

// The tool speaks of operations in the words of their library.
using operations::Arguments;
using operations::CharacterLength;
using operations::Choice;
using operations::Components;
using operations::DescribeValues;
using operations::DidYouMean;
using operations::FindOperation;
using operations::InterpolationMethods;
using operations::JsonArray;
using operations::JsonObject;
using operations::JsonReal;
using operations::JsonText;
using operations::Kind;
using operations::NamesOf;
using operations::Operation;
using operations::OperationTable;
using operations::Parameter;
using operations::ParseSteps;
using operations::PictureNames;
using operations::Printable;
using operations::RequireOperation;
using operations::Shape;
using operations::ShapeOf;
using operations::Step;
using operations::StepError;
using operations::SurprisesOf;

}  // namespace qel::cli

#endif  // QEL_CLI_OPERATIONS_H_
