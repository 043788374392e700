// Status codes: the table itself is the QuarzStatus enum of the public header, so hosts
// and the library read the same numbers.
#pragma once

#include <cstdint>

#include "quarz_linalg.h"

namespace ql {

using Status = int32_t;

// Mapping of a LAPACK info result: < 0 is an illegal argument, > 0 the routine's own
// failure, which the caller names.
inline Status FromInfo(int info, Status positive) {
  return info < 0 ? StatusKernelError : (info > 0 ? positive : StatusOk);
}

}  // namespace ql
