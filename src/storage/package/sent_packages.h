// What the tests of the heads share: bodies sent through a real invoker, and their packages.
#pragma once

#include "support/scripted_server.h"
// The sockets' header comes before the others.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "http_util/http_chunked_decoder.h"
#include "http_util/http_connections.h"
#include "http_util/http_invoker_t.h"
#include "httpmsg/http_request.h"
#include "httpmsg/http_response.h"
#include "storage/package/golden_packages.h"
#include "storage/package/package_reader.h"
#include "support/log_capture.h"

namespace dorvo::test {

// The body of one request, as a server on the loopback got it: of the announced length, or chunked
// and still in its chunks.
inline std::string sent_body(std::optional<uint64_t> length,
                             const std::function<void(HTTP_Invoker_T&)>& send) {
    std::string seen;
    ScriptedServer server([&](ScriptedPeer& peer, int) {
        seen = peer.request();
        peer.answer("");
    });
    HTTP_Invoker_T invoker("127.0.0.1", server.port());
    HTTP_Request request(HTTP_METHOD_POST, "/packages");
    if (length.has_value()) {
        request.content_length(*length);
    } else {
        request.chunked_transfer_encoding(true);
    }
    HTTP_Connector& connector = ATL::CComSingleton<HTTP_Connections>::instance()->connector();
    EXPECT_EQ(invoker.connect(connector), 0);
    EXPECT_EQ(invoker.send_request(request), 0);
    send(invoker);
    if (invoker.chunked()) {
        EXPECT_EQ(invoker.send_chunk(nullptr, 0), 0);
    }
    HTTP_Response response;
    EXPECT_EQ(invoker.recv_response(response), 0);
    invoker.close();
    const size_t head = seen.find("\r\n\r\n");
    return head == std::string::npos ? std::string() : seen.substr(head + 4);
}

inline std::string unchunked(const std::string& body) {
    HTTP_Chunked_Decoder decoder;
    std::string bytes(body.size(), '\0');
    size_t used = 0;
    size_t made = 0;
    EXPECT_EQ(decoder.decode(body.data(), body.size(), used, bytes.data(), bytes.size(), made),
              HTTP_Chunked_Decoder::END);
    bytes.resize(made);
    return bytes;
}

// A stream's packages, each as long as it says.
inline std::vector<Bytes> split(const std::string& stream) {
    std::vector<Bytes> packages;
    std::span<const uint8_t> left(reinterpret_cast<const uint8_t*>(stream.data()), stream.size());
    while (!left.empty()) {
        const package_fault fault = front_package_fault(left);
        if (fault != nullptr) {
            ADD_FAILURE() << fault;
            break;
        }
        const size_t length = stated_length(left.data());
        packages.emplace_back(left.begin(), left.begin() + static_cast<ptrdiff_t>(length));
        left = left.subspan(length);
    }
    return packages;
}

inline std::vector<Bytes> sent_packages(const std::function<void(HTTP_Invoker_T&)>& send) {
    return split(unchunked(sent_body(std::nullopt, send)));
}

inline size_t errors_in(const LogCapture& capture) {
    const auto lines = capture.lines();
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [](const LogLine& line) {
        return line.level == LogLevel::error;
    }));
}

inline const uint8_t* bytes_of(std::string_view text) {
    // cppcheck-suppress returnDanglingLifetime
    return reinterpret_cast<const uint8_t*>(text.data());
}

}  // namespace dorvo::test
