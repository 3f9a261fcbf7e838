// What tells the targets of picture formats apart, which share all else.

#include "tests/fuzz/fuzz.h"

using std::string_view_literals::operator""sv;

const std::string_view kMagic = QEL_FUZZ_MAGIC ""sv;
