// Takes the "Location" of a redirect apart.
#pragma once

#include <string>

namespace dorvo {

// Host (without port) and path (with query, without fragment) of an absolute http or https URL.
// What is missing comes back empty; true when both are there. Pure.
bool split_location(const std::string& location, std::string& host, std::string& path);

}  // namespace dorvo
