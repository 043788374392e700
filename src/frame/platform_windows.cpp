// The kernel loader's platform on Windows and the library's entry point: DllMain runs
// attach on process attach (a failed attach fails the load), the per-thread buffer
// release on thread detach, and unload and restore on process detach.
#include <windows.h>

#include <cstdlib>
#include <cstring>

#include "frame/kernel_loading.h"
#include "kernel/entries.h"

namespace ql {
namespace {

class WindowsPlatform final : public Platform {
 public:
  size_t GetEnv(const char* name, char* buffer, size_t size) override {
    size_t required = 0;
    buffer[0] = 0;
    getenv_s(&required, buffer, size, name);  // too small: ERANGE, empty buffer, size needed
    return required;
  }

  void SetEnv(const char* name, const char* value) override { _putenv_s(name, value); }

  Lookup ModulePath(const wchar_t* name, wchar_t* path, size_t size) override {
    HMODULE module = GetModuleHandleW(name);
    if (!module) return Lookup::kNotLoaded;
    const DWORD n = GetModuleFileNameW(module, path, static_cast<DWORD>(size));
    if (n == 0 || n >= size) return Lookup::kFailed;  // failed, or cut short
    return Lookup::kFound;
  }

  bool ReadRunTimeDirectory(wchar_t* path, uint32_t bytes, uint32_t* got) override {
    HKEY key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvane\\Korvo\\13.0\\AddOns\\Quarz Toolkit", 0, 0x20019, &key) !=
        ERROR_SUCCESS) {
      return false;
    }
    DWORD size = bytes;
    // A failed read leaves the key open, as the toolkit's other modules do.
    if (RegQueryValueExW(key, L"RunTimeDIR64", nullptr, nullptr, reinterpret_cast<BYTE*>(path), &size) !=
        ERROR_SUCCESS) {
      return false;
    }
    RegCloseKey(key);
    *got = size;
    return true;
  }

  // 8: LOAD_WITH_ALTERED_SEARCH_PATH, the module's own directory first for its imports.
  void* Load(const wchar_t* path) override { return LoadLibraryExW(path, nullptr, 8); }
  void Unload(void* module) override { FreeLibrary(static_cast<HMODULE>(module)); }
  void* Symbol(void* module, const char* name) override {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
  }
};

}  // namespace

// The loader refuses the library when attach fails, so a loaded library has its kernel.
bool KernelReady() noexcept { return kernel::EntriesBound(); }

}  // namespace ql

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  ql::WindowsPlatform platform;
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      return ql::ProcessAttach(platform, ql::ProcessLoaderState()) ? TRUE : FALSE;
    case DLL_THREAD_ATTACH:
      return TRUE;
    case DLL_THREAD_DETACH:
      ql::ThreadDetach(ql::ProcessLoaderState());
      return TRUE;
    case DLL_PROCESS_DETACH:
      ql::ProcessDetach(platform, ql::ProcessLoaderState());
      return TRUE;
  }
  return TRUE;
}
