// Live heap blocks made through operator new: a scenario must free everything it made.
#pragma once

#include <cstdint>

namespace testing_support {
int64_t LiveAllocations();
}
