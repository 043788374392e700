// Late binding of the host runtime's functions.
//
// The host's NumericArrayResize and QSort are looked up by name in the host runtime
// module. The module is located on every call (the host may switch modules at any time,
// or give each thread its own through a TLS slot); a function is looked up once per
// module and the pair (module, address) is published as one immutable node, so a thread
// can never combine one module with another module's address. No host at all ends the
// process.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "quarz_linalg.h"

namespace ql {

// A host function as resolved in one module. Written once before it is published and
// never freed, so a reader that holds the pointer holds a consistent pair.
struct BoundHostFunction {
  void* module;
  void* address;
  // Modules the process had unloaded by then, as last seen: once more have gone, the
  // handle may name a different module loaded since, and the entry is not used.
  uint64_t unloads;
  const BoundHostFunction* older;  // entries made before this one
};

// One per host function: every module it has been resolved in, newest first (a short
// append-only list; alternating modules reuse their entries instead of looking up the
// name again), and the function's name.
template <size_t NameBytes>
struct HostFunctionBinding {
  std::atomic<const BoundHostFunction*> resolved;
  char name[NameBytes];
};

// The host runtime module by the search order (TLS slot, announced module, main
// program, libkort.so, libkoffrt.so), or null.
void* LocateHostRuntime();

// What binding asks of the operating system, one definition per platform
// (host_binding_linux.cpp, host_binding_windows.cpp); the rest is written once.
namespace host_os {

// The calling thread's value in TLS slot `index` (null when unset).
void* TlsValue(uint32_t index);
// The main program when it exports "gKORTVersion" or "AZNewHandle", else the already
// loaded libkort/koffrt runtime, else null. `announcements` counts the modules and TLS
// slots announced so far: an answer remembered under another count is not reused.
void* SearchLoadedRuntime(uint32_t announcements);
// The address of the function `name` exported by `module`, or null.
void* FunctionAddress(void* module, const char* name);
// Modules the process has unloaded, as last seen (cheap), and after asking the loader
// now. A resolved function made before the latest unload is not trusted. Both are 0 on a
// platform that does not track unloads.
uint64_t UnloadsSeen();
uint64_t ObserveUnloads();
// Tells the user (message box, or a line on stderr) and ends the process.
[[noreturn]] void Fatal(const char* text);

}  // namespace host_os

// The function's address in the current host module; never returns without one.
void* BindHostFunction(std::atomic<const BoundHostFunction*>& resolved, const char* name);

template <size_t N>
inline void* BindHostFunction(HostFunctionBinding<N>& record) {
  return BindHostFunction(record.resolved, record.name);
}

// Forwarders: bind, then call the host function with the caller's arguments. The host
// counts elements in an int32; callers check that their counts fit.
int32_t HostResize(int32_t typeCode, int32_t numDims, ArrayHandle* handle, int32_t count);
void HostQSort(void* base, int32_t count, int32_t elemSize, int (*compare)(const void*, const void*));

}  // namespace ql
