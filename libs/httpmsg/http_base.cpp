#include "httpmsg/http_base.h"

#include <string>

namespace dorvo {

void HTTP_Base::content_length(uint64_t length) {
    content_length_ = length;
    if (!chunked_) {
        headers_.put(HTTP_HEAD_CONTENT_LENGTH, std::to_string(length));
    }
}

void HTTP_Base::keep_alive(bool keep) {
    keep_alive_ = keep;
    headers_.put(HTTP_HEAD_CONNECTION, keep ? "keep-alive" : "close");
}

void HTTP_Base::chunked_transfer_encoding(bool chunked) {
    chunked_ = chunked;
    headers_.put(HTTP_HEAD_TRANSFER_ENCODING, chunked ? "chunked" : nullptr);
    if (chunked) {
        headers_.put(HTTP_HEAD_CONTENT_LENGTH, nullptr);
    }
}

void HTTP_Base::reset() {
    headers_.reset();
    content_length_ = 0;
    keep_alive_ = true;
    chunked_ = false;
}

}  // namespace dorvo
