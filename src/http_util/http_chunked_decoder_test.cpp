#include "http_util/http_chunked_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace dorvo {
namespace {

struct Decoded {
    HTTP_Chunked_Decoder::Result result;
    std::string body;
    size_t used;
};

// Input in pieces of `step` bytes, output in a room of `room` bytes.
Decoded decode(const std::string& text, size_t step, size_t room) {
    HTTP_Chunked_Decoder decoder;
    Decoded decoded{HTTP_Chunked_Decoder::MORE, {}, 0};
    std::string out(room, '\0');
    while (decoded.used < text.size() && decoded.result == HTTP_Chunked_Decoder::MORE) {
        size_t consumed = 0;
        size_t produced = 0;
        decoded.result =
            decoder.decode(text.data() + decoded.used, std::min(step, text.size() - decoded.used),
                           consumed, out.data(), out.size(), produced);
        decoded.used += consumed;
        decoded.body.append(out, 0, produced);
    }
    return decoded;
}

TEST(HttpChunkedDecoder, GivesTheSameBodyInAllPieces) {
    const std::string text =
        "5\r\nhello\r\n1;name=\"v\"\r\n \r\nA \r\n0123456789\r\n0\r\nTrailer: x\r\nY: z\r\n\r\n";
    for (size_t step = 1; step <= text.size(); ++step) {
        for (const size_t room : {1U, 2U, 7U, 100U}) {
            const Decoded decoded = decode(text + "next", step, room);
            EXPECT_EQ(decoded.result, HTTP_Chunked_Decoder::END) << step << " " << room;
            EXPECT_EQ(decoded.body, "hello 0123456789") << step << " " << room;
            EXPECT_EQ(decoded.used, text.size()) << step << " " << room;
        }
    }
}

TEST(HttpChunkedDecoder, RefusesWhatIsNoChunk) {
    const std::string endless(HTTP_Chunked_Decoder::LINE_LIMIT + 1, 'x');
    for (const std::string& bad : std::vector<std::string>{
             "\r\n", "g\r\n", "-1\r\n", " 5\r\n", "5\nhello", "5\r\nhello0\r\n", "5\r\nhello\n",
             "0\r\nA\nB", "0\r\n\rX", "5;a\x01\r\n", "10000000000000000\r\n", "5;" + endless,
             "0\r\n" + endless}) {
        EXPECT_EQ(decode(bad, 100, 100).result, HTTP_Chunked_Decoder::BAD) << bad.substr(0, 20);
    }
    EXPECT_EQ(decode("ffffffffffffffff\r\nx", 100, 100).body, "x");
}

}  // namespace
}  // namespace dorvo
