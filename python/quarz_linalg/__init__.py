"""Python host for libquarz_linalg.

Two layers:
- `quarz_linalg.raw`: every export of the library under its own name with its exact C
  argument list (handles are HostArray objects, scalars by value, outputs by pointer),
  bound at import time from the kind table that the build writes beside the library;
- numpy-style functions: dot, norm, mean, rms, matmul, matvec, vecmat, outer, kron,
  transpose, trace, special, lu, cholesky, solve, det; svd, matrix_norm, cond,
  matrix_rank, inv, pinv; lstsq; matrix_power; expm, sqrtm, logm; linear_fit.

`invoke(name, *inputs)` runs any export by the roles of its arguments, `op(name)` an
operation in the element type of its inputs. The libraries are found through
QUARZ_LINALG_LIBDIR, else <repo>/build, else the system loader path; the calls go through
the compiled bridge built beside them (BRIDGE_PATH), else through ctypes
(QUARZ_LINALG_BRIDGE=0 chooses ctypes, =1 insists on the bridge). The import leaves numpy's
allocator alone; with the bridge, `with host_layout():` (or set_host_layout(True), or
QUARZ_LINALG_HOST_LAYOUT=1 at import) lays out numpy arrays allocated in that context so
that the exports read them in place.
"""
from ._library import (KORT_PATH, LIB_DIR, LIB_PATH, KIND_TABLE, KIND_TABLE_PATH, kort, lib, host_layout,
                       set_host_layout)
from ._status import QuarzError, QuarzWarning, STATUS_CODES, STATUS_NAMES, status_name
from ._host import (HostArray, LETTERS, INT32_CODE, element_offset, letter_of, type_code,
                    live_handles, live_bytes, resize_count, fail_resize_at)
from ._exports import (EXPORTS, OPTIONS, MISSING, ComplexFloat, ComplexDouble, raw,
                       available, invoke, check_status, option_value)
from ._exports import op, BRIDGE_PATH
from .api import (dot, norm, mean, rms, matmul, matvec, vecmat, outer, kron, transpose,
                  trace, special, lu, cholesky, det, solve)
from .svd import svd, matrix_norm, cond, matrix_rank, inv, pinv
from .eigen import eig, eigvals, eigh, eigvalsh
from .decompositions import qr, schur, qz, ordqz
from .lstsq import lstsq
from .power import matrix_power
from .matfun import expm, sqrtm, logm, fractional_matrix_power
from .fit import LinearFit, linear_fit
from .subspaces import null_space, orth
from .reductions import hessenberg, matrix_balance
from .condest import rcond
from .sylvester import solve_sylvester, solve_continuous_lyapunov, solve_discrete_lyapunov

# The loaded library's version, from the kind table its build wrote.
__version__ = KIND_TABLE.get("version", "0.0.0")

__all__ = [
    "QuarzError", "QuarzWarning", "raw", "invoke", "op", "HostArray", "OPTIONS", "host_layout",
    "set_host_layout",
    "dot", "norm", "mean", "rms", "matmul", "matvec", "vecmat", "outer", "kron",
    "transpose", "trace", "special", "lu", "cholesky", "det", "solve",
    "svd", "matrix_norm", "cond", "matrix_rank", "inv", "pinv", "lstsq", "matrix_power",
    "expm", "sqrtm", "logm", "fractional_matrix_power", "linear_fit", "LinearFit", "null_space", "orth",
    "hessenberg", "matrix_balance", "rcond",
    "solve_sylvester", "solve_continuous_lyapunov", "solve_discrete_lyapunov",
]
