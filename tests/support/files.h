// Whole files at a stroke. A file that cannot be read has the content "no file".
#pragma once

#include <gtest/gtest.h>

#include <istream>
#include <iterator>
#include <string>

#include "base/handle_streambuf.h"
#include "base/paths.h"

namespace dorvo::test {

inline void storeFile(const std::wstring& path, const std::string& bytes) {
    write_handle_streambuf file(path);
    file.sputn(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(file.is_open() && file.close());
}

inline bool exists(const std::wstring& path) {
    return GetFileAttributesW(longPath(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

// All zero when there is no such file or folder.
inline WIN32_FILE_ATTRIBUTE_DATA dataOf(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExW(longPath(path).c_str(), GetFileExInfoStandard, &data);
    return data;
}

inline std::string fileContent(const std::wstring& path) {
    read_handle_streambuf file(path);
    std::istream stream(&file);
    return file.is_open() ? std::string(std::istreambuf_iterator<char>(stream), {}) : "no file";
}

}  // namespace dorvo::test
