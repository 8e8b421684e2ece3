#include "storage/web/scripted_restore.h"
// The sockets' header comes before the others.

#include "support/fails_with.h"
#include "support/files.h"
#include "support/log_capture.h"

namespace dorvo::test {
namespace {

class RestoredFile : public ScriptedRestore {};

TEST_F(RestoredFile, TrustsNothingFromBeforeTheMachineStarted) {
    hold(2 * uploadBlockSize + 16);
    for (const bool before : {false, true}) {
        SCOPED_TRACE(before);
        const auto storage = makeStorage();
        resume(uploadBlockSize, stored_.substr(0, uploadBlockSize));
        if (before) {
            const FileHandle package(CreateFileW(package_.c_str(), FILE_WRITE_ATTRIBUTES, 0,
                                                 nullptr, OPEN_EXISTING, 0, nullptr));
            constexpr FILETIME longAgo{0, 0x01C00000};
            ASSERT_NE(SetFileTime(package.get(), nullptr, nullptr, &longAgo), 0);
        }
        ASSERT_TRUE(restore(*storage));
        EXPECT_EQ(contentOf(target_), content_);
        EXPECT_EQ(blocks(), before ? (Names{"1", "2", "3"}) : (Names{"2", "3"}));
    }
}

TEST_F(RestoredFile, ABlockThatIsNoneFailsTheFileAndKeepsWhatCameBefore) {
    hold(2 * uploadBlockSize + 16);
    const std::string good = stored_.substr(uploadBlockSize, uploadBlockSize);
    const std::string md5(32, 'f');
    struct Row {
        const char* name;
        std::optional<Answer> second;  // the answer to the second block
        DWORD error;
    };
    const Row rows[] = {
        {"a status", Answer{"404 Not Found"}, 0x20010194},
        {"without a length", Answer{.body = md5 + good, .chunked = true}, 0x20010258},
        {"half an MD5", Answer{.body = md5.substr(1)}, 0x20010258},
        {"an MD5 and no bytes", Answer{.body = md5}, 0x20010258},
        {"too long", Answer{.body = md5 + good + "x"}, ERROR_FILE_TOO_LARGE},
        {"garbled", Answer{.status = "garbled\r\n:"}, ERROR_INVALID_DATA},
        {"no answer", std::nullopt, WSAEDISCON},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        reply_ = [&](const Seen& seen) {
            return seen.endpoint == "DownloadFileBlock" && member(seen, "blockindex") == "2"
                       ? row.second
                       : reply(seen);
        };
        record_.itemNumber = 0;
        const auto storage = makeStorage();
        const LogCapture quiet;
        EXPECT_FAILS(row.error, restore(*storage));
        // The next try goes on there.
        reply_ = nullptr;
        service_.forget();
        EXPECT_TRUE(restore(*storage));
        EXPECT_EQ(blocks(), (Names{"2", "3"}));
        EXPECT_EQ(contentOf(target_), content_);
    }
}

TEST_F(RestoredFile, WhatIsRefusedWhileTheJobMustStopIsACancellation) {
    hold(2 * uploadBlockSize + 16);
    const std::pair<const char*, Names> rows[] = {{"GetFileInfo", {"1", "2", "3"}},
                                                  {"2", {"2", "3"}}};
    for (const auto& [refused, left] : rows) {
        SCOPED_TRACE(refused);
        record_.reset(static_cast<int32_t>(JobState::running), true);
        reply_ = [&, refused = std::string(refused)](const Seen& seen) {
            Answer answer = *reply(seen);
            const bool block = seen.endpoint == "DownloadFileBlock";
            if (refused == (block ? member(seen, "blockindex") : seen.endpoint)) {
                stop_.set();
                answer.status = "503 Busy";
            }
            return answer;
        };
        const auto storage = makeStorage();
        EXPECT_FAILS(ERROR_CANCELLED, restore(*storage));
        stop_.reset();
        reply_ = nullptr;
        service_.forget();
        EXPECT_TRUE(restore(*storage));
        EXPECT_EQ(blocks(), left);
    }
    target_.clear();
    service_.forget();
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, restore(*makeStorage()));
    EXPECT_TRUE(service_.seen().empty());
}

}  // namespace
}  // namespace dorvo::test
