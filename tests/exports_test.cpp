// The built library exports exactly the names of the export list, each resolves, and
// the public header declares nothing else.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <fstream>
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

TEST(Exports, HeaderDeclaresOnlyListedNames) {
  std::ifstream header(QUARZ_HEADER);
  ASSERT_TRUE(header) << QUARZ_HEADER;
  std::stringstream text;
  text << header.rdbuf();
  const std::string s = text.str();
  // Every line "QUARZ_API <type> <name>(...".
  std::set<std::string> declared;
  for (size_t at = s.find("QUARZ_API "); at != std::string::npos; at = s.find("QUARZ_API ", at + 1)) {
    const size_t paren = s.find('(', at);
    size_t begin = paren;
    while (begin > at && (std::isalnum(static_cast<unsigned char>(s[begin - 1])) || s[begin - 1] == '_')) --begin;
    const bool line_start = at == 0 || s[at - 1] == '\n';
    if (line_start && paren != std::string::npos && begin < paren && s.find('\n', at) > paren) declared.insert(s.substr(begin, paren - begin));
  }
  const std::set<std::string> listed(std::begin(kListed), std::end(kListed));
  EXPECT_EQ(declared, listed);
}

}  // namespace
