# Installation: `cmake --install <build> --prefix P` lays out a tree that runs on its own:
#   lib/libquarz_linalg.so.<version> and lib/libkort.so.<version> with their SONAME links
#   (libquarz_linalg.so.1, libkort.so.1; the unversioned .so links for linking belong to
#   the development files), lib/quarz_linalg/libiomp5.so and libquarz_core_130000.so
#   (links to the system's OpenMP runtime and OpenBLAS, in the library's private folder,
#   which it looks in after its own directory: lib/ is the loader's default path for the
#   Debian package, where the generic libiomp5.so is Intel's OpenMP runtime's name),
#   include/quarz_linalg.h and include/kort.h,
#   lib/cmake/QuarzLinalg/ (imported targets QuarzLinalg::quarz_linalg, QuarzLinalg::kort)
#   and lib/pkgconfig/quarz_linalg.pc and kort.pc.
# Components: runtime (the shared objects and the run-time links) and dev (the rest), the
# two Debian packages CPack makes (cpack -G DEB in the build directory).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

target_include_directories(quarz_linalg INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_include_directories(kort INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

install(TARGETS quarz_linalg kort EXPORT QuarzLinalgTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(FILES ${QUARZ_INCLUDE_DIR}/quarz_linalg.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
# The kind table beside the library, for the Python host and other bindings.
install(FILES ${GEN_DIR}/quarz_linalg_exports.json DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)

# The run-time modules: links, made at install time under DESTDIR (as CPack stages).
install(CODE "
  set(dir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/quarz_linalg\")
  file(MAKE_DIRECTORY \"\${dir}\")
  file(CREATE_LINK \"${QUARZ_OPENMP_FILE}\" \"\${dir}/libiomp5.so\" SYMBOLIC)
  file(CREATE_LINK \"${QUARZ_KERNEL_FILE}\" \"\${dir}/libquarz_core_130000.so\" SYMBOLIC)
  message(STATUS \"Installing: \${dir}/libiomp5.so, \${dir}/libquarz_core_130000.so (links)\")
" COMPONENT runtime)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/QuarzLinalg)
install(EXPORT QuarzLinalgTargets NAMESPACE QuarzLinalg:: DESTINATION ${config_dir} COMPONENT dev)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/QuarzLinalgConfig.cmake.in
  ${CMAKE_BINARY_DIR}/QuarzLinalgConfig.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/QuarzLinalgConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/QuarzLinalgConfig.cmake ${CMAKE_BINARY_DIR}/QuarzLinalgConfigVersion.cmake
  DESTINATION ${config_dir} COMPONENT dev)

foreach(pc quarz_linalg kort)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${pc}.pc.in ${CMAKE_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()

# Debian packages: the runtime package (libquarz-linalg1) and the development package
# (libquarz-linalg-dev). dpkg-shlibdeps computes what the shared objects link (libc,
# libstdc++, libgcc); the library links no BLAS but loads it at run time through the two
# links, so when cpack runs, cmake/package-depends.cmake adds the packages that own the
# files the links point to.
# Each package's /usr/share/doc: the copyright file and the changelog Debian wants.
set(doc_dir ${CMAKE_BINARY_DIR}/package-doc)
file(MAKE_DIRECTORY ${doc_dir})
file(WRITE ${doc_dir}/changelog "libquarz-linalg (${PROJECT_VERSION}) stable; urgency=medium\n\n  * Release ${PROJECT_VERSION}.\n\n -- Quarz Toolkit developers <linalg@quarz-toolkit.org>  Wed, 25 Nov 2026 00:00:00 +0000\n")
execute_process(COMMAND gzip -9n -c ${doc_dir}/changelog OUTPUT_FILE ${doc_dir}/changelog.gz)
foreach(component runtime dev)
  if(component STREQUAL runtime)
    set(package libquarz-linalg${PROJECT_VERSION_MAJOR})
  else()
    set(package libquarz-linalg-dev)
  endif()
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/copyright ${doc_dir}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endforeach()
file(WRITE ${CMAKE_BINARY_DIR}/package-control/triggers "activate-noawait ldconfig\n")

set(CPACK_PACKAGE_NAME libquarz-linalg)
set(CPACK_PACKAGE_VENDOR "Quarz Toolkit")
set(CPACK_PACKAGE_CONTACT "Quarz Toolkit developers <linalg@quarz-toolkit.org>")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "dense linear algebra over host array handles")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libquarz-linalg${PROJECT_VERSION_MAJOR})
set(CPACK_QUARZ_LINK_TARGETS ${QUARZ_OPENMP_FILE} ${QUARZ_KERNEL_FILE})
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/package-depends.cmake)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/package-control/triggers)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "libquarz_linalg: products, factorizations, measures, solvers, eigenproblems
and matrix functions in four element types, called by name from a host
program, with the reference host runtime libkort.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libquarz-linalg-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libquarz-linalg${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEV_DESCRIPTION "The development files of libquarz_linalg:
headers, CMake package and pkg-config files for libquarz_linalg and libkort.")
include(CPack)
