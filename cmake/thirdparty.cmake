# What others wrote, as imported targets.
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
set_target_properties(gtest gmock gtest_main gmock_main PROPERTIES CXX_CLANG_TIDY "")

if(WIN32)
  include(${CMAKE_SOURCE_DIR}/build/libraries.cmake)
  function(dorvo_library name prefix archive)
    add_library(${name} STATIC IMPORTED GLOBAL)
    set_target_properties(${name} PROPERTIES IMPORTED_LOCATION ${prefix}/lib/${archive}
                                             INTERFACE_INCLUDE_DIRECTORIES ${prefix}/include)
  endfunction()

  add_library(zlib STATIC IMPORTED GLOBAL)
  set_target_properties(zlib PROPERTIES IMPORTED_LOCATION /usr/x86_64-w64-mingw32/lib/libz.a)

  dorvo_library(openssl ${DORVO_OPENSSL} libcrypto.a)
  target_link_libraries(openssl INTERFACE zlib ws2_32 crypt32 gdi32)

  dorvo_library(cryptopp ${DORVO_CRYPTOPP} libcryptopp.a)
  target_link_libraries(cryptopp INTERFACE ws2_32)

  dorvo_library(ace ${DORVO_ACE} libACE.a)
  target_compile_definitions(ace INTERFACE ACE_AS_STATIC_LIBS __ACE_INLINE__)
  target_link_libraries(ace INTERFACE ws2_32 mswsock iphlpapi netapi32)

  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  # The compiler's own libraries lie beside the programs, as they will on the user's machine.
  foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
                    OUTPUT_VARIABLE dll_path OUTPUT_STRIP_TRAILING_WHITESPACE)
    file(COPY_FILE ${dll_path} ${CMAKE_BINARY_DIR}/bin/${dll} ONLY_IF_DIFFERENT)
  endforeach()
else()
  find_package(OpenSSL REQUIRED)
  find_package(SQLite3 REQUIRED)
  find_package(Threads REQUIRED)
endif()
