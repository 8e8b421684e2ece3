#include "settings/encodedstore.h"

#include "json_spirit/json_spirit.h"
#include "settings/keymanager.h"

namespace dorvo {

bool loadEncodedStore(const std::wstring& path, const EncodedStoreTexts& texts,
                      std::map<std::string, json_spirit::Value>& values) {
    std::string text;
    if (!KeyManagerImpl::decryptStringFromTextFile(path.c_str(), text)) {
        log(texts.codecLevel, texts.decodeFailed);
        return false;
    }
    try {
        json_spirit::Value document;
        json_spirit::read_or_throw(text, document);
        if (document.type() != json_spirit::obj_type) {
            log(LogLevel::error, texts.notAnObject);
            return false;
        }
        values = document.get_obj();
        return true;
    } catch (const json_spirit::Error_position& error) {
        log(LogLevel::error, texts.parseFailed, error.line_, error.column_, error.reason_.c_str());
        return false;
    }
}

bool saveEncodedStore(const std::wstring& path, const EncodedStoreTexts& texts,
                      const std::map<std::string, json_spirit::Value>& values) {
    const std::string text = json_spirit::write_formatted(json_spirit::Value(values));
    if (!KeyManagerImpl::encryptStringToTextFile(path.c_str(), text)) {
        log(texts.codecLevel, texts.encodeFailed);
        return false;
    }
    return true;
}

}  // namespace dorvo
