#include "http_util/http_chunked_decoder.h"

#include <algorithm>
#include <cstring>

#include "httpmsg/hex_digit.h"

namespace dorvo {

HTTP_Chunked_Decoder::Result HTTP_Chunked_Decoder::decode(const char* in, size_t length,
                                                          size_t& consumed, char* out, size_t size,
                                                          size_t& produced) {
    consumed = 0;
    produced = 0;
    while (consumed < length && state_ != State::end && state_ != State::bad) {
        if (state_ == State::data) {
            const size_t room = std::min(length - consumed, size - produced);
            const auto bytes = static_cast<size_t>(std::min<uint64_t>(room, left_));
            if (bytes == 0) {
                break;
            }
            std::memcpy(out + produced, in + consumed, bytes);
            consumed += bytes;
            produced += bytes;
            took(bytes);
        } else {
            state_ = next(in[consumed++]);
        }
    }
    if (state_ == State::bad) {
        return BAD;
    }
    return state_ == State::end ? END : MORE;
}

void HTTP_Chunked_Decoder::took(uint64_t bytes) {
    left_ -= bytes;
    if (left_ == 0) {
        state_ = State::data_cr;
    }
}

// Every state that looks at a single byte.
HTTP_Chunked_Decoder::State HTTP_Chunked_Decoder::next(char c) {
    switch (state_) {
        case State::size_first:
            left_ = 0;
            skipped_ = 0;
            return hex_digit(c) < 0 ? State::bad : size_digit(c);
        case State::size: return size_digit(c);
        case State::extension: return line_byte(c, State::extension, State::size_lf);
        case State::size_lf:
            if (c != '\n') {
                return State::bad;
            }
            skipped_ = 0;
            return left_ == 0 ? State::trailer_first : State::data;
        case State::data_cr: return c == '\r' ? State::data_lf : State::bad;
        case State::data_lf: return c == '\n' ? State::size_first : State::bad;
        case State::trailer_first:
            return c == '\r' ? State::end_lf : line_byte(c, State::trailer, State::trailer_lf);
        case State::trailer: return line_byte(c, State::trailer, State::trailer_lf);
        case State::trailer_lf: return c == '\n' ? State::trailer_first : State::bad;
        case State::end_lf: return c == '\n' ? State::end : State::bad;
        case State::data:
        case State::end:
        case State::bad: break;
    }
    return State::bad;
}

HTTP_Chunked_Decoder::State HTTP_Chunked_Decoder::size_digit(char c) {
    const int digit = hex_digit(c);
    if (digit >= 0) {
        if (left_ >> 60 != 0) {
            return State::bad;
        }
        left_ = left_ << 4 | static_cast<uint64_t>(digit);
        return State::size;
    }
    if (c == '\r') {
        return State::size_lf;
    }
    return c == ';' || c == ' ' || c == '\t' ? State::extension : State::bad;
}

// A byte that is skipped: anything up to the line's CR, but no other control character.
HTTP_Chunked_Decoder::State HTTP_Chunked_Decoder::line_byte(char c, State same, State lf) {
    if (c == '\r') {
        return lf;
    }
    const bool text = static_cast<unsigned char>(c) >= ' ' || c == '\t';
    return text && ++skipped_ <= LINE_LIMIT ? same : State::bad;
}

}  // namespace dorvo
