// A recovery file, as it is and with the check sum that it should have, and what one seals.
#include "base/md5.h"
#include "input.h"
#include "json_spirit/json_spirit.h"
#include "settings/recoveryfile.h"

using namespace dorvo;

namespace {

void open(const std::string& text) {
    std::string user;
    std::string key;
    if (openRecoveryFile(text, "pass", user, key) == RecoveryFile::opened) {
        fuzz::require(key.size() >= recoveryKeySize && key.size() % recoveryKeySize == 0);
    } else {
        fuzz::require(user.empty() && key.empty());
    }
}

void readContent(const std::string& content) {
    std::string user;
    std::string keys;
    std::string again;
    if (readRecoveryContent(content, user, keys)) {
        fuzz::require(writeRecoveryContent(user, keys, again) && again == content);
    } else {
        fuzz::require(user.empty() && keys.empty());
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(fuzz::text(data, size));
    open(text);
    readContent(text);
    try {
        json_spirit::Value file;
        json_spirit::read_or_throw(text, file);
        file.get_obj().erase("check");
        const std::string checked = json_spirit::write(file);
        file.get_obj()["check"] = Md5::of(std::as_bytes(std::span(checked)));
        open(json_spirit::write(file));
    } catch (const json_spirit::Error_position&) {
    } catch (const std::runtime_error&) {  // no object
    }
    return 0;
}
