// Loads and saves a store that is kept encoded, with the store's own messages.
//
// The store holds its lock while it calls.
#pragma once

#include <map>
#include <string>

#include "base/log.h"
#include "json_spirit/value.h"

namespace dorvo {

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
