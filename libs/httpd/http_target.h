// A request's target as the path that endpoints are known by.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace dorvo {

// Percent-decoded and without its query; nothing when an escape is malformed, or stands for a slash
// or a control character: who stands before the server may have taken the path for another.
std::optional<std::string> decodedPath(std::string_view target);

}  // namespace dorvo
