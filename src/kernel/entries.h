// The kernel's entry points as the library reaches them: one function pointer per
// routine, declared in namespace ql::kernel under the routine's own name and with its
// own type. The typed overloads call cblas_dgemm(...) or LAPACK_dgesdd(...) unqualified
// from inside this namespace, so those calls go through the pointers, which are bound
// from the kernel module loaded at attach (frame/kernel_loading.h), never from whatever
// BLAS the process happens to have linked.
#pragma once

#include <complex>

#ifndef lapack_complex_float
#define lapack_complex_float std::complex<float>
#define lapack_complex_double std::complex<double>
#endif
#include <cblas.h>
#include <lapack.h>

namespace ql::kernel {

#define QL_KERNEL_ENTRY(name) extern decltype(&::name) name;
#include "kernel/entries.inc"
#undef QL_KERNEL_ENTRY

// The kernel's optional release of the calling thread's buffers; null when it has none.
extern void (*thread_free_buffers)();

// Binds every entry through lookup(context, symbol). Returns null when all were found;
// otherwise the name of the first missing one, and every entry is left unbound.
const char* BindEntries(void* (*lookup)(void* context, const char* symbol), void* context);
void UnbindEntries();
// True while the entries are bound.
bool EntriesBound();

}  // namespace ql::kernel
