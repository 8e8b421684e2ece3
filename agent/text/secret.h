// A password or passphrase: wiped when it goes, and read from standard input.
#pragma once

#include <windows.h>

#include <string>

#include "text/terminal.h"

namespace dorvo::agent {

// A text that is wiped when it goes.
struct Secret {
    Secret() = default;
    Secret(Secret&& other) noexcept { text.swap(other.text); }
    ~Secret() { SecureZeroMemory(text.data(), text.size()); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    std::string text;
};

// The first line; `what` names it. Throws AgentError when there is none, or when it is no text: in
// another coding the secret would be another one where it is typed.
Secret readSecretLine(Terminal& terminal, const std::string& what);

}  // namespace dorvo::agent
