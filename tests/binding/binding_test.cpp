// The host binding seen from outside: each scenario runs in a child process configured
// as a different host, so the search order, module switches and fatal exits can all be
// observed.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/child_process.h"

namespace {

using qt::Outcome;

Outcome RunProbe(const std::string& probe, const std::string& scenario) {
  return qt::RunChild(std::string(PROBE_BIN_DIR) + "/" + probe, scenario, [] {});
}

bool Contains(const std::string& s, const std::string& part) { return s.find(part) != std::string::npos; }

struct Scenario {
  const char* probe;
  const char* name;
  const char* expected_lines;  // each line must appear in stdout
};

void PrintTo(const Scenario& s, std::ostream* os) { *os << s.probe << ' ' << s.name; }

class SearchOrder : public ::testing::TestWithParam<Scenario> {};

TEST_P(SearchOrder, ServedByTheExpectedRuntime) {
  const Scenario& s = GetParam();
  Outcome o = RunProbe(s.probe, s.name);
  ASSERT_EQ(o.exit_code, 0) << o.out << o.err;
  std::string expected = s.expected_lines;
  size_t pos = 0;
  while (pos < expected.size()) {
    size_t end = expected.find('\n', pos);
    if (end == std::string::npos) end = expected.size();
    std::string line = expected.substr(pos, end - pos);
    EXPECT_TRUE(Contains(o.out, line)) << "missing '" << line << "' in:\n" << o.out;
    pos = end + 1;
  }
  EXPECT_TRUE(Contains(o.out, "status=0 value=9")) << o.out;
}

INSTANTIATE_TEST_SUITE_P(
    Binding, SearchOrder,
    ::testing::Values(
        // Found by name among the loaded modules, libkort.so before libkoffrt.so.
        Scenario{"binding_probe", "kort", "final kort=1 koffrt=0 main=0"},
        Scenario{"binding_probe", "koffrt", "final kort=0 koffrt=1 main=0"},
        Scenario{"binding_probe", "both", "final kort=1 koffrt=0 main=0"},
        // The module given to SetKORTModule comes before the search by name.
        Scenario{"binding_probe", "module", "final kort=0 koffrt=1 main=0"},
        // A module switch re-resolves on the next call, and clearing it falls back.
        Scenario{"binding_probe", "switch",
                 "first kort=1 koffrt=0 main=0\nsecond kort=1 koffrt=1 main=0\nfinal kort=2 koffrt=1 main=0"},
        // The thread's TLS slot comes first; an empty slot falls back to the module; a
        // change of the slot's module re-resolves.
        Scenario{"binding_probe", "tls",
                 "slot kort=1 koffrt=0 main=0\nempty-slot kort=1 koffrt=1 main=0\nfinal kort=1 koffrt=2 main=0"},
        // A main program exporting only "AZNewHandle" is the host, ahead of libkort.so
        // (its resize serves the request through libkort's allocator, hence kort=1).
        Scenario{"binding_probe_host", "main", "final kort=1 koffrt=0 main=1"},
        // A program linked against libkoffrt.so sees its markers through its own handle
        // without defining them; that does not make it the host, so libkort.so, found
        // by name, comes first.
        Scenario{"binding_probe_linked", "linked", "final kort=1 koffrt=0 main=0"},
        // The search is remembered, but a module loaded since is found by the next one.
        Scenario{"binding_probe", "loaded-later", "first kort=0 koffrt=1 main=0\nfinal kort=1 koffrt=1 main=0"},
        // ... and a module unloaded since is not called (the answer is searched again).
        Scenario{"binding_probe", "unloaded", "first kort=1 koffrt=0 main=0\nkort unloaded\nfinal kort=0 koffrt=1 main=0"}),
    [](const auto& info) {
      std::string name = info.param.name;
      for (char& c : name) c = c == '-' ? '_' : c;
      return name;
    });

TEST(Binding, NoHostEndsTheProcess) {
  Outcome o = RunProbe("binding_probe", "none");
  EXPECT_EQ(o.exit_code, 1);
  EXPECT_EQ(o.err, "KORVOV.LIB was not called from a Korvo process.\n");
  EXPECT_FALSE(Contains(o.out, "status=")) << "the call returned: " << o.out;
}

// A module without NumericArrayResize; a host program with it but without QSort, met
// by the first fit that sorts.
TEST(Binding, MissingHostFunctionEndsTheProcess) {
  struct Missing {
    const char *probe, *scenario, *function;
  };
  for (const Missing& m : {Missing{"binding_probe", "missing", "NumericArrayResize"},
                           Missing{"binding_probe_host", "main-no-qsort", "QSort"}}) {
    SCOPED_TRACE(m.scenario);
    Outcome o = RunProbe(m.probe, m.scenario);
    EXPECT_EQ(o.exit_code, 1);
    EXPECT_EQ(o.err, "KORVOV.LIB could not locate \"" + std::string(m.function) + "\".\n");
    EXPECT_FALSE(Contains(o.out, "status=")) << "the call returned: " << o.out;
  }
}

}  // namespace
