// Files that are kept encoded with the machine's key (settings/globalkey.h), and the stores in
// them.
//
// No state; a store holds its lock while it calls. Failures are logged, a store's in its own words,
// and leave the last error set.
#pragma once

#include <map>
#include <string>

#include "base/log.h"
#include "json_spirit/value.h"

namespace dorvo {

// Writes the text encrypted, as one line of Base64. True also when the bytes could not be written
// (that is logged).
bool writeEncodedFile(const std::wstring& path, const std::string& text);
// ERROR_DECRYPTION_FAILED for what was not written so, or with another machine's key.
bool readEncodedFile(const std::wstring& path, std::string& text);

struct EncodedStoreTexts {
    LogLevel codecLevel;  // of the decode and encode messages; the others are errors
    LogText<> decodeFailed;
    LogText<unsigned, unsigned, std::string> parseFailed;  // line, column, reason
    LogText<> notAnObject;
    LogText<> encodeFailed;
};

// False, with a message, when the file does not hold one JSON object; `values` then stays.
bool loadEncodedStore(const std::wstring& path, const EncodedStoreTexts& texts,
                      std::map<std::string, json_spirit::Value>& values);

bool saveEncodedStore(const std::wstring& path, const EncodedStoreTexts& texts,
                      const std::map<std::string, json_spirit::Value>& values);

}  // namespace dorvo
