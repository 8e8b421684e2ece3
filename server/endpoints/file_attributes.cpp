#include "endpoints/file_attributes.h"

#include <boost/json.hpp>

#include "endpoints/json_body.h"

namespace dorvo {

namespace json = boost::json;

namespace {

constexpr uint32_t directoryAttribute = 16;
constexpr std::array<std::string_view, 9> names = {"dwFileAttributes",
                                                   "nFileSizeHigh",
                                                   "nFileSizeLow",
                                                   "ftCreationTimedwHighDateTime",
                                                   "ftCreationTimedwLowDateTime",
                                                   "ftLastAccessTimedwHighDateTime",
                                                   "ftLastAccessTimedwLowDateTime",
                                                   "ftLastWriteTimedwHighDateTime",
                                                   "ftLastWriteTimedwLowDateTime"};
constexpr size_t lastWriteHigh = 7;
constexpr size_t lastWriteLow = 8;

}  // namespace

FileAttributes readAttributes(const json::object& attri) {
    FileAttributes attributes{};
    for (size_t i = 0; i < names.size(); ++i) {
        attributes[i] = u32Member(attri, names[i]);
    }
    return attributes;
}

json::object writeAttributes(const FileAttributes& attributes) {
    json::object attri;
    attri.reserve(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        attri.emplace(names[i], attributes[i]);
    }
    return attri;
}

bool isFolder(const FileAttributes& attributes) {
    return (attributes[0] & directoryAttribute) != 0;
}

int64_t lastWriteTime(const FileAttributes& attributes) {
    return static_cast<int64_t>(joinHalves(attributes[lastWriteHigh], attributes[lastWriteLow]));
}

std::string_view typeText(FileKind kind) {
    return kind == FileKind::folder ? "folder" : "file";
}

}  // namespace dorvo
