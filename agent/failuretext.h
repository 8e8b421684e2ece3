// What an error code means, in words for the user.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo::agent {

// "HTTP status 403, Forbidden" for a marked status, the words for an error of a key, else "<the
// system's text> (error 5)".
std::string failureText(uint32_t code);

// A sentence for a request that the server did not answer with 200: what happened and what to do.
// `user` is whose session it was.
std::string requestFailure(uint32_t code, const std::string& user);

}  // namespace dorvo::agent
