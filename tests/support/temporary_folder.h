// A folder of the user's temporary ones, empty at first and gone with the object.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "base/files.h"
#include "base/paths.h"

namespace dorvo::test {

class TemporaryFolder {
public:
    explicit TemporaryFolder(const wchar_t* name) {
        wchar_t temp[MAX_PATH];
        EXPECT_NE(GetTempPathW(MAX_PATH, temp), 0u);
        path_ = std::wstring(temp) + name;
        rm_rf(path_, true);
        EXPECT_TRUE(createDirectories(path_));
    }
    ~TemporaryFolder() { rm_rf(path_, true); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::wstring& path() const { return path_; }

private:
    std::wstring path_;
};

}  // namespace dorvo::test
