// The built library exports exactly the names of the export list, and each resolves.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

#include "quarz_linalg.h"

namespace {

const char* const kListed[] = {
#include "export_names.inc"
};

std::string LibraryPath() {
  Dl_info info{};
  EXPECT_NE(dladdr(reinterpret_cast<void*>(&dDotProdH), &info), 0);
  return info.dli_fname ? info.dli_fname : "";
}

TEST(Exports, ListedNamesResolveInTheLibrary) {
  void* lib = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(lib, nullptr);
  for (const char* name : kListed) EXPECT_NE(dlsym(lib, name), nullptr) << name;
  dlclose(lib);
}

TEST(Exports, LibraryExportsExactlyTheList) {
  const std::string cmd = "nm -D --defined-only --format=posix '" + LibraryPath() + "'";
  FILE* p = popen(cmd.c_str(), "r");
  ASSERT_NE(p, nullptr);
  std::set<std::string> exported;
  char line[512];
  while (std::fgets(line, sizeof line, p)) {
    std::istringstream in(line);
    std::string name, kind;
    in >> name >> kind;
    if (kind == "T" || kind == "W" || kind == "D" || kind == "B" || kind == "i") exported.insert(name);
  }
  ASSERT_EQ(pclose(p), 0);
  const std::set<std::string> listed(std::begin(kListed), std::end(kListed));
  EXPECT_EQ(exported, listed);
}

}  // namespace
