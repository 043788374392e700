#include "frame/kernel_loading.h"

#include <cstring>
#include <utility>

#include "kernel/entries.h"

namespace ql {
namespace {

constexpr const char* kSwitch = "KMP_DUPLICATE_LIB_OK";
constexpr size_t kPathChars = 512;
// Module file names are read up to 511 characters; the registry value up to 500 bytes.
constexpr size_t kModulePathChars = 511;
constexpr uint32_t kConfigBytes = 500;
// The directory part of a module's file name must fit the 400 characters the path split
// allows it (a drive letter, on Windows, has a buffer of its own).
constexpr size_t kDirectoryChars = 400;

size_t Length(const PathChar* s) {
  size_t n = 0;
  while (s[n]) ++n;
  return n;
}

// Appends `tail` to the path in buffer[kPathChars]; false, with the buffer unchanged,
// when it does not fit. (A path that does not fit is a location that cannot be loaded
// from; it ends the attempt like a missing file.)
bool Append(PathChar* buffer, const PathChar* tail) {
  const size_t n = Length(buffer), m = Length(tail);
  if (n + m + 1 > kPathChars) return false;
  std::memcpy(buffer + n, tail, (m + 1) * sizeof(PathChar));
  return true;
}

bool AppendSeparator(PathChar* buffer) {
  const size_t n = Length(buffer);
  if (n > 0 && buffer[n - 1] == kPlatformNames.separator) return true;
  const PathChar sep[2] = {kPlatformNames.separator, 0};
  return Append(buffer, sep);
}

bool IsSeparator(PathChar c) {
#if defined(_WIN32)
  return c == L'\\' || c == L'/' || c == L':';
#else
  return c == '/';
#endif
}

// Cuts a module's full file name down to its directory (drive included), keeping the
// final separator. False when the directory is longer than the split allows.
bool ToDirectory(PathChar* path) {
  size_t end = Length(path);
  while (end > 0 && !IsSeparator(path[end - 1])) --end;
  size_t drive = 0;
#if defined(_WIN32)
  if (end >= 2 && path[1] == L':') drive = 2;
#endif
  if (end - drive >= kDirectoryChars) return false;
  path[end] = 0;
  return true;
}

bool EqualsTrue(const char* value) {
  const char* upper = "TRUE";
  for (size_t i = 0; i < 5; ++i) {
    char c = value[i];
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (c != upper[i]) return false;
  }
  return true;
}

void* KernelSymbol(void* context, const char* symbol) {
  auto* pair = static_cast<std::pair<Platform*, void*>*>(context);
  return pair->first->Symbol(pair->second, symbol);
}

// The OpenMP runtime, then the kernel, from `directory` (which ends in a separator).
// Nothing stays loaded unless both load and every kernel entry binds.
int LoadFrom(Platform& platform, LoaderState& state, const PathChar* directory) {
  PathChar path[kPathChars];
  path[0] = 0;
  if (!Append(path, directory) || !Append(path, kPlatformNames.openmp_runtime)) return 0;
  void* openmp = platform.Load(path);
  if (!openmp) return 0;
  path[0] = 0;
  void* kernel = nullptr;
  if (Append(path, directory) && Append(path, kPlatformNames.kernel)) kernel = platform.Load(path);
  if (!kernel) {
    platform.Unload(openmp);
    return 0;
  }
  // A kernel that lacks a routine the library calls is no kernel for it.
  std::pair<Platform*, void*> context{&platform, kernel};
  if (kernel::BindEntries(KernelSymbol, &context) != nullptr) {
    platform.Unload(kernel);
    platform.Unload(openmp);
    return 0;
  }
  state.openmp_runtime = openmp;
  state.kernel = kernel;
  return 1;
}

// The directory of the first loaded toolkit module (off Windows, then its private folder).
// Only the first module found counts: when its file name cannot be had, the configured
// directory is next.
int LoadFromModuleDirectory(Platform& platform, LoaderState& state) {
  for (const PathChar* name : kPlatformNames.toolkit_modules) {
    PathChar path[kPathChars] = {};
    switch (platform.ModulePath(name, path, kModulePathChars)) {
      case Platform::Lookup::kNotLoaded:
        continue;
      case Platform::Lookup::kFailed:
        return 0;
      case Platform::Lookup::kFound:
        path[kModulePathChars - 1] = 0;
        if (!ToDirectory(path) || !AppendSeparator(path)) return 0;
#if defined(_WIN32)
        return LoadFrom(platform, state, path);
#else
        if (LoadFrom(platform, state, path)) return 1;
        return Append(path, kPrivateFolder) && LoadFrom(platform, state, path);
#endif
    }
  }
  return 0;
}

int LoadFromConfiguredDirectory(Platform& platform, LoaderState& state) {
  PathChar path[kPathChars] = {};
  uint32_t got = 0;
  if (!platform.ReadRunTimeDirectory(path, kConfigBytes, &got) || got > kConfigBytes) return 0;
  // The stored value need not be terminated: one zero byte right behind the data.
  reinterpret_cast<unsigned char*>(path)[got] = 0;
  if (!AppendSeparator(path) || !Append(path, kPlatformNames.version_folder) || !AppendSeparator(path)) return 0;
  return LoadFrom(platform, state, path);
}

}  // namespace

int ProcessAttach(Platform& platform, LoaderState& state) {
  state.attached = 1;
  // The OpenMP runtime refuses to start beside another copy of itself unless told that
  // this is fine; the host may well carry one.
  if (platform.GetEnv(kSwitch, state.saved_switch, sizeof state.saved_switch) != 0) {
    if (!EqualsTrue(state.saved_switch)) {
      // Also taken for a value too long to keep, which reads as empty and so is not
      // put back at detach.
      state.replaced = 1;
      platform.SetEnv(kSwitch, "TRUE");
    }
  } else {
    platform.SetEnv(kSwitch, "TRUE");
  }
  if (LoadFromModuleDirectory(platform, state)) return 1;
  return LoadFromConfiguredDirectory(platform, state);
}

void ThreadDetach(const LoaderState& state) {
  if (state.kernel && kernel::thread_free_buffers) kernel::thread_free_buffers();
}

void ProcessDetach(Platform& platform, LoaderState& state) {
  if (state.kernel) kernel::UnbindEntries();
  if (state.kernel) platform.Unload(state.kernel);
  if (state.openmp_runtime) platform.Unload(state.openmp_runtime);
  state.kernel = nullptr;
  state.openmp_runtime = nullptr;
  if (state.replaced && state.saved_switch[0]) platform.SetEnv(kSwitch, state.saved_switch);
  state.replaced = 0;
}

LoaderState& ProcessLoaderState() {
  static LoaderState state{};
  return state;
}

}  // namespace ql
