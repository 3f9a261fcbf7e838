// Operations that the module does not have: made of several of its own, or of other libraries.

#include "operations/table.h"

namespace qel::operations {

std::vector<Operation> ComposedOperations() { return {}; }

}  // namespace qel::operations
