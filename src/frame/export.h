// The call frame shared by every export.
//
// An export runs its operation and then hands the status to the roles of its arguments:
// outputs are emptied and scalar results set to NaN when the status is negative, work
// handles are emptied on every return. The roles come from the export list, so no
// operation writes its own clean-up and none can forget one.
#pragma once

#include <cstdint>

#include "frame/array.h"
#include "frame/status.h"
#include "frame/traits.h"

namespace ql {

template <class T>
struct Out1 {
  ArrayHandle h;
  void Finish(Status s) const {
    if (s < 0) ClearVector<T>(h);
  }
};

template <class T>
struct Out2 {
  ArrayHandle h;
  void Finish(Status s) const {
    if (s < 0) ClearMatrix<T>(h);
  }
};

template <class T>
struct Work {
  ArrayHandle h;
  void Finish(Status) const { ClearVector<T>(h); }
};

template <class T>
struct ScalarOut {
  T* p;
  void Finish(Status s) const {
    if (s < 0 && p) *p = Elem<T>::NaN();
  }
};

// No exception crosses the C boundary: one that escapes an operation (it should not)
// becomes a kernel error and still goes through the clean-up.
template <class Op, class... Roles>
inline Status RunExport(Op&& op, const Roles&... roles) noexcept {
  Status s;
  try {
    s = op();
  } catch (...) {
    s = StatusKernelError;
  }
  (roles.Finish(s), ...);
  return s;
}

}  // namespace ql
