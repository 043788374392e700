"""Python host for libquarz_linalg.

Two layers:
- `quarz_linalg.raw`: every export of the library under its own name with its exact C
  argument list (handles are HostArray objects, scalars by value, outputs by pointer),
  generated from the export list at import time;
- numpy-style functions: dot, norm, mean, rms, matmul, matvec, vecmat, outer, kron,
  transpose, trace, special, lu, cholesky, solve, det.

The libraries are found through QUARZ_LINALG_LIBDIR, else <repo>/build, else the
system loader path.
"""
from ._library import KORT_PATH, LIB_DIR, LIB_PATH, EXPORTS_PATH, HEADER_PATH, kort, lib
from ._status import (QuarzError, QuarzWarning, STATUS_CODES, STATUS_NAMES, status_name)
from ._host import (HostArray, LETTERS, INT32_CODE, element_offset, letter_of,
                    live_handles, live_bytes, resize_count, fail_resize_at)
from ._exports import (ROWS, EXPORTS, MISSING, ComplexFloat, ComplexDouble, raw,
                       available, invoke, check_status, parse_export_list)
from .api import (dot, norm, mean, rms, matmul, matvec, vecmat, outer, kron, transpose,
                  trace, special, lu, cholesky, det, solve, SPECIAL_KINDS, MATRIX_KINDS)

__all__ = [
    "QuarzError", "QuarzWarning", "raw", "invoke", "HostArray",
    "dot", "norm", "mean", "rms", "matmul", "matvec", "vecmat", "outer", "kron",
    "transpose", "trace", "special", "lu", "cholesky", "det", "solve",
]
