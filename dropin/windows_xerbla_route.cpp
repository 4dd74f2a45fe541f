// Windows companions: argument errors reach the program's own XERBLA.
// Programs built against the reference libraries define XERBLA to react to a
// bad argument (the test programs check every position). The layer reports
// through the computational library's default handler, which vorn.dll
// imports; this redirects that one import, so that reports found by the
// layer and by the computational library alike go to the program's xerbla_,
// with the routine's name and a 32-bit position, as the reference library
// calls it. Without a program XERBLA the default handler reports as before.
// libblas.dll's route first offers each report to its CBLAS entries, which
// take it while one of them is in its call on this thread.
#include <windows.h>

#include <cstddef>
#include <cstring>

#ifdef VORN_DROPIN_CBLAS_REPORTS
extern "C" bool vorn_cblas_take_report(int fortran_position);
#endif

namespace {

using ProgramXerbla = void (*)(const char*, const int*, std::size_t);
using Handler = void (*)(const char*, const void*, int);

Handler library_handler = nullptr;
ProgramXerbla program_xerbla = nullptr;
// The other companion's route, when that one was loaded first.
Handler next = nullptr;

void route(const char* name, const void* position, int length) {
#ifdef VORN_DROPIN_CBLAS_REPORTS
  if (vorn_cblas_take_report(static_cast<int>(*static_cast<const long long*>(position)))) return;
#endif
  if (next != nullptr) {
    next(name, position, length);
    return;
  }
  if (program_xerbla == nullptr) {
    library_handler(name, position, length);
    return;
  }
  // The layer's reports carry a 64-bit position cell.
  const int info = static_cast<int>(*static_cast<const long long*>(position));
  program_xerbla(name, &info, static_cast<std::size_t>(length));
}

// The import address slot through which `importer` calls `entry` of `dll`.
void** import_slot(HMODULE importer, const char* dll, const char* entry) {
  auto* base = reinterpret_cast<unsigned char*>(importer);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  for (auto* d = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + dir.VirtualAddress); d->Name != 0; ++d) {
    if (_stricmp(reinterpret_cast<const char*>(base + d->Name), dll) != 0) continue;
    const auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + d->OriginalFirstThunk);
    auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + d->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++slots) {
      if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
      const auto* by_name = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
      if (std::strcmp(reinterpret_cast<const char*>(by_name->Name), entry) == 0)
        return reinterpret_cast<void**>(&slots->u1.Function);
    }
  }
  return nullptr;
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  DisableThreadLibraryCalls(instance);
  HMODULE layer = GetModuleHandleA("vorn.dll");
  void** slot = layer != nullptr ? import_slot(layer, "mkl_intel_thread.dll", "mkl_serv_default_xerbla") : nullptr;
  // Both companions carry this; the second one loaded finds the first's
  // route in the slot and passes on to it what it does not take.
  HMODULE owner = nullptr;
  const DWORD flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (slot == nullptr || !GetModuleHandleExA(flags, static_cast<LPCSTR>(*slot), &owner) || owner == instance)
    return TRUE;
  Handler current = reinterpret_cast<Handler>(*slot);
  const bool first = owner == GetModuleHandleA("mkl_intel_thread.dll");
  if (first && GetModuleHandleA(nullptr) != nullptr)
    program_xerbla = reinterpret_cast<ProgramXerbla>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA(nullptr), "xerbla_")));
  DWORD old = 0;
  if (!VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &old)) return TRUE;
  (first ? library_handler : next) = current;
  *slot = reinterpret_cast<void*>(&route);
  VirtualProtect(slot, sizeof *slot, old, &old);
  return TRUE;
}
