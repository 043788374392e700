// Straight-line fit f(x) = slope x + intercept to n points (x[i], y[i]), optionally
// weighted: least squares in closed form, least absolute residual, and a robust
// bisquare fit by iteratively reweighted least squares with leverage adjustment. The
// best fit replaces the observed values in Y. Real element types only; no kernel calls.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/array.h"
#include "frame/host_binding.h"
#include "frame/status.h"
#include "frame/traits.h"

namespace ql {

namespace fit {

template <class T>
struct Line {
  T slope, intercept;
};

template <class T>
inline bool IsFinite(const Line<T>& l) {
  return std::isfinite(l.slope) && std::isfinite(l.intercept);
}

// The observed points and the caller's weights (null when the fit is unweighted, which
// includes weights that are all zero).
template <class T>
struct Points {
  const T* x;
  const T* y;
  const T* w;
  int32_t n;
};

// Finite and not +-largest: the extreme values make the sums overflow.
template <class T>
inline bool Usable(T v) {
  return std::isfinite(v) && std::fabs(v) != Elem<T>::Largest();
}

template <class T>
Status CheckPoints(const Points<T>& p) {
  if (p.n < 2) return StatusParameterTooSmall;
  for (int32_t i = 0; i < p.n; ++i) {
    if (!Usable(p.x[i]) || !Usable(p.y[i])) return StatusNotFinite;
  }
  return StatusOk;
}

// A NaN weight is refused; one non-zero weight cannot carry a line; all zero means
// unweighted (p.w is dropped). Infinite weights are accepted as they are.
template <class T>
Status CheckWeights(Points<T>& p) {
  if (!p.w) return StatusOk;
  int32_t zeros = 0;
  for (int32_t i = 0; i < p.n; ++i) {
    if (std::isnan(p.w[i])) return StatusNotFinite;
    zeros += p.w[i] == 0;
  }
  if (zeros == p.n - 1) return StatusZeroParameter;
  if (zeros == p.n) p.w = nullptr;
  return StatusOk;
}

// 1 / max |w|, the factor that normalises the weights to at most 1.
template <class T>
T WeightScale(const T* w, int32_t n) {
  T largest = 0;
  for (int32_t i = 0; i < n; ++i) largest = std::max(largest, std::fabs(w[i]));
  return T(1) / largest;
}

// |w| / max |w| into out, which may be w itself.
template <class T>
void NormaliseWeights(const T* w, int32_t n, T* out) {
  const T scale = WeightScale(w, n);
  for (int32_t i = 0; i < n; ++i) out[i] = std::fabs(w[i]) * scale;
}

// The least-squares line from the plain sums, weighted by wn (normalised) or not. No
// test of the denominator: equal x give non-finite coefficients.
template <class T>
Line<T> LeastSquaresLine(const T* x, const T* y, const T* wn, int32_t n) {
  T s = 0, sx = 0, sxx = 0, sy = 0, sxy = 0;
  if (wn) {
    for (int32_t i = 0; i < n; ++i) {
      s += wn[i];
      sx += wn[i] * x[i];
      sxx += wn[i] * x[i] * x[i];
      sy += wn[i] * y[i];
      sxy += wn[i] * x[i] * y[i];
    }
    const T slope = (sy * sx - s * sxy) / (sx * sx - s * sxx);
    return {slope, (sy - slope * sx) / s};
  }
  for (int32_t i = 0; i < n; ++i) {
    sx += x[i];
    sxx += x[i] * x[i];
    sy += y[i];
    sxy += x[i] * y[i];
  }
  const T count = T(n), den = sx * sx - count * sxx;
  return {(sy * sx - count * sxy) / den, (sxy * sx - sy * sxx) / den};
}

// The line through the first two points.
template <class T>
Line<T> LineThroughTwo(const Points<T>& p) {
  const T slope = (p.y[1] - p.y[0]) / (p.x[1] - p.x[0]);
  return {slope, p.y[0] - slope * p.x[0]};
}

// sum |w'[i] (y[i] - f(x[i]))|, w' = |w| / max |w| or 1.
template <class T>
T SumAbsResiduals(const Points<T>& p, const Line<T>& l) {
  const T scale = p.w ? WeightScale(p.w, p.n) : T(1);
  T sum = 0;
  for (int32_t i = 0; i < p.n; ++i) {
    const T r = p.y[i] - (l.slope * p.x[i] + l.intercept);
    sum += std::fabs((p.w ? std::fabs(p.w[i]) * scale : T(1)) * r);
  }
  return sum;
}

// Writes f[i] over y[i] and returns the residue: the mean weighted squared residual, or
// for least absolute residual the mean weighted absolute residual (taken before the
// values are overwritten).
template <class T>
T WriteBestFit(const Points<T>& p, T* y, const Line<T>& l, bool absolute) {
  T residue = absolute ? SumAbsResiduals(p, l) : T(0);
  const T scale = p.w ? WeightScale(p.w, p.n) : T(1);
  for (int32_t i = 0; i < p.n; ++i) {
    const T f = l.slope * p.x[i] + l.intercept;
    const T d = f - y[i];
    if (!absolute) residue += (p.w ? std::fabs(p.w[i]) * scale : T(1)) * d * d;
    y[i] = f;
  }
  return residue / T(p.n);
}

// ---- Least absolute residual ------------------------------------------------------------

// Ascending order for the host's QSort: 1, -1 or 0 for greater, smaller, equal.
template <class T>
int CompareReals(const void* a, const void* b) {
  T u, v;
  std::memcpy(&u, a, sizeof u);
  std::memcpy(&v, b, sizeof v);
  return u > v ? 1 : (u < v ? -1 : 0);
}

// Sorts m (candidate, weight) pairs by candidate: partitions around a median of three,
// leaving runs shorter than 7 to one insertion pass at the end. The smaller side is
// recursed into, so the depth stays below log2 m.
template <class T>
void SortPairs(T* p, int32_t m) {
  auto swap = [p](int32_t i, int32_t j) {
    std::swap(p[2 * i], p[2 * j]);
    std::swap(p[2 * i + 1], p[2 * j + 1]);
  };
  struct Sorter {
    T* p;
    decltype(swap)& sw;
    void Run(int32_t lo, int32_t hi) {  // [lo, hi]
      while (hi - lo + 1 >= 7) {
        const int32_t mid = lo + (hi - lo) / 2;
        if (p[2 * mid] < p[2 * lo]) sw(mid, lo);
        if (p[2 * hi] < p[2 * lo]) sw(hi, lo);
        if (p[2 * hi] < p[2 * mid]) sw(hi, mid);
        const T pivot = p[2 * mid];
        int32_t i = lo, j = hi;
        while (i <= j) {
          while (p[2 * i] < pivot) ++i;
          while (pivot < p[2 * j]) --j;
          if (i <= j) sw(i++, j--);
        }
        if (j - lo < hi - i) {
          Run(lo, j);
          lo = i;
        } else {
          Run(i, hi);
          hi = j;
        }
      }
    }
  };
  Sorter{p, swap}.Run(0, m - 1);
  for (int32_t i = 1; i < m; ++i) {
    for (int32_t j = i; j > 0 && p[2 * j] < p[2 * (j - 1)]; --j) swap(j, j - 1);
  }
}

// One pass about the pivot (px, py): the best line through the pivot minimises
// sum w'[i] |x[i] - px| |c[i] - slope| with the candidates c[i] = (y[i] - py) / (x[i] - px),
// so its slope is their weighted median (the smallest candidate at which the weight at
// or below it reaches half the total). Points at x = px do not depend on the slope and
// give no candidate. Returns false when there is no usable candidate; otherwise the
// slope and the index of a point that gave it (with positive weight).
template <class T>
bool MedianSlope(const Points<T>& p, const T* wn, T px, T py, T* scratch, T* slope, int32_t* point) {
  auto candidate = [&](int32_t i) { return (p.y[i] - py) / (p.x[i] - px); };
  auto weight = [&](int32_t i) { return (wn ? wn[i] : T(1)) * std::fabs(p.x[i] - px); };
  int32_t m = 0;
  T total = 0;
  for (int32_t i = 0; i < p.n; ++i) {
    if (p.x[i] == px) continue;
    const T c = candidate(i);
    if (std::isnan(c)) return false;  // an overflow: no order to take a median in
    if (wn) {
      scratch[2 * m] = c;
      scratch[2 * m + 1] = weight(i);
    } else {
      scratch[m] = c;
    }
    total += weight(i);
    ++m;
  }
  if (m == 0 || !(total > 0) || !std::isfinite(total)) return false;
  if (wn) {
    SortPairs(scratch, m);
    T below = 0;
    int32_t k = 0;
    for (; k < m - 1; ++k) {
      below += scratch[2 * k + 1];
      if (2 * below >= total) break;
    }
    *slope = scratch[2 * k];
  } else {
    // The host sorts the bare candidates; the weight at or below a candidate is summed
    // over the points again, and that sum grows along the sorted order.
    HostQSort(scratch, m, static_cast<int32_t>(sizeof(T)), &CompareReals<T>);
    auto weightUpTo = [&](T v) {
      T sum = 0;
      for (int32_t i = 0; i < p.n; ++i) {
        if (p.x[i] != px && candidate(i) <= v) sum += weight(i);
      }
      return sum;
    };
    int32_t lo = 0, hi = m - 1;
    while (lo < hi) {
      const int32_t mid = lo + (hi - lo) / 2;
      if (2 * weightUpTo(scratch[mid]) >= total) {
        hi = mid;
      } else {
        lo = mid + 1;
      }
    }
    *slope = scratch[lo];
  }
  *point = -1;
  for (int32_t i = 0; i < p.n && *point < 0; ++i) {
    if (p.x[i] != px && candidate(i) == *slope && weight(i) > 0) *point = i;
  }
  return *point >= 0;
}

// Descent through pivot points: the first pass turns the least-squares line about its
// point at x = 0, so the candidates are (y[i] - intercept) / x[i]; every later pass turns
// the line about the data point that the previous median came from. A line that is
// best among those through two of its points is the least-absolute-residual line (when
// no third point lies on it), and the sum of absolute residuals never grows, so the
// passes stop once a pass no longer lowers it. They also stop when both tolerances are
// met: `tolerance` bounds the relative change of slope and intercept, `tolerance2` the
// relative decrease of the sum of absolute residuals. At most max(maxPasses, 1) passes.
template <class T>
Line<T> LeastAbsoluteLine(const Points<T>& p, const T* wn, T tolerance, T tolerance2, int32_t maxPasses, T* scratch,
                          int32_t* passes) {
  Line<T> line = LeastSquaresLine(p.x, p.y, wn, p.n);
  int32_t k = 0;
  if (IsFinite(line)) {
    T px = 0, py = line.intercept;
    T sum = SumAbsResiduals(p, line);
    for (;;) {
      ++k;
      T slope;
      int32_t point;
      if (!MedianSlope(p, wn, px, py, scratch, &slope, &point)) break;
      const Line<T> next{slope, py - slope * px};
      const T nextSum = SumAbsResiduals(p, next);
      // The first pivot is no data point: its best line is taken even without a gain (and
      // the tolerances are not applied), since only turns about data points can show
      // that no better line exists.
      if (!IsFinite(next) || (k > 1 && !(nextSum < sum))) break;
      const bool settled = k > 1 && std::fabs(next.slope - line.slope) <= tolerance * std::fabs(line.slope) &&
                           std::fabs(next.intercept - line.intercept) <= tolerance * std::fabs(line.intercept) &&
                           sum - nextSum <= tolerance2 * sum;
      line = next;
      sum = nextSum;
      px = p.x[point];
      py = p.y[point];
      if (settled || k >= maxPasses) break;
    }
  }
  *passes = k;
  return line;
}

// ---- Bisquare -------------------------------------------------------------------------

// NaN sorts last, so a median of overflowed values is still taken over a strict order.
template <class T>
inline bool OrderedLess(T a, T b) {
  return a < b || (std::isnan(b) && !std::isnan(a));
}

// Median of v (reordered); for an even count the mean of the two middle values.
template <class T>
T Median(T* v, int32_t n) {
  const int32_t h = n / 2;
  std::nth_element(v, v + h, v + n, OrderedLess<T>);
  if (n % 2) return v[h];
  const T lower = *std::max_element(v, v + h, OrderedLess<T>);
  return lower / 2 + v[h] / 2;  // halves: no overflow near the largest value
}

// Iteratively reweighted least squares with bisquare weights on leverage-adjusted
// residuals. Scratch: residuals | adjustment factors | weights, 3 n elements.
template <class T>
Line<T> BisquareLine(const Points<T>& p, T tolerance, int32_t maxIter, T* scratch, int32_t* iterations) {
  const int32_t n = p.n;
  T* r = scratch;
  T* adjust = scratch + n;
  T* wt = scratch + 2 * n;
  const T* wn = nullptr;
  if (p.w) {
    NormaliseWeights(p.w, n, wt);
    wn = wt;
  }
  // Leverage of each point in the (weighted) straight-line design.
  T s = 0, sx = 0;
  for (int32_t i = 0; i < n; ++i) {
    s += wn ? wn[i] : T(1);
    sx += (wn ? wn[i] : T(1)) * p.x[i];
  }
  const T mean = sx / s;
  T sxx = 0;
  for (int32_t i = 0; i < n; ++i) sxx += (wn ? wn[i] : T(1)) * (p.x[i] - mean) * (p.x[i] - mean);
  for (int32_t i = 0; i < n; ++i) {
    const T h = (wn ? wn[i] : T(1)) * (T(1) / s + (p.x[i] - mean) * (p.x[i] - mean) / sxx);
    const T rest = h > T(0.999) ? T(0.0010000000000000009) : T(1) - h;
    adjust[i] = std::sqrt((p.w ? std::fabs(p.w[i]) : T(1)) / rest);
  }
  Line<T> line = LeastSquaresLine(p.x, p.y, wn, n);
  // The lines of the last kCycle steps, line k - j at [(k - j) % kCycle], and the
  // largest |x|, which turns a change of the coefficients into one of the fitted values.
  constexpr int32_t kCycle = 64;
  Line<T> seen[kCycle];
  seen[0] = line;
  T reach = 0;
  for (int32_t i = 0; i < n; ++i) reach = std::max(reach, std::fabs(p.x[i]));
  int32_t k = 0;
  while (IsFinite(line)) {
    ++k;
    for (int32_t i = 0; i < n; ++i) r[i] = (p.y[i] - line.slope * p.x[i] - line.intercept) * adjust[i];
    // Scale: median absolute deviation from the median, or from 0 when the median lies
    // beyond every deviation; their mean when that median is 0.
    std::copy(r, r + n, wt);
    const T m = Median(wt, n);
    T largest = 0;
    for (int32_t i = 0; i < n; ++i) {
      wt[i] = std::fabs(r[i] - m);
      largest = std::max(largest, wt[i]);
    }
    if (std::fabs(m) >= largest) {
      for (int32_t i = 0; i < n; ++i) wt[i] = std::fabs(r[i]);
    }
    T sum = 0;
    for (int32_t i = 0; i < n; ++i) sum += wt[i];
    T scale = Median(wt, n);
    if (scale == 0) scale = sum / T(n);
    if (scale == 0) break;
    // Bisquare weights, times the caller's. The count of zero weights is taken after the
    // caller's weights are applied: a line from fewer than two weighted points has no
    // meaning, whichever factor made the others zero.
    int32_t zeros = 0;
    for (int32_t i = 0; i < n; ++i) {
      const T u = r[i] * T(0.6745) / (T(4.685) * scale);
      T v = std::fabs(u) < 1 ? (1 - u * u) * (1 - u * u) : T(0);
      if (p.w) v *= std::fabs(p.w[i]);
      wt[i] = v;
      zeros += v == 0;
    }
    if (zeros >= n - 1) break;
    NormaliseWeights(wt, n, wt);
    const Line<T> last = line;
    line = LeastSquaresLine(p.x, p.y, wt, n);
    if (k >= maxIter) break;
    if (std::fabs(line.slope - last.slope) <= tolerance * std::fabs(last.slope) ||
        std::fabs(line.intercept - last.intercept) <= tolerance * std::fabs(last.intercept)) {
      break;
    }
    // Each step depends on the current line alone. Once the fitted values are back,
    // to a few roundings, at those of `period` steps ago, the lines go round with that
    // period (failing the tests above every time, and circling in their last bits, at
    // times for billions of steps) until the limit: finish at once with the line of the
    // cycle that the limit falls on.
    int32_t period = 0;
    const T noise = 8 * Elem<T>::Epsilon() * (std::fabs(line.slope) * reach + std::fabs(line.intercept));
    for (int32_t j = 1; j <= std::min(k, kCycle) && !period; ++j) {
      const Line<T>& old = seen[(k - j) % kCycle];
      if (std::fabs(line.slope - old.slope) * reach + std::fabs(line.intercept - old.intercept) <= noise) period = j;
    }
    if (period) {
      if ((maxIter - k) % period != 0) line = seen[(k - period + (maxIter - k) % period) % kCycle];
      k = maxIter;
      break;
    }
    seen[k % kCycle] = line;
  }
  *iterations = k;
  return line;
}

// Writes the line through the two points (any method, no iteration).
template <class T>
Status FitTwoPoints(const Points<T>& p, T* y, bool absolute, Line<T>* line, T* residue, int32_t* iterations) {
  *line = LineThroughTwo(p);
  *residue = WriteBestFit(p, y, *line, absolute);
  *iterations = 0;
  return StatusOk;
}

}  // namespace fit

// Methods: 0 least squares, 1 least absolute residual, 2 bisquare. Check order: method,
// lengths of Y and W against X, missing result pointers, then each method's own checks.
// The iterative methods read their limit from *iterations and write back the count.
//
// The order of method 1's checks differs from the others: two points are fitted before
// the x = 0 count and before the weights are looked at, so there a NaN weight or a
// single non-zero weight is not refused. Tolerances that are not positive (NaN
// included) take their defaults.
template <class T>
Status LinearFitH(ArrayHandle Y, ArrayHandle X, ArrayHandle W, T* slope, T* intercept, T* residue, int32_t method,
                  T tolerance, T tolerance2, int32_t* iterations, ArrayHandle scratch) {
  static_assert(!IsComplex<T>::value, "the linear fit is real");
  if (static_cast<uint32_t>(method) > static_cast<uint32_t>(QuarzLinearFitMethodBisquare)) return StatusBadOption;
  const VectorView<T> x = ReadVector<T>(X), y = ReadVector<T>(Y), w = ReadVector<T>(W);
  if (y.n != x.n || (w.n != 0 && w.n != x.n)) return StatusSizeMismatch;
  if (!slope || !intercept || !residue || !iterations) return StatusKernelError;
  fit::Points<T> p{x.data, y.data, w.n ? w.data : nullptr, x.n};
  const int32_t limit = *iterations;
  fit::Line<T> line{};
  Status s = fit::CheckPoints(p);
  if (s != StatusOk) return s;

  if (method == QuarzLinearFitMethodLeastAbsolute) {
    if (p.n == 2) {
      // Weights are not yet checked here: use them for the residue only when they can be.
      bool usable = p.w != nullptr;
      T largest = 0;
      for (int32_t i = 0; usable && i < p.n; ++i) {
        usable = !std::isnan(p.w[i]);
        largest = std::max(largest, std::fabs(p.w[i]));
      }
      if (!usable || largest == 0) p.w = nullptr;
      s = fit::FitTwoPoints(p, y.data, true, &line, residue, iterations);
    } else {
      int32_t zeros = 0;
      for (int32_t i = 0; i < p.n; ++i) zeros += p.x[i] == 0;
      if (zeros > 1) return StatusFitData;
      if ((s = fit::CheckWeights(p)) != StatusOk) return s;
      T* work = nullptr;
      if ((s = ResizeVector<T>(scratch, p.w ? 3 * int64_t{p.n} : p.n, &work)) != StatusOk) return s;
      T* wn = nullptr;
      if (p.w) {
        fit::NormaliseWeights(p.w, p.n, work);
        wn = work;
        work += p.n;
      }
      const T tol = tolerance > 0 ? tolerance : T(1e-12), tol2 = tolerance2 > 0 ? tolerance2 : T(0.0001);
      line = fit::LeastAbsoluteLine(p, wn, tol, tol2, limit, work, iterations);
      *residue = fit::WriteBestFit(p, ReadVector<T>(Y).data, line, true);
    }
  } else {
    if ((s = fit::CheckWeights(p)) != StatusOk) return s;
    if (method == QuarzLinearFitMethodLeastSquares) {
      T* wn = nullptr;
      if (p.w) {
        if ((s = ResizeVector<T>(scratch, p.n, &wn)) != StatusOk) return s;
        fit::NormaliseWeights(p.w, p.n, wn);
      }
      line = fit::LeastSquaresLine(p.x, p.y, wn, p.n);
      *iterations = 0;
      *residue = fit::WriteBestFit(p, ReadVector<T>(Y).data, line, false);
    } else if (p.n == 2) {
      s = fit::FitTwoPoints(p, y.data, false, &line, residue, iterations);
    } else {
      T* work = nullptr;
      if ((s = ResizeVector<T>(scratch, 3 * int64_t{p.n}, &work)) != StatusOk) return s;
      const T tol = tolerance > 0 ? tolerance : T(0.0001);
      line = fit::BisquareLine(p, tol, limit, work, iterations);
      *residue = fit::WriteBestFit(p, ReadVector<T>(Y).data, line, false);
    }
  }
  *slope = line.slope;
  *intercept = line.intercept;
  return s;
}

}  // namespace ql
