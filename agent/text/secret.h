// A text that is wiped when it goes.
#pragma once

#include <windows.h>

#include <string>

namespace dorvo::agent {

struct Secret {
    Secret() = default;
    Secret(Secret&& other) noexcept { text.swap(other.text); }
    ~Secret() { SecureZeroMemory(text.data(), text.size()); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    std::string text;
};

}  // namespace dorvo::agent
