// Tests of stores start with an empty data directory and leave none behind.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "base/files.h"
#include "base/paths.h"
#include "base/singleton.h"
#include "base/text.h"

namespace dorvo::test {

template <class T>
T& singleton() {
    return *ATL::CComSingleton<T, ATL::CComAutoCriticalSection>::instance();
}

class StoreTest : public testing::Test {
protected:
    StoreTest() { clean(); }
    ~StoreTest() override { clean(); }

    static std::wstring dataPath(const wchar_t* name) {
        std::wstring path;
        dataDirectory(path);
        return path + name;
    }
    static std::wstring besideProgram(const wchar_t* name) { return executableDirectory() + name; }

    static std::string contentOf(const std::wstring& path) {
        std::ifstream file(path.c_str(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static void write(const std::wstring& path, const std::string& text) {
        createDirectories(path.substr(0, path.find_last_of(L'\\')));
        std::ofstream(path.c_str(), std::ios::binary) << text;
    }

private:
    static void clean() {
        rm_rf(dataPath(L""), true);
        rm_rf(besideProgram(L"options"), true);
    }
};

}  // namespace dorvo::test
