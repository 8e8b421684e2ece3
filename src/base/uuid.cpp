#include "base/uuid.h"

#include <rpc.h>

namespace dorvo {

long createUuid(GUID& id) {
    return UuidCreate(&id);
}

std::string uuidText(const GUID& id) {
    GUID copy = id;  // the call wants it writable and leaves it alone
    RPC_CSTR text = nullptr;
    if (UuidToStringA(&copy, &text) != RPC_S_OK) {
        return {};
    }
    std::string result(reinterpret_cast<const char*>(text));
    RpcStringFreeA(&text);
    return result;
}

bool uuidFromText(const std::string& text, GUID& id) {
    std::string copy = text;
    GUID parsed;
    if (copy.empty() ||
        UuidFromStringA(reinterpret_cast<RPC_CSTR>(copy.data()), &parsed) != RPC_S_OK) {
        return false;
    }
    id = parsed;
    return true;
}

}  // namespace dorvo
