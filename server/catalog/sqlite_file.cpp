#include "catalog/sqlite_file.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "common/digest.h"

namespace dorvo {

namespace {

enum Column {
    path,
    kind,
    attributes,
    mtime,
    compress,
    size,
    blocks,
    container,
    offset,
    seal,
    owner
};

int64_t blocksOf(int64_t size) {
    return size > 0 ? (size - 1) / blockBytes + 1 : 0;
}

void append(std::string& text, int64_t number) {
    char bytes[sizeof number];
    std::memcpy(bytes, &number, sizeof number);
    text.append(bytes, sizeof number);
}

}  // namespace

int64_t sqliteSeal(std::string_view filePath, const StoredFile& file) {
    std::string text;
    text.reserve(filePath.size() + sizeof file.attributes + 6 * sizeof(int64_t));
    text.append(reinterpret_cast<const char*>(file.attributes.data()), sizeof file.attributes);
    for (const int64_t number : {static_cast<int64_t>(file.kind), file.mtime,
                                 int64_t{file.compress}, file.size, file.container, file.offset}) {
        append(text, number);
    }
    text += filePath;
    int64_t result = 0;
    std::memcpy(&result, md5(text).data(), sizeof result);
    return result;
}

StoredFile sqliteFile(const Rows& rows) {
    StoredFile file;
    file.kind = static_cast<FileKind>(rows.integer(Column::kind));
    // Zeros when the column holds none: the file is awaited.
    const std::string_view numbers = rows.text(Column::attributes);
    if (numbers.size() == sizeof file.attributes) {
        std::memcpy(file.attributes.data(), numbers.data(), numbers.size());
    }
    file.mtime = rows.integer(Column::mtime);
    file.compress = rows.integer(Column::compress) != 0;
    file.size = rows.integer(Column::size);
    file.blocks = rows.integer(Column::blocks);
    file.container = rows.integer(Column::container);
    file.offset = rows.integer(Column::offset);
    file.owner = rows.integer(Column::owner);
    file.sound = rows.isNull(Column::seal) ||
                 rows.integer(Column::seal) == sqliteSeal(rows.text(Column::path), file);
    // Blocks are counted as they come, and not sealed: who reads those that no package of this size
    // has would read beside it.
    const int64_t counted = file.blocks;
    file.blocks = std::clamp<int64_t>(counted, 0, blocksOf(file.size));
    file.sound = file.sound && file.blocks == counted;
    return file;
}

}  // namespace dorvo
