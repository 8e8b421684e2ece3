#include "storage/web/acceptedblocks.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <type_traits>

#include "base/last_error.h"
#include "base/log.h"
#include "base/md5.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {
namespace {

constexpr uint32_t version1 = 1;

struct Record {
    uint32_t version;
    uint32_t count;
    std::array<char, 32> digest;
};
static_assert(std::is_trivially_copyable_v<Record> && std::is_standard_layout_v<Record>);
static_assert(sizeof(Record) == 40 && offsetof(Record, count) == 4 &&
              offsetof(Record, digest) == 8);

std::string digestOf(const std::string& text) {
    return Md5::of(std::as_bytes(std::span(text)));
}

}  // namespace

AcceptedBlocks::AcceptedBlocks(const std::string& package) : digest_(digestOf(package)) {}

void AcceptedBlocks::add(const std::string& md5) {
    count_ += 1;
    digest_ = digestOf(digest_ + md5);
}

AcceptedBlocksFile::AcceptedBlocksFile(const std::wstring& jobDirectory)
    : folder_(jobDirectory.empty() ? jobDirectory : jobDirectory + L"\\act") {}

bool AcceptedBlocksFile::open() {
    if (!file_ && !folder_.empty() && createDirectories(folder_)) {
        file_.reset(CreateFileW(longPath(folder_ + L"\\accepted").c_str(),
                                GENERIC_READ | GENERIC_WRITE,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    return static_cast<bool>(file_);
}

AcceptedBlocks AcceptedBlocksFile::load() {
    Record record{};
    OVERLAPPED atBegin{};
    DWORD length = 0;
    if (!open() || ReadFile(file_.get(), &record, sizeof(record), &length, &atBegin) == 0 ||
        length != sizeof(record) || record.version != version1) {
        return {};
    }
    return {record.count, std::string(record.digest.begin(), record.digest.end())};
}

bool AcceptedBlocksFile::write(const AcceptedBlocks& blocks) {
    Record record{version1, blocks.count(), {}};
    std::copy_n(blocks.digest().begin(), std::min(blocks.digest().size(), record.digest.size()),
                record.digest.begin());
    OVERLAPPED atBegin{};
    DWORD length = 0;
    return open() && WriteFile(file_.get(), &record, sizeof(record), &length, &atBegin) != 0 &&
           length == sizeof(record);
}

bool AcceptedBlocksFile::save(const AcceptedBlocks& blocks) {
    if (write(blocks)) {
        return true;
    }
    if (!complained_) {
        const LastErrorGuard keep;
        complained_ = true;
        log(LogLevel::warning,
            "Failed to record what is accepted of a package, folder {%s}, error-code = %d, %m.\n",
            toUtf8(folder_), keep.error());
    }
    return false;
}

bool AcceptedBlocksFile::forget() {
    return save({}) && FlushFileBuffers(file_.get()) != 0;
}

}  // namespace dorvo
