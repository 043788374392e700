// The call frame shared by every export.
//
// An export runs its operation and then hands the status to the roles of its arguments:
// outputs are emptied and scalar results set to their failure value when the status is
// negative, work handles are emptied on every return. The roles come from the export
// list, so no operation writes its own clean-up and none can forget one.
//
// Before the operation runs, the frame looks at which handles were passed twice. Two
// written handles (outputs, in-place arrays, work) that are the same handle cannot both
// be honoured: the second resize would move the block under the first one's pointer, so
// the call is refused with StatusKernelError. An input that is also written is read from
// a private copy of its block taken before the operation starts, so dTransposeH(A, A)
// transposes A in effect.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "frame/array.h"
#include "frame/kernel_loading.h"
#include "frame/status.h"
#include "frame/traits.h"

namespace ql {

// Every role reports the handle it writes (null when it writes none), so the frame can
// find handles passed twice, and checks what it can before the operation runs.

// A 2-D array read by an operation: rows x cols beyond the host's int32 element count
// cannot describe a real host block, so it is refused before anything reads it. A
// matrix the operation needs square is refused by the operation's own check of its
// shape, before it reads anything, when it is not square: that check comes first.
inline Status ReadableSize(ArrayHandle h, int rank, bool square) {
  const int32_t* s = SizesOf(h);
  if (rank != 2 || !s || s[0] < 1 || s[1] < 1 || (square && s[0] != s[1])) return StatusOk;
  return HostCountFits(int64_t{s[0]} * s[1]) ? StatusOk : StatusOutOfMemory;
}

// Outputs. An optional one (Optional true) may be null on the paths that leave it
// empty; a required one that is null fails the call with StatusKernelError even when
// the path would have left it empty (sizing a null handle to no elements succeeds, so
// the frame settles that after the operation, keeping the operation's own check order).
template <class T, bool Optional = false>
struct Out1 {
  ArrayHandle h;
  ArrayHandle Written() const { return h; }
  Status Check() const { return StatusOk; }
  void Finish(Status s) const {
    if (s < 0) ClearVector<T>(h);
  }
};

template <class T, bool Optional = false>
struct Out2 {
  ArrayHandle h;
  ArrayHandle Written() const { return h; }
  Status Check() const { return StatusOk; }
  void Finish(Status s) const {
    if (s < 0) ClearMatrix<T>(h);
  }
};

// An array read and then overwritten in place; Square: the operation rejects it unless
// it is square, before reading it.
template <class T, int Rank, bool Square = false>
struct Inout : Out2<T> {
  Status Check() const { return ReadableSize(this->h, Rank, Square); }
  void Finish(Status s) const {
    if (s >= 0) return;
    if constexpr (Rank == 2) {
      ClearMatrix<T>(this->h);
    } else {
      ClearVector<T>(this->h);
    }
  }
};

template <class T>
struct Work {
  ArrayHandle h;
  ArrayHandle Written() const { return h; }
  Status Check() const { return StatusOk; }
  void Finish(Status) const { ClearVector<T>(h); }
};

// A scalar result: set to `fail` (NaN for floating results) on a negative status.
template <class T>
struct ScalarOut {
  T* p;
  T fail;
  ArrayHandle Written() const { return nullptr; }
  Status Check() const { return StatusOk; }
  void Finish(Status s) const {
    if (s < 0 && p) *p = fail;
  }
};

// An input handle of rank 1 or 2. `h` is the export's own parameter, which the
// operation reads through the frame's lambda; when that handle is also written, it is
// pointed at a copy of the block (sizes and elements, as the sizes describe it; a
// negative size counts as 0). Square as for Inout.
template <class T, int Rank, bool Square = false>
struct In {
  ArrayHandle& h;
  ArrayHandle Written() const { return nullptr; }
  Status Check() const { return ReadableSize(h, Rank, Square); }
  void Finish(Status) const {}

  void Snapshot(std::unique_ptr<std::max_align_t[]>& storage, void*& block) const {
    const int32_t* s = SizesOf(h);
    if (!s) return;
    int64_t count = s[0] > 0 ? s[0] : 0;
    if constexpr (Rank == 2) count *= s[1] > 0 ? s[1] : 0;
    // Only a matrix the operation rejects unread gets here with more elements than a
    // host array holds (Check): its sizes are all there is to copy.
    if (!HostCountFits(count)) count = 0;
    const int64_t offset = Rank == 2 ? kOffset2D : Elem<T>::kOffset1D;
    const size_t bytes = static_cast<size_t>(offset + count * int64_t{sizeof(T)});
    storage.reset(new std::max_align_t[(bytes + sizeof(std::max_align_t) - 1) / sizeof(std::max_align_t)]);
    block = storage.get();
    std::memcpy(block, s, bytes);
    h = reinterpret_cast<ArrayHandle>(&block);
  }
};

template <class T>
struct IsInRole : std::false_type {};
template <class T, int Rank, bool Square>
struct IsInRole<In<T, Rank, Square>> : std::true_type {};

namespace frame {

template <class... Roles>
Status CheckSharing(const Roles&... roles) {
  const ArrayHandle written[] = {roles.Written()..., nullptr};
  constexpr size_t n = sizeof...(Roles);
  for (size_t i = 0; i < n; ++i) {
    for (size_t j = i + 1; j < n && written[i]; ++j) {
      if (written[i] == written[j]) return StatusKernelError;
    }
  }
  return StatusOk;
}

// Roles whose handle is emptied as a 2-D array.
template <class Role>
struct IsMatrixRole : std::false_type {};
template <class T, bool Optional>
struct IsMatrixRole<Out2<T, Optional>> : std::true_type {};
template <class T, bool Square>
struct IsMatrixRole<Inout<T, 2, Square>> : std::true_type {};

// A required output that is null fails a call that would otherwise stand.
template <class Role>
Status Settle(const Role&, Status s) {
  return s;
}
template <class T, bool Optional>
Status Settle(const Out1<T, Optional>& r, Status s) {
  return !Optional && !r.h && s >= 0 ? StatusKernelError : s;
}
template <class T, bool Optional>
Status Settle(const Out2<T, Optional>& r, Status s) {
  return !Optional && !r.h && s >= 0 ? StatusKernelError : s;
}

inline bool IsWritten(ArrayHandle h, const ArrayHandle* written, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (written[i] == h) return true;
  }
  return false;
}

}  // namespace frame

// Runs an export's operation inside the frame. No exception crosses the C boundary: a
// failed allocation of our own is StatusOutOfMemory, anything else that escapes (it
// should not) a kernel error; both still go through the clean-up. Without a loaded
// kernel (attach found none) every export is a kernel error, its outputs emptied.
template <class Op, class... Roles>
inline Status RunExport(Op&& op, Roles&&... roles) noexcept {
  constexpr size_t n = sizeof...(Roles);
  std::unique_ptr<std::max_align_t[]> copies[n + 1];
  void* blocks[n + 1] = {};
  Status s;
  try {
    s = KernelReady() ? frame::CheckSharing(roles...) : StatusKernelError;
    ((s = s == StatusOk ? roles.Check() : s), ...);
    if (s == StatusOk) {
      const ArrayHandle written[] = {roles.Written()..., nullptr};
      size_t k = 0;
      auto snapshot = [&](auto& role) {
        if constexpr (IsInRole<std::decay_t<decltype(role)>>::value) {
          if (role.h && frame::IsWritten(role.h, written, n)) role.Snapshot(copies[k], blocks[k]);
        }
        ++k;
      };
      (snapshot(roles), ...);
      s = op();
      ((s = frame::Settle(roles, s)), ...);
    }
  } catch (const std::bad_alloc&) {
    s = StatusOutOfMemory;
  } catch (...) {
    s = StatusKernelError;
  }
  // Matrix handles first: when a written handle was refused for being passed both as a
  // vector and as a matrix, emptying it as a matrix leaves both sizes 0, which reads as
  // empty at either rank; emptied as a vector first, its block would end after the first
  // size and the matrix clean-up would read past it.
  auto finish = [s](const auto& role, bool matrices) {
    if (frame::IsMatrixRole<std::decay_t<decltype(role)>>::value == matrices) role.Finish(s);
  };
  (finish(roles, true), ...);
  (finish(roles, false), ...);
  return s;
}

}  // namespace ql
