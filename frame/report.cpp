#include "frame/report.h"

#include <cstring>

#include "frame/hooks.h"

namespace vorn {

void report(std::string_view name, i64 position) {
  char buffer[32];
  const std::size_t n = name.size() < sizeof buffer - 1 ? name.size() : sizeof buffer - 1;
  std::memcpy(buffer, name.data(), n);
  buffer[n] = '\0';
  i64 cell = position;
  vorn_if_xerbla(buffer, &cell, static_cast<int>(n));
}

}  // namespace vorn
