// The head of a response, whole and in small pieces: both are read alike.
#include <algorithm>

#include "httpmsg/http_response_parser.h"
#include "input.h"

using namespace dorvo;

namespace {

// What is left of the text is the body's.
int parse(std::string_view& text, size_t step, HTTP_Response& response) {
    HTTP_Response_Parser parser;
    for (size_t come = std::min(text.size(), step);; come = std::min(text.size(), come + step)) {
        size_t consumed = 0;
        const int result = parser.parse(text.data(), come, consumed, response);
        fuzz::require(consumed <= come);
        const bool all = come == text.size();
        text.remove_prefix(consumed);
        come -= consumed;
        if (result == HTTP_Parser::HEAD_DONE) {
            fuzz::require(!parser.has_body() || response.chunked_transfer_encoding() ||
                          response.content_length() != 0);
        }
        if (all || (result != HTTP_Parser::NOT_BEGUN && result != HTTP_Parser::IN_HEAD)) {
            return result;
        }
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest = fuzz::text(data, size);
    std::string_view restOfPieces = rest;
    HTTP_Response whole;
    HTTP_Response pieces;
    const int result = parse(rest, size, whole);
    const int resultOfPieces = parse(restOfPieces, 1 + size % 13, pieces);
    // A head that is wrong may show that at once or only when more has come.
    fuzz::require((result == HTTP_Parser::HEAD_DONE) == (resultOfPieces == HTTP_Parser::HEAD_DONE));
    if (result == HTTP_Parser::HEAD_DONE) {
        fuzz::require(rest == restOfPieces && whole.status() == pieces.status() &&
                      whole.content_length() == pieces.content_length() &&
                      whole.keep_alive() == pieces.keep_alive() &&
                      whole.headers().others() == pieces.headers().others());
    }
    return 0;
}
