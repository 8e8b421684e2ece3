// The two requests that carry a file: its information and its blocks.
#include <boost/json.hpp>
#include <charconv>

#include "common/digest.h"
#include "common/service_error.h"
#include "endpoints/backup_endpoints.h"
#include "endpoints/instance_access.h"
#include "endpoints/json_body.h"
#include "endpoints/multipart.h"

namespace dorvo {

namespace json = boost::json;

namespace {

// Of one package. What a file system can hold in one file is more, and far from 2^63.
constexpr int64_t maxPackageBytes = int64_t{1} << 42U;

StoredFile readFile(const json::object& body) {
    StoredFile file;
    file.attributes = readAttributes(objectMember(body, "attri"));
    file.mtime = lastWriteTime(file.attributes);
    file.kind = isFolder(file.attributes) ? FileKind::folder : FileKind::file;
    if (textMember(body, "type", maxIdBytes) != typeText(file.kind)) {
        throw ServiceError(400, "\"type\" contradicts the attributes");
    }
    const uint64_t size =
        joinHalves(u32Member(body, "totalsizeHigh"), u32Member(body, "totalsizeLow"));
    if (size > static_cast<uint64_t>(maxPackageBytes)) {
        throw ServiceError(413, "the file is too large");
    }
    file.size = static_cast<int64_t>(size);
    if (file.kind == FileKind::folder && file.size != 0) {
        throw ServiceError(400, "a folder has no package");
    }
    u32Member(body, "totalblock");  // must be there; the size alone says how many blocks there are
    return file;
}

// The number in "<number>.jpg".
int64_t blockNumber(std::string_view fileName) {
    constexpr std::string_view suffix = ".jpg";
    uint32_t number = 0;
    if (fileName.ends_with(suffix)) {
        fileName.remove_suffix(suffix.size());
        const auto [end, error] =
            std::from_chars(fileName.data(), fileName.data() + fileName.size(), number);
        if (error == std::errc() && end == fileName.data() + fileName.size() && number != 0) {
            return number;
        }
    }
    throw ServiceError(400, "the block's file name is not a number followed by .jpg");
}

// Checks that block k of the file may come now and that the data has its size.
void checkBlock(const StoredFile& file, int64_t instance, int64_t k, std::string_view data) {
    if (file.kind == FileKind::awaited || !file.sound) {
        throw ServiceError(409, "the file's information has not been uploaded");
    }
    const int64_t begin = (k - 1) * blockBytes;
    if (file.kind == FileKind::folder || begin >= file.size) {
        throw ServiceError(400, "the block lies outside the file");
    }
    if (static_cast<int64_t>(data.size()) != std::min(blockBytes, file.size - begin)) {
        throw ServiceError(400, "the block has not the size it must have");
    }
    if (file.owner != instance) {
        throw ServiceError(409, "the file is carried over from an earlier backup");
    }
    if (k > file.blocks + 1) {
        throw ServiceError(409, "the block before has not been uploaded");
    }
}

}  // namespace

json::object BackupEndpoints::uploadFile(const Session& session, const json::object& body) {
    const std::string name(idMember(body, "jobinstanceid"));
    const std::string_view path = checkPath(textMember(body, "sourcename", maxPathBytes));
    StoredFile file = readFile(body);
    const InstanceLocks::Guard guard(locks_, session.userId, name);
    const Instance instance = ownInstance(instances_, session, name);
    requireRunning(instance);
    room_.requireForUpload();
    const auto known = instances_.findFile(instance.id, path);
    const bool hasPlace = known && known->sound && known->owner == instance.id;
    file.compress = known ? known->compress : instance.compress;
    const bool keepsPlace = hasPlace && known->size == file.size;
    // Blocks of what the file was at another time must not become a part of what it is now.
    const bool keepsBlocks = keepsPlace && known->mtime == file.mtime;
    if (keepsPlace) {
        file.container = known->container;
        file.offset = known->offset;
        file.blocks = keepsBlocks ? known->blocks : 0;
    }
    if (hasPlace && !keepsBlocks && known->blocks > 0) {
        instances_.dropBlocks(instance.id, {{std::string(path), 0}});
    }
    const bool missed = known && known->kind == FileKind::awaited;
    if (keepsPlace || file.size == 0) {
        instances_.putFile(instance.id, path, file);
    } else {
        instances_.placeFile(instance.id, path, file, blocks_.limit());
    }
    if (hasPlace && !keepsPlace) {
        blocks_.discard(known->container, known->offset, known->size);
    }
    if (!missed) {
        // After a power cut endjob asks for what is awaited again, and for nothing else: a folder
        // would be missing from a completed backup.
        instances_.syncChanges();
    }
    // A client that has stored more of it goes back to this.
    return {{"blocks", file.blocks}};
}

bool BackupEndpoints::holds(const StoredFile& file, int64_t k, std::string_view data) {
    std::string stored(data.size(), '\0');
    try {
        blocks_.read(file.container, file.offset + (k - 1) * blockBytes, stored);
    } catch (const LostBytes&) {
        return false;  // it takes the place of what is gone
    }
    return stored == data;
}

json::object BackupEndpoints::uploadBlock(const Session& session, std::string_view contentType,
                                          std::string_view form) {
    const std::vector<FormPart> parts = parseMultipart(contentType, form);
    const std::string name(checkId(formPart(parts, "jobinstanceid").content, "jobinstanceid"));
    const std::string_view path = checkPath(formPart(parts, "sourcename").content);
    const FormPart& block = formPart(parts, "file");
    const int64_t k = blockNumber(block.fileName);
    const std::string digest = md5(block.content);
    if (hexText(digest) != formPart(parts, "md5").content) {
        throw ServiceError(400, "the block's MD5 is wrong");
    }
    const InstanceLocks::Guard guard(locks_, session.userId, name);
    const Instance instance = ownInstance(instances_, session, name);
    requireRunning(instance);
    const auto file = instances_.findFile(instance.id, path);
    if (!file) {
        throw ServiceError(404, "the backup has no such file");
    }
    checkBlock(*file, instance.id, k, block.content);
    if (k <= file->blocks && holds(*file, k, block.content)) {
        return {};  // a repeat, perhaps a late one: the blocks above stay
    }
    room_.requireForUpload();
    if (k <= file->blocks) {
        // Its old bytes are no longer to be counted on once new ones are being written over them.
        instances_.dropBlocks(instance.id, {{std::string(path), k - 1}});
    }
    blocks_.write(file->container, file->offset + (k - 1) * blockBytes, block.content);
    instances_.putBlock(instance.id, path, *file, k, digest);
    return {};
}

}  // namespace dorvo
