// What an error code means, in words for the user.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo::agent {

// The storage server's address, "host:port"; empty where none is set.
std::string serverText();

// "HTTP status 403, Forbidden" for a marked status, the words for an error of a key, else "<the
// system's text> (error 5)".
std::string failureText(uint32_t code);

// Why a run failed or waits, and what to do about it where the user can do something; without a
// full stop. `user` is whose job it is.
std::string runFailure(uint32_t code, const std::string& user);

// A sentence for a request that the server did not answer with 200: what happened and what to do.
// `user` is whose session it was.
std::string requestFailure(uint32_t code, const std::string& user);

}  // namespace dorvo::agent
