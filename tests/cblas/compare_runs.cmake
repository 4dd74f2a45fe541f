# Runs COMMAND against the reference libraries and through the companions
# and requires the same output, less the "mapped" lines, which must name the
# libraries each run was meant to load.
#   COMMAND (;-list), REFERENCE_DIRS (:-list), DROPIN_DIR
function(run dirs out mapped)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${dirs} MKL_NUM_THREADS=1 ${COMMAND}
                  OUTPUT_VARIABLE text ERROR_VARIABLE errors RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "exit status ${rc} with ${dirs}:\n${text}\n${errors}")
  endif()
  string(REGEX MATCHALL "mapped [^\n]*" maps "${text}")
  string(REGEX REPLACE "mapped [^\n]*\n" "" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
  set(${mapped} "${maps}" PARENT_SCOPE)
endfunction()

run(${REFERENCE_DIRS} reference reference_maps)
run(${DROPIN_DIR} companion companion_maps)
# The reference LAPACK may be mapped beside the companions: they open it
# privately for the routines outside the set.
foreach(library libblas.so.3 liblapack.so.3)
  list(FIND companion_maps "mapped ${DROPIN_DIR}/${library}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${library} is not the companion: ${companion_maps}")
  endif()
endforeach()
if("${reference_maps}" MATCHES "${DROPIN_DIR}")
  message(FATAL_ERROR "the reference run mapped a companion: ${reference_maps}")
endif()
if(NOT reference STREQUAL companion)
  message(FATAL_ERROR "reports differ\nreference:\n${reference}\ncompanion:\n${companion}")
endif()
string(REGEX MATCHALL "xerbla_ " reports "${companion}")
list(LENGTH reports n)
if(n LESS 7)
  message(FATAL_ERROR "only ${n} reports:\n${companion}")
endif()
message(STATUS "${n} reports as from the reference:\n${companion}")
