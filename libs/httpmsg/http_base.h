// What requests and responses have in common: version, headers and how the body is framed.
//
// Members about framing keep number and header field in step: what the accessor says is what is
// sent. Not locked: one thread at a time.
#pragma once

#include <cstdint>

#include "httpmsg/export.h"
#include "httpmsg/http_headers.h"

namespace dorvo {

class DORVO_HTTPMSG_API HTTP_Base {
public:
    explicit HTTP_Base(int major = 1, int minor = 1) : major_(major), minor_(minor) {}
    virtual ~HTTP_Base() = default;
    HTTP_Base(const HTTP_Base&) = default;
    HTTP_Base& operator=(const HTTP_Base&) = default;

    HTTP_Headers& headers() { return headers_; }
    const HTTP_Headers& headers() const { return headers_; }

    // Bytes of the body. Fills the "Content-Length" field, unless the body goes in chunks: a
    // message never carries both.
    uint64_t content_length() const { return content_length_; }
    void content_length(uint64_t length);

    // True by default for version 1.1. Setting fills the "Connection" field.
    bool keep_alive() const { return keep_alive_; }
    void keep_alive(bool keep);

    // Setting fills or empties the "Transfer-Encoding" field.
    bool chunked_transfer_encoding() const { return chunked_; }
    void chunked_transfer_encoding(bool chunked);

    // The "Content-Type" field; null when there is none.
    const char* content_type() const { return headers_.get(HTTP_HEAD_CONTENT_TYPE); }
    int content_type(const char* type) { return headers_.put(HTTP_HEAD_CONTENT_TYPE, type); }

    int major_version() const { return major_; }
    int minor_version() const { return minor_; }
    void version(int major, int minor) {
        major_ = major;
        minor_ = minor;
    }

    // What a parser found out; the fields stay as they were received.
    void received(uint64_t length, bool chunked, bool keep) {
        content_length_ = length;
        chunked_ = chunked;
        keep_alive_ = keep;
    }

    // Back to a message without fields and without a body.
    virtual void reset();

private:
    HTTP_Headers headers_;
    uint64_t content_length_ = 0;
    int major_;
    int minor_;
    bool keep_alive_ = true;
    bool chunked_ = false;
};

}  // namespace dorvo
