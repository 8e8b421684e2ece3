// The head of a response: status and headers.
#pragma once

#include "httpmsg/export.h"
#include "httpmsg/http_base.h"

namespace dorvo {

class DORVO_HTTPMSG_API HTTP_Response : public HTTP_Base {
public:
    // 0 before a response was received.
    int status() const { return status_; }
    void status(int status) { status_ = status; }

    // The "Set-Cookie" field, as the server sent it; null when there is none. Of several the last
    // one counts.
    const char* set_cookie() const { return headers().get(HTTP_HEAD_SET_COOKIE); }
    int set_cookie(const char* cookie) { return headers().put(HTTP_HEAD_SET_COOKIE, cookie); }

    // The "Location" field; null when there is none.
    const char* location() const { return headers().get(HTTP_HEAD_LOCATION); }

    void reset() override;

private:
    int status_ = 0;
};

}  // namespace dorvo
