// Host arrays on the reference host runtime for the test and benchmark programs that
// call exports directly.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "kort.h"
#include "typed_api.h"

namespace qt {

// The reference host runtime this program links, by the file it was loaded from (an
// installed one carries its version in the name), or null.
inline void* LinkedKort() {
  Dl_info info;
  if (!dladdr(reinterpret_cast<void*>(&KortResizeCount), &info) || !info.dli_fname) return nullptr;
  return dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
}

template <class T> struct Real { using type = T; };
template <class R> struct Real<std::complex<R>> { using type = R; };
template <class T> using RealT = typename Real<T>::type;
template <class T> constexpr bool kIsComplex = !std::is_same_v<T, RealT<T>>;

template <class T> constexpr int32_t TypeCode();
template <> constexpr int32_t TypeCode<int32_t>() { return QuarzTypeInt32; }
template <> constexpr int32_t TypeCode<float>() { return QuarzTypeFloat; }
template <> constexpr int32_t TypeCode<double>() { return QuarzTypeDouble; }
template <> constexpr int32_t TypeCode<std::complex<float>>() { return QuarzTypeComplexFloat; }
template <> constexpr int32_t TypeCode<std::complex<double>>() { return QuarzTypeComplexDouble; }

template <class T> RealT<T> Eps() { return std::numeric_limits<RealT<T>>::epsilon(); }

// An owned host array of element type T and rank 1 or 2; freed on destruction.
template <class T>
class HostArray {
 public:
  static HostArray Vector(const std::vector<T>& v) {
    HostArray a(1, {static_cast<int32_t>(v.size())});
    if (!v.empty()) std::memcpy(a.data(), v.data(), v.size() * sizeof(T));
    return a;
  }
  static HostArray Matrix(int32_t rows, int32_t cols, const std::vector<T>& rowMajor = {}) {
    HostArray a(2, {rows, cols});
    if (!rowMajor.empty()) std::memcpy(a.data(), rowMajor.data(), rowMajor.size() * sizeof(T));
    return a;
  }
  HostArray(HostArray&& o) noexcept : h_(o.h_), rank_(o.rank_) { o.h_ = nullptr; }
  HostArray& operator=(HostArray&& o) noexcept {
    std::swap(h_, o.h_);
    std::swap(rank_, o.rank_);
    return *this;
  }
  ~HostArray() { KortArrayFree(h_); }

  ArrayHandle h() const { return h_; }
  operator ArrayHandle() const { return h_; }
  int32_t rank() const { return rank_; }
  int32_t dim(int i) const { return KortArrayDim(h_, i); }
  int64_t size() const { return rank_ == 1 ? dim(0) : int64_t{dim(0)} * dim(1); }
  T* data() const { return static_cast<T*>(KortArrayData(h_, TypeCode<T>(), rank_)); }

 private:
  HostArray(int32_t rank, std::vector<int32_t> dims) : rank_(rank) {
    h_ = KortArrayNew(TypeCode<T>(), rank, dims.data());
    EXPECT_NE(h_, nullptr);
  }
  ArrayHandle h_ = nullptr;
  int32_t rank_ = 1;
};

template <class T> HostArray<T> Vec(const std::vector<T>& v) { return HostArray<T>::Vector(v); }
template <class T> HostArray<T> Mat(int32_t r, int32_t c, const std::vector<T>& v = {}) {
  return HostArray<T>::Matrix(r, c, v);
}

// Random values in [-1, 1] (both parts for complex), reproducible per seed.
template <class T>
std::vector<T> RandomValues(size_t n, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<T> v(n);
  for (auto& e : v) {
    if constexpr (kIsComplex<T>) e = T(RealT<T>(u(gen)), RealT<T>(u(gen)));
    else e = T(u(gen));
  }
  return v;
}

}  // namespace qt
