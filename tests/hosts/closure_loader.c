/* closure.py's loader: opens one object privately, calls ddot_ through it
   and prints the file that defined it. Linked without libm. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>

typedef double Dot(const int*, const double*, const int*, const double*, const int*);

int main(int argc, char** argv) {
  void* object = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
  Dot* ddot = object ? (Dot*)dlsym(object, "ddot_") : NULL;
  Dl_info info;
  if (ddot == NULL || dladdr((void*)ddot, &info) == 0) return puts(dlerror()), 1;
  const int n = 3, one = 1;
  const double x[] = {1, 2, 3}, y[] = {4, -5, 6};
  printf("%s %g\n", info.dli_fname, ddot(&n, x, &one, y, &one));
  return 0;
}
