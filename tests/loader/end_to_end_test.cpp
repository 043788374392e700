// The library loaded by a host process from run-time directories laid out here: the
// kernel it calls is the one in that directory (a marker kernel whose ddot gives 1000 + n),
// and with no kernel anywhere it still loads and refuses every call.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "support/child_process.h"

namespace fs = std::filesystem;

namespace {

using qt::Outcome;

// Runs the probe on `library` with `env` added to (for an empty value: removed from) this
// process's environment.
Outcome RunProbe(const fs::path& library, std::vector<std::pair<std::string, std::string>> env) {
  return qt::RunChild(LOADER_PROBE, library.string(), [&] {
    for (const auto& [k, v] : env) v.empty() ? unsetenv(k.c_str()) : setenv(k.c_str(), v.c_str(), 1);
    // The system's OpenMP runtime (libgomp) does not free a few bytes of its start-up when
    // it is unloaded; the leak check would report them against a module no longer there.
    const char* asan = std::getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS", (std::string(asan ? asan : "") + ":detect_leaks=0").c_str(), 1);
  });
}

class EndToEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/quarz_loader_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
  }
  void TearDown() override { fs::remove_all(root_); }

  // A directory holding a copy of the library, and the run-time modules when asked.
  fs::path LibraryIn(const std::string& name) {
    fs::path dir = root_ / name;
    fs::create_directories(dir);
    fs::copy_file(QUARZ_LIBRARY, dir / "libquarz_linalg.so");
    return dir / "libquarz_linalg.so";
  }
  static void RunTime(const fs::path& dir) {
    fs::create_directories(dir);
    fs::create_symlink(QUARZ_OPENMP, dir / "libiomp5.so");
    fs::create_symlink(MARKER_KERNEL, dir / "libquarz_core_130000.so");
  }
  std::string NoConfig() const { return (root_ / "no.conf").string(); }

  fs::path root_;
};

// The marker's ddot answers, the ending thread released its buffers, and the switch was
// TRUE while loaded and is back to 0 once unloaded.
TEST_F(EndToEnd, KernelBesideTheLibraryIsTheOneCalled) {
  fs::path lib = LibraryIn("own");
  RunTime(lib.parent_path());
  Outcome o = RunProbe(lib, {{"QUARZ_TOOLKIT_CONFIG", NoConfig()}, {"KMP_DUPLICATE_LIB_OK", "0"}});
  EXPECT_EQ(o.out, "0\n0 1003\nreleased 1\nTRUE\n0\n") << o.err;
  EXPECT_EQ(o.err, "");
}

TEST_F(EndToEnd, ConfiguredRunTimeDirectoryWithItsVersionFolder) {
  fs::path lib = LibraryIn("alone");
  RunTime(root_ / "runtime" / "13.0.0");
  fs::path conf = root_ / "toolkit.conf";
  std::ofstream(conf) << "[Other]\nRunTimeDIR64=/nowhere\n"
                      << "[SOFTWARE\\Orvane\\Korvo\\13.0\\AddOns\\Quarz Toolkit]\n"
                      << "RunTimeDIR64 = " << (root_ / "runtime").string() << "\n";
  Outcome o = RunProbe(lib, {{"QUARZ_TOOLKIT_CONFIG", conf.string()}, {"KMP_DUPLICATE_LIB_OK", ""}});
  EXPECT_EQ(o.out, "(unset)\n0 1003\nTRUE\nTRUE\n") << o.err;
}

TEST_F(EndToEnd, NoKernelAnywhereLoadsAndRefusesEveryCall) {
  fs::path lib = LibraryIn("alone");
  Outcome o = RunProbe(lib, {{"QUARZ_TOOLKIT_CONFIG", NoConfig()}, {"KMP_DUPLICATE_LIB_OK", "TRUE"}});
  EXPECT_EQ(o.exit_code, 0);
  EXPECT_EQ(o.out, "TRUE\n-20999 nan\nTRUE\nTRUE\n");
  EXPECT_NE(o.err.find("math kernel not found"), std::string::npos) << o.err;
  EXPECT_EQ(std::count(o.err.begin(), o.err.end(), '\n'), 1) << o.err;
}

// The build's own run-time directory links the system's OpenBLAS.
TEST_F(EndToEnd, BuildDirectoryRunsTheSystemKernel) {
  Outcome o = RunProbe(QUARZ_LIBRARY, {{"QUARZ_TOOLKIT_CONFIG", NoConfig()}, {"KMP_DUPLICATE_LIB_OK", "true"}});
  EXPECT_EQ(o.out, "true\n0 32\ntrue\ntrue\n") << o.err;
}

}  // namespace
