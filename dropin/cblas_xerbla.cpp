// cblas_xerbla for programs that do not define their own: the reference
// library's report, to standard error. Unlike the reference it returns
// instead of ending the program, as the companion's xerbla_ does. The
// positions it receives are CBLAS's own in either order, so it has nothing
// to translate. (Alone in its file: the entries' calls of it must stay
// open to a program's definition.)
#include <cstdarg>
#include <cstdio>

#include "dropin/cblas_support.h"

extern "C" VORN_DROPIN_EXPORT void cblas_xerbla(int p, const char* rout, const char* form, ...) {
  if (p != 0) std::fprintf(stderr, "Parameter %d to routine %s was incorrect\n", p, rout);
  std::va_list args;
  va_start(args, form);
  std::vfprintf(stderr, form, args);
  va_end(args);
}
