# The Windows archive (cpack -G ZIP, or the `package` target):
# vorn-<version>-win64.zip holding the installed tree of Install.cmake, the
# companions libblas.dll and liblapack.dll with their import libraries, and
# the archive's own README. The computational library, mkl_intel_thread.dll,
# is not ours to ship; the README names it.
install(TARGETS vorn_blas_dropin vorn_lapack_dropin
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
configure_file(${CMAKE_SOURCE_DIR}/cmake/package/README-windows.txt.in ${CMAKE_BINARY_DIR}/package/README.txt @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/package/README.txt DESTINATION .)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME vorn)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME vorn-${PROJECT_VERSION}-win64)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "BLAS and LAPACK for LP64 callers over Intel MKL, with a typed C++ family")
set(CPACK_PACKAGE_CONTACT "vorn maintainers <maintainers@vorn.invalid>")
include(CPack)
