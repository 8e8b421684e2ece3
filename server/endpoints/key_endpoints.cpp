#include "endpoints/key_endpoints.h"

#include <boost/json.hpp>

#include "endpoints/json_body.h"
#include "support/service_error.h"

namespace dorvo {

namespace json = boost::json;

namespace {

constexpr size_t md5Digits = 32;

}  // namespace

json::object KeyEndpoints::getMd5OfKeys(const Session& session, const json::object&) {
    return {{"md5", catalog_.findKeys(session.userId)}};
}

json::object KeyEndpoints::exportMd5OfKeys(const Session& session, const json::object& body) {
    const std::string_view md5 = textMember(body, "md5", md5Digits);
    if (md5.size() != md5Digits ||
        md5.find_first_not_of("0123456789abcdef") != std::string_view::npos) {
        throw ServiceError(400, "\"md5\" must be 32 lower-case hexadecimal digits");
    }
    if (!catalog_.putKeys(session.userId, md5)) {
        throw ServiceError(409, "the user has other keys");
    }
    return {};
}

}  // namespace dorvo
