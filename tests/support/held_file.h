// Files that another program has open, and what happens while somebody waits for one.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <string>
#include <utility>

#include "base/handle.h"
#include "base/sharing_retry.h"

namespace dorvo::test {

// Opened by a program that shares it with nobody.
inline FileHandle holdFile(const std::wstring& path, DWORD access = GENERIC_READ) {
    FileHandle held(CreateFileW(path.c_str(), access, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(held);
    return held;
}

// Each wait for a file in use is over when this was done. One at a time.
class Meanwhile {
public:
    explicit Meanwhile(std::function<void()> act = [] {}) {
        act_ = std::move(act);
        pause_ = std::exchange(SharingRetry::pause, [](DWORD) { act_(); });
    }
    ~Meanwhile() { SharingRetry::pause = pause_; }
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;

private:
    static inline std::function<void()> act_;
    SharingRetry::Pause pause_;
};

// Held, while nobody waits until it is let go of.
class Held {
public:
    explicit Held(const std::wstring& path) : file_(holdFile(path)) {}

private:
    const Meanwhile nothing_;
    const FileHandle file_;
};

}  // namespace dorvo::test
