// A folder of a test's own, gone with all that is in it when the object goes.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace dorvo {

class TempFolder {
public:
    TempFolder() : path_(make()) {}
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    static std::filesystem::path make() {
        std::string name = (std::filesystem::temp_directory_path() / "dorvo-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        return name;
    }

    const std::filesystem::path path_;
};

}  // namespace dorvo
