#include "packages/package_marker.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "common/files.h"

namespace dorvo {

namespace fs = std::filesystem;

namespace {

constexpr char form[] =
    "These are the packages of a storage service. Leave this file here: a folder without it\n"
    "counts as one whose disk is not mounted.\n"
    "identity %32s\n"
    "generation %019lld\n";
constexpr size_t most = 512;  // less than that is written in one piece

fs::path markerPath(const fs::path& folder) {
    return folder / "marker";
}

void write(const fs::path& folder, int flags, const PackageMarker& marker) {
    const fs::path path = markerPath(folder);
    std::array<char, most> text{};
    const int length = std::snprintf(text.data(), text.size(), form, marker.identity.c_str(),
                                     static_cast<long long>(marker.generation));
    const FileDescriptor fd(::open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, 0600));
    if (!fd || ::pwrite(fd.get(), text.data(), static_cast<size_t>(length), 0) != length ||
        ::fsync(fd.get()) != 0) {
        failAt("cannot write", path);
    }
}

}  // namespace

std::optional<PackageMarker> readMarker(const fs::path& folder) {
    const fs::path path = markerPath(folder);
    const FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd && (errno == ENOENT || errno == ENOTDIR)) {
        return std::nullopt;
    }
    std::string text(most, '\0');
    const ssize_t length = fd ? ::read(fd.get(), text.data(), text.size()) : -1;
    if (length < 0) {
        failAt("cannot read", path);
    }
    text.resize(static_cast<size_t>(length));
    PackageMarker marker;
    const size_t fields = text.find("identity ");
    std::istringstream in(fields == std::string::npos ? std::string() : text.substr(fields));
    std::string name;
    std::string identity;
    int64_t generation = 0;
    if (in >> name >> identity >> name >> generation && name == "generation") {
        marker = {identity, generation};
    }
    return marker;
}

void writeMarker(const fs::path& folder, const PackageMarker& marker) {
    write(folder, O_CREAT, marker);
    syncFolder(folder);
}

void updateMarker(const fs::path& folder, const PackageMarker& marker) {
    requireMarker(folder);
    write(folder, 0, marker);
}

void requireMarker(const fs::path& folder) {
    if (::access(markerPath(folder).c_str(), F_OK) != 0) {
        throw std::runtime_error("the packages are not there: no file 'marker' in " +
                                 folder.string());
    }
}

}  // namespace dorvo
