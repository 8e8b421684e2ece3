// The marker in the folder of packages: without it the folder counts as not there.
//
// A folder whose disk is not mounted looks like an empty one. Whoever made packages anew in its
// place would hide the old ones, and take them for lost. The marker also says whose packages these
// are, and which generation of the catalog they go with, see Generations.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace dorvo {

struct PackageMarker {
    std::string identity;    // of the catalog and its packages; empty when the marker is unreadable
    int64_t generation = 0;  // never above the catalog's on the disk
};

// None when it is not there. Throws std::exception when that cannot be told.
std::optional<PackageMarker> readMarker(const std::filesystem::path& folder);

// Makes it, or writes over the one that is there. Survives a power cut. Throws std::exception.
void writeMarker(const std::filesystem::path& folder, const PackageMarker& marker);

// Writes over the one that is there, which takes no room on the disk. Survives a power cut. Throws
// std::exception with a sentence when there is none: the packages are away, and nothing is made in
// their place.
void updateMarker(const std::filesystem::path& folder, const PackageMarker& marker);

// Throws std::exception with a sentence unless the folder has one.
void requireMarker(const std::filesystem::path& folder);

}  // namespace dorvo
