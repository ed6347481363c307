#include "allocation_hooks.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

std::atomic<int64_t> g_count{0};

using MallocFn = void*(__cdecl*)(size_t);
using CallocFn = void*(__cdecl*)(size_t, size_t);
using ReallocFn = void*(__cdecl*)(void*, size_t);
using AlignedMallocFn = void*(__cdecl*)(size_t, size_t);
using AlignedReallocFn = void*(__cdecl*)(void*, size_t, size_t);

MallocFn g_malloc;
CallocFn g_calloc;
ReallocFn g_realloc;
AlignedMallocFn g_aligned_malloc;
AlignedReallocFn g_aligned_realloc;

void* __cdecl CountingMalloc(size_t size) {
  g_count.fetch_add(1, std::memory_order_relaxed);
  return g_malloc(size);
}
void* __cdecl CountingCalloc(size_t count, size_t size) {
  g_count.fetch_add(1, std::memory_order_relaxed);
  return g_calloc(count, size);
}
void* __cdecl CountingRealloc(void* block, size_t size) {
  g_count.fetch_add(1, std::memory_order_relaxed);
  return g_realloc(block, size);
}
void* __cdecl CountingAlignedMalloc(size_t size, size_t alignment) {
  g_count.fetch_add(1, std::memory_order_relaxed);
  return g_aligned_malloc(size, alignment);
}
void* __cdecl CountingAlignedRealloc(void* block, size_t size, size_t alignment) {
  g_count.fetch_add(1, std::memory_order_relaxed);
  return g_aligned_realloc(block, size, alignment);
}

template <typename Fn>
Fn Lookup(HMODULE module, const char* name) {
  return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

struct Hook {
  const char* name;
  void* replacement;
};

// Replaces the import table entries of `module` that point at the C runtime's
// allocation functions. Returns how many entries were patched.
int PatchImports(HMODULE module, const Hook* hooks, int hook_count) {
  auto* base = reinterpret_cast<uint8_t*>(module);
  auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
  auto* nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (dir.VirtualAddress == 0) return 0;
  int patched = 0;
  for (auto* desc = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + dir.VirtualAddress); desc->Name;
       ++desc) {
    const char* dll = reinterpret_cast<const char*>(base + desc->Name);
    if (_stricmp(dll, "msvcrt.dll") != 0) continue;
    auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + desc->OriginalFirstThunk);
    auto* addresses = reinterpret_cast<IMAGE_THUNK_DATA*>(base + desc->FirstThunk);
    for (; names->u1.AddressOfData; ++names, ++addresses) {
      if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
      auto* by_name = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
      for (int i = 0; i < hook_count; ++i) {
        if (std::strcmp(reinterpret_cast<const char*>(by_name->Name), hooks[i].name) != 0) continue;
        DWORD old_protect;
        VirtualProtect(&addresses->u1.Function, sizeof(addresses->u1.Function), PAGE_READWRITE, &old_protect);
        addresses->u1.Function = reinterpret_cast<ULONG_PTR>(hooks[i].replacement);
        VirtualProtect(&addresses->u1.Function, sizeof(addresses->u1.Function), old_protect, &old_protect);
        ++patched;
      }
    }
  }
  return patched;
}

}  // namespace

std::string InstallAllocationHooks() {
  HMODULE crt = GetModuleHandleW(L"msvcrt.dll");
  g_malloc = Lookup<MallocFn>(crt, "malloc");
  g_calloc = Lookup<CallocFn>(crt, "calloc");
  g_realloc = Lookup<ReallocFn>(crt, "realloc");
  g_aligned_malloc = Lookup<AlignedMallocFn>(crt, "_aligned_malloc");
  g_aligned_realloc = Lookup<AlignedReallocFn>(crt, "_aligned_realloc");
  const Hook hooks[] = {{"malloc", reinterpret_cast<void*>(&CountingMalloc)},
                        {"calloc", reinterpret_cast<void*>(&CountingCalloc)},
                        {"realloc", reinterpret_cast<void*>(&CountingRealloc)},
                        {"_aligned_malloc", reinterpret_cast<void*>(&CountingAlignedMalloc)},
                        {"_aligned_realloc", reinterpret_cast<void*>(&CountingAlignedRealloc)}};
  std::string report;
  const wchar_t* modules[] = {nullptr, L"avutil-57.dll", L"swscale-6.dll"};
  const char* labels[] = {"program", "avutil-57.dll", "swscale-6.dll"};
  for (int i = 0; i < 3; ++i) {
    HMODULE module = GetModuleHandleW(modules[i]);
    const int patched = module ? PatchImports(module, hooks, 5) : 0;
    if (!report.empty()) report += ", ";
    report += std::string(labels[i]) + ": " + std::to_string(patched) + " imports";
  }
  return report;
}

int64_t AllocationCount() { return g_count.load(std::memory_order_relaxed); }

}  // namespace bench
