# The computational library: MKL's threading and core layers, with LLVM's
# OpenMP runtime standing in as libiomp5.
find_library(VORN_MKL_THREAD_LIB mkl_intel_thread REQUIRED)
find_library(VORN_MKL_CORE_LIB mkl_core REQUIRED)
find_library(VORN_IOMP5_LIB iomp5 REQUIRED PATHS /usr/lib/x86_64-linux-gnu /usr/lib/llvm-14/lib)
add_library(vorn::mkl INTERFACE IMPORTED)
set_target_properties(vorn::mkl PROPERTIES
  INTERFACE_LINK_LIBRARIES "${VORN_MKL_THREAD_LIB};${VORN_MKL_CORE_LIB};${VORN_IOMP5_LIB};pthread;m;dl")
