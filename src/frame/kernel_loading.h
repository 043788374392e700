// Loading the math kernel when the process loads the library, and unloading it again.
//
// Attach sets the OpenMP runtime's duplicate-library switch KMP_DUPLICATE_LIB_OK to
// TRUE, finds the toolkit's run-time directory (the directory of the first loaded
// toolkit module or, off Windows, its private folder quarz_linalg/, else the configured
// run-time directory plus its version folder), loads
// the OpenMP runtime and then the kernel from there, and binds the kernel's entries
// (kernel/entries.h) from the loaded kernel. Detach unloads both and puts back a value of
// the switch that attach replaced. Thread detach lets the kernel release the ending
// thread's buffers.
//
// The platform's loader notifications (DllMain on Windows, the load constructor, unload
// destructor and a thread-exit hook on Linux) call these with the process's state.
#pragma once

#include <cstdint>

#include "frame/platform.h"

namespace ql {

struct LoaderState {
  char saved_switch[8];  // the switch's earlier value, when it fitted (7 characters)
  int32_t replaced;      // attach overwrote a value that existed before
  int32_t attached;
  void* openmp_runtime;
  void* kernel;
};

// 1 when the OpenMP runtime and the kernel are loaded and bound, else 0 (nothing is left
// loaded then).
int ProcessAttach(Platform& platform, LoaderState& state);
void ThreadDetach(const LoaderState& state);
void ProcessDetach(Platform& platform, LoaderState& state);

// The process's own state, used by the platform's notifications.
LoaderState& ProcessLoaderState();

// Whether the kernel is there to be called; every export asks first. Defined by each
// platform's notifications (on Linux it also arms the calling thread's exit hook).
bool KernelReady() noexcept;

}  // namespace ql
