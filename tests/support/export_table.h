// The tests' view of every export: its arguments by role and a thunk that calls it from
// an array of generic values, generated from the export list.
#pragma once

#include <cstdint>

#include "quarz_linalg.h"

namespace qt {

enum class Role { In, Out, Inout, Work, Ignored, Int, Uint, Real, Elem, Module, ElemIn, RealIn, ElemOut, RealOut, IntOut };

struct ArgSpec {
  const char* name;
  Role role;
  int rank;      // 1 or 2 for handles, 0 for scalars
  int32_t code;  // host type code of the handle's or scalar's element (0: none)
  int option;    // index into kOptionTables, or -1
  int32_t fail;  // value an int_out result takes on failure
  bool optional; // a work handle or output that paths not using it accept as null
  const char* preset;  // argument text of a generic call, when the list names one
  bool pinned;         // any value but the preset makes the caller answerable for memory safety
  bool square;         // a matrix the operation rejects, before reading it, unless square
};

union ArgValue {
  ArrayHandle h;
  int32_t i;
  uint32_t u;
  double r;
  void* p;
};

struct OptionTable {
  const char* name;
  int count;
  int32_t values[8];
};

struct ExportEntry {
  const char* name;
  const char* op;
  char letter;
  int nargs;
  ArgSpec args[24];
  int32_t (*call)(const ArgValue*);
};

inline bool IsHandle(Role r) { return r <= Role::Ignored; }
inline bool IsWritten(Role r) { return r == Role::Out || r == Role::Inout || r == Role::Work; }

#include "export_table.inc"

}  // namespace qt
