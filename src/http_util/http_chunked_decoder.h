// Takes a chunked body apart (RFC 9112, section 7.1): bytes in, bytes of the body out, in pieces of
// any size on both sides.
//
// Extensions and trailers are skipped; more than LINE_LIMIT bytes of either are refused, as are
// lines that don't end in CR LF and sizes beyond 64 bits. Pure; one body at a time, reset between.
#pragma once

#include <cstddef>
#include <cstdint>

namespace dorvo {

class HTTP_Chunked_Decoder {
public:
    enum Result : int {
        BAD = -1,  // no chunked body, now and for all further calls
        MORE = 0,  // go on with more input or more room
        END = 2,   // the body and its trailers are complete
    };
    static constexpr size_t LINE_LIMIT = 8192;

    void reset() { *this = HTTP_Chunked_Decoder(); }

    // Uses up to `length` bytes at `in` and writes up to `size` bytes of the body at `out`; says
    // how many of each it was. Nothing behind the body's end is used.
    Result decode(const char* in, size_t length, size_t& consumed, char* out, size_t size,
                  size_t& produced);

    // Bytes of the current chunk that are still to come; 0 outside of a chunk's data. Who takes
    // them past decode(), straight to their place, says so with took().
    uint64_t data_left() const { return state_ == State::data ? left_ : 0; }
    void took(uint64_t bytes);

private:
    enum class State : uint8_t {
        size_first,
        size,
        extension,
        size_lf,
        data,
        data_cr,
        data_lf,
        trailer_first,
        trailer,
        trailer_lf,
        end_lf,
        end,
        bad,
    };
    State next(char c);
    State size_digit(char c);
    State line_byte(char c, State same, State lf);

    State state_ = State::size_first;
    uint64_t left_ = 0;
    size_t skipped_ = 0;  // bytes of extensions of this chunk, or of trailers
};

}  // namespace dorvo
