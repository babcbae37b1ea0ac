# What all targets of the project have in common.

# A static library of objects that wait for their optimisation could be linked by this compiler alone.
set(QV_HAS_IPO OFF)
if(QVCORE_LTO AND QVCORE_BUILD_SHARED)
  include(CheckIPOSupported)
  check_ipo_supported(RESULT QV_HAS_IPO OUTPUT reason LANGUAGES CXX)
endif()
# One word for up to 63 places that hold an address of the library's own, instead of three words each.
include(CheckLinkerFlag)
check_linker_flag(CXX "LINKER:-z,pack-relative-relocs" QV_HAS_PACKED_RELOCATIONS)

# qv_target(<target>): language level, warnings, hidden visibility. Files of one directory use the same
# names for what is their own, so that they are not compiled as one, whatever a host asks for itself.
function(qv_target target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    UNITY_BUILD OFF
    POSITION_INDEPENDENT_CODE ON)
  # Else a directory whose places have more than 32 bits could not be read to its end, nor a file asked
  # for its size: the saved hits would not be found.
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
  endif()
endfunction()

# qv_sources(<variable> <names...>): all source files below the directory, those of the given names
# first. These are what each post, hit, save, restore and look-up runs through, and gcc sets their
# functions in one piece and without gaps; the others are optimised for size. The order counts, too: of an inline
# function that several files make, the linker takes the first one.
function(qv_sources variable)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS *.cpp)
  list(FILTER sources EXCLUDE REGEX "/WebKit/GTK/")
  list(JOIN ARGN "|" names)
  set(quick ${sources})
  list(FILTER quick INCLUDE REGEX "/(${names})\\.cpp$")
  list(LENGTH ARGN named)
  list(LENGTH quick found)
  if(NOT named EQUAL found)
    message(FATAL_ERROR "${found} files have the ${named} names ${ARGN}")
  endif()
  list(REMOVE_ITEM sources ${quick})
  set_source_files_properties(${sources} PROPERTIES
    COMPILE_OPTIONS $<$<CONFIG:Release,RelWithDebInfo>:-Os>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    set_source_files_properties(${quick} PROPERTIES
      COMPILE_OPTIONS "-fno-align-functions;-fno-align-jumps;-fno-reorder-blocks-and-partition")
  endif()
  set(${variable} ${quick} ${sources} PARENT_SCOPE)
endfunction()

# qv_library(<target> <sources...>): a library of the kit, shared or static.
function(qv_library target)
  if(QVCORE_BUILD_SHARED)
    add_library(${target} SHARED ${ARGN})
    qv_shared_library(${target})
  else()
    add_library(${target} STATIC ${ARGN})
  endif()
  add_library(QVCore::${target} ALIAS ${target})
  qv_target(${target})
  # What a file includes takes most of the time to compile it. Where it forgot some of it, the builds
  # without sanitizers show.
  if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=")
    target_precompile_headers(${target} PRIVATE
      <functional> <map> <memory> <string> <vector> <QVPlatform/Foundation/Value.h>)
  endif()
endfunction()

# qv_shared_library(<target>): the project's version, soname and symbol version. The library is never
# unmapped, since its threads run as long as the process does.
function(qv_shared_library target)
  set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    INSTALL_RPATH $ORIGIN
    LINK_DEPENDS ${exports}
    INTERPROCEDURAL_OPTIMIZATION_RELEASE ${QV_HAS_IPO}
    INTERPROCEDURAL_OPTIMIZATION_RELWITHDEBINFO ${QV_HAS_IPO})
  target_link_options(${target} PRIVATE
    -Wl,--as-needed
    -Wl,-z,nodelete
    -Wl,-z,noseparate-code
    -Wl,--version-script=${exports})
  if(QV_HAS_PACKED_RELOCATIONS)
    target_link_options(${target} PRIVATE LINKER:-z,pack-relative-relocs)
  endif()
  # Calls into other libraries without a jump table, and calls within this one directly, since nobody
  # is to replace its functions: code that a hit runs through once costs mostly what it takes to load.
  target_compile_options(${target} PRIVATE -fno-plt -fno-semantic-interposition)
  # With clang the sanitizers' run time is in the program alone, so that a library refers to symbols
  # that none of its own libraries defines.
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize=")
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()

# qv_public_headers(<target> <base directory> <headers...>): what is installed of the target, and
# where users of the target find it. The callers glob the rooms: a header is public by where it lies.
function(qv_public_headers target base)
  target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS ${base} FILES ${ARGN})
endfunction()

# Seconds for each test.
set(QV_TEST_TIMEOUT 120)
if(CMAKE_CROSSCOMPILING)
  set(QV_TEST_TIMEOUT 1200)  # an emulator takes ten times as long
endif()

# qv_test(<name> <sources...>): a GoogleTest program; each of its tests runs in a process of its
# own, since the shared services live as long as a process does.
function(qv_test name)
  add_executable(${name} ${ARGN})
  qv_target(${name})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE QVCore QVPlatform GTest::gmock GTest::gtest_main
                        PkgConfig::httplib)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES
    TIMEOUT ${QV_TEST_TIMEOUT}
    LABELS ${name}
    ENVIRONMENT "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/tsan.supp")
endfunction()

# qv_tool(<target> <page>): what the tools have in common, and the program is installed with its page
# of the manual.
function(qv_tool target page)
  qv_target(${target})
  if(QVCORE_INSTALL)
    install(TARGETS ${target} RUNTIME COMPONENT tools)
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  endif()
endfunction()
