# The reference LP64 test programs (mingw gfortran, default integers), run
# unmodified under wine through the companions libblas.dll/liblapack.dll:
# first the loader's own account of which DLLs the LAPACK program took, then
# all thirteen programs with their verdicts.
#   DLL_DIR   vorn.dll, the companions, the stand-in and the reference LAPACK
#   PROGRAMS  the installed programs (bin/ with their inputs)
#   RUNNER    the script that runs them and judges their output
#   WORK_DIR  scratch directory
string(REPLACE "/" "\\" windows_dir "Z:${DLL_DIR}")
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env WINEDEBUG=+loaddll "WINEPATH=${windows_dir}" wine ${PROGRAMS}/bin/xlintstd.exe
  INPUT_FILE ${PROGRAMS}/bin/dtest.in OUTPUT_QUIET ERROR_VARIABLE trace RESULT_VARIABLE rc)
string(REPLACE "\\\\" "/" trace "${trace}")
foreach(dll libblas liblapack vorn mkl_intel_thread vorn_reference_lapack)
  if(NOT trace MATCHES "Loaded L\"Z:${DLL_DIR}/${dll}\\.dll\"")
    message(FATAL_ERROR "xlintstd did not load ${dll}.dll from ${DLL_DIR} (status ${rc})")
  endif()
endforeach()
execute_process(COMMAND bash ${RUNNER} ${DLL_DIR} ${WORK_DIR} ${PROGRAMS} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "a test program failed; outputs in ${WORK_DIR}")
endif()
