// What went wrong, in words for the user, and what to do about it. Codes are the last errors of
// Windows, or marked: HTTP statuses and errors of a key. Without a full stop, unless it says so.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo::agent {

// How the user gets a resident agent.
constexpr const char* residentHint = "start one with 'agent service install' or 'agent run'";

// The storage server's address, "host:port"; empty where none is set.
std::string serverText();

// "HTTP status 403, Forbidden" for a marked status, the words for an error of a key, else "<the
// system's text> (error 5)".
std::string failureText(uint32_t code);

// Why a run failed or waits, and what to do about it where the user can do something; without a
// full stop. `user` is whose job it is, `said` what the service has said of it.
std::string runFailure(uint32_t code, const std::string& user, const std::string& said = {});

// A sentence for a request that the server did not answer with 200: what happened and what to do.
// `user` is whose session it was.
std::string requestFailure(uint32_t code, const std::string& user);

// About a recovery file: `code` is what an export or an import of the user's keys has left.
std::string keyFailure(const std::wstring& file, const std::string& user, uint32_t code);

}  // namespace dorvo::agent
