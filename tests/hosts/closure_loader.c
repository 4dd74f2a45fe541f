/* Opens one shared object privately with every symbol bound (run under
   LD_BIND_NOW=1), calls ddot_ through it and prints the file that defined
   ddot_. Linked without libm, so that the computational library must find
   libm's functions by itself. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>

int main(int argc, char** argv) {
  void* object = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
  double (*ddot)(const int*, const double*, const int*, const double*, const int*) =
      object ? (double (*)(const int*, const double*, const int*, const double*, const int*))dlsym(object, "ddot_")
             : NULL;
  Dl_info info;
  if (ddot == NULL || dladdr((void*)ddot, &info) == 0) {
    printf("%s\n", dlerror());
    return 1;
  }
  const int n = 3, one = 1;
  const double x[] = {1, 2, 3}, y[] = {4, -5, 6};
  printf("%s %g\n", info.dli_fname, ddot(&n, x, &one, y, &one));
  return 0;
}
