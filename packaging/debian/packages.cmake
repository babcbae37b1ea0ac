# What `cpack -G DEB` makes of the components. scripts/package.sh builds for it and runs it.

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE qvcore)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Where what the packages need of each other is found; which package that is, they say themselves.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/QVCore ${PROJECT_BINARY_DIR}/QVPlatform)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/complete.cmake)
set(QVCORE_PACKAGE_CONTACT "QVCore developers <developers@qvcore.invalid>" CACHE STRING
    "The maintainer that the packages name")
set(CPACK_PACKAGE_CONTACT ${QVCORE_PACKAGE_CONTACT})
set(of_this_build "libqvcore4 (= ${PROJECT_VERSION})")

# qv_package(<component> <package> <section> <needs> <text>): the summary is the project's.
function(qv_package component package section needs text)
  string(TOUPPER CPACK_DEBIAN_${component} key)
  set(${key}_PACKAGE_NAME ${package} PARENT_SCOPE)
  set(${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(${key}_PACKAGE_DEPENDS ${needs} PARENT_SCOPE)
  set(${key}_DESCRIPTION ${text} PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
endfunction()

qv_package(runtime libqvcore4 libs ""
  "An event bus, the way out for hits and remote configurations: the shared\nlibraries.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS qvcore-webkit)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/triggers ${CMAKE_CURRENT_LIST_DIR}/symbols)
qv_package(development libqvcore-dev libdevel "${of_this_build}"
  "The headers, and what CMake and pkg-config ask for.")
if(TARGET QVWebKit)
  qv_package(webkit qvcore-webkit libs "${of_this_build}"
    "The default web engine, which is asked for the user agent of a browser: a\nlibrary, and a program with WebKitGTK.")
  set(CPACK_DEBIAN_WEBKIT_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/triggers)
endif()
if(QVCORE_BUILD_TOOLS)
  qv_package(tools qvcore-tools devel "${of_this_build}"
    "Programs for those who work with the core or on it.")
endif()
include(CPack)
