// A storage that restores from a scripted service: the fixture of the tests of both.
#pragma once

#include "support/scripted_service.h"
// The sockets' header comes before the others.

#include <gtest/gtest.h>

#include <memory>

#include "base/paths.h"
#include "base/text.h"
#include "source/transformation.h"
#include "storage/itemtemppath.h"
#include "storage/web/webrestorestorage.h"
#include "support/files.h"
#include "support/signal.h"
#include "support/store_test.h"

namespace dorvo::test {

using Names = std::vector<std::string>;

inline constexpr char job[] = "j1";
inline constexpr char backupId[] = "22222222-2222-2222-2222-222222222222";
inline constexpr uint32_t number = 7;
// Far from any clock, and what the service says of the file.
inline constexpr char attributes[] =
    R"("attri":{"dwFileAttributes":%ATTR%,"nFileSizeHigh":0,"nFileSizeLow":1,)"
    R"("ftCreationTimedwHighDateTime":29000000,"ftCreationTimedwLowDateTime":10,)"
    R"("ftLastAccessTimedwHighDateTime":29100000,"ftLastAccessTimedwLowDateTime":20,)"
    R"("ftLastWriteTimedwHighDateTime":29200000,"ftLastWriteTimedwLowDateTime":30})";

inline std::string member(const Seen& seen, const char* name) {
    json_spirit::Value body;
    json_spirit::read_or_throw(seen.body, body);
    return body.get_obj().at(name).get_str();
}

// The service holds one package, and one file by whatever name it is asked for.
class ScriptedRestore : public StoreTest {
protected:
    ScriptedRestore()
        : service_([this](const Seen& seen) { return reply_ ? reply_(seen) : reply(seen); }) {
        record_.reset(static_cast<int32_t>(JobState::running), true);
        record_.instanceId.fill(0x11);
        createDirectories(itemTempFolder(job));
        std::wstring directory;
        jobDirectory(job, directory);
        failed_ = std::make_unique<FailedItems>(toUtf8(directory + L"\\errors"), record_);
        createDirectories(dataPath(L"\\out"));
        target_ = dataPath(L"\\out\\a.txt");
        package_ = itemTempPath(itemTempFolder(job), number);
    }

    WebPlace place() const {
        return {.user = "nobody",
                .cookie = "DORVOSESSION=abc",
                .host = "127.0.0.1",
                .port = service_.port()};
    }
    RestoreTask makeTask() {
        RestoreTask task;
        task.jobId = job;
        task.jobName = "name";
        task.from = {"PC", "def", backupId};
        task.key.key.fill(1);
        task.key.iv.fill(2);
        task.activity = &record_;
        task.failed = failed_.get();
        task.stop = stop_.handle();
        task.finishPatienceMs = INFINITE;
        return task;
    }
    // A started one.
    std::unique_ptr<WebRestoreStorage> makeStorage() {
        auto storage = std::make_unique<WebRestoreStorage>(place(), makeTask());
        EXPECT_TRUE(storage->start());
        service_.forget();
        return storage;
    }
    bool restore(WebRestoreStorage& storage, bool replace = true) {
        return storage.restoreFile(L"C:\\data\\a.txt", target_.c_str(), number, replace);
    }
    // What the service holds: a file whose package has this size, a multiple of 16 above 0.
    void hold(size_t packageSize) {
        content_.resize(packageSize - 1);
        for (size_t i = 0; i < content_.size(); ++i) {
            content_[i] = static_cast<char>(i / 16 * 31 + i);
        }
        const std::wstring source = dataPath(L"\\source");
        const std::wstring made = dataPath(L"\\package");
        write(source, content_);
        BackupTransformation encode;
        encode.key.fill(1);
        encode.iv.fill(2);
        ASSERT_TRUE(encode.transform(source.c_str(), made.c_str(), nullptr, nullptr));
        stored_ = contentOf(made);
    }
    std::optional<Answer> reply(const Seen& seen) const {
        if (seen.endpoint == "StartRestoreJob") {
            return Answer{.body = R"({"jobinstanceid":"r1","totalfiles":1,)"
                                  R"("totaldirectories":0,"totalsize":9})"};
        }
        if (seen.endpoint == "GetFileInfo") {
            std::string attri = attributes;
            attri.replace(attri.find("%ATTR%"), 6, std::to_string(attributes_));
            const bool folder = (attributes_ & FILE_ATTRIBUTE_DIRECTORY) != 0;
            return Answer{.body = "{" + attri + R"(,"type":")" + (folder ? "folder" : "file") +
                                  R"(","totalsizeHigh":0,"totalsizeLow":)" +
                                  std::to_string(stored_.size()) +
                                  R"(,"totalblock":1,"compress":false})"};
        }
        return seen.endpoint == "DownloadFileBlock" ? Answer{.body = block(seen)} : Answer{};
    }
    // The MD5, which nobody compares, and the bytes.
    std::string block(const Seen& seen) const {
        const size_t index = std::stoul(member(seen, "blockindex"));
        return std::string(32, 'f') +
               stored_.substr((index - 1) * uploadBlockSize, uploadBlockSize);
    }
    Names blocks() const {
        Names indexes;
        for (const Seen& seen : service_.seen()) {
            if (seen.endpoint == "DownloadFileBlock") {
                indexes.push_back(member(seen, "blockindex"));
            }
        }
        return indexes;
    }
    // As an earlier run of the same item left it.
    void resume(uint64_t offset, const std::string& received) {
        record_.itemNumber = number;
        record_.packageSize = stored_.size();
        record_.fileOffset = offset;
        write(package_, received);
    }

    JobActivity record_{};
    Signal stop_;
    std::unique_ptr<FailedItems> failed_;
    std::wstring target_;
    std::wstring package_;
    std::string content_;
    std::string stored_;
    DWORD attributes_ = FILE_ATTRIBUTE_ARCHIVE;
    std::function<std::optional<Answer>(const Seen&)> reply_;
    ScriptedService service_;
};

}  // namespace dorvo::test
