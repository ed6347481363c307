#include "allocation_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<int64_t> g_live{0};
}

namespace testing_support {
int64_t LiveAllocations() { return g_live.load(); }
}  // namespace testing_support

void* operator new(size_t size) {
  void* p = std::malloc(size ? size : 1);
  if (!p) throw std::bad_alloc();
  g_live.fetch_add(1);
  return p;
}
void* operator new[](size_t size) { return operator new(size); }
void operator delete(void* p) noexcept {
  if (!p) return;
  g_live.fetch_sub(1);
  std::free(p);
}
void operator delete[](void* p) noexcept { operator delete(p); }
void operator delete(void* p, size_t) noexcept { operator delete(p); }
void operator delete[](void* p, size_t) noexcept { operator delete(p); }
