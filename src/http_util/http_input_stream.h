// Reads the body of the response that an invoker is receiving, plain or in chunks.
//
// Bound to the invoker, which it borrows; use it in state RECEIVING_BODY. Reading to the end leaves
// the invoker in state RESPONSE_DONE.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/api.h"

namespace dorvo {

class HTTP_Invoker_T;

class DORVO_JOB_API HTTP_Input_Stream {
public:
    explicit HTTP_Input_Stream(HTTP_Invoker_T& invoker) : invoker_(invoker) {}

    // Up to `size` bytes, at least one; 0 at the end of the body; -1 with the thread's last error
    // when the connection fails or ends in the middle, the framing is wrong, or the job must stop.
    // Blocks.
    int64_t read(void* buffer, size_t size);

    // Bytes of the whole body as announced, 0 when it comes in chunks.
    uint64_t announced() const;

private:
    HTTP_Invoker_T& invoker_;  // borrowed
};

}  // namespace dorvo
