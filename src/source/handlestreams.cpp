#include "source/handlestreams.h"

#include <stdexcept>

#include "base/error_text.h"

namespace dorvo {

DWORD chainError(const ReadHandleStream& in, const WriteHandleStream& out) {
    if (in.buffer().interrupted()) {
        return ERROR_CANCELLED;
    }
    if (in.buffer().error() != ERROR_SUCCESS) {
        return in.buffer().error();
    }
    return out.buffer().error() != ERROR_SUCCESS ? out.buffer().error() : DWORD{ERROR_INVALID_DATA};
}

void throwIfCutOff(const ReadHandleStream& in) {
    if (const DWORD error = in.buffer().error(); error != ERROR_SUCCESS) {
        throw std::runtime_error(errorText(error));
    }
}

}  // namespace dorvo
