#include "http_util/http_input_stream.h"

#include "http_util/http_invoker_t.h"

namespace dorvo {

int64_t HTTP_Input_Stream::read(void* buffer, size_t size) {
    return invoker_.recv_body(buffer, size);
}

uint64_t HTTP_Input_Stream::announced() const {
    return invoker_.chunked() ? 0 : invoker_.declared_length();
}

}  // namespace dorvo
