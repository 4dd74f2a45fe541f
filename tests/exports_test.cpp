// The export table read back from the built library: names, which
// spellings share an address, and nothing else exported.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/exports.h"

namespace {

const std::string kPrefix = "VORN_instable_";

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
  return s;
}

// name -> group, from the routine set.
std::map<std::string, std::string> routine_set() {
  std::map<std::string, std::string> set;
  std::ifstream in(VORN_ROUTINE_GROUPS);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string group, name;
    fields >> group >> name;
    set[name] = group;
  }
  return set;
}

struct Spellings {
  std::vector<std::string> all;
  std::vector<std::vector<std::string>> shared;  // groups sharing one address
};

// The spelling rule, stated independently of the generator.
Spellings spellings_of(const std::string& name, bool blas) {
  const std::string up = kPrefix + name, lo = kPrefix + lower(name);
  if (blas) return {{up, lo}, {{up}, {lo}}};
  if (name == "DLASD6") return {{up, up + "_", lo, lo + "_"}, {{up, up + "_"}, {lo, lo + "_"}}};
  return {{up, up + "_", lo, lo + "_"}, {{up, up + "_", lo + "_"}, {lo}}};
}

class Exports : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    routines_ = new std::map<std::string, std::string>(routine_set());
    exported_ = new std::set<std::string>(exports::dynamic(VORN_LIBRARY_PATH));
    handle_ = dlopen(VORN_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
  }
  static std::map<std::string, std::string>* routines_;
  static std::set<std::string>* exported_;
  static void* handle_;
};
std::map<std::string, std::string>* Exports::routines_;
std::set<std::string>* Exports::exported_;
void* Exports::handle_;

// Only the routines' spellings and the typed family's decorated names:
// no spelling a routine does not have (no trailing underscore on the BLAS),
// no interface function, nothing of the runtime.
TEST_F(Exports, NothingButTheFamiliesIsExported) {
  std::set<std::string> valid;
  for (const auto& [name, group] : *routines_)
    for (const auto& s : spellings_of(name, group[0] == 'B').all) valid.insert(s);
  for (const auto& e : *exported_) {
    const bool mangled = e.rfind("_Z", 0) == 0 && (e.find("VORN") != std::string::npos ||
                                                    e.find("ARDU") != std::string::npos ||
                                                    e.find("Kessnar") != std::string::npos);
    EXPECT_TRUE(valid.count(e) || mangled) << "unexpected export " << e;
  }
}

TEST_F(Exports, RoutinesAreExportedWholeWithTheirSharedAddresses) {
  ASSERT_NE(handle_, nullptr) << dlerror();
  std::size_t complete = 0;
  for (const auto& [name, group] : *routines_) {
    const Spellings s = spellings_of(name, group[0] == 'B');
    const auto present = std::count_if(s.all.begin(), s.all.end(), [&](auto& n) { return exported_->count(n) > 0; });
    if (present == 0) continue;
    ASSERT_EQ(present, static_cast<long>(s.all.size())) << name << " is exported only in part";
    ++complete;
    std::vector<void*> entry;
    for (const auto& shared : s.shared) {
      void* first = dlsym(handle_, shared[0].c_str());
      ASSERT_NE(first, nullptr) << shared[0];
      for (const auto& n : shared) EXPECT_EQ(dlsym(handle_, n.c_str()), first) << n << " vs " << shared[0];
      entry.push_back(first);
    }
    EXPECT_NE(entry[0], entry[1]) << name << ": the two entries must be distinct";
  }
  EXPECT_EQ(complete, routines_->size());
}

// The code addresses a call passes through by jumps alone, from `entry`.
std::vector<const unsigned char*> jump_chain(const void* entry) {
  std::vector<const unsigned char*> chain{static_cast<const unsigned char*>(entry)};
  for (const unsigned char* c = chain.back(); chain.size() < 8; c = chain.back()) {
    if (c[0] == 0xF3 && c[1] == 0x0F && c[2] == 0x1E && c[3] == 0xFA) c += 4;  // endbr64
    int rel = 0;
    if (c[0] == 0xE9) {
      std::memcpy(&rel, c + 1, 4);
      chain.push_back(c + 5 + rel);
    } else if (c[0] == 0xEB) {
      chain.push_back(c + 2 + static_cast<signed char>(c[1]));
    } else if (c[0] == 0xFF && c[1] == 0x25) {
      std::memcpy(&rel, c + 2, 4);
      chain.push_back(*reinterpret_cast<const unsigned char* const*>(c + 6 + rel));
    } else {
      break;
    }
  }
  return chain;
}

// XERBLA reaches MKL's default handler through its own function; xerbla
// through a chain that passes that same function.
TEST_F(Exports, XerblaSpellingsJumpToTheDefaultTheLowerThroughTheUpper) {
  const auto mkl_default = static_cast<const unsigned char*>(dlsym(RTLD_DEFAULT, "mkl_serv_default_xerbla"));
  const auto upper = jump_chain(dlsym(handle_, "VORN_instable_XERBLA"));
  const auto lower = jump_chain(dlsym(handle_, "VORN_instable_xerbla"));
  ASSERT_EQ(upper.size(), 3u) << "export, interface function, default handler";
  EXPECT_EQ(upper.back(), mkl_default);
  ASSERT_GT(lower.size(), 3u);
  EXPECT_EQ(lower.back(), mkl_default);
  EXPECT_NE(std::find(lower.begin() + 1, lower.end(), upper[1]), lower.end());
}

}  // namespace
