# Build conventions shared by every folder: one static library per folder, one test
# executable per library, warnings as errors, optional sanitizers.

set(SOLVANTA_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
    -Wno-missing-field-initializers)
# GCC 12 reports string concatenation at -O3 as overlapping copies (a known false positive).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  list(APPEND SOLVANTA_WARNINGS -Wno-restrict)
endif()
if(SOLVANTA_WERROR)
  list(APPEND SOLVANTA_WARNINGS -Werror)
endif()

if(SOLVANTA_SANITIZE)
  string(REPLACE ";" "," _san "${SOLVANTA_SANITIZE}")
  add_compile_options(-fsanitize=${_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_san})
endif()

# The fuzz preset instruments every library for libFuzzer's coverage, not only the targets.
if(SOLVANTA_FUZZ AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# solvanta_library(<name> SOURCES ... [DEPS ...] [PUBLIC_DEPS ...])
# Defines the static library solvanta_<name> (alias solvanta::<name>) rooted at src/.
function(solvanta_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PUBLIC_DEPS" ${ARGN})
  add_library(solvanta_${name} STATIC ${ARG_SOURCES})
  add_library(solvanta::${name} ALIAS solvanta_${name})
  target_include_directories(solvanta_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_compile_options(solvanta_${name} PRIVATE ${SOLVANTA_WARNINGS})
  target_link_libraries(solvanta_${name} PUBLIC ${ARG_PUBLIC_DEPS} PRIVATE ${ARG_DEPS})
endfunction()

# solvanta_tests(<name> SOURCES ... [DEPS ...] [LABELS ...])
# Defines the test executable <name>_tests, linked with gmock and the shared test main,
# and registers every test case with CTest.
function(solvanta_tests name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;LABELS" ${ARGN})
  add_executable(${name}_tests ${ARG_SOURCES})
  target_compile_options(${name}_tests PRIVATE ${SOLVANTA_WARNINGS})
  target_link_libraries(${name}_tests PRIVATE ${ARG_DEPS} solvanta::testmain GTest::gmock)
  # Test discovery writes a label list as separate words, and CTest then keeps only the first:
  # a program has one label, its own name unless it names another (such as "threaded").
  if(ARG_LABELS)
    list(GET ARG_LABELS 0 _labels)
  else()
    set(_labels ${name})
  endif()
  gtest_discover_tests(${name}_tests
    TEST_PREFIX "${name}."
    PROPERTIES LABELS "${_labels}"
    DISCOVERY_TIMEOUT 60)
endfunction()

# solvanta_fuzz(<name> SOURCES ... [DEPS ...] [CORPUS <folder>] [SECONDS <n>])
# Defines the libFuzzer target <name> (clang builds only; elsewhere nothing), with the sources
# compiled into the target so that libFuzzer sees their coverage. CORPUS names a folder of seed
# inputs kept in the repository (relative to the calling folder). Every target is listed in
# <build>/fuzz-targets.txt as "<binary> <corpus> <seconds>", which scripts/test runs for that
# long (SECONDS, default 10); `cmake --build <build> --target fuzz_targets` builds them all.
function(solvanta_fuzz name)
  cmake_parse_arguments(ARG "" "CORPUS;SECONDS" "SOURCES;DEPS" ${ARGN})
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    return()
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE ${SOLVANTA_WARNINGS} -fsanitize=fuzzer)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} -fsanitize=fuzzer)
  set(_corpus "-")
  if(ARG_CORPUS)
    set(_corpus ${CMAKE_CURRENT_SOURCE_DIR}/${ARG_CORPUS})
  endif()
  if(NOT ARG_SECONDS)
    set(ARG_SECONDS 10)
  endif()
  set_property(GLOBAL APPEND PROPERTY SOLVANTA_FUZZ_TARGETS
    "$<TARGET_FILE:${name}> ${_corpus} ${ARG_SECONDS}")
  set_property(GLOBAL APPEND PROPERTY SOLVANTA_FUZZ_NAMES ${name})
endfunction()

# Writes the list of fuzz targets and the target that builds them all. Called once, after
# every folder has been added.
function(solvanta_fuzz_finish)
  get_property(_lines GLOBAL PROPERTY SOLVANTA_FUZZ_TARGETS)
  get_property(_names GLOBAL PROPERTY SOLVANTA_FUZZ_NAMES)
  list(JOIN _lines "\n" _text)
  file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/fuzz-targets.txt CONTENT "${_text}\n")
  add_custom_target(fuzz_targets)
  if(_names)
    add_dependencies(fuzz_targets ${_names})
  endif()
endfunction()
