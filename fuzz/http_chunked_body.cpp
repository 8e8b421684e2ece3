// A chunked body, in one piece and in small ones on both sides: the same bytes come out.
#include <algorithm>

#include "http_util/http_chunked_decoder.h"
#include "input.h"

using namespace dorvo;

namespace {

HTTP_Chunked_Decoder::Result decode(std::string_view in, size_t inStep, size_t outStep,
                                    std::string& body) {
    HTTP_Chunked_Decoder decoder;
    std::string out(outStep, '\0');
    for (;;) {
        size_t consumed = 0;
        size_t produced = 0;
        const size_t length = std::min(in.size(), inStep);
        const auto result =
            decoder.decode(in.data(), length, consumed, out.data(), out.size(), produced);
        fuzz::require(consumed <= length && produced <= out.size());
        body.append(out, 0, produced);
        in.remove_prefix(consumed);
        if (result != HTTP_Chunked_Decoder::MORE || (in.empty() && produced == 0)) {
            return result;
        }
        fuzz::require(consumed != 0 || produced != 0);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view in = fuzz::text(data, size);
    std::string whole;
    std::string pieces;
    const auto result = decode(in, size, size + 1, whole);
    fuzz::require(result == decode(in, 1 + size % 5, 1 + size % 3, pieces));
    fuzz::require(whole == pieces && whole.size() <= size);
    return 0;
}
