// A request's JSON body: every reader gives a value or refuses.
#include <boost/json.hpp>

#include "common/service_error.h"
#include "endpoints/instance_access.h"
#include "endpoints/json_body.h"
#include "input.h"

using namespace dorvo;

namespace {

void orRefuse(const auto& read) {
    try {
        read();
    } catch (const ServiceError& error) {
        fuzz::require(error.status() == 400);
    }
}

void readAll(const boost::json::object& body) {
    for (const auto& [name, value] : body) {
        const std::string_view key(name.data(), name.size());
        orRefuse([&] { checkPath(textMember(body, key, maxPathBytes)); });
        orRefuse([&] { checkId(textMember(body, key, 64), key); });
        orRefuse([&] { static_cast<void>(joinHalves(u32Member(body, key), 0)); });
        orRefuse([&] { fuzz::require(countMember(body, key) >= 0); });
        orRefuse([&] { flagMember(body, key); });
        orRefuse([&] { readAttributes(objectMember(body, key)); });
        orRefuse([&] {
            for (const auto& element : arrayMember(body, key)) {
                readAll(objectElement(element, key));
            }
        });
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orRefuse([&] { readAll(parseBody(fuzz::text(data, size))); });
    return 0;
}
