# How every target of the project is compiled, and the shorthand by which folders declare themselves.

# Language, warnings and floating-point rules. Arithmetic order is part of what the library
# promises, so no contraction into fused operations and never -ffast-math.
add_library(qv_compile_options INTERFACE)
target_compile_features(qv_compile_options INTERFACE cxx_std_20)
target_compile_options(qv_compile_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -ffp-contract=off
  $<$<BOOL:${QV_WERROR}>:-Werror>
  # g++ 12 takes "text" + std::string for an overlapping copy wherever it inlines it.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)

# qv_room(HEADERS a.h ... SOURCES a.cpp ... [PRIVATE_HEADERS p.h ...]): adds a folder of qv/ to
# the library. HEADERS are installed; PRIVATE_HEADERS are not.
function(qv_room)
  cmake_parse_arguments(ROOM "" "" "HEADERS;SOURCES;PRIVATE_HEADERS" ${ARGN})
  target_sources(quorvel_core_objects PRIVATE ${ROOM_SOURCES} ${ROOM_PRIVATE_HEADERS})
  target_sources(quorvel_core PUBLIC
    FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}" FILES ${ROOM_HEADERS})
endfunction()

# qv_test(NAME SOURCES a.cpp ... [LIBRARIES l ...] [INTERNAL] [ENVIRONMENT K=V ...] [LABELS l ...]
# [TIMEOUT seconds]): a GoogleTest program whose cases become ctest tests. INTERNAL links the
# library's objects statically, so that the test reaches what the shared library hides.
function(qv_test name)
  cmake_parse_arguments(TEST "INTERNAL" "TIMEOUT" "SOURCES;LIBRARIES;ENVIRONMENT;LABELS" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  if(TEST_INTERNAL)
    target_link_libraries(${name} PRIVATE quorvel_core_internal)
  else()
    target_link_libraries(${name} PRIVATE quorvel::core)
  endif()
  target_link_libraries(${name} PRIVATE qv_compile_options ${TEST_LIBRARIES} GTest::gtest_main)
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=address")
    target_sources(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/sanitizer_defaults.cpp")
  endif()
  if(NOT TEST_TIMEOUT)
    set(TEST_TIMEOUT 300)
  endif()
  # A case that passed has not failed where clang 14's leak checker then crashes itself, as it now and
  # then does among the threads that a GL driver is about to end.
  set(skipped "  SKIPPED |  PASSED  . 1 test.*LeakSanitizer has encountered a fatal error")
  # What programs and drivers keep for later runs is not put among the user's.
  set(properties TIMEOUT ${TEST_TIMEOUT} SKIP_REGULAR_EXPRESSION "${skipped}"
    ENVIRONMENT_MODIFICATION "XDG_CACHE_HOME=set:${PROJECT_BINARY_DIR}/tests/cache")
  if(TEST_ENVIRONMENT)
    list(APPEND properties ENVIRONMENT "${TEST_ENVIRONMENT}")
  endif()
  if(TEST_LABELS)
    list(APPEND properties LABELS "${TEST_LABELS}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST TEST_PREFIX "${name}." PROPERTIES ${properties})
endfunction()

# qv_bench(NAME SOURCES a.cpp ... [LIBRARIES l ...]): the program bench_NAME, run by scripts/bench NAME.
function(qv_bench name)
  cmake_parse_arguments(BENCH "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(bench_${name} ${BENCH_SOURCES})
  target_link_libraries(bench_${name} PRIVATE quorvel::core qv_bench_report qv_compile_options ${BENCH_LIBRARIES})
  target_include_directories(bench_${name} PRIVATE "${PROJECT_SOURCE_DIR}")
endfunction()

# qv_fuzz(NAME SOURCES a.cpp ...): the libFuzzer program fuzz_NAME, run by scripts/fuzz.
function(qv_fuzz name)
  cmake_parse_arguments(FUZZ "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(fuzz_${name} ${FUZZ_SOURCES})
  target_link_libraries(fuzz_${name} PRIVATE quorvel_core_internal qv_compile_options ${FUZZ_LIBRARIES})
  target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
endfunction()
