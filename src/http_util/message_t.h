// HTTP messages with a typed body, the types of bodies, and how each becomes bytes in a request or
// is read from a response.
//
// Besides the two below, a body is a json_spirit::Value, of which null is none, or a std::string.
// Another type takes part by a specialisation of Body_Codec.
#pragma once

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "http_util/http_invoker_t.h"
#include "httpmsg/http_request.h"
#include "httpmsg/http_response.h"
#include "json_spirit/json_spirit.h"

namespace dorvo {

// A run of borrowed bytes.
struct Memory_Piece {
    const void* data = nullptr;
    size_t length = 0;
};
using Memory_Pieces = std::array<Memory_Piece, 3>;

// A request body in pieces of memory: a prefix, borrowed data and a suffix. Prefix and suffix are
// owned; the data belongs to the caller, stays where it is until the command has run, and is handed
// to the socket without being copied. Any piece may be empty.
class FBuffer {
public:
    FBuffer() = default;
    FBuffer(std::string prefix, const void* data, size_t length, std::string suffix)
        : prefix_(std::move(prefix)), data_{data, length}, suffix_(std::move(suffix)) {}

    uint64_t length() const { return prefix_.size() + data_.length + suffix_.size(); }
    // In the order they are sent; valid until the buffer changes.
    Memory_Pieces pieces() const {
        return {{{prefix_.data(), prefix_.size()}, data_, {suffix_.data(), suffix_.size()}}};
    }

    const std::string& prefix() const { return prefix_; }
    const std::string& suffix() const { return suffix_; }

private:
    std::string prefix_;
    Memory_Piece data_;
    std::string suffix_;
};

// The body of a download: bytes as they came. Used again, it keeps its memory.
class Download_Data_Type {
public:
    const char* data() const { return bytes_.data(); }
    char* data() { return bytes_.data(); }
    size_t size() const { return bytes_.size(); }
    void resize(size_t size) { bytes_.resize(size); }
    void clear() { bytes_.clear(); }

private:
    std::vector<char> bytes_;
};

template <class Head, class Body>
class Message_T : public Head {
public:
    using Body_Type = Body;
    using Head::Head;

    Body& body() { return body_; }
    const Body& body() const { return body_; }
    void body(Body body) { body_ = std::move(body); }

private:
    Body body_{};
};

// A request is a POST of version 1.1 to `uri` unless it says otherwise.
template <class Body>
class Request_T : public Message_T<HTTP_Request, Body> {
public:
    explicit Request_T(const std::string& uri = "/", int method = HTTP_METHOD_POST, int major = 1,
                       int minor = 1)
        : Message_T<HTTP_Request, Body>(method, uri, major, minor) {}
};

template <class Body>
class Response_T : public Message_T<HTTP_Response, Body> {
public:
    // The body of an answer other than 200, as text, cut off at a bound.
    const std::string& error_text() const { return error_text_; }
    std::string& error_text() { return error_text_; }

    void reset() override {
        Message_T<HTTP_Response, Body>::reset();
        if constexpr (requires(Body & body) { body.clear(); }) {
            this->body().clear();
        } else {
            this->body() = Body{};
        }
        error_text_.clear();
    }

private:
    std::string error_text_;
};

// Body_Codec<Body>::pieces(body, text) gives the bytes to send; `text` is memory that it may use
// for them. Body_Codec<Body>::read(stream, limit, body) reads a body; see HTTP_Command::read_body.
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
