# Code without an operating system in it, built natively too: clang's sanitizers and fuzzers
# reach it there. A test is listed beside what it tests.
set(pure_sources
    libs/httpmsg/http_base.cpp
    libs/httpmsg/http_headers.cpp
    libs/httpmsg/http_names.cpp
    libs/httpmsg/http_query_string.cpp
    libs/httpmsg/http_request.cpp
    libs/httpmsg/http_response.cpp
    libs/httpmsg/http_response_parser.cpp
    libs/json_spirit/boost_json.cpp
    libs/json_spirit/reader.cpp
    libs/json_spirit/value.cpp
    libs/json_spirit/writer.cpp
    src/base/job_state.cpp
    src/base/error_codes.cpp
    src/base/md5.cpp
    src/http_util/http_chunked_decoder.cpp
    src/http_util/http_location.cpp
    src/record/jobactivity.cpp
    src/record/sourcerecord.cpp
    src/job/statetable.cpp
    src/job/restorepath.cpp
    src/scheduler/schedulecalendar.cpp
    src/scheduler/schedulehelper.cpp
    src/scheduler/timer_heap.cpp
    src/settings/encodedtext.cpp
    src/settings/recoveryfile.cpp
    src/storage/local/localinstancedocument.cpp
    src/storage/local/localrecord.cpp
    src/storage/package/package_reader.cpp
    src/storage/items.cpp
    src/storage/web/web_bodies.cpp)
set(pure_tests
    libs/httpmsg/http_headers_test.cpp
    libs/httpmsg/http_response_parser_test.cpp
    libs/json_spirit/json_spirit_test.cpp
    src/base/md5_test.cpp
    src/http_util/http_chunked_decoder_test.cpp
    src/http_util/http_location_test.cpp
    src/record/jobactivity_test.cpp
    src/record/sourcerecord_test.cpp
    src/job/statetable_test.cpp
    src/job/restorepath_test.cpp
    src/scheduler/schedulehelper_test.cpp
    src/scheduler/schedulezones_test.cpp
    src/scheduler/timer_heap_test.cpp
    src/settings/recoveryfile_test.cpp
    src/storage/local/localinstancedocument_test.cpp
    src/storage/local/localrecord_test.cpp
    src/storage/package/package_reader_test.cpp
    src/storage/items_test.cpp
    src/storage/web/web_bodies_test.cpp)

list(TRANSFORM pure_sources PREPEND ${CMAKE_SOURCE_DIR}/)
list(TRANSFORM pure_tests PREPEND ${CMAKE_SOURCE_DIR}/)
add_library(dorvo_pure STATIC ${pure_sources})
target_link_libraries(dorvo_pure PUBLIC dorvo_flags OpenSSL::Crypto)
dorvo_precompiled(dorvo_pure dorvo_common)
add_executable(pure_test ${pure_tests})
target_link_libraries(pure_test PRIVATE dorvo_pure dorvo_test_support)
add_test(NAME pure COMMAND pure_test)
set_tests_properties(pure PROPERTIES TIMEOUT 300 LABELS unit)
