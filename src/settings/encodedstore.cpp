#include "settings/encodedstore.h"

#include <exception>
#include <span>

#include "base/text.h"
#include "json_spirit/json_spirit.h"
#include "settings/encodedtext.h"
#include "settings/globalkey.h"
#include "settings/storefile.h"
#include "settings/wipe.h"

namespace dorvo {
namespace {

ByteSpan bytesOf(const std::string& text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

// The machine's bytes are the key, then the IV.
ByteSpan keyOf(const std::string& machine) {
    return bytesOf(machine).first(machine.size() / 2);
}
ByteSpan ivOf(const std::string& machine) {
    return bytesOf(machine).last(machine.size() / 2);
}

}  // namespace

bool writeEncodedFile(const std::wstring& path, const std::string& text) {
    const FunctionTrace trace("KeyManagerImpl::encryptStringToTextFile", "keymanager.cpp");
    std::string machine;
    const WipeAtEnd wiped(machine);
    if (!machineKey(machine)) {
        return false;
    }
    const std::string name = toUtf8(path);
    try {
        const std::string encoded = encodeText(text, keyOf(machine), ivOf(machine));
        const FileHandle file = openStoreForWriting(path, FILE_SHARE_READ);
        if (!file) {
            return logFailed("Failed to open file \"%s\" for writing.\n", name);
        }
        DWORD written = 0;
        if (WriteFile(file.get(), encoded.data(), static_cast<DWORD>(encoded.size()), &written,
                      nullptr) == 0) {
            log(LogLevel::error, "Failed to write the password content to \"%s\".\n", name);
        }
        return true;
    } catch (const std::exception& error) {
        return logFailed("Failed to encrypt the content to \"%s\": %s.\n", name, error.what());
    }
}

bool readEncodedFile(const std::wstring& path, std::string& text) {
    const FunctionTrace trace("KeyManagerImpl::encryptStringFromTextFile", "keymanager.cpp");
    std::string machine;
    const WipeAtEnd wiped(machine);
    if (!machineKey(machine)) {
        return false;
    }
    const std::string name = toUtf8(path);
    FileHandle file = openStoreForReading(path, FILE_SHARE_READ);
    std::string encoded;
    if (!file || !readStore(std::move(file), encoded)) {
        return logFailed("Failed to open file \"%s\" for reading.\n", name);
    }
    try {
        text = decodeText(encoded, keyOf(machine), ivOf(machine));
        return true;
    } catch (const std::exception& error) {
        return logFailed(ERROR_DECRYPTION_FAILED,
                         "Failed to decrypt the content from \"%s\": %s.\n", name, error.what());
    }
}

bool loadEncodedStore(const std::wstring& path, const EncodedStoreTexts& texts,
                      std::map<std::string, json_spirit::Value>& values) {
    std::string text;
    if (!readEncodedFile(path, text)) {
        log(texts.codecLevel, texts.decodeFailed);
        return false;
    }
    try {
        json_spirit::Value document;
        json_spirit::read_or_throw(text, document);
        if (document.type() != json_spirit::obj_type) {
            return logFailed(texts.notAnObject);
        }
        values = document.get_obj();
        return true;
    } catch (const json_spirit::Error_position& error) {
        return logFailed(texts.parseFailed, error.line_, error.column_, error.reason_);
    }
}

bool saveEncodedStore(const std::wstring& path, const EncodedStoreTexts& texts,
                      const std::map<std::string, json_spirit::Value>& values) {
    const std::string text = json_spirit::write_formatted(json_spirit::Value(values));
    if (!writeEncodedFile(path, text)) {
        log(texts.codecLevel, texts.encodeFailed);
        return false;
    }
    return true;
}

}  // namespace dorvo
