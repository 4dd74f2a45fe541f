# Installation on both platforms: the library, both headers and a CMake
# package giving vorn::vorn, located relative to itself so that an installed
# tree can be moved. Linux adds vorn.pc; Windows puts the DLL in bin/ and
# its import library vorn.lib with the module definition in lib/. Included
# from the top-level CMakeLists.txt after the typed family.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set_target_properties(vorn PROPERTIES EXPORT_NAME vorn)
install(TARGETS vorn EXPORT vornTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
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

if(WIN32)
  install(FILES ${VORN_MODULE_DEFINITION} DESTINATION ${CMAKE_INSTALL_LIBDIR})
  return()
endif()

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
