// Shared objects are loaded under their file names, which an installed library carries
// with its version (libquarz_linalg.so.1, libkort.so.1.0.0): a module is known by its
// name with or without such a suffix.
#pragma once

#include <cstring>

namespace ql {

// True when `file` (a file name without directory) is `name` or `name` followed by a
// version suffix of dots and digits.
inline bool SameModule(const char* file, const char* name) {
  const size_t n = std::strlen(name);
  if (std::strncmp(file, name, n) != 0) return false;
  const char* rest = file + n;
  if (*rest == 0) return true;
  if (*rest != '.' || rest[1] == 0) return false;
  for (; *rest; ++rest) {
    if (*rest != '.' && (*rest < '0' || *rest > '9')) return false;
  }
  return true;
}

}  // namespace ql
