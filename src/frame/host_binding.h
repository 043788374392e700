// Late binding of the host runtime's functions.
//
// The host's NumericArrayResize and QSort are looked up by name in the host runtime
// module, found anew on every call (the host may switch modules at any time) and
// re-resolved only when that module changes. No host at all ends the process.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "quarz_linalg.h"

namespace ql {

// One per host function: the resolved address, the module it came from, its name.
template <size_t NameBytes>
struct HostFunctionBinding {
  std::atomic<void*> address;
  std::atomic<void*> module;
  char name[NameBytes];
};

// The host runtime module by the documented search order, or null.
void* LocateHostRuntime();

// The function's address for the current host module; never returns without one.
void* BindHostFunction(std::atomic<void*>& address, std::atomic<void*>& module, const char* name);

template <size_t N>
inline void* BindHostFunction(HostFunctionBinding<N>& record) {
  return BindHostFunction(record.address, record.module, record.name);
}

// Forwarders: bind, then call the host function with the caller's arguments.
int32_t HostResize(int32_t typeCode, int32_t numDims, ArrayHandle* handle, int64_t count);
void HostQSort(void* base, int32_t count, int32_t elemSize, int (*compare)(const void*, const void*));

}  // namespace ql
