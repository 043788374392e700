// What loading the math kernel needs from the operating system, as one small interface,
// so that attach and detach (frame/kernel_loading.h) are written once for every platform
// and can be driven by a fake in tests.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ql {

#if defined(_WIN32)
using PathChar = wchar_t;  // paths are the wide strings of the module and registry calls
#define QL_PATH(text) L##text
#else
using PathChar = char;
#define QL_PATH(text) text
#endif

class Platform {
 public:
  enum class Lookup { kNotLoaded, kFailed, kFound };

  // Reads an environment variable into buffer[size] the way the C runtime's secure read
  // does: returns 0 when it is unset, else the size it needs including the terminator;
  // when that exceeds `size` the buffer holds the empty string.
  virtual size_t GetEnv(const char* name, char* buffer, size_t size) = 0;
  virtual void SetEnv(const char* name, const char* value) = 0;
  // The full file name of the loaded module called `name` into path[size].
  virtual Lookup ModulePath(const PathChar* name, PathChar* path, size_t size) = 0;
  // The toolkit's run-time directory from the configuration store, at most `bytes` bytes
  // of it, not necessarily terminated; *got receives the number of bytes stored.
  virtual bool ReadRunTimeDirectory(PathChar* path, uint32_t bytes, uint32_t* got) = 0;
  // Loads a library by full path, its own directory searched for its dependencies.
  virtual void* Load(const PathChar* path) = 0;
  virtual void Unload(void* module) = 0;
  virtual void* Symbol(void* module, const char* name) = 0;

 protected:
  ~Platform() = default;
};

// The names attach looks for, in the order it looks. The toolkit's modules are its
// libraries as the platform names them (this library is the second); the OpenMP runtime
// and the kernel keep their names, in the platform's spelling of a shared library.
struct PlatformNames {
  const PathChar* toolkit_modules[4];
  const PathChar* openmp_runtime;
  const PathChar* kernel;
  const PathChar* version_folder;  // below the configured run-time directory
  PathChar separator;
};

#if defined(_WIN32)
inline constexpr PlatformNames kPlatformNames = {
    {L"QUARZ_FFT.dll", L"QUARZ_LINALG.dll", L"QUARZ_SPARSE.dll", L"QUARZ_THREAD.dll"},
    L"libiomp5md.dll", L"quarz_core_130000.dll", L"13.0.0", L'\\'};
#else
inline constexpr PlatformNames kPlatformNames = {
    {"libquarz_fft.so", "libquarz_linalg.so", "libquarz_sparse.so", "libquarz_thread.so"},
    "libiomp5.so", "libquarz_core_130000.so", "13.0.0", '/'};
// An installed library keeps the two modules in this folder beside it rather than in its
// own directory, which is on the loader's default path, where a generic name such as
// libiomp5.so belongs to whichever package shipped it first.
inline constexpr const PathChar* kPrivateFolder = "quarz_linalg/";
#endif

}  // namespace ql
