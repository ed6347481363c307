#include "allocation_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

static std::atomic<int64_t> g_live{0};
int64_t testing_support::LiveAllocations() { return g_live.load(); }

void* operator new(size_t size) {
  void* p = std::malloc(size ? size : 1);
  return p ? (g_live.fetch_add(1), p) : throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { p ? (g_live.fetch_sub(1), std::free(p)) : void(); }
void operator delete[](void* p) noexcept { operator delete(p); }
void operator delete(void* p, size_t) noexcept { operator delete(p); }
void operator delete[](void* p, size_t) noexcept { operator delete(p); }
