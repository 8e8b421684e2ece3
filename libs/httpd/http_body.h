// A request's body on its way in: bytes of the connection go in, content comes out. Chunks are read
// as strictly as heads; what their extensions and the trailer say is dropped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace dorvo {

class HttpBody {
public:
    // In one piece of that length.
    explicit HttpBody(uint64_t length = 0);
    static HttpBody chunked();

    // Takes what is the body's off the front of the bytes, up to the end of a piece of content, and
    // gives that piece, a view into them; an empty one when they held no more content. To be called
    // again until the bytes are used up or the body is over.
    std::string_view take(std::string_view& bytes);

    // How much to read of it at a time, `most` at most: nothing of what follows it, where that
    // shows.
    [[nodiscard]] size_t wanted(size_t most) const {
        return chunked_ || left_ > most ? most : static_cast<size_t>(left_);
    }

    [[nodiscard]] bool isChunked() const { return chunked_; }
    // Bytes of content that are known to come.
    [[nodiscard]] uint64_t announced() const { return left_; }

    // All of it has been taken: the bytes that follow are not its own.
    [[nodiscard]] bool done() const { return state_ == State::done; }
    // It cannot be told where it ends.
    [[nodiscard]] bool malformed() const { return state_ == State::malformed; }

private:
    enum class State : uint8_t {
        firstDigit,  // of a chunk's size
        digits,
        extension,
        sizeLf,
        content,
        contentCr,
        contentLf,
        trailerLine,  // at its begin
        trailerName,
        trailerValue,
        trailerLf,
        endLf,
        done,
        malformed,
    };

    State next(char c);
    State onDigit(char c);
    State onSizeEnd(char c);
    State onTrailer(char c, State within);

    State state_;
    bool chunked_ = false;
    uint64_t left_ = 0;    // of the piece of content
    size_t digits_ = 0;    // of the chunk's size
    size_t overhead_ = 0;  // bytes of extensions and trailer so far
};

}  // namespace dorvo
