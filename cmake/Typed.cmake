# The typed entry family, the aligned allocator and the sparse products, and
# the export of their names beside the plain family's on either platform.
# Included from the top-level CMakeLists.txt after the library target exists.

# Forwarders and declarations of the typed entries whose routines are built,
# and the version script that exports them beside the plain family.
set(VORN_TYPED_ENTRIES ${CMAKE_SOURCE_DIR}/catalogue/typed_entries.txt)
set(VORN_TYPED_OUTPUTS
  ${VORN_GEN_DIR}/typed_entries.cpp
  ${VORN_GEN_DIR}/typed_entries_msvc.cpp
  ${VORN_GEN_DIR}/include/vorn/vorn_stable.hpp
  ${VORN_GEN_DIR}/exports_full.map
  ${VORN_GEN_DIR}/typed_exported_names.txt)
add_custom_command(
  OUTPUT ${VORN_TYPED_OUTPUTS}
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tools/codegen/typed.py
          --catalogue ${VORN_CATALOGUE} --entries ${VORN_TYPED_ENTRIES}
          --exported ${VORN_GEN_DIR}/exported_names.txt
          --plain-map ${VORN_GEN_DIR}/exports.map --out ${VORN_GEN_DIR}
  DEPENDS ${VORN_TYPED_ENTRIES} ${VORN_CATALOGUE} ${VORN_CODEGEN_SOURCES}
          ${VORN_GEN_DIR}/exported_names.txt ${VORN_GEN_DIR}/exports.map
  COMMENT "Generating the typed entry family"
  VERBATIM)
add_custom_target(vorn_typed_generated DEPENDS ${VORN_TYPED_OUTPUTS})
add_dependencies(vorn_typed_generated vorn_generated)
add_dependencies(vorn vorn_typed_generated)
add_dependencies(vorn_headers vorn_typed_generated)
target_include_directories(vorn PRIVATE ${CMAKE_SOURCE_DIR}/include ${VORN_GEN_DIR}/include)

if(WIN32)
  # The C++ entries carry MSVC decorations, as a Windows C++ caller's compiler
  # gives them: clang compiles their forwarders for the MSVC ABI, and lld
  # links that object into the mingw-built DLL.
  find_program(VORN_CLANGXX NAMES clang++ clang++-14 REQUIRED)
  set(_vorn_msvc_obj ${VORN_GEN_DIR}/typed_entries_msvc.obj)
  add_custom_command(
    OUTPUT ${_vorn_msvc_obj}
    COMMAND ${VORN_CLANGXX} --target=x86_64-pc-windows-msvc -std=c++20 -O2 -Wall
            -I${CMAKE_SOURCE_DIR}/include -c ${VORN_GEN_DIR}/typed_entries_msvc.cpp -o ${_vorn_msvc_obj}
    DEPENDS ${VORN_GEN_DIR}/typed_entries_msvc.cpp ${CMAKE_SOURCE_DIR}/include/vorn/aligned_ptr.hpp
    COMMENT "Compiling the MSVC-decorated entries"
    VERBATIM)
  set_source_files_properties(${_vorn_msvc_obj} PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
  target_sources(vorn PRIVATE ${_vorn_msvc_obj})

  # One module definition for the DLL and its import library: the plain
  # family's, with the C++ entries' decorations read back from that object.
  find_program(VORN_READOBJ NAMES llvm-readobj llvm-readobj-14 REQUIRED)
  find_program(VORN_LLD_LINK NAMES lld-link lld-link-14 REQUIRED)
  set(VORN_MODULE_DEFINITION ${VORN_GEN_DIR}/vorn.def)
  add_custom_command(
    OUTPUT ${VORN_MODULE_DEFINITION}
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tools/codegen/module_definition.py
            --plain ${VORN_GEN_DIR}/exports.def --object ${_vorn_msvc_obj} --readobj ${VORN_READOBJ}
            --out ${VORN_MODULE_DEFINITION}
    DEPENDS ${VORN_GEN_DIR}/exports.def ${_vorn_msvc_obj} ${CMAKE_SOURCE_DIR}/tools/codegen/module_definition.py
    COMMENT "Writing vorn.dll's module definition"
    VERBATIM)
  add_custom_target(vorn_module_definition DEPENDS ${VORN_MODULE_DEFINITION})
  add_dependencies(vorn vorn_module_definition)
  get_target_property(_vorn_link_options vorn LINK_OPTIONS)
  list(TRANSFORM _vorn_link_options REPLACE "^${VORN_GEN_DIR}/exports.def$" "${VORN_MODULE_DEFINITION}")
  set_property(TARGET vorn PROPERTY LINK_OPTIONS "${_vorn_link_options}")
  # The import library is vorn.lib in the platform's short import format,
  # made from that definition by lld-link (given no objects, it writes only
  # the library). It replaces the one the mingw link rule lets lld write.
  set_target_properties(vorn PROPERTIES IMPORT_PREFIX "" IMPORT_SUFFIX ".lib"
                        LINK_DEPENDS "${VORN_MODULE_DEFINITION}")
  add_custom_command(TARGET vorn POST_BUILD
    COMMAND ${VORN_LLD_LINK} /nologo /machine:x64 /dll /noentry /def:${VORN_MODULE_DEFINITION}
            /out:$<TARGET_FILE_NAME:vorn> /implib:$<TARGET_LINKER_FILE:vorn>
    WORKING_DIRECTORY ${VORN_GEN_DIR}
    VERBATIM)
  return()
endif()
target_sources(vorn PRIVATE ${VORN_GEN_DIR}/typed_entries.cpp)

# The linker takes one anonymous version script: link with the merged one in
# place of the plain family's.
get_target_property(_vorn_link_options vorn LINK_OPTIONS)
set(_vorn_plain_script "-Wl,--version-script=${VORN_GEN_DIR}/exports.map")
list(FIND _vorn_link_options "${_vorn_plain_script}" _vorn_script_at)
if(_vorn_script_at EQUAL -1)
  message(FATAL_ERROR "Typed.cmake: the library is no longer linked with ${_vorn_plain_script}")
endif()
list(REMOVE_AT _vorn_link_options ${_vorn_script_at})
list(INSERT _vorn_link_options ${_vorn_script_at} "-Wl,--version-script=${VORN_GEN_DIR}/exports_full.map")
set_property(TARGET vorn PROPERTY LINK_OPTIONS "${_vorn_link_options}")
set_property(TARGET vorn APPEND PROPERTY LINK_DEPENDS ${VORN_GEN_DIR}/exports_full.map)
