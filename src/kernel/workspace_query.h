// Workspace queries: a LAPACK routine called with lwork = -1 (and likewise lrwork,
// liwork) does no work and reports the workspace it wants in the first element of
// each work array. This is the one place that runs such a query and turns the
// reports into element counts.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "frame/status.h"
#include "frame/traits.h"
#include "kernel/lapack.h"

namespace ql::kernel {

// Element counts of the workspaces a routine may take: work (element type), rwork
// (real type; complex routines) and iwork (lapack_int).
struct WorkspaceSizes {
  int64_t work = 0;
  int64_t rwork = 0;
  int64_t iwork = 0;
};

// Reported sizes are capped here; anything this large is refused later anyway, and
// the cap keeps the conversion to an integer defined.
constexpr int64_t kQueryCap = int64_t{1} << 62;

// An element count from a size reported in a floating-point work element. From
// 2^digits on, the real type no longer holds every integer and the routine may have
// stored its size rounded down (by at most half a unit in the last place); one
// relative epsilon up covers that. Smaller values are exact and taken as they are.
// NaN, zero and negative values count as 0.
template <class R>
int64_t CountFromQuery(R value) {
  static_assert(std::is_floating_point_v<R>);
  if (!(value > 0)) return 0;
  constexpr double exact = static_cast<double>(int64_t{1} << std::numeric_limits<R>::digits);
  double v = static_cast<double>(value);
  if (v >= exact) v *= 1 + static_cast<double>(std::numeric_limits<R>::epsilon());
  if (v >= static_cast<double>(kQueryCap)) return kQueryCap;
  return static_cast<int64_t>(std::ceil(v));
}

inline int64_t CountFromQuery(lapack_int value) { return value > 0 ? value : 0; }

// Runs `routine` as a workspace query and gives, for each workspace, the larger of
// the reported size and the documented minimum (the report alone is not trusted).
//
// The routine is called as
//   routine(T* work, lapack_int lwork, RealOf<T>* rwork, lapack_int lrwork,
//           lapack_int* iwork, lapack_int liwork)
// with every size -1 and returns info. A routine that has no rwork or iwork takes
// the rest as `auto...` and ignores it; a workspace that it does not report keeps its
// minimum (say iwork of gesdd, fixed at 8 min(m, n)):
//
//   QueryWorkspace<T>([&](T* w, lapack_int lw, auto...) {
//     return kernel::geqrf(m, n, a, m, tau, w, lw);
//   }, {std::max(1, n)}, &sizes);
//
// Any info but 0 means the routine refused an argument: StatusKernelError.
template <class T, class Routine>
Status QueryWorkspace(Routine&& routine, const WorkspaceSizes& minimum, WorkspaceSizes* sizes) {
  T work[1] = {T(0)};
  RealOf<T> rwork[1] = {0};
  lapack_int iwork[1] = {0};
  const lapack_int info = routine(work, lapack_int{-1}, rwork, lapack_int{-1}, iwork, lapack_int{-1});
  if (info != 0) return StatusKernelError;
  sizes->work = std::max(minimum.work, CountFromQuery(std::real(work[0])));
  sizes->rwork = std::max(minimum.rwork, CountFromQuery(rwork[0]));
  sizes->iwork = std::max(minimum.iwork, CountFromQuery(iwork[0]));
  return StatusOk;
}

}  // namespace ql::kernel
