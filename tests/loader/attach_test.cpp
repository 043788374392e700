// Attach and detach through a fake platform: which variables are set and put back, which
// locations are tried in which order, and what is left loaded.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "frame/kernel_loading.h"
#include "kernel/entries.h"

namespace {

int g_buffers_freed = 0;
void FreeBuffers() { ++g_buffers_freed; }
void AnyEntry() {}

constexpr const char* kSwitch = "KMP_DUPLICATE_LIB_OK";
constexpr const char* kFails = "<fails>";

class FakePlatform final : public ql::Platform {
 public:
  std::map<std::string, std::string> env;
  std::map<std::string, std::string> modules;  // name -> full path, or kFails
  bool config_exists = false, config_readable = true;
  std::string config_value;
  std::set<std::string> files;           // paths that load
  std::string missing_symbol;            // a kernel entry the kernel lacks
  bool has_free_buffers = false;
  std::vector<std::string> log;          // "load <path>", "unload <path>"
  std::vector<std::string> handles;      // handle i + 1 is the module loaded from handles[i]

  size_t GetEnv(const char* name, char* buffer, size_t size) override {
    buffer[0] = 0;
    auto it = env.find(name);
    if (it == env.end()) return 0;
    if (it->second.size() + 1 <= size) std::strcpy(buffer, it->second.c_str());
    return it->second.size() + 1;
  }
  void SetEnv(const char* name, const char* value) override { env[name] = value; }
  Lookup ModulePath(const char* name, char* path, size_t size) override {
    auto it = modules.find(name);
    if (it == modules.end()) return Lookup::kNotLoaded;
    if (it->second == kFails || it->second.size() + 1 > size) return Lookup::kFailed;
    std::strcpy(path, it->second.c_str());
    return Lookup::kFound;
  }
  bool ReadRunTimeDirectory(char* path, uint32_t bytes, uint32_t* got) override {
    if (!config_exists || !config_readable || config_value.size() > bytes) return false;
    std::memcpy(path, config_value.data(), config_value.size());  // unterminated, as stored
    *got = static_cast<uint32_t>(config_value.size());
    return true;
  }
  void* Load(const char* path) override {
    log.push_back(std::string("load ") + path);
    if (!files.count(path)) return nullptr;
    handles.push_back(path);
    return reinterpret_cast<void*>(handles.size());
  }
  void Unload(void* module) override {
    log.push_back("unload " + handles.at(reinterpret_cast<size_t>(module) - 1));
  }
  void* Symbol(void*, const char* name) override {
    if (name == missing_symbol) return nullptr;
    if (std::strcmp(name, "MKL_Thread_Free_Buffers") == 0) {
      return has_free_buffers ? reinterpret_cast<void*>(&FreeBuffers) : nullptr;
    }
    return reinterpret_cast<void*>(&AnyEntry);
  }

  void Provide(const std::string& dir) {
    files.insert(dir + "libiomp5.so");
    files.insert(dir + "libquarz_core_130000.so");
  }
};

// ---- The OpenMP switch -----------------------------------------------------------------

struct SwitchCase {
  const char* name;
  const char* before;  // nullptr: unset
  const char* during;
  const char* after;   // nullptr: unset
};

class Switch : public ::testing::TestWithParam<SwitchCase> {};

TEST_P(Switch, SetDuringTheLibrarysLifeAndPutBackWhenReplaced) {
  const SwitchCase& c = GetParam();
  FakePlatform p;
  if (c.before) p.env[kSwitch] = c.before;
  p.modules["libquarz_linalg.so"] = "/q/libquarz_linalg.so";
  p.Provide("/q/");
  ql::LoaderState state{};
  ASSERT_EQ(ql::ProcessAttach(p, state), 1);
  EXPECT_EQ(p.env[kSwitch], c.during);
  ql::ProcessDetach(p, state);
  if (c.after) {
    EXPECT_EQ(p.env[kSwitch], c.after);
  } else {
    EXPECT_EQ(p.env.count(kSwitch), 0u);
  }
}

INSTANTIATE_TEST_SUITE_P(Loader, Switch, ::testing::Values(
    SwitchCase{"LowerCaseTrueKept", "true", "true", "true"},
    SwitchCase{"ZeroReplacedAndRestored", "0", "TRUE", "0"},
    SwitchCase{"SevenCharactersRestored", "1234567", "TRUE", "1234567"},
    SwitchCase{"UnsetSetAndKept", nullptr, "TRUE", "TRUE"},
    SwitchCase{"LongerThanSevenNotRestored", "12345678", "TRUE", "TRUE"}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- Locations ------------------------------------------------------------------------

const std::string kOmp = "libiomp5.so", kCore = "libquarz_core_130000.so";

struct LocationCase {
  const char* name;
  std::map<std::string, std::string> modules;
  bool config_exists, config_readable;
  std::string config_value;
  std::set<std::string> files;  // paths that load
  std::string missing_symbol;
  int result;
  std::vector<std::string> log;  // loads and unloads during attach, then during detach
};

class Locations : public ::testing::TestWithParam<LocationCase> {};

TEST_P(Locations, TriedInOrderAndNothingLeftLoadedOnFailure) {
  const LocationCase& c = GetParam();
  FakePlatform p;
  p.modules = c.modules;
  p.config_exists = c.config_exists;
  p.config_readable = c.config_readable;
  p.config_value = c.config_value;
  p.files = c.files;
  p.missing_symbol = c.missing_symbol;
  ql::LoaderState state{};
  EXPECT_EQ(ql::ProcessAttach(p, state), c.result);
  EXPECT_EQ(ql::kernel::EntriesBound(), c.result == 1);
  ql::ProcessDetach(p, state);
  EXPECT_EQ(p.log, c.log);
  EXPECT_FALSE(ql::kernel::EntriesBound());
}

const std::map<std::string, std::string> kOwn = {{"libquarz_linalg.so", "/q/libquarz_linalg.so"}};
// An installed library's folder for the two modules, tried after its own directory.
const std::string kPrivate = "/q/quarz_linalg/";

INSTANTIATE_TEST_SUITE_P(Loader, Locations, ::testing::Values(
    LocationCase{"OwnDirectoryThenUnloadKernelFirst", kOwn, false, true, "", {"/q/" + kOmp, "/q/" + kCore}, "", 1,
                 {"load /q/" + kOmp, "load /q/" + kCore, "unload /q/" + kCore, "unload /q/" + kOmp}},
    LocationCase{"FirstToolkitModuleWins",
                 {{"libquarz_thread.so", "/t/libquarz_thread.so"}, {"libquarz_fft.so", "/f/libquarz_fft.so"},
                  {"libquarz_linalg.so", "/q/libquarz_linalg.so"}},
                 false, true, "", {"/f/" + kOmp, "/f/" + kCore, "/q/" + kOmp, "/q/" + kCore}, "", 1,
                 {"load /f/" + kOmp, "load /f/" + kCore, "unload /f/" + kCore, "unload /f/" + kOmp}},
    LocationCase{"PathLookupFailingGoesToTheConfiguration",
                 {{"libquarz_fft.so", kFails}, {"libquarz_linalg.so", "/q/libquarz_linalg.so"}}, true, true, "/rt/",
                 {"/q/" + kOmp, "/q/" + kCore, "/rt/13.0.0/" + kOmp, "/rt/13.0.0/" + kCore}, "", 1,
                 {"load /rt/13.0.0/" + kOmp, "load /rt/13.0.0/" + kCore, "unload /rt/13.0.0/" + kCore,
                  "unload /rt/13.0.0/" + kOmp}},
    LocationCase{"ConfiguredWithoutTrailingSeparatorAfterEmptyModuleDirectory", kOwn, true, true, "/rt",
                 {"/rt/13.0.0/" + kOmp, "/rt/13.0.0/" + kCore}, "", 1,
                 {"load /q/" + kOmp, "load " + kPrivate + kOmp, "load /rt/13.0.0/" + kOmp, "load /rt/13.0.0/" + kCore,
                  "unload /rt/13.0.0/" + kCore, "unload /rt/13.0.0/" + kOmp}},
    LocationCase{"ConfigurationMissing", {}, false, true, "/rt", {"/rt/13.0.0/" + kOmp, "/rt/13.0.0/" + kCore}, "",
                 0, {}},
    LocationCase{"ConfigurationUnreadable", {}, true, false, "/rt", {"/rt/13.0.0/" + kOmp, "/rt/13.0.0/" + kCore},
                 "", 0, {}},
    LocationCase{"OpenMPRuntimeMissing", kOwn, false, true, "", {"/q/" + kCore}, "", 0,
                 {"load /q/" + kOmp, "load " + kPrivate + kOmp}},
    LocationCase{"KernelMissingUnloadsTheOpenMPRuntime", kOwn, false, true, "", {"/q/" + kOmp}, "", 0,
                 {"load /q/" + kOmp, "load /q/" + kCore, "unload /q/" + kOmp, "load " + kPrivate + kOmp}},
    LocationCase{"KernelLackingAnEntryIsUnloaded", kOwn, false, true, "", {"/q/" + kOmp, "/q/" + kCore}, "dgesdd_",
                 0, {"load /q/" + kOmp, "load /q/" + kCore, "unload /q/" + kCore, "unload /q/" + kOmp,
                     "load " + kPrivate + kOmp}},
    // Missed if the folder were tried before the own directory or after the configuration.
    LocationCase{"PrivateFolderAfterTheOwnDirectory", kOwn, true, true, "/rt",
                 {"/q/" + kCore, kPrivate + kOmp, kPrivate + kCore, "/rt/13.0.0/" + kOmp, "/rt/13.0.0/" + kCore},
                 "", 1,
                 {"load /q/" + kOmp, "load " + kPrivate + kOmp, "load " + kPrivate + kCore,
                  "unload " + kPrivate + kCore, "unload " + kPrivate + kOmp}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Loader, ThreadDetachReleasesTheKernelsBuffersWhereItHasTheCall) {
  for (bool has : {true, false}) {
    FakePlatform p;
    p.modules = kOwn;
    p.Provide("/q/");
    p.has_free_buffers = has;
    ql::LoaderState state{};
    ASSERT_EQ(ql::ProcessAttach(p, state), 1);
    g_buffers_freed = 0;
    ql::ThreadDetach(state);
    EXPECT_EQ(g_buffers_freed, has ? 1 : 0);
    ql::ProcessDetach(p, state);
  }
}

}  // namespace
