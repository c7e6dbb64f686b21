#include "support/thread_starts.h"

#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace tarsio_test {

namespace {

using ThreadEntry = unsigned(__stdcall*)(void*);
using BeginThread = uintptr_t(__cdecl*)(void*, unsigned, ThreadEntry, void*, unsigned, unsigned*);

uintptr_t __cdecl Refuse(void* /*security*/, unsigned /*stackSize*/, ThreadEntry /*entry*/,
                         void* /*argument*/, unsigned /*flags*/, unsigned* /*id*/) {
  errno = EAGAIN;
  return 0;
}

template <typename T>
T* At(BYTE* base, ULONGLONG offset) {
  return reinterpret_cast<T*>(base + offset);
}

// std::thread uses libwinpthread. Returns the entry of that DLL's import table that holds the
// address of the runtime's function for starting threads.
ULONGLONG* StartAddress() {
  BYTE* const base = reinterpret_cast<BYTE*>(::GetModuleHandleW(L"libwinpthread-1.dll"));
  if (base == nullptr) std::abort();
  const auto* headers =
      At<IMAGE_NT_HEADERS>(base, static_cast<ULONGLONG>(At<IMAGE_DOS_HEADER>(base, 0)->e_lfanew));
  const DWORD imports =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (auto* module = At<IMAGE_IMPORT_DESCRIPTOR>(base, imports); module->Name != 0; ++module) {
    auto* name = At<IMAGE_THUNK_DATA>(base, module->OriginalFirstThunk);
    auto* address = At<IMAGE_THUNK_DATA>(base, module->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++address) {
      if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
      const auto* import = At<IMAGE_IMPORT_BY_NAME>(base, name->u1.AddressOfData);
      if (std::strcmp(reinterpret_cast<const char*>(import->Name), "_beginthreadex") == 0) {
        return &address->u1.Function;
      }
    }
  }
  std::abort();
}

// Returns the previous value.
ULONGLONG Exchange(ULONGLONG* slot, ULONGLONG value) {
  DWORD protection = 0;
  if (::VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection) == 0) std::abort();
  const ULONGLONG before = *slot;
  *slot = value;
  ::VirtualProtect(slot, sizeof *slot, protection, &protection);
  return before;
}

ULONGLONG before = 0;

}  // namespace

RefuseThreadStarts::RefuseThreadStarts() {
  const BeginThread refuse = &Refuse;
  before = Exchange(StartAddress(), reinterpret_cast<ULONGLONG>(refuse));
}

RefuseThreadStarts::~RefuseThreadStarts() { Exchange(StartAddress(), before); }

}  // namespace tarsio_test
