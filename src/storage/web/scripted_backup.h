// A storage that backs up to a scripted service: the fixture of the tests of both.
#pragma once

#include "support/scripted_service.h"
// The sockets' header comes before the others.

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "base/paths.h"
#include "base/text.h"
#include "storage/web/webbackupstorage.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/signal.h"
#include "support/store_test.h"

namespace dorvo::test {

using Names = std::vector<std::string>;

inline constexpr char job[] = "j1";
inline constexpr char instance[] = "11111111-1111-1111-1111-111111111111";

// "3": the block's number, from the name of its file.
inline std::string blockOf(const Seen& seen) {
    const size_t begin = seen.body.find("filename=\"") + 10;
    return seen.body.substr(begin, seen.body.find(".jpg") - begin);
}

class ScriptedBackupService : public StoreTest {
protected:
    ScriptedBackupService()
        : service_([this](const Seen& seen) {
              return reply_ ? reply_(seen) : Answer{status_ ? status_(seen) : "200 OK"};
          }) {
        record_.reset(static_cast<int32_t>(JobState::running), true);
        record_.instanceId.fill(0x11);
        std::wstring directory;
        jobDirectory(job, directory);
        createDirectories(directory + L"\\tmp");
        failed_ = std::make_unique<FailedItems>(toUtf8(directory + L"\\errors"), record_);
    }

    WebPlace place() const {
        return {
            .user = {}, .cookie = "DORVOSESSION=abc", .host = "127.0.0.1", .port = service_.port()};
    }
    BackupTask makeTask() {
        BackupTask task;
        task.finishPatienceMs = INFINITE;
        task.jobId = job;
        task.jobName = "name";
        task.compress = false;
        task.totals = {1, 2, 3};
        task.activity = &record_;
        task.failed = failed_.get();
        task.stop = stop_.handle();
        return task;
    }
    // A started one.
    std::unique_ptr<WebBackupStorage> makeStorage(DWORD finishPatienceMs = INFINITE) {
        BackupTask task = makeTask();
        task.finishPatienceMs = finishPatienceMs;
        auto storage = std::make_unique<WebBackupStorage>(place(), std::move(task));
        EXPECT_TRUE(storage->start());
        return storage;
    }
    // A source whose package has the wanted size: a multiple of 16 above 0.
    std::wstring makeSource(size_t packageSize) {
        std::wstring path = dataPath(L"\\source");
        write(path, std::string(packageSize - 1, 'x'));
        return path;
    }
    bool backup(WebBackupStorage& storage, const std::wstring& path, uint32_t number = 1) {
        return storage.backup(path.c_str(), dataOf(path), number, nullptr);
    }

    // The service takes so many blocks of the file and then no more.
    void sendInPart(const std::wstring& path, uint32_t count) {
        record_.itemNumber = 0;
        status_ = [&](const Seen& seen) {
            const bool more = seen.endpoint == "uploadblock" && std::stoul(blockOf(seen)) > count;
            return more ? "503 Busy" : "200 OK";
        };
        const LogCapture quiet;
        EXPECT_FALSE(backup(*makeStorage(), path));
        EXPECT_EQ(record_.acceptedBlocks, count);
        status_ = nullptr;
    }
    Names blocks() const {
        Names numbers;
        for (const Seen& seen : service_.seen()) {
            if (seen.endpoint == "uploadblock") {
                numbers.push_back(blockOf(seen));
            }
        }
        return numbers;
    }
    // Where it stands what was accepted.
    static std::wstring known() {
        std::wstring directory;
        jobDirectory(job, directory);
        return directory + L"\\act\\accepted";
    }

    JobActivity record_{};
    Signal stop_;
    std::unique_ptr<FailedItems> failed_;
    std::function<const char*(const Seen&)> status_;
    std::function<Answer(const Seen&)> reply_;  // where more than a status is told
    ScriptedService service_;
};

}  // namespace dorvo::test
