// Counts live heap blocks made through operator new in this program, so that
// tests can prove a scenario frees everything it made.
#pragma once

#include <cstdint>

namespace testing_support {
int64_t LiveAllocations();
}
