// Element traits: everything that differs between the element types.
#pragma once

#include <complex>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "quarz_linalg.h"

namespace ql {

template <class T>
struct IsComplex : std::false_type {};
template <class R>
struct IsComplex<std::complex<R>> : std::true_type {};

template <class T>
struct RealOfT {
  using type = T;
};
template <class R>
struct RealOfT<std::complex<R>> {
  using type = R;
};
template <class T>
using RealOf = typename RealOfT<T>::type;

// Reals per element: a complex element is its (re, im) pair.
template <class T>
constexpr int64_t RealsPer() {
  return IsComplex<T>::value ? 2 : 1;
}

template <class T>
struct ComplexOfT {
  using type = std::complex<T>;
};
template <class R>
struct ComplexOfT<std::complex<R>> {
  using type = std::complex<R>;
};
template <class T>
using ComplexOf = typename ComplexOfT<T>::type;

template <class T>
struct Elem;

// Fields shared by the floating types, by real type.
template <class T, int32_t Code, int32_t Offset1D>
struct FloatElem {
  using Real = RealOf<T>;
  static constexpr int32_t kTypeCode = Code;
  // Byte offset of the first element of a 1-D block: 8-byte scalars start 8-aligned.
  static constexpr int32_t kOffset1D = Offset1D;
  static constexpr bool kComplex = IsComplex<T>::value;
  static constexpr Real Epsilon() { return std::numeric_limits<Real>::epsilon(); }
  static constexpr Real Largest() { return std::numeric_limits<Real>::max(); }
  static constexpr Real RealNaN() { return std::numeric_limits<Real>::quiet_NaN(); }
  static constexpr T NaN() {
    if constexpr (kComplex) {
      return T(RealNaN(), RealNaN());
    } else {
      return RealNaN();
    }
  }
};

template <>
struct Elem<float> : FloatElem<float, QuarzTypeFloat, 4> {
  using C = float;
};
template <>
struct Elem<double> : FloatElem<double, QuarzTypeDouble, 8> {
  using C = double;
};
template <>
struct Elem<std::complex<float>> : FloatElem<std::complex<float>, QuarzTypeComplexFloat, 4> {
  using C = QuarzComplexFloat;
};
template <>
struct Elem<std::complex<double>> : FloatElem<std::complex<double>, QuarzTypeComplexDouble, 8> {
  using C = QuarzComplexDouble;
};
template <>
struct Elem<int32_t> {
  static constexpr int32_t kTypeCode = QuarzTypeInt32;
  static constexpr int32_t kOffset1D = 4;
};

// Every 2-D block has an 8-byte header, whatever its element type.
constexpr int32_t kOffset2D = 8;

// The double precision epsilon, for the tolerances that use it in every element type.
constexpr double kDoubleEpsilon = 2.220446049250313e-16;

// The C type of an element in the public header (identical layout).
template <class T>
using CElem = typename Elem<T>::C;

template <class T>
inline T* AsElem(CElem<T>* p) {
  static_assert(sizeof(CElem<T>) == sizeof(T) && alignof(CElem<T>) == alignof(T));
  return reinterpret_cast<T*>(p);
}
template <class T>
inline const T* AsElem(const CElem<T>* p) {
  return reinterpret_cast<const T*>(p);
}

// An element passed by value in the C type of the header.
template <class T>
inline T FromC(const CElem<T>& v) {
  T out;
  std::memcpy(static_cast<void*>(&out), &v, sizeof out);
  return out;
}

}  // namespace ql
