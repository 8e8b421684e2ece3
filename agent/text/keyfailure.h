// What went wrong with a recovery file, in words for the user.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo::agent {

// `code` is what an export or an import of the user's keys has left.
std::string keyFailure(const std::wstring& file, const std::string& user, uint32_t code);

}  // namespace dorvo::agent
