// The files below a folder that hold packages.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace dorvo::test {

// Those whose name ends so, the newest last.
inline std::vector<std::filesystem::path> packageFiles(const std::filesystem::path& folder,
                                                       const std::wstring& ending) {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path().filename().wstring().ends_with(ending)) {
            found.push_back(entry.path());
        }
    }
    return found;
}

inline uint64_t packageBytes(const std::vector<std::filesystem::path>& files) {
    uint64_t bytes = 0;
    for (const auto& file : files) {
        bytes += std::filesystem::file_size(file);
    }
    return bytes;
}

inline void flipFirstByte(const std::filesystem::path& path) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    const int byte = file.get();
    file.seekp(0);
    file.put(static_cast<char>(byte ^ 0x40));
}

}  // namespace dorvo::test
