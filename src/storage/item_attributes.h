// The nine numbers of an item: read from the disk, as the platform has them, and as they travel.
#pragma once

#include <windows.h>

#include <string>

#include "base/files.h"
#include "base/paths.h"
#include "storage/items.h"

namespace dorvo {

constexpr ItemAttributes itemAttributes(const WIN32_FILE_ATTRIBUTE_DATA& data) {
    return {data.dwFileAttributes,
            data.nFileSizeHigh,
            data.nFileSizeLow,
            data.ftCreationTime.dwHighDateTime,
            data.ftCreationTime.dwLowDateTime,
            data.ftLastAccessTime.dwHighDateTime,
            data.ftLastAccessTime.dwLowDateTime,
            data.ftLastWriteTime.dwHighDateTime,
            data.ftLastWriteTime.dwLowDateTime};
}

constexpr WIN32_FILE_ATTRIBUTE_DATA fileAttributes(const ItemAttributes& item) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    data.dwFileAttributes = item.attributes;
    data.ftCreationTime = {item.creationLow, item.creationHigh};
    data.ftLastAccessTime = {item.lastAccessLow, item.lastAccessHigh};
    data.ftLastWriteTime = {item.lastWriteLow, item.lastWriteHigh};
    data.nFileSizeHigh = item.sizeHigh;
    data.nFileSizeLow = item.sizeLow;
    return data;
}

inline bool readAttributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data) {
    return GetFileAttributesExW(longPath(path).c_str(), GetFileExInfoStandard, &data) != 0;
}

// Has still the size and the last write that the source list knows.
inline bool isAsListed(const std::wstring& path, const WIN32_FILE_ATTRIBUTE_DATA& listed) {
    WIN32_FILE_ATTRIBUTE_DATA now{};
    return readAttributes(path, now) && sizeOf(now) == sizeOf(listed) &&
           CompareFileTime(&now.ftLastWriteTime, &listed.ftLastWriteTime) == 0;
}

}  // namespace dorvo
