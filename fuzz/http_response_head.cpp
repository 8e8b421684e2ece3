// The head of a response, whole and in two pieces: both are read alike.
#include <algorithm>

#include "httpmsg/http_response_parser.h"
#include "input.h"

using namespace dorvo;

namespace {

// What is left of the text is the body's.
int parse(std::string_view first, std::string_view second, HTTP_Response& response,
          std::string& pending) {
    HTTP_Response_Parser parser;
    int result = HTTP_Parser::NOT_BEGUN;
    for (const std::string_view part : {first, second}) {
        pending += part;
        size_t consumed = 0;
        result = parser.parse(pending.data(), pending.size(), consumed, response);
        fuzz::require(consumed <= pending.size());
        pending.erase(0, consumed);
        if (result == HTTP_Parser::HEAD_DONE) {
            pending += first.data() == part.data() ? second : std::string_view();
        }
        if (result != HTTP_Parser::NOT_BEGUN && result != HTTP_Parser::IN_HEAD) {
            break;
        }
    }
    if (result == HTTP_Parser::HEAD_DONE) {
        fuzz::require(!parser.has_body() || response.chunked_transfer_encoding() ||
                      response.content_length() != 0);
    }
    return result;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view head = fuzz::text(data, size);
    const size_t split = size == 0 ? 0 : data[0] * size / 256;
    HTTP_Response whole;
    HTTP_Response pieces;
    std::string rest;
    std::string restOfPieces;
    const int result = parse(head, "", whole, rest);
    const int resultOfPieces =
        parse(head.substr(0, split), head.substr(split), pieces, restOfPieces);
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
