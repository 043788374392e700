// One host work handle carved into several typed pieces.
//
// A routine that wants a value workspace, a real one and an int32 one gets all three
// from the single work handle its export passes: the pieces are added to a layout,
// the layout sizes the handle once and then hands out a typed pointer per piece.
//
//   WorkLayout<T> layout;
//   const auto w = layout.Add<T>(sizes.work);
//   const auto rw = layout.Add<RealOf<T>>(sizes.rwork);
//   const auto iw = layout.Add<int32_t>(sizes.iwork);
//   if (Status s = layout.Bind(workHandle); s != StatusOk) return s;
//   ... layout.Get(w), layout.Get(rw), layout.Get(iw) ...
//
// All sizes and offsets are int64. A layout whose total does not fit the host's int32
// element count is refused with StatusOutOfMemory before the host is asked.
#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "frame/array.h"
#include "frame/status.h"

namespace ql {

// `count` elements of T at byte `offset` from the layout's base.
template <class T>
struct WorkPiece {
  int64_t offset = 0;
  int64_t count = 0;
};

// E is the element type of the host work array. Each piece starts at a multiple of
// its own alignment in memory, not only relative to the first element: a 1-D float or
// complex-float block has its elements at byte 4, so a double piece in such a handle
// needs the base moved forward, and the layout reserves room for that.
template <class E>
class WorkLayout {
 public:
  // Reserves `count` elements of T behind the pieces added so far. A negative count,
  // or one beyond any host array, makes the whole layout too large.
  template <class T>
  WorkPiece<T> Add(int64_t count) {
    static_assert(std::is_trivially_copyable_v<T>, "work pieces are raw memory");
    constexpr int64_t align = alignof(T), size = sizeof(T);
    if (tooLarge_ || count < 0 || count > kMaxBytes / size) {
      tooLarge_ = true;
      return {};
    }
    const int64_t offset = (bytes_ + align - 1) / align * align;
    bytes_ = offset + count * size;
    // Both terms are at most kMaxBytes, so the sum cannot overflow; past kMaxBytes
    // nothing more is added.
    if (bytes_ > kMaxBytes) tooLarge_ = true;
    maxAlign_ = std::max(maxAlign_, align);
    return {offset, count};
  }

  // Elements of E the handle must hold, alignment room included. Above INT32_MAX when
  // the layout cannot be a host array.
  int64_t Elements() const {
    if (tooLarge_) return kMaxBytes;
    const int64_t size = sizeof(E);
    return (bytes_ + Slack() + size - 1) / size;
  }

  // Sizes the handle to Elements() (no host call when it already has that many) and
  // fixes the base of the pieces. A null handle is StatusKernelError, a layout too
  // large for the host StatusOutOfMemory without a host call, a refused resize
  // StatusOutOfMemory. The pointers stay valid until the handle is resized again.
  Status Bind(ArrayHandle h) {
    base_ = nullptr;
    if (!h) return StatusKernelError;
    const int64_t n = Elements();
    if (!HostCountFits(n)) return StatusOutOfMemory;
    E* data;
    if (Status s = ResizeVector<E>(h, n, &data); s != StatusOk) return s;
    char* p = reinterpret_cast<char*>(data);
    if (Slack() > 0) {
      const int64_t misalign = static_cast<int64_t>(reinterpret_cast<uintptr_t>(p) % maxAlign_);
      const int64_t shift = misalign == 0 ? 0 : maxAlign_ - misalign;
      // Only a host that does not align its own elements could need more.
      if (shift > Slack()) return StatusKernelError;
      p += shift;
    }
    base_ = p;
    return StatusOk;
  }

  // The piece's first element; null before a successful Bind.
  template <class T>
  T* Get(WorkPiece<T> piece) const {
    return base_ ? reinterpret_cast<T*>(base_ + piece.offset) : nullptr;
  }

 private:
  // Far above any host array (INT32_MAX elements of at most 16 bytes), far below
  // int64 overflow.
  static constexpr int64_t kMaxBytes = int64_t{1} << 40;

  // Bytes the base may have to move: the host aligns the block's elements to E only.
  int64_t Slack() const {
    constexpr int64_t own = alignof(E);
    return maxAlign_ > own ? maxAlign_ - own : 0;
  }

  int64_t bytes_ = 0;
  int64_t maxAlign_ = 1;
  bool tooLarge_ = false;
  char* base_ = nullptr;
};

}  // namespace ql
