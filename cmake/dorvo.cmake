# The rules that every target of the project follows.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -gdwarf-4")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

add_library(dorvo_flags INTERFACE)
target_compile_options(dorvo_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Werror)
if(WIN32)
  # <windows.h> without the old sockets, so that headers may come in any order.
  target_compile_definitions(dorvo_flags INTERFACE WIN32_LEAN_AND_MEAN)
  # Names stay, lines go: they made programs thirty times as large, and took most of the time to link.
  target_link_options(dorvo_flags INTERFACE -Wl,--strip-debug)
endif()
target_include_directories(dorvo_flags INTERFACE ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/libs
                                                 ${CMAKE_SOURCE_DIR}/tests)
# Boost and CLI11 are headers only; a folder of links keeps the rest of /usr/include out.
target_include_directories(dorvo_flags SYSTEM INTERFACE ${CMAKE_SOURCE_DIR}/build/include)

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
  else()
    add_library(dorvo_${name} INTERFACE)
    target_link_libraries(dorvo_${name} INTERFACE dorvo_flags ${ARGN})
  endif()
  dorvo_tests(${name} dorvo_${name})
endfunction()

# dorvo_tests(NAME LINK...): one test program of this folder's *_test.cpp, as one ctest entry.
function(dorvo_tests name)
  file(GLOB tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_test.cpp)
  if(tests)
    add_executable(${name}_test ${tests})
    target_link_libraries(${name}_test PRIVATE ${ARGN} dorvo_test_support)
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
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE dorvo_flags)
  endif()
  dorvo_tests(${name} ${name} ${ARGN})
endfunction()
