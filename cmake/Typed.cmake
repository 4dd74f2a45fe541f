# The typed entry family, the aligned allocator and the sparse products; the
# public headers; installation with a CMake package and a pkg-config file.
# Included from the top-level CMakeLists.txt after the library target exists.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

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

# Installation: the library, both headers, a CMake package giving vorn::vorn
# and vorn.pc. Both package files locate the prefix relative to themselves,
# so an installed tree can be moved.
set_target_properties(vorn PROPERTIES EXPORT_NAME vorn)
install(TARGETS vorn EXPORT vornTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${VORN_GEN_DIR}/include/vorn_instable.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${CMAKE_SOURCE_DIR}/include/vorn/vorn.hpp ${CMAKE_SOURCE_DIR}/include/vorn/aligned_ptr.hpp
              ${VORN_GEN_DIR}/include/vorn/vorn_stable.hpp
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vorn)

set(_vorn_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vorn)
install(EXPORT vornTargets NAMESPACE vorn:: DESTINATION ${_vorn_cmake_dir})
file(WRITE ${CMAKE_BINARY_DIR}/package/vornConfig.cmake
  "include(\${CMAKE_CURRENT_LIST_DIR}/vornTargets.cmake)\n")
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/vornConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/vornConfig.cmake ${CMAKE_BINARY_DIR}/package/vornConfigVersion.cmake
        DESTINATION ${_vorn_cmake_dir})

file(RELATIVE_PATH _vorn_pc_to_prefix /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
string(REGEX REPLACE "/$" "" _vorn_pc_to_prefix "${_vorn_pc_to_prefix}")
file(WRITE ${CMAKE_BINARY_DIR}/package/vorn.pc
"prefix=\${pcfiledir}/${_vorn_pc_to_prefix}
libdir=\${prefix}/${CMAKE_INSTALL_LIBDIR}
includedir=\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}

Name: vorn
Description: BLAS and LAPACK for LP64 callers over Intel MKL, with a typed C++ family
Version: ${PROJECT_VERSION}
Libs: -L\${libdir} -lvorn
Cflags: -I\${includedir}
")
install(FILES ${CMAKE_BINARY_DIR}/package/vorn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# A caller's project built out of tree against the installed package, once
# through find_package and once through pkg-config.
if(VORN_TESTS)
  enable_testing()
  set(_consumer ${CMAKE_BINARY_DIR}/consumer)
  set(_consumer_flags "-O2")
  set(_consumer_env "MKL_NUM_THREADS=1")
  if(VORN_SANITIZE)
    set(_consumer_flags "-O2 -fsanitize=address,undefined")
    # The consumer provokes a refusal with an impossible size.
    list(APPEND _consumer_env "ASAN_OPTIONS=detect_leaks=0:detect_odr_violation=0:allocator_may_return_null=1")
  endif()
  add_test(NAME consumer_install
    COMMAND sh -c "rm -rf \"$1\" && \"$2\" --install \"$3\" --prefix \"$1\""
            sh ${_consumer}/prefix ${CMAKE_COMMAND} ${CMAKE_BINARY_DIR})
  add_test(NAME consumer_configure
    COMMAND ${CMAKE_COMMAND} --fresh -S ${CMAKE_SOURCE_DIR}/tests/consumer -B ${_consumer}/build
            -G ${CMAKE_GENERATOR} -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
            -DCMAKE_CXX_FLAGS=${_consumer_flags} -DCMAKE_PREFIX_PATH=${_consumer}/prefix)
  add_test(NAME consumer_build COMMAND ${CMAKE_COMMAND} --build ${_consumer}/build)
  add_test(NAME consumer_runs COMMAND ${_consumer}/build/vorn_consumer)
  add_test(NAME consumer_pkgconfig
    COMMAND sh -c "export PKG_CONFIG_PATH=\"$1/${CMAKE_INSTALL_LIBDIR}/pkgconfig\" && \"$2\" $3 -std=c++20 -o \"$4/pc_consumer\" \"$5\" $(pkg-config --cflags --libs vorn) -Wl,-rpath,\"$(pkg-config --variable=libdir vorn)\" && \"$4/pc_consumer\""
            sh ${_consumer}/prefix ${CMAKE_CXX_COMPILER} "${_consumer_flags}" ${_consumer}
            ${CMAKE_SOURCE_DIR}/tests/consumer/main.cpp)
  set_tests_properties(consumer_install PROPERTIES FIXTURES_SETUP vorn_installed)
  set_tests_properties(consumer_configure PROPERTIES FIXTURES_REQUIRED vorn_installed
                                                     FIXTURES_SETUP vorn_consumer_configured)
  set_tests_properties(consumer_build PROPERTIES FIXTURES_REQUIRED vorn_consumer_configured
                                                 FIXTURES_SETUP vorn_consumer_built)
  set_tests_properties(consumer_runs PROPERTIES FIXTURES_REQUIRED vorn_consumer_built)
  set_tests_properties(consumer_pkgconfig PROPERTIES FIXTURES_REQUIRED vorn_installed)
  set_tests_properties(consumer_runs consumer_pkgconfig PROPERTIES ENVIRONMENT "${_consumer_env}")
endif()
