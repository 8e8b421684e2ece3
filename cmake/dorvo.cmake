# The rules that every target of the project follows.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -gdwarf-4")
if(WIN32)
  # With lines of source programs are thirty times as large, and take that much longer to link.
  set(CMAKE_CXX_FLAGS_RELWITHDEBINFO -O2)
endif()
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

add_library(dorvo_flags INTERFACE)
target_compile_options(dorvo_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Werror)
if(WIN32)
  # <windows.h> without the old sockets, so that headers may come in any order.
  target_compile_definitions(dorvo_flags INTERFACE WIN32_LEAN_AND_MEAN)
endif()
target_include_directories(dorvo_flags INTERFACE ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/libs
                                                 ${CMAKE_SOURCE_DIR}/tests)
# Most tests are compiled more often than they run; the schedules' go through years minute by minute.
# The sanitizers are slow enough.
add_library(dorvo_test_options INTERFACE)
target_link_libraries(dorvo_test_options INTERFACE dorvo_flags)
target_compile_options(dorvo_test_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-O0>)
# Boost and CLI11 are headers only; a folder of links keeps the rest of /usr/include out.
target_include_directories(dorvo_flags SYSTEM INTERFACE ${CMAKE_SOURCE_DIR}/build/include)

# What most files include, read once: for all code, and with googletest for all tests. clang builds and
# ./dev lint do without, so that each file includes what it uses.
set(common_headers <algorithm> <array> <atomic> <boost/variant.hpp> <chrono> <functional> <map> <memory> <mutex>
                   <optional> <set> <span> <string> <vector>)
if(WIN32)
  list(APPEND common_headers <windows.h>)
endif()
add_library(dorvo_common OBJECT EXCLUDE_FROM_ALL ${CMAKE_SOURCE_DIR}/cmake/common.cpp)
add_library(dorvo_common_tests OBJECT EXCLUDE_FROM_ALL ${CMAKE_SOURCE_DIR}/cmake/common.cpp)
target_link_libraries(dorvo_common PRIVATE dorvo_flags)
target_link_libraries(dorvo_common_tests PRIVATE dorvo_test_options gtest gmock)
target_precompile_headers(dorvo_common PRIVATE ${common_headers})
target_precompile_headers(dorvo_common_tests PRIVATE ${common_headers} <gmock/gmock.h> <gtest/gtest.h>)

# dorvo_precompiled(TARGET FROM)
function(dorvo_precompiled target from)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # For ccache.
    target_compile_options(${target} PRIVATE -fpch-preprocess)
    target_precompile_headers(${target} REUSE_FROM ${from})
  endif()
endfunction()

# The project's code in this folder and the named ones below it, without its tests.
function(dorvo_sources result)
  set(patterns *.cpp ${ARGN})
  list(TRANSFORM patterns REPLACE "^[^*]+$" "\\0/*.cpp")
  list(TRANSFORM patterns PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  file(GLOB sources CONFIGURE_DEPENDS ${patterns})
  list(FILTER sources EXCLUDE REGEX "_test\\.cpp$|_manual\\.cpp$")
  set(${result} ${sources} PARENT_SCOPE)
endfunction()

# dorvo_module(NAME LINK...): a static library of this folder's sources and its test program.
function(dorvo_module name)
  dorvo_sources(sources)
  if(sources)
    add_library(dorvo_${name} STATIC ${sources})
    target_link_libraries(dorvo_${name} PUBLIC dorvo_flags ${ARGN})
    dorvo_precompiled(dorvo_${name} dorvo_common)
  else()
    add_library(dorvo_${name} INTERFACE)
    target_link_libraries(dorvo_${name} INTERFACE dorvo_flags ${ARGN})
  endif()
  dorvo_tests(${name} dorvo_${name})
endfunction()

# dorvo_tests(NAME LINK...): one test program of the *_test.cpp in this folder, and in those below it
# that the caller has in `folders`, as one ctest entry.
function(dorvo_tests name)
  set(patterns *_test.cpp)
  foreach(folder ${folders})
    list(APPEND patterns ${folder}/*_test.cpp)
  endforeach()
  list(TRANSFORM patterns PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  file(GLOB tests CONFIGURE_DEPENDS ${patterns})
  if(tests)
    add_executable(${name}_test ${tests})
    target_link_libraries(${name}_test PRIVATE ${ARGN} dorvo_test_support)
    if(NOT name STREQUAL scheduler)
      target_link_libraries(${name}_test PRIVATE dorvo_test_options)
      dorvo_precompiled(${name}_test dorvo_common_tests)
    endif()
    add_test(NAME ${name} COMMAND ${name}_test)
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 LABELS unit)
    if(WIN32)
      add_dependencies(${name}_test keepalive)
    endif()
  endif()
endfunction()

# dorvo_dll(NAME LINK...): NAME.dll of this folder's sources, and its test program.
function(dorvo_dll name)
  dorvo_sources(sources)
  string(TOUPPER ${name} upper)
  if(sources)
    add_library(${name} SHARED ${sources})
    set_target_properties(${name} PROPERTIES PREFIX "")
    target_compile_definitions(${name} PRIVATE DORVO_${upper}_BUILD)
    target_link_libraries(${name} PUBLIC dorvo_flags PRIVATE ${ARGN})
    dorvo_precompiled(${name} dorvo_common)
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE dorvo_flags)
  endif()
  dorvo_tests(${name} ${name} ${ARGN})
endfunction()
