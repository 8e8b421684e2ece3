#include "data/itemview.h"

#include <windows.h>

#include <utility>

#include "base/files.h"
#include "base/local_time.h"
#include "base/text.h"
#include "storage/wire_time.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

uint64_t bytesOf(const RestoreCatalog::Item& item) {
    return item.directory() ? 0 : sizeOf(item.data);
}

std::string timeText(const FILETIME& time) {
    return wire_time(toTicks(time));
}

std::string line(std::string time, std::string size, const std::string& attributes,
                 const std::string& path) {
    constexpr size_t timeWidth = 19;
    constexpr size_t sizeWidth = 10;
    time.resize(timeWidth, ' ');
    size.insert(0, size.size() < sizeWidth ? sizeWidth - size.size() : 0, ' ');
    return time + "  " + size + "  " + attributes + "  " + path;
}

}  // namespace

std::string itemHeadings() {
    return line("MODIFIED", "SIZE", "ATTR ", "PATH");
}

std::string itemText(const RestoreCatalog::Item& item) {
    return line(timeText(item.data.ftLastWriteTime),
                item.directory() ? std::string() : bytesText(bytesOf(item)),
                attributesText(item.data.dwFileAttributes), printable(toUtf8(item.path)));
}

std::string attributesText(uint32_t attributes) {
    std::string text;
    for (const auto& [bit, letter] : {std::pair{FILE_ATTRIBUTE_DIRECTORY, 'd'},
                                      {FILE_ATTRIBUTE_ARCHIVE, 'a'},
                                      {FILE_ATTRIBUTE_READONLY, 'r'},
                                      {FILE_ATTRIBUTE_HIDDEN, 'h'},
                                      {FILE_ATTRIBUTE_SYSTEM, 's'}}) {
        text += (attributes & static_cast<uint32_t>(bit)) != 0 ? letter : '-';
    }
    return text;
}

json_spirit::Ordered_object itemJson(const RestoreCatalog::Item& item) {
    return {{"path", toUtf8(item.path)},
            {"type", item.directory() ? "directory" : "file"},
            {"size", bytesOf(item)},
            {"attributes", uint64_t{item.data.dwFileAttributes}},
            {"created", timeText(item.data.ftCreationTime)},
            {"accessed", timeText(item.data.ftLastAccessTime)},
            {"modified", timeText(item.data.ftLastWriteTime)}};
}

}  // namespace dorvo::agent
