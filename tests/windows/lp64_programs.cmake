# The reference LP64 test programs (mingw gfortran, default integers), run
# unmodified under wine through the companions libblas.dll/liblapack.dll:
# first the loader's own account of which DLLs the LAPACK program takes
# at start (its imports; the reference LAPACK DLL comes later, at the
# first call outside the set), then the programs with their verdicts.
#   DLL_DIR      vorn.dll, the companions and the reference LAPACK
#   BACKEND_DIR  the computational library's DLL
#   PROGRAMS     the installed programs (bin/ with their inputs)
#   WHICH        blas (the twelve BLAS programs) or all (and xlintstd)
#   RUNNER       the script that runs them and judges their output
#   WORK_DIR     scratch directory
string(REPLACE "/" "\\" windows_dir "Z:${DLL_DIR}")
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env WINEDEBUG=+loaddll "WINEPATH=${windows_dir};$ENV{WINEPATH}"
          wine ${PROGRAMS}/bin/xlintstd.exe
  INPUT_FILE /dev/null OUTPUT_QUIET ERROR_VARIABLE trace)
string(REPLACE "\\\\" "/" trace "${trace}")
foreach(dll libblas liblapack vorn mkl_intel_thread)
  set(dir ${DLL_DIR})
  if(dll STREQUAL "mkl_intel_thread")
    set(dir ${BACKEND_DIR})
  endif()
  if(NOT trace MATCHES "Loaded L\"Z:${dir}/${dll}\\.dll\"")
    message(FATAL_ERROR "xlintstd did not load ${dll}.dll from ${dir}")
  endif()
endforeach()
execute_process(COMMAND bash ${RUNNER} ${DLL_DIR} ${WORK_DIR} ${PROGRAMS} ${WHICH} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "a test program failed; outputs in ${WORK_DIR}")
endif()
