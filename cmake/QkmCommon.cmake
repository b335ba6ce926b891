# Flags and the library pattern shared by both libraries.
#
# Numeric code is compiled without contraction (no fused multiply-add) and never with
# -ffast-math: every product of a described order is rounded on its own.
set(QKM_NUMERIC_FLAGS -ffp-contract=off -fno-fast-math -march=x86-64 -mtune=generic)
set(QKM_WARNING_FLAGS -Wall -Wextra -Wno-unused-parameter -Wno-psabi)

if(QKM_SANITIZE)
  set(QKM_SANITIZE_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=undefined
      -fno-omit-frame-pointer)
  add_compile_options(${QKM_SANITIZE_FLAGS})
  add_link_options(-fsanitize=address,undefined)
endif()
# Coverage feedback for the libFuzzer targets (clang only); the targets link the fuzzer.
if(QKM_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
# ThreadSanitizer, for the thread tests.
if(QKM_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
# Line and branch counters (gcov) for the coverage report.
if(QKM_COVERAGE)
  # Atomic counter updates: the thread tests run kernels from several threads at once, and
  # racing increments would leave counts that gcov cannot read.
  add_compile_options(--coverage -O0 -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

# Writes the version script of a shared library from its export lists: node NODE admits
# exactly the listed names (one a line, '#' starts a comment line) and hides everything else.
# The lists are the one place where exported names are written down; editing one re-runs
# the configuration.
function(qkm_write_version_script out node)
  set(names)
  foreach(list IN LISTS ARGN)
    file(STRINGS ${list} lines REGEX "^[^#]")
    list(APPEND names ${lines})
  endforeach()
  list(SORT names)
  list(REMOVE_DUPLICATES names)
  list(JOIN names ";\n    " body)
  file(CONFIGURE OUTPUT ${out} CONTENT
    "/* Generated from the export lists; edit those, not this file. */\n${node} {\n  global:\n    ${body};\n  local:\n    *;\n};\n")
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ARGN})
endfunction()

# qkm_add_library(NAME SOURCES ... EXPORTS list... NODE versionnode)
# Builds one set of position-independent objects and makes of them
#   NAME          the shared library (exactly the names of the EXPORTS lists, in NODE),
#   NAME_static   an archive of the same objects, for tests that reach internal hooks,
#   NAME_headers  the include folders.
function(qkm_add_library name)
  cmake_parse_arguments(A "" "NODE" "SOURCES;EXPORTS" ${ARGN})
  add_library(${name}_headers INTERFACE)
  target_include_directories(${name}_headers INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/QORKYTMathKernel>)
  add_library(${name}_objects OBJECT ${A_SOURCES})
  target_include_directories(${name}_objects PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name}_objects PUBLIC ${name}_headers)
  # Calls between the library's own functions are bound inside the library: a library loaded
  # earlier that exports the same name (e_dscal, eagemm, ...) cannot replace them, so results
  # stay those of this library's code.
  target_compile_options(${name}_objects PRIVATE ${QKM_NUMERIC_FLAGS} ${QKM_WARNING_FLAGS}
    -fno-semantic-interposition)
  target_compile_definitions(${name}_objects PRIVATE QKM_BUILDING_LIBRARY=1)

  add_library(${name} SHARED $<TARGET_OBJECTS:${name}_objects>)
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/QORKYTMathKernel>)
  set(map ${PROJECT_BINARY_DIR}/${name}.map)
  qkm_write_version_script(${map} ${A_NODE} ${A_EXPORTS})
  target_link_options(${name} PRIVATE -Wl,--version-script=${map} -Wl,--no-undefined
    -Wl,-Bsymbolic-functions)
  set_target_properties(${name} PROPERTIES LINK_DEPENDS ${map})

  add_library(${name}_static STATIC $<TARGET_OBJECTS:${name}_objects>)
  target_link_libraries(${name}_static PUBLIC ${name}_headers)

  set(${name}_EXPORT_LISTS ${A_EXPORTS} CACHE INTERNAL "export lists of ${name}")
endfunction()
