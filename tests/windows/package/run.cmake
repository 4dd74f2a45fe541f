# Runs one program under wine in a directory of its own holding only the
# program, the archive's DLLs and one back-end's mkl_intel_thread.dll, so
# that the DLL search can find nothing else of ours.
#   WINE, PROGRAM, ARCHIVE_BIN, BACKEND (its directory), RUN_DIR, and
#   EXPECT: a regular expression the output must match, if given
file(REMOVE_RECURSE ${RUN_DIR})
file(GLOB dlls ${ARCHIVE_BIN}/*.dll)
file(COPY ${PROGRAM} ${dlls} ${BACKEND}/mkl_intel_thread.dll DESTINATION ${RUN_DIR})
get_filename_component(name ${PROGRAM} NAME)
execute_process(COMMAND ${WINE} ${RUN_DIR}/${name} WORKING_DIRECTORY ${RUN_DIR}
                OUTPUT_VARIABLE out ERROR_VARIABLE out RESULT_VARIABLE rc)
message("${out}")
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${name} failed (status ${rc})")
endif()
if(DEFINED EXPECT AND NOT out MATCHES "${EXPECT}")
  message(FATAL_ERROR "${name}: no output matching '${EXPECT}'")
endif()
