#include "base/uuid.h"

#include <rpc.h>

#include <cstring>

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

std::string uuidText(const std::array<uint8_t, 16>& bytes) {
    GUID id;
    static_assert(sizeof(id) == sizeof(bytes));
    std::memcpy(&id, bytes.data(), sizeof(id));
    return uuidText(id);
}

std::string instanceText(const std::array<uint8_t, 16>& id) {
    return id == std::array<uint8_t, 16>{} ? std::string() : uuidText(id);
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
