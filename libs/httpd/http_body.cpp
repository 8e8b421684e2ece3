#include "httpd/http_body.h"

#include <algorithm>

#include "httpd/http_text.h"

namespace dorvo {

namespace {

// More than any length that is taken, and no number overflows.
constexpr size_t maxDigits = 15;
// Of extensions and trailer, together.
constexpr size_t maxOverhead = 8192;

// The digit's value, 16 for what is none.
unsigned hexValue(char c) {
    const char lower = lowerCase(c);
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a') + 10 : 16;
}

}  // namespace

HttpBody::HttpBody(uint64_t length)
    : state_(length == 0 ? State::done : State::content), left_(length) {}

HttpBody HttpBody::chunked() {
    HttpBody body;
    body.chunked_ = true;
    body.state_ = State::firstDigit;
    return body;
}

std::string_view HttpBody::take(std::string_view& bytes) {
    while (!bytes.empty() && !done() && !malformed()) {
        if (state_ != State::content) {
            state_ = next(bytes.front());
            bytes.remove_prefix(1);
            continue;
        }
        const std::string_view piece = bytes.substr(0, std::min<uint64_t>(left_, bytes.size()));
        bytes.remove_prefix(piece.size());
        left_ -= piece.size();
        if (left_ == 0) {
            state_ = chunked_ ? State::contentCr : State::done;
        }
        return piece;
    }
    return {};
}

HttpBody::State HttpBody::next(char c) {
    const auto only = [c](char wanted, State then) {
        return c == wanted ? then : State::malformed;
    };
    switch (state_) {
        case State::firstDigit:
            left_ = 0;
            digits_ = 0;
            return onDigit(c);
        case State::digits: return hexValue(c) < 16 ? onDigit(c) : onSizeEnd(c);
        case State::extension: return onSizeEnd(c);
        case State::sizeLf: return only('\n', left_ == 0 ? State::trailerLine : State::content);
        case State::contentCr: return only('\r', State::contentLf);
        case State::contentLf: return only('\n', State::firstDigit);
        case State::trailerLine: return c == '\r' ? State::endLf : onTrailer(c, State::trailerName);
        case State::trailerName:
            return c == ':' ? State::trailerValue : onTrailer(c, State::trailerName);
        case State::trailerValue:
            return c == '\r' ? State::trailerLf : onTrailer(c, State::trailerValue);
        case State::trailerLf: return only('\n', State::trailerLine);
        case State::endLf: return only('\n', State::done);
        case State::content:
        case State::done:
        case State::malformed: break;
    }
    return state_;
}

HttpBody::State HttpBody::onDigit(char c) {
    const unsigned value = hexValue(c);
    if (value > 15 || ++digits_ > maxDigits) {
        return State::malformed;
    }
    left_ = left_ * 16 + value;
    return State::digits;
}

// Behind the size: extensions, or the line's end.
HttpBody::State HttpBody::onSizeEnd(char c) {
    if (c == '\r') {
        return State::sizeLf;
    }
    const bool fits = state_ == State::extension ? isFieldChar(c) : c == ';';
    return fits && ++overhead_ <= maxOverhead ? State::extension : State::malformed;
}

HttpBody::State HttpBody::onTrailer(char c, State within) {
    const bool fits = within == State::trailerName ? isTokenChar(c) : isFieldChar(c);
    return fits && ++overhead_ <= maxOverhead ? within : State::malformed;
}

}  // namespace dorvo
