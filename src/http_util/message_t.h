// An HTTP message with a typed body.
#pragma once

#include <string>
#include <utility>

#include "httpmsg/http_request.h"
#include "httpmsg/http_response.h"

namespace dorvo {

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

}  // namespace dorvo
