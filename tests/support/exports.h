// The defined global and weak symbols of a shared library's dynamic symbol
// table, as readelf reads them: the export table from outside.
#pragma once
#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace exports {

inline std::set<std::string> dynamic(const char* library) {
  std::set<std::string> names;
  FILE* p = popen((std::string("readelf --dyn-syms -W ") + library).c_str(), "r");
  char buf[8192];
  while (p != nullptr && std::fgets(buf, sizeof buf, p) != nullptr) {
    std::istringstream row(buf);
    std::vector<std::string> f;
    for (std::string t; row >> t;) f.push_back(t);
    // Num: Value Size Type Bind Vis Ndx Name
    if (f.size() >= 8 && (f[4] == "GLOBAL" || f[4] == "WEAK") && f[6] != "UND") names.insert(f[7]);
  }
  if (p != nullptr) pclose(p);
  return names;
}

}  // namespace exports
