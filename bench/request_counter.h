// Counts the HTTP/1.1 requests that pass in a stream of bytes, however it is cut into pieces.
//
// What is no HTTP counts as nothing. One thread.
#pragma once

#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace dorvo::bench {

class RequestCounter {
public:
    // Gives how many requests have ended with these bytes: their bodies count to the next.
    std::uint64_t feed(std::string_view bytes) {
        std::uint64_t heads = 0;
        while (!bytes.empty() && expect_ != Expect::nothing) {
            if (left_ != 0) {
                const std::uint64_t size = std::min<std::uint64_t>(left_, bytes.size());
                left_ -= size;
                bytes.remove_prefix(size);
                continue;
            }
            const std::size_t end = bytes.find('\n');
            line_.append(bytes.substr(0, end));
            bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
            if (end != std::string_view::npos) {
                heads += takeLine() ? 1 : 0;
                line_.clear();
            } else if (line_.size() > longestLine) {
                expect_ = Expect::nothing;
            }
        }
        return heads;
    }

private:
    enum class Expect { request, fields, chunk, trailer, nothing };

    static constexpr std::size_t longestLine = 65536;

    // Whether the line ends a head.
    bool takeLine() {
        if (!line_.empty() && line_.back() == '\r')
            line_.pop_back();
        switch (expect_) {
            case Expect::request:
                if (!line_.empty())
                    expect_ = line_.find(" HTTP/1.") == std::string::npos ? Expect::nothing
                                                                          : Expect::fields;
                return false;
            case Expect::fields: return takeField();
            case Expect::chunk: takeChunk(); return false;
            case Expect::trailer:
                if (line_.empty())
                    expect_ = Expect::request;
                return false;
            case Expect::nothing: return false;
        }
        return false;
    }

    bool takeField() {
        if (line_.empty()) {
            expect_ = chunked_ ? Expect::chunk : Expect::request;
            left_ = chunked_ ? 0 : length_;
            length_ = 0;
            chunked_ = false;
            return true;
        }
        if (const char* length = value("content-length:"))
            length_ = std::strtoull(length, nullptr, 10);
        else if (value("transfer-encoding:") != nullptr)
            chunked_ = line_.find("chunked") != std::string::npos;
        return false;
    }

    // The line after a chunk's bytes is empty.
    void takeChunk() {
        if (line_.empty())
            return;
        left_ = std::strtoull(line_.c_str(), nullptr, 16);
        if (left_ == 0)
            expect_ = Expect::trailer;
    }

    const char* value(std::string_view name) const {
        return strncasecmp(line_.c_str(), name.data(), name.size()) == 0
                   ? line_.c_str() + name.size()
                   : nullptr;
    }

    Expect expect_ = Expect::request;
    bool chunked_ = false;
    std::uint64_t length_ = 0, left_ = 0;
    std::string line_;
};

}  // namespace dorvo::bench
