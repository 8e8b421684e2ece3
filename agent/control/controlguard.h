// Who may speak to the control port. Pure.
#pragma once

#include <string_view>

namespace dorvo::agent {

// Whether a Host header names this machine itself: localhost, 127.0.0.1 or [::1], with or without a
// port. A page of the web that was made to resolve to 127.0.0.1 brings its own name.
bool isLoopbackHost(std::string_view host);

// Whether an Authorization header is "Bearer " and the token. Takes the same time wherever they
// differ.
bool bearsToken(std::string_view authorization, std::string_view token);

}  // namespace dorvo::agent
