// Parses JSON that strangers have sent: as it reads it stops where the text is deeper, or holds
// more values, than any request has use for, so that a small text cannot become a large tree.
#pragma once

#include <boost/json/fwd.hpp>
#include <cstddef>
#include <string_view>

namespace dorvo {

// At most that many values in all. Throws ServiceError: 413 for too many of whatever it is, 400 for
// what is no JSON in UTF-8 or too deep.
boost::json::value readJson(std::string_view text, size_t values);

}  // namespace dorvo
