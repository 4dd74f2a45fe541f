# Runs one reference BLAS test program through the companion library and
# fails on any failure line, on a missing pass line, or when the program
# did not actually reach the layer.
#   PROGRAM    the test program
#   INPUT      its input file (levels 2 and 3), empty for level 1
#   DROPIN_DIR directory of the companion libblas.so.3
#   PRELOAD    colon-separated libraries to preload (the sanitizer runtime)
#   WORK_DIR   scratch directory, recreated
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
get_filename_component(name ${PROGRAM} NAME)

# 1. The run, with the loader logging its symbol bindings.
set(input_args "")
set(expected 0)
set(summary "")
if(INPUT)
  file(COPY ${INPUT} DESTINATION ${WORK_DIR})
  get_filename_component(input_name ${INPUT} NAME)
  set(input_args INPUT_FILE ${WORK_DIR}/${input_name})
  file(STRINGS ${INPUT} lines)
  list(GET lines 0 first)
  # Routines the input file asks for: "NAME   T ..." lines. The CBLAS
  # programs write their results to standard output and test each routine
  # in both orders.
  set(cblas OFF)
  foreach(line IN LISTS lines)
    if(line MATCHES "^([A-Z0-9]+|cblas_[a-z0-9]+) +T ")
      math(EXPR expected "${expected} + 1")
    endif()
    if(line MATCHES "^cblas_")
      set(cblas ON)
    endif()
  endforeach()
  if(NOT cblas)
    string(REGEX REPLACE "^'([^']*)'.*" "\\1" summary "${first}")
  endif()
endif()
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${DROPIN_DIR} MKL_NUM_THREADS=1 LD_PRELOAD=${PRELOAD}
          LD_DEBUG=bindings LD_DEBUG_OUTPUT=${WORK_DIR}/bindings ${PROGRAM}
  ${input_args}
  WORKING_DIRECTORY ${WORK_DIR}
  OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc TIMEOUT 1400)
set(text "${out}\n${err}")
if(summary)
  if(NOT EXISTS ${WORK_DIR}/${summary})
    message(FATAL_ERROR "${name}: no summary file ${summary}\n${text}")
  endif()
  file(READ ${WORK_DIR}/${summary} summary_text)
  string(APPEND text "\n${summary_text}")
endif()
file(WRITE ${WORK_DIR}/output.txt "${text}")

# 2. Failure lines of the programs, the report handler's own message if a
#    report went past the programs' XERBLA, and sanitizer reports.
set(failures "")
foreach(pattern "FAIL" "FATAL" "SUSPECT" "NOT DETECTED" "NOT TESTED" "XERBLA WAS CALLED"
                "COMPLETED THE COMPUTATIONAL" "\\*\\*\\*\\*\\*" "MKL ERROR" "Sanitizer" "runtime error")
  string(REGEX MATCHALL "[^\n]*${pattern}[^\n]*" hits "${text}")
  list(APPEND failures ${hits})
endforeach()
if(NOT rc EQUAL 0 OR failures)
  list(REMOVE_DUPLICATES failures)
  string(REPLACE ";" "\n" failures "${failures}")
  message(FATAL_ERROR "${name}: exit status ${rc}; failure lines:\n${failures}\n"
                      "full output in ${WORK_DIR}/output.txt")
endif()

# 3. Every test the program ran passed.
if(INPUT)
  string(REGEX MATCHALL "PASSED THE COMPUTATIONAL TESTS" computational "${text}")
  string(REGEX MATCHALL "PASSED THE TESTS OF ERROR-EXITS" exits "${text}")
  if(cblas)
    # One pass line per order (labelled by order in some of the programs).
    string(REGEX MATCHALL "PASSED THE [A-Z -]*COMPUTATIONAL TESTS" computational "${text}")
    math(EXPR expected_computational "2 * ${expected}")
  else()
    set(expected_computational ${expected})
  endif()
  list(LENGTH computational passed)
  list(LENGTH exits exits_passed)
  if(NOT passed EQUAL expected_computational OR NOT exits_passed EQUAL expected OR NOT text MATCHES "END OF TESTS")
    message(FATAL_ERROR "${name}: ${passed} computational and ${exits_passed} error-exit passes "
                        "of ${expected} routines\n${text}")
  endif()
  set(verdict "${expected} routines passed the computational tests (${passed} runs) and the tests of error-exits")
else()
  string(REGEX MATCHALL "Test of subprogram number" tests "${text}")
  string(REGEX MATCHALL "----- PASS -----" passes "${text}")
  list(LENGTH tests expected)
  list(LENGTH passes passed)
  if(expected EQUAL 0 OR NOT passed EQUAL expected)
    message(FATAL_ERROR "${name}: ${passed} of ${expected} subprograms passed\n${text}")
  endif()
  set(verdict "${passed} of ${expected} subprograms passed")
endif()

# 4. The calls went program -> companion library -> layer.
file(GLOB logs ${WORK_DIR}/bindings.*)
set(bindings "")
foreach(log IN LISTS logs)
  file(READ ${log} part)
  string(APPEND bindings "${part}")
endforeach()
string(FIND "${bindings}" "to ${DROPIN_DIR}/libblas.so.3 [0]: normal symbol `" into_dropin)
if(into_dropin EQUAL -1 OR NOT bindings MATCHES
   "binding file [^\n]*/libblas\\.so\\.3 \\[0\\] to [^\n]*/libvorn\\.so[.0-9]* \\[0\\]: normal symbol `VORN_instable_")
  message(FATAL_ERROR "${name}: the loader bound no call through the companion library into the layer")
endif()
file(REMOVE ${logs})
message(STATUS "${name}: ${verdict}")
