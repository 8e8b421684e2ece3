// How a body type becomes bytes in a request, and bytes become a body of a response.
//
// Body_Codec<Body>::pieces(body, text) gives the bytes to send; `text` is memory that it may use
// for them. Body_Codec<Body>::read(stream, limit, body) reads a body; see HTTP_Command::read_body.
// Another body type takes part by a specialisation.
#pragma once

#include <windows.h>

#include <algorithm>
#include <string>

#include "http_util/download_data_type.h"
#include "http_util/fbuffer.h"
#include "http_util/http_input_stream.h"
#include "json_spirit/json_spirit.h"

namespace dorvo {

template <class Body>
struct Body_Codec;

// Reads the whole body into a container with data, size and resize. Memory grows with what has
// come, not with what was announced beyond the limit.
template <class Container>
bool read_whole_body(HTTP_Input_Stream& stream, uint64_t limit, Container& out) {
    constexpr size_t step = size_t{64} * 1024;
    const uint64_t announced = stream.announced();
    if (announced > limit) {
        SetLastError(ERROR_FILE_TOO_LARGE);
        return false;
    }
    size_t size = 0;
    out.resize(static_cast<size_t>(announced));
    for (;;) {
        if (size == out.size() && announced == 0) {
            out.resize(size + step);
        }
        // With everything announced read, a read of nothing still sees the body's end.
        char end = 0;
        char* const place = size < out.size() ? out.data() + size : &end;
        const int64_t got = stream.read(place, std::max<size_t>(out.size() - size, 1));
        if (got < 0) {
            return false;
        }
        if (got == 0) {
            out.resize(size);
            return true;
        }
        size += static_cast<size_t>(got);
        if (size > limit) {
            SetLastError(ERROR_FILE_TOO_LARGE);
            return false;
        }
    }
}

template <>
struct Body_Codec<std::string> {
    static Memory_Pieces pieces(const std::string& body, std::string&) {
        return {{{body.data(), body.size()}}};
    }
    static bool read(HTTP_Input_Stream& stream, uint64_t limit, std::string& body) {
        return read_whole_body(stream, limit, body);
    }
};

template <>
struct Body_Codec<json_spirit::Value> {
    // A null value is no body.
    static Memory_Pieces pieces(const json_spirit::Value& body, std::string& text) {
        text = body.is_null() ? std::string() : json_spirit::write(body);
        return {{{text.data(), text.size()}}};
    }
    static bool read(HTTP_Input_Stream& stream, uint64_t limit, json_spirit::Value& body) {
        std::string text;
        if (!read_whole_body(stream, limit, text)) {
            return false;
        }
        try {
            json_spirit::read_or_throw(text, body);
            return true;
        } catch (const json_spirit::Error_position&) {
            SetLastError(ERROR_INVALID_DATA);
            return false;
        }
    }
};

template <>
struct Body_Codec<FBuffer> {
    static Memory_Pieces pieces(const FBuffer& body, std::string&) { return body.pieces(); }
};

template <>
struct Body_Codec<Download_Data_Type> {
    static bool read(HTTP_Input_Stream& stream, uint64_t limit, Download_Data_Type& body) {
        return read_whole_body(stream, limit, body);
    }
};

}  // namespace dorvo
