/* XERBLA of the reference LP64 libblas.dll used to run the test programs
   under wine. PE has no symbol interposition, so the programs' own XERBLA
   (which checks the error exits) would never be reached from inside the DLL;
   they export it as xerbla_ and this one hands every report on to it. */
#include <stdio.h>
#include <stdlib.h>
#include <windows.h>

typedef void (*xerbla_fn)(const char*, const int*, size_t);

void xerbla_(const char* srname, const int* info, size_t length) {
  xerbla_fn program = (xerbla_fn)(void*)GetProcAddress(GetModuleHandleW(NULL), "xerbla_");
  if (program != NULL && program != xerbla_) {
    program(srname, info, length);
    return;
  }
  /* No program XERBLA: the reference message, then stop (with status 1). */
  int n = (int)length;
  while (n > 0 && srname[n - 1] == ' ') n--;
  printf(" ** On entry to %.*s parameter number %d had an illegal value\n", n, srname, *info);
  fflush(stdout);
  exit(1);
}
