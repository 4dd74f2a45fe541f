# The computational library. On Linux: MKL's threading and core layers,
# with LLVM's OpenMP runtime standing in as libiomp5. On Windows the DLL
# imports mkl_intel_thread.dll by name, through an import library made from
# the generator's list of entries, so no MKL binary is needed to link.
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
find_library(VORN_MKL_THREAD_LIB mkl_intel_thread REQUIRED)
find_library(VORN_MKL_CORE_LIB mkl_core REQUIRED)
find_library(VORN_IOMP5_LIB iomp5 REQUIRED PATHS /usr/lib/x86_64-linux-gnu /usr/lib/llvm-14/lib)
set_target_properties(vorn::mkl PROPERTIES
  INTERFACE_LINK_LIBRARIES "${VORN_MKL_THREAD_LIB};${VORN_MKL_CORE_LIB};${VORN_IOMP5_LIB};pthread;m;dl")
