# The computational library. On Linux: MKL's GNU threading layer and its
# core, over GNU OpenMP. On Windows the DLL imports mkl_intel_thread.dll by
# name, through an import library made from the generator's list of
# entries, so no MKL binary is needed to link.
add_library(vorn::mkl INTERFACE IMPORTED)
if(WIN32)
  find_program(VORN_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
  set(VORN_MKL_IMPLIB ${CMAKE_BINARY_DIR}/generated/libmkl_intel_thread.a)
  add_custom_command(
    OUTPUT ${VORN_MKL_IMPLIB}
    COMMAND ${VORN_DLLTOOL} -m i386:x86-64 -d ${CMAKE_BINARY_DIR}/generated/mkl_imports.def -l ${VORN_MKL_IMPLIB}
    DEPENDS ${CMAKE_BINARY_DIR}/generated/mkl_imports.def
    COMMENT "Making the import library of mkl_intel_thread.dll"
    VERBATIM)
  add_custom_target(vorn_mkl_implib DEPENDS ${VORN_MKL_IMPLIB})
  set_target_properties(vorn::mkl PROPERTIES INTERFACE_LINK_LIBRARIES "${VORN_MKL_IMPLIB}")
  return()
endif()
# MKL's threading layer takes its OpenMP entries from whichever runtime comes
# first in the process, not from the one we load. The GNU layer needs only
# GOMP_* and omp_* entries, which GNU libgomp and LLVM/Intel libomp both
# provide in full, so one runtime serves all of them in any host. The Intel
# layer needs __kmpc_* (libomp alone) next to omp_*, and a host that loaded
# libgomp first handed it libgomp's thread numbers for libomp's threads.
find_library(VORN_MKL_GNU_THREAD_LIB mkl_gnu_thread REQUIRED)
find_library(VORN_MKL_CORE_LIB mkl_core REQUIRED)
# By its run-time name: LLVM's tree has a libgomp.so that is libomp.
find_library(VORN_GOMP_LIB NAMES libgomp.so.1 REQUIRED NO_CMAKE_PATH NO_CMAKE_ENVIRONMENT_PATH)
# MKL's core and threading libraries call libm's functions without needing
# libm, and the loader relocates objects that do not depend on each other in
# the reverse of their load order. A program without libm that opens a
# consumer privately gets libm through the consumer, loaded before MKL, so
# MKL would be relocated first and bind libm's IFUNCs unrelocated (glibc:
# "Relink libmkl_core.so with libm.so.6", then a crash). libmvec needs libm
# and is loaded after MKL here, which moves libm's relocation ahead of MKL's.
find_library(VORN_MVEC_LIB NAMES libmvec.so.1 REQUIRED NO_CMAKE_PATH NO_CMAKE_ENVIRONMENT_PATH)
set_target_properties(vorn::mkl PROPERTIES
  INTERFACE_LINK_LIBRARIES "${VORN_MKL_GNU_THREAD_LIB};${VORN_MKL_CORE_LIB};${VORN_GOMP_LIB};-Wl,--no-as-needed;${VORN_MVEC_LIB};pthread;m;dl")
