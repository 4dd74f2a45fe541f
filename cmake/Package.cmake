# A Debian package of the library and its companions (cpack -G DEB). The
# companions go into a directory of their own and are registered with
# Debian's alternatives for libblas.so.3 and liblapack.so.3, beside the
# reference and OpenBLAS, at a priority below both: installing the package
# changes nothing until the administrator selects them.
set(VORN_COMPANION_DIR ${CMAKE_INSTALL_LIBDIR}/vorn)
install(TARGETS vorn_blas_dropin vorn_lapack_dropin LIBRARY DESTINATION ${VORN_COMPANION_DIR} NAMELINK_SKIP)

set(VORN_PACKAGE_PREFIX /usr)
set(VORN_ALTERNATIVES_PRIORITY 5)
set(VORN_ALTERNATIVES_ARCH ${CMAKE_LIBRARY_ARCHITECTURE})
configure_file(${CMAKE_SOURCE_DIR}/cmake/package/postinst.in ${CMAKE_BINARY_DIR}/package/debian/postinst @ONLY
               FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
configure_file(${CMAKE_SOURCE_DIR}/cmake/package/prerm.in ${CMAKE_BINARY_DIR}/package/debian/prerm @ONLY
               FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vorn)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "BLAS and LAPACK for LP64 callers over Intel MKL, with drop-in libblas.so.3 and liblapack.so.3")
set(CPACK_PACKAGE_CONTACT "vorn maintainers <maintainers@vorn.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${VORN_PACKAGE_PREFIX})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# MKL over its GNU threading layer; the reference LAPACK serves the
# companion's routines outside the set from its own path.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libmkl-core, libmkl-gnu-thread, libgomp1, liblapack3, libstdc++6, libc6")
# ldconfig runs on install and removal, as for any shared library package.
file(WRITE ${CMAKE_BINARY_DIR}/package/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/package/debian/postinst ${CMAKE_BINARY_DIR}/package/debian/prerm
    ${CMAKE_BINARY_DIR}/package/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
include(CPack)
