#include "storage/web/scripted_backup.h"
// The sockets' header comes before the others.

#include "storage/refusalwords.h"
#include "storage/web/webbackend.h"
#include "support/fails_with.h"

namespace dorvo::test {
namespace {

class WebBackupStorageTest : public ScriptedBackupService {};

TEST_F(WebBackupStorageTest, WhatTheServiceLacksAtTheEndBecomesFailedItems) {
    struct Row {
        const char* name;
        std::vector<std::string> refusals;  // to one end after the other, the last for ever
        DWORD error;
        Names failed;
        size_t ends;
    };
    const std::string a = R"({"error":"","incomplete":["C:\\a"]})";
    const std::string more = R"({"incomplete":["C:\\a","C:\\b\u00e4",7,""]})";
    std::vector<std::string> forEver;
    Names named;
    for (int i = 0; i < 150; ++i) {
        forEver.push_back(R"({"incomplete":["C:\\a)" + std::to_string(i) + "\"]}");
        if (i < 99) {
            named.push_back("C:\\a" + std::to_string(i));
        }
    }
    const Row rows[] = {
        {"another one every time", forEver, 0x20010199, named, 100},
        {"named at once", {more, ""}, 0, {"C:\\a", "C:\\b\u00e4"}, 2},
        {"named one after the other", {a, more, ""}, 0, {"C:\\a", "C:\\b\u00e4"}, 3},
        {"named in spite of being on the list", {a}, 0x20010199, {"C:\\a"}, 2},
        {"names no text at all", {"{\"incomplete\":[\"\xff\"]}"}, 0x20010199, {}, 1},
        {"nothing named", {"{}"}, 0x20010199, {}, 1},
        {"no list", {R"({"incomplete":"C:\\a"})"}, 0x20010199, {}, 1},
        {"no answer of ours", {"<html>"}, 0x20010199, {}, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        failed_->clear();
        service_.forget();
        size_t ends = 0;
        reply_ = [&](const Seen& seen) {
            if (seen.endpoint != "endjob") {
                return Answer{"200 OK"};
            }
            const std::string& body = row.refusals[std::min(ends, row.refusals.size() - 1)];
            ++ends;
            return body.empty() ? Answer{"200 OK"} : Answer{"409 Conflict", body};
        };
        const auto storage = makeStorage();
        const LogCapture quiet;
        SetLastError(0);
        EXPECT_EQ(storage->end(), row.error == 0);
        EXPECT_EQ(row.error == 0 ? 0 : GetLastError(), row.error);
        EXPECT_EQ(ends, row.ends);
        Names failed;
        for (const FailedItem& item : failed_->list()) {
            failed.push_back(item.path);
        }
        EXPECT_EQ(failed, row.failed);
        for (const Seen& seen : service_.seen()) {
            if (row.error == 0 && seen.endpoint == "AddErrorFiles") {
                EXPECT_NE(seen.body.find("C:\\\\a"), std::string::npos);
            }
        }
    }
}

TEST_F(WebBackupStorageTest, ShowsThatTheServiceWorksOnTheEnd) {
    BackupTask task = makeTask();
    std::vector<CurrentFileState> shown;
    task.changed = [&] { shown.push_back(CurrentFileState{record_.currentFileState}); };
    WebBackupStorage storage(place(), std::move(task));
    ASSERT_TRUE(storage.start());
    shown.clear();
    EXPECT_TRUE(storage.end());
    EXPECT_EQ(shown, (std::vector{CurrentFileState::awaited, CurrentFileState::none}));
}

TEST_F(WebBackupStorageTest, AServerThatStallsAtTheEndHoldsUpAStopForItsPatienceOnly) {
    Signal answer;
    status_ = [&](const Seen& seen) {
        if (seen.endpoint == "endjob") {
            stop_.set();
            answer.wait();
        }
        return "200 OK";
    };
    const auto storage = makeStorage(0);
    EXPECT_FAILS(ERROR_CANCELLED, storage->end());
    answer.set();
}

TEST_F(WebBackupStorageTest, AStopMakesEveryFailureACancellation) {
    const std::wstring path = makeSource(size_t{2} * uploadBlockSize);
    status_ = [this](const Seen& seen) {
        if (seen.endpoint == "uploadblock") {
            stop_.set();
            return "503 Service Unavailable";
        }
        return "200 OK";
    };
    const auto storage = makeStorage();
    EXPECT_FAILS(ERROR_CANCELLED, backup(*storage, path));
    EXPECT_EQ(record_.acceptedBlocks, 0u);

    // Ending the run does not heed the signal.
    EXPECT_TRUE(storage->cancel());
    EXPECT_EQ(service_.last().endpoint, "CancelJob");
    EXPECT_EQ(service_.last().body, std::string(R"({"id":")") + instance + "\"}");
}

// Where it says so, in one line and not at length.
TEST_F(WebBackupStorageTest, WritesDownWhyTheServiceRefuses) {
    const std::string full = "the server's disk is full:";
    const std::pair<std::string, std::string> rows[] = {
        {R"({"error":")" + full + R"(\n7 MiB are left"})", full + " 7 MiB are left"},
        {R"({"error":")" + std::string(501, 'x') + "\"}", std::string(500, 'x')},
        {R"({"error":""})", ""},
        {R"({"error":7})", ""},
        {"<html>", ""},
    };
    const std::wstring path = makeSource(16);
    const auto storage = makeStorage();
    for (const auto& [body, said] : rows) {
        SCOPED_TRACE(body);
        reply_ = [&, &body = body](const Seen&) { return Answer{"503 Service Unavailable", body}; };
        const LogCapture log;
        EXPECT_FAILS(0x200101F7, backup(*storage, path));
        EXPECT_EQ(refusalWords(0x200101F7), said);
        EXPECT_EQ(refusalWords(0x200101F4), "") << "of another status";
        EXPECT_EQ(log.begins("The service says {"), !said.empty());
        EXPECT_EQ(log.begins("The service says {" + said + "}."), !said.empty());
        EXPECT_TRUE(log.begins("Failed to upload file information {"));
    }
}

TEST_F(WebBackupStorageTest, RefusesToStart) {
    const std::pair<void (*)(WebPlace&, BackupTask&), DWORD> rows[] = {
        {[](WebPlace& place, BackupTask&) { place.cookie.clear(); }, 0x20010191},
        {[](WebPlace& place, BackupTask&) { place.host.clear(); }, 87},
        {[](WebPlace&, BackupTask& task) { task.activity->instanceId.fill(0); }, 87},
    };
    LogCapture log;
    for (const auto& [spoil, error] : rows) {
        WebPlace at = place();
        BackupTask task = makeTask();
        spoil(at, task);
        WebBackupStorage storage(std::move(at), std::move(task));
        SetLastError(0);
        EXPECT_FAILS(error, storage.start());
    }
    EXPECT_FAILS(87, WebBackend("alice").backup({}) != nullptr);
    EXPECT_TRUE(log.begins("Failed to start job {, }, invalid job activity."));
    EXPECT_TRUE(service_.seen().empty());
}

}  // namespace
}  // namespace dorvo::test
