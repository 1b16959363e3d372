# One function for each kind of target, so that a folder's CMakeLists.txt says only what is its own.
include(GNUInstallDirs)

# The standard and the warnings of all our code; nothing global, so that third-party code keeps its own.
add_library(tvk_build_flags INTERFACE)
target_compile_features(tvk_build_flags INTERFACE cxx_std_20)
target_compile_options(tvk_build_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                                                 -Wconversion -Wno-sign-conversion -Werror -fvisibility=hidden)
target_include_directories(tvk_build_flags INTERFACE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include
                                                     ${CMAKE_BINARY_DIR}/include)
if(TVK_SANITIZE AND WIN32)
  # mingw has no sanitiser runtime: a finding traps, and the standard library checks its own preconditions.
  add_compile_options(-fsanitize=${TVK_SANITIZE} -fsanitize-undefined-trap-on-error -D_GLIBCXX_ASSERTIONS)
elseif(TVK_SANITIZE)
  add_compile_options(-fsanitize=${TVK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TVK_SANITIZE})
endif()
if(TVK_SANITIZE)
  # Optimising what a sanitiser put in takes most of its compilation; a finding needs lines, no variables.
  add_compile_options(-O1 -g1)
endif()
if(TVK_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 sees the standard library's regular expressions use what they did not set, once their code is sanitised.
  target_compile_options(tvk_build_flags INTERFACE -Wno-maybe-uninitialized)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 at -O3 takes the inlined copies of text + std::string for overlapping ones; it was mended in GCC 13.
  target_compile_options(tvk_build_flags INTERFACE $<$<CONFIG:Release>:-Wno-restrict>)
endif()
find_package(Threads REQUIRED)

# Code that mostly waits is built for size, since its memory is what is felt of it; a library with the property TVK_FAST,
# which works on every record or on long tables, for speed. Tests (the property TVK_TEST) run for less time than they
# take to optimise.
if(NOT TVK_SANITIZE)
  target_compile_options(tvk_build_flags INTERFACE
                         $<$<AND:$<CONFIG:RelWithDebInfo>,$<NOT:$<BOOL:$<TARGET_PROPERTY:TVK_FAST>>>>:-Os>)
endif()
target_compile_options(tvk_build_flags INTERFACE "$<$<BOOL:$<TARGET_PROPERTY:TVK_TEST>>:-O0;-g1>")

# tvk_library(NAME SOURCES file... [DEPS target...] [PRIVATE_DEPS target...] [EXPORTED] [FAST])
# A static library tvk_NAME with the alias tvk::NAME. What it links is what its code may include: that is the layering.
function(tvk_library NAME)
  cmake_parse_arguments(A "EXPORTED;FAST" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(tvk_${NAME} STATIC ${A_SOURCES})
  add_library(tvk::${NAME} ALIAS tvk_${NAME})
  target_link_libraries(tvk_${NAME} PUBLIC tvk_build_flags Threads::Threads ${A_DEPS} PRIVATE ${A_PRIVATE_DEPS})
  set_target_properties(tvk_${NAME} PROPERTIES TVK_FAST "${A_FAST}")
  if(A_EXPORTED)
    # Whoever links it has the exported classes inside; users of the component's library import them.
    target_compile_definitions(tvk_${NAME} PUBLIC tvkeventmanager_EXPORTS)
  endif()
endfunction()

# tvk_program(NAME SOURCES file... [DEPS target...])
function(tvk_program NAME)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${NAME} ${A_SOURCES})
  target_link_libraries(${NAME} PRIVATE tvk_build_flags ${A_DEPS})
  # Installed, it finds the component's library wherever both are put.
  set_target_properties(${NAME} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  if(WIN32)
    target_compile_options(${NAME} PRIVATE -municode)
    target_link_options(${NAME} PRIVATE -municode)
  endif()
endfunction()

# tvk_test(NAME SOURCES file... [DEPS target...] [PROCESS])
# A GoogleTest program, one ctest entry per test case. PROCESS: one entry for the whole program, run alone in its own
# environment (a private Wine prefix on Windows), for tests that start services and processes.
function(tvk_test NAME)
  if(NOT TVK_TESTS)
    return()
  endif()
  cmake_parse_arguments(A "PROCESS" "TIMEOUT" "SOURCES;DEPS" ${ARGN})
  add_executable(${NAME} ${A_SOURCES})
  set_target_properties(${NAME} PROPERTIES TVK_TEST ON)
  target_link_libraries(${NAME} PRIVATE tvk_build_flags ${A_DEPS} GTest::gmock GTest::gtest_main)
  if(NOT A_TIMEOUT)
    set(A_TIMEOUT 180)
  endif()
  set(_properties TIMEOUT ${A_TIMEOUT})
  if(TVK_WINE)
    list(APPEND _properties FIXTURES_REQUIRED wine)
  endif()
  if(A_PROCESS)
    add_test(NAME ${NAME} COMMAND ${NAME})
    if(TVK_WINE)
      list(APPEND _properties ENVIRONMENT WINE_PRIVATE=1)
    endif()
    set_tests_properties(${NAME} PROPERTIES ${_properties})
  else()
    gtest_discover_tests(${NAME} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 TEST_PREFIX ${NAME}.
                         PROPERTIES ${_properties})
  endif()
endfunction()

# tvk_fuzzer(NAME SOURCES file... [DEPS target...]): a libFuzzer program; its seeds lie in fuzz/corpus/NAME, its words, if
# it has any, in fuzz/NAME.dict.
# ctest runs it over its seeds and then for a short bounded time.
function(tvk_fuzzer NAME)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(fuzz_${NAME} ${A_SOURCES})
  target_link_libraries(fuzz_${NAME} PRIVATE tvk_build_flags ${A_DEPS})
  target_link_options(fuzz_${NAME} PRIVATE -fsanitize=fuzzer)
  set(_work ${CMAKE_BINARY_DIR}/corpus/${NAME})
  file(MAKE_DIRECTORY ${_work})
  set(_words "")
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${NAME}.dict)
    set(_words -dict=${CMAKE_CURRENT_SOURCE_DIR}/${NAME}.dict)
  endif()
  add_test(NAME fuzz.${NAME} COMMAND fuzz_${NAME} -max_total_time=10 -timeout=25 -rss_limit_mb=1024 -print_final_stats=0
                                     ${_words} ${_work} ${CMAKE_CURRENT_SOURCE_DIR}/corpus/${NAME})
  set_tests_properties(fuzz.${NAME} PROPERTIES TIMEOUT 120)
endfunction()

include(GoogleTest)
set(TVK_WINE OFF)
if(WIN32 AND CMAKE_HOST_UNIX AND TVK_TESTS)
  set(TVK_WINE ON)
  set(_prefix ${CMAKE_BINARY_DIR}/wineprefix)
  add_test(NAME wine.up COMMAND ${CMAKE_SOURCE_DIR}/scripts/wine-prefix up ${_prefix})
  add_test(NAME wine.down COMMAND ${CMAKE_SOURCE_DIR}/scripts/wine-prefix down ${_prefix})
  set_tests_properties(wine.up PROPERTIES FIXTURES_SETUP wine TIMEOUT 180)
  set_tests_properties(wine.down PROPERTIES FIXTURES_CLEANUP wine TIMEOUT 60)
endif()
