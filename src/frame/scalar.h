// Writing a scalar result through the caller's pointer.
#pragma once

#include "frame/status.h"

namespace ql {

// A null result pointer is a missing required output.
template <class T>
inline Status Store(T* out, const T& value) {
  if (!out) return StatusKernelError;
  *out = value;
  return StatusOk;
}

}  // namespace ql
