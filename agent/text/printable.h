// Texts from elsewhere, safe to show.
#pragma once

#include <string>
#include <string_view>

namespace dorvo::agent {

// '?' for each control character, U+FFFD for what is no UTF-8: what a server or a backup calls its
// files neither drives the terminal nor begins a line of its own. Not for JSON, which escapes.
std::string printable(std::string_view utf8);

}  // namespace dorvo::agent
