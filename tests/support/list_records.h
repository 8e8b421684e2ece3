// A source list as lines: "SS", "VO name", "DI number path", "FI number path", "ES"; only "no list"
// when there is none.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "record/jobactsrcreader.h"

namespace dorvo::test {

inline std::vector<std::wstring> listRecords(const std::wstring& path) {
    std::vector<std::wstring> all;
    JobActivitySourceReader reader;
    if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES || !reader.open(path, 0)) {
        return {L"no list"};
    }
    while (const uint32_t tag = reader.next()) {
        std::wstring text = {static_cast<wchar_t>(tag & 0xFF),
                             static_cast<wchar_t>(tag >> 8 & 0xFF)};
        std::wstring name;
        WIN32_FILE_ATTRIBUTE_DATA data{};
        uint64_t number = 0;
        if (reader.volume(name)) {
            text += L" " + name;
        } else if (reader.entry(name, data, number)) {
            text += L" " + std::to_wstring(number) + L" " + name;
        }
        all.push_back(text);
    }
    return all;
}

}  // namespace dorvo::test
