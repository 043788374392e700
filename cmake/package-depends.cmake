# Read by cpack when it makes the packages (CPACK_PROJECT_CONFIG_FILE): the runtime
# package depends on the Debian packages that own the files its run-time links point to,
# as this machine resolves them (an alternatives link is followed to its real file).
if(CPACK_GENERATOR STREQUAL "DEB")
  set(owners "")
  foreach(file IN LISTS CPACK_QUARZ_LINK_TARGETS)
    file(REAL_PATH "${file}" real)
    execute_process(COMMAND dpkg-query -S "${real}" OUTPUT_VARIABLE owner RESULT_VARIABLE status
      OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(NOT status EQUAL 0)
      message(FATAL_ERROR "No Debian package owns ${real} (the target of ${file}); the runtime package "
        "could not name what it needs")
    endif()
    # "libgomp1:amd64: /usr/lib/..." names the package before the architecture.
    string(REGEX REPLACE "[:,].*" "" owner "${owner}")
    list(APPEND owners ${owner})
  endforeach()
  list(REMOVE_DUPLICATES owners)
  list(JOIN owners ", " CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS)
endif()
