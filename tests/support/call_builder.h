// One call of any export of the list, built from a short argument text: shared by the
// contract suite, the fuzzer and the many-threads run.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "kort.h"
#include "support/export_table.h"

namespace qt {

using C = std::complex<double>;

inline bool IsSingle(int32_t code) { return code == QuarzTypeFloat || code == QuarzTypeComplexFloat; }

// One element token of an argument text: a number, nan, inf, big (the largest finite value of the
// element's real type), below (the value just under it), each optionally negative, and a
// trailing j for an imaginary part.
inline C Token(std::string t, int32_t code) {
  const bool imag = !t.empty() && t.back() == 'j';
  if (imag) t.pop_back();
  const bool neg = !t.empty() && t[0] == '-';
  const std::string w = neg ? t.substr(1) : t;
  const double big = IsSingle(code) ? double(std::numeric_limits<float>::max()) : std::numeric_limits<double>::max();
  double v = w == "nan" ? std::nan("") : w == "inf" ? HUGE_VAL : w == "big" ? big
           : w == "below" ? (IsSingle(code) ? double(std::nextafter(float(big), 0.0f)) : std::nextafter(big, 0.0))
           : std::strtod(w.c_str(), nullptr);
  if (neg) v = -v;
  return imag ? C(0, v) : C(v, 0);
}

// Stores v as element i of a block of the given type; an int32 element takes the value
// clamped to its range (0 for NaN), since the conversion is undefined outside it.
inline void Put(void* data, int32_t code, int64_t i, C v) {
  const double r = std::isnan(v.real()) ? 0 : std::clamp(v.real(), double(INT32_MIN), double(INT32_MAX));
  switch (code) {
    case QuarzTypeInt32: static_cast<int32_t*>(data)[i] = int32_t(r); break;
    case QuarzTypeFloat: static_cast<float*>(data)[i] = float(v.real()); break;
    case QuarzTypeDouble: static_cast<double*>(data)[i] = v.real(); break;
    case QuarzTypeComplexFloat: static_cast<std::complex<float>*>(data)[i] = std::complex<float>(v); break;
    case QuarzTypeComplexDouble: static_cast<C*>(data)[i] = v; break;
  }
}

// Named fills of an r x c block: hpd (diagonally dominant Hermitian), rand, sing (rank
// one, singular in exact arithmetic and for LU), indef (symmetric indefinite), zero.
inline C Fill(const std::string& kind, int64_t i, int64_t j) {
  if (kind == "hpd") return i == j ? C(8, 0) : C(1.0 / double(1 + i + j), 0.1 * double(j - i));
  if (kind == "sing") return C(double((i + 1) * (j + 1)), 0);
  if (kind == "indef") return C(i == j ? 1 : 2, 0);
  if (kind == "zero") return C(0, 0);
  const uint64_t s = (uint64_t(i) * 2654435761u + uint64_t(j) * 40503u + 17) % 1000;
  return C(double(s) / 500.0 - 1.0, double((s * 7) % 1000) / 1000.0 - 0.5);
}

inline std::map<std::string, std::string> ParseArgs(const std::string& argText) {
  std::map<std::string, std::string> out;
  std::istringstream in(argText);
  std::string item;
  while (in >> item) {
    const size_t eq = item.find('=');
    out[item.substr(0, eq)] = item.substr(eq + 1);
  }
  return out;
}

inline int64_t LiveHandles() { return KortLiveHandles(); }
inline int64_t LiveBytes() { return KortLiveBytes(); }

// One call of an export with every argument built from an argument text ("A=3x3:sing y=null
// matrixType=2 x=@A"); arguments the text does not name get valid defaults, and output
// and work handles arrive holding stale data, as a host's arrays may.
class Call {
 public:
  Call(const ExportEntry& e, const std::string& argText) : e_(e), slots_(size_t(e.nargs)) {
    const auto given = ParseArgs(argText);
    for (int k = 0; k < e.nargs; ++k) {
      const auto it = given.find(e.args[k].name);
      Make(k, it != given.end() ? it->second : Default(e.args[k]));
    }
    for (auto& s : slots_) {
      if (s.alias.empty()) continue;
      s.v.h = slots_[size_t(Index(s.alias))].v.h;
      s.claimed = slots_[size_t(Index(s.alias))].claimed;  // its sizes claim more than its block
    }
    for (size_t k = 0; k < slots_.size(); ++k) {
      if (e_.args[k].role == Role::In && !slots_[k].claimed && !SharedWithWritten(k)) slots_[k].before = Bytes(slots_[k].v.h, e_.args[k]);
    }
  }
  ~Call() {
    for (auto& s : slots_) {
      if (s.alias.empty() && IsHandle(s.role)) KortArrayFree(s.v.h);
    }
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  int32_t Run() {
    std::vector<ArgValue> v;
    for (auto& s : slots_) v.push_back(s.v);
    return status_ = e_.call(v.data());
  }

  // What the frame promises after any return with the status of the last Run: one line
  // per broken promise, empty when all hold.
  std::string Violations() const {
    std::string out;
    auto fail = [&](const ArgSpec& a, const char* what) { out += std::string(a.name) + ": " + what + "\n"; };
    for (size_t k = 0; k < slots_.size(); ++k) {
      const ArgSpec& a = e_.args[k];
      const Slot& s = slots_[k];
      if (s.v.h && (a.role == Role::Work || (status_ < 0 && IsWritten(a.role)))) {
        if (!(KortArrayDim(s.v.h, 0) == 0 && (a.rank == 1 || KortArrayDim(s.v.h, 1) == 0))) fail(a, "not emptied");
      }
      if (!s.before.empty() && Bytes(s.v.h, a) != s.before) fail(a, "input changed");
      if (status_ >= 0 || !s.v.p) continue;
      if (a.role == Role::ElemOut || a.role == Role::RealOut) {
        const bool single = IsSingle(a.code), complex = a.role == Role::ElemOut && a.code >= QuarzTypeComplexFloat;
        for (int part = 0; part < (complex ? 2 : 1); ++part) {
          if (!(single ? std::isnan(static_cast<const float*>(s.v.p)[part]) : std::isnan(static_cast<const double*>(s.v.p)[part]))) {
            fail(a, "not NaN");
          }
        }
      } else if (a.role == Role::IntOut && *static_cast<const int32_t*>(s.v.p) != a.fail) {
        fail(a, "not its failure value");
      }
    }
    return out;
  }
  void ExpectContract() const { EXPECT_EQ(Violations(), "") << "status " << status_; }

  // The status of the last Run, then the sizes and elements of everything it writes for
  // the caller (outputs, in-place arrays, scalar results), for comparing two calls.
  std::vector<unsigned char> Results() const {
    std::vector<unsigned char> out(reinterpret_cast<const unsigned char*>(&status_),
                                   reinterpret_cast<const unsigned char*>(&status_ + 1));
    for (int k = 0; k < e_.nargs; ++k) {
      const Role r = e_.args[k].role;
      std::vector<unsigned char> b;
      if (r == Role::Out || r == Role::Inout) b = Output(k);
      if ((r == Role::ElemOut || r == Role::RealOut || r == Role::IntOut) && slots_[size_t(k)].v.p) {
        const auto* p = static_cast<const unsigned char*>(slots_[size_t(k)].v.p);
        b.assign(p, p + sizeof(Slot::scalar));
      }
      out.insert(out.end(), b.begin(), b.end());
    }
    return out;
  }

  // Sizes and elements of argument `name`, for comparing two calls.
  std::vector<unsigned char> Output(int k) const { return Bytes(slots_[size_t(k)].v.h, e_.args[k]); }

 private:
  struct Slot {
    Role role;
    ArgValue v{};
    unsigned char scalar[16];
    std::string alias;
    bool claimed = false;
    std::vector<unsigned char> before;
  };

  int Index(const std::string& name) const {
    for (int k = 0; k < e_.nargs; ++k) {
      if (name == e_.args[k].name) return k;
    }
    ADD_FAILURE() << "no argument " << name;
    return 0;
  }

  bool SharedWithWritten(size_t k) const {
    for (size_t j = 0; j < slots_.size(); ++j) {
      if (j != k && slots_[j].v.h == slots_[k].v.h && IsWritten(e_.args[j].role)) return true;
    }
    return false;
  }

  static std::string Default(const ArgSpec& a) {
    if (a.preset) return a.preset;
    switch (a.role) {
      case Role::In:
      case Role::Inout: return a.rank == 2 ? "4x4:hpd" : "4:rand";
      case Role::Out:
      case Role::Work: return a.rank == 2 ? "2x2:rand" : "2:rand";
      case Role::Ignored:
      case Role::Module: return "null";
      case Role::Int: return a.option >= 0 ? std::to_string(kOptionTables[a.option].values[0]) : "4";
      case Role::Real: return "2";
      default: return "1";
    }
  }

  static std::vector<unsigned char> Bytes(ArrayHandle h, const ArgSpec& a) {
    if (!h || !*h) return {};
    int64_t count = std::max(KortArrayDim(h, 0), 0);
    if (a.rank == 2) count *= std::max(KortArrayDim(h, 1), 0);
    // The sizes, then the elements; not the padding of a 1-D block, which nobody writes.
    const auto* p = reinterpret_cast<const unsigned char*>(*h);
    std::vector<unsigned char> out(p, p + 4 * a.rank);
    p += KortElementOffset(a.code, a.rank);
    out.insert(out.end(), p, p + count * KortElementSize(a.code));
    return out;
  }

  static constexpr int32_t kNoHeader = std::numeric_limits<int32_t>::min();

  static void ParseDims(const std::string& shape, int rank, int32_t* dims) {
    dims[0] = int32_t(std::strtol(shape.c_str(), nullptr, 10));
    if (rank == 2) dims[1] = int32_t(std::strtol(shape.c_str() + shape.find('x') + 1, nullptr, 10));
  }

  void Make(int k, const std::string& v) {
    const ArgSpec& a = e_.args[k];
    Slot& s = slots_[size_t(k)];
    s.role = a.role;
    std::memset(s.scalar, 0x55, sizeof s.scalar);
    if (v == "null") return;
    if (!IsHandle(a.role)) {
      if (a.role == Role::Int) s.v.i = int32_t(std::strtoll(v.c_str(), nullptr, 10));
      else if (a.role == Role::Uint) s.v.u = uint32_t(std::strtoul(v.c_str(), nullptr, 10));
      else if (a.role == Role::Real) s.v.r = Token(v, a.code).real();
      else s.v.p = s.scalar;
      if (a.role == Role::Elem || a.role == Role::ElemIn || a.role == Role::RealIn) Put(s.scalar, a.code, 0, Token(v, a.code));
      // An int32 result may be read first (an iteration limit): it starts at the value given.
      if (a.role == Role::IntOut) Put(s.scalar, QuarzTypeInt32, 0, Token(v, QuarzTypeInt32));
      return;
    }
    if (v[0] == '@') {
      s.alias = v.substr(1);
      return;
    }
    // Sizes "r", "rxc", an explicit "[a,b;c,d]", or "!rxc": sizes claimed over a 1-element block.
    std::vector<std::vector<std::string>> rows;
    int32_t dims[2] = {0, 1}, header[2] = {kNoHeader, 1};
    std::string fill = "rand";
    if (v[0] == '[') {
      std::stringstream in(v.substr(1, v.size() - 2));
      std::string row, item;
      while (std::getline(in, row, ';')) {
        rows.emplace_back();
        std::stringstream r(row);
        while (std::getline(r, item, ',')) rows.back().push_back(item);
      }
      dims[0] = int32_t(a.rank == 2 ? rows.size() : rows[0].size());
      dims[1] = int32_t(a.rank == 2 ? rows[0].size() : 1);
    } else {
      s.claimed = v[0] == '!';
      std::string shape = v.substr(s.claimed, v.find(':') - s.claimed);
      if (v.find(':') != std::string::npos) fill = v.substr(v.find(':') + 1);
      // "rxc/RxC": an r x c block whose sizes read R x C (at most what it holds).
      if (shape.find('/') != std::string::npos) {
        ParseDims(shape.substr(shape.find('/') + 1), a.rank, header);
        shape.erase(shape.find('/'));
      }
      ParseDims(shape, a.rank, dims);
    }
    const int32_t stored[2] = {s.claimed ? 1 : std::max(dims[0], 0), s.claimed ? 1 : std::max(dims[1], 0)};
    if (header[0] != kNoHeader) std::memcpy(dims, header, sizeof dims);
    s.v.h = KortArrayNew(a.code, a.rank, stored);
    void* data = KortArrayData(s.v.h, a.code, a.rank);
    for (int64_t i = 0; i < stored[0]; ++i) {
      for (int64_t j = 0; j < (a.rank == 2 ? stored[1] : 1); ++j) {
        const C x = rows.empty() ? Fill(fill, i, j) : Token(a.rank == 2 ? rows[size_t(i)][size_t(j)] : rows[0][size_t(i)], a.code);
        Put(data, a.code, i * (a.rank == 2 ? stored[1] : 1) + j, x);
      }
    }
    std::memcpy(*s.v.h, dims, sizeof(int32_t) * size_t(a.rank));
  }

  const ExportEntry& e_;
  std::vector<Slot> slots_;
  int32_t status_ = 0;
};

}  // namespace qt
