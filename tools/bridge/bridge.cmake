# The bridge back-end of the Windows tests: a winelib mkl_intel_thread.dll
# that hands every call of vorn.dll to the same entry of the Linux
# computational library. A test dependency only, never shipped. Defines the
# target vorn_bridge and VORN_BRIDGE_DIR, the directory holding the DLL.
find_program(VORN_WINEGCC winegcc REQUIRED)
set(VORN_BRIDGE_DIR ${CMAKE_BINARY_DIR}/bridge)
set(_gen ${CMAKE_BINARY_DIR}/generated/bridge)
set(_here ${CMAKE_SOURCE_DIR}/tools/bridge)
set(_standin ${CMAKE_SOURCE_DIR}/tools/standin)
add_custom_command(
  OUTPUT ${_gen}/entries.c ${_gen}/mkl_intel_thread.spec
  COMMAND ${Python3_EXECUTABLE} ${_here}/generate.py --catalogue ${VORN_CATALOGUE} --out ${_gen}
  DEPENDS ${_here}/generate.py ${_standin}/standin.h ${VORN_CATALOGUE} ${VORN_CODEGEN_SOURCES}
  COMMENT "Generating the bridge's forwarders"
  VERBATIM)
# Wine finds a winelib DLL under its Windows name only. GCC's general-dynamic
# TLS call, made inside a Windows-ABI function, clobbers argument registers
# it believes saved: the thread-local flags use the initial-exec model.
add_custom_command(
  OUTPUT ${VORN_BRIDGE_DIR}/mkl_intel_thread.dll
  COMMAND ${CMAKE_COMMAND} -E make_directory ${VORN_BRIDGE_DIR}
  COMMAND ${VORN_WINEGCC} -shared -O2 -Wall -Wextra -Werror -ftls-model=initial-exec -I${_here} -I${_standin}
          ${_gen}/mkl_intel_thread.spec ${_gen}/entries.c ${_here}/runtime.c ${_standin}/recording.c
          -o ${VORN_BRIDGE_DIR}/mkl_intel_thread.dll.so -ldl
  COMMAND ${CMAKE_COMMAND} -E rename ${VORN_BRIDGE_DIR}/mkl_intel_thread.dll.so ${VORN_BRIDGE_DIR}/mkl_intel_thread.dll
  DEPENDS ${_gen}/entries.c ${_gen}/mkl_intel_thread.spec ${_here}/runtime.c ${_here}/bridge.h
          ${_standin}/recording.c ${_standin}/recording.h ${_standin}/standin.h
  COMMENT "Building the bridge mkl_intel_thread.dll with winegcc"
  VERBATIM)
add_custom_target(vorn_bridge ALL DEPENDS ${VORN_BRIDGE_DIR}/mkl_intel_thread.dll)
