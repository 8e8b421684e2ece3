// Reads the head of a message from bytes that arrive in any pieces.
//
// The caller keeps what was not consumed and hands it in again, followed by what came later. One
// parser reads one head. Not locked: one thread at a time.
#pragma once

#include <cstddef>

#include "httpmsg/export.h"

namespace dorvo {

class DORVO_HTTPMSG_API HTTP_Parser {
public:
    // What parse() gives; anything negative is a message that is no HTTP.
    enum Result : int {
        BAD_MESSAGE = -1,  // malformed, contradictory, or larger than the limit
        NOT_BEGUN = 0,     // more is needed, the first line is not complete
        IN_HEAD = 1,       // more is needed, the first line was read
        HEAD_DONE = 2,     // the head is complete; what follows is the body
    };

    // Bytes of a head, its empty line included; what is larger is refused.
    static constexpr size_t HEAD_LIMIT = 8192;

    HTTP_Parser() = default;
    virtual ~HTTP_Parser() = default;
    HTTP_Parser(const HTTP_Parser&) = delete;
    HTTP_Parser& operator=(const HTTP_Parser&) = delete;

    // True when the head says that a body follows it.
    virtual bool has_body() const = 0;
};

}  // namespace dorvo
