// What binding asks of Windows: TLS slots, module handles by name, exported functions,
// and the fatal message box. Unloads are not tracked here: a module handle is taken to
// name the same module for the life of the process.
#include <windows.h>

#include "frame/host_binding.h"

namespace ql::host_os {

void* TlsValue(uint32_t index) { return TlsGetValue(index); }

// Asked afresh on every call: no answer is remembered, so announcements do not matter.
void* SearchLoadedRuntime(uint32_t) {
  HMODULE main = GetModuleHandleA(nullptr);
  if (main && (GetProcAddress(main, "gKORTVersion") || GetProcAddress(main, "AZNewHandle"))) return main;
  if (HMODULE kort = GetModuleHandleA("kort.dll")) return kort;
  return GetModuleHandleA("koffrt.dll");
}

void* FunctionAddress(void* module, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

uint64_t UnloadsSeen() { return 0; }
uint64_t ObserveUnloads() { return 0; }

void Fatal(const char* text) {
  MessageBoxA(nullptr, text, "Fatal Error", 0x2010);
  ExitProcess(1);
}

}  // namespace ql::host_os
