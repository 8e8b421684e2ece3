// How backup and restore jobs go through their items, and what they do about those that fail.
#include "job/transfer.h"

#include <filesystem>
#include <utility>

#include "job/each_job.h"

namespace dorvo {
namespace {

using namespace test;

template <class Kind>
class TransferItems : public EachJob<Kind> {};
TYPED_TEST_SUITE(TransferItems, JobKinds, JobKindNames);

TYPED_TEST(TransferItems, RecordsItemsThatFailAndGoesOn) {
    Script& script = this->script_;
    script.items["a"] = {0x20010193};
    script.items["b"] = {0x2001019A};
    script.items["c"] = {ERROR_CANCELLED};
    const auto job = this->makeJob();
    script.onItem = [&](const std::string& name) {
        EXPECT_EQ(job->record().fileOffset, 0u) << name << " begins where the one before stood";
        job->record().fileOffset = name == "sources" ? 0 : 5;
    };
    this->run(*job);
    EXPECT_EQ(job->record().fileOffset, 0u);
    EXPECT_EQ(job->state(), completed);
    EXPECT_EQ(job->errors(), (Names{"a 536936851 Forbidden",
                                    "b 536936858 the storage has lost bytes of it, or they are "
                                    "damaged there",
                                    "c 995 "}))
        << "one that nobody broke off is no interruption";
    EXPECT_EQ(job->record().failedItems, 3u);
}

// The process dies before a failed item is recorded, before its position moves, or after.
TYPED_TEST(TransferItems, ADeathLosesNoFailedItem) {
    Script& script = this->script_;
    const std::wstring folder = this->dataPath(L"\\job\\j1");
    const std::wstring left = this->dataPath(L"\\left");
    const auto leave = [&](const wchar_t* part) {
        rm_rf(left + part, true);
        std::filesystem::copy(folder + part, left + part, std::filesystem::copy_options::recursive);
    };
    enum class Dies { before, between, after };
    for (const Dies dies : {Dies::before, Dies::between, Dies::after}) {
        SCOPED_TRACE(static_cast<int>(dies));
        rm_rf(folder, true);
        script = {};
        script.items["b"] = {ERROR_SHARING_VIOLATION};
        script.onItem = [&](const std::string& name) {
            if (name == "b") {
                leave(L"");
            } else if (name == "c" && dies != Dies::before) {
                leave(dies == Dies::between ? L"\\hist" : L"");
            }
        };
        auto job = this->makeJob();
        this->run(*job, completed);
        job.reset();
        ASSERT_TRUE(rm_rf(folder, true));
        std::filesystem::rename(left, folder);
        script = {};
        // What was written down fails once more where the position stands on it.
        script.items["b"] = {dies == Dies::between ? DWORD{ERROR_SHARING_VIOLATION} : 0};
        job = this->makeJob();
        ASSERT_TRUE(job->init());
        ASSERT_EQ(job->state(), paused);
        this->run(*job, completed);
        EXPECT_EQ(script.stored(), dies == Dies::after ? Names{"c"} : (Names{"b", "c"}));
        EXPECT_EQ(job->errors(), dies == Dies::before ? Names{} : Names{"b 32 "});
        EXPECT_EQ(job->record().failedItems, dies == Dies::before ? 0u : 1u);
    }
}

TYPED_TEST(TransferItems, AFailedItemOfTheListThatCannotBeKeptEndsTheRun) {
    Script& script = this->script_;
    std::unique_ptr<TypeParam> job;
    // A folder stands where the failed items go.
    const auto block = [&] {
        EXPECT_TRUE(createDirectories(this->dataPath(L"\\job\\j1\\hist\\") +
                                      toWide(job->instanceText()) + L".errors.journal"));
    };
    if constexpr (std::is_same_v<TypeParam, ScriptedBackup>) {
        job = this->makeBackup({this->sources() + L"\\x"});
        script.onCheck = block;
    } else {
        job = this->makeRestore(2, {L"C:\\x"});
        script.onList = block;
    }
    this->run(*job, failed);
    EXPECT_EQ(job->record().endError, DWORD{ERROR_ACCESS_DENIED})
        << "its own error: a full disk parks";
    EXPECT_EQ(script.count("start"), 0u);
}

TYPED_TEST(TransferItems, FailedItemsThatCannotBeReadFailTheRun) {
    Script& script = this->script_;
    script.items["b"] = {ERROR_SHARING_VIOLATION};
    script.items["c"] = {WSAECONNRESET};
    const auto job = this->makeJob();
    this->run(*job, paused);
    const std::wstring document =
        this->dataPath(L"\\job\\j1\\hist\\") + toWide(job->instanceText()) + L".errors";
    {
        const Held held(document);
        this->run(*job);
        EXPECT_EQ(job->state(), paused) << "until it can be read again";
        EXPECT_EQ(job->record().endError, DWORD{ERROR_SHARING_VIOLATION});
    }
    EXPECT_EQ(job->errors(), Names{"b 32 "});
    this->write(document, "[");
    this->run(*job, failed);
    EXPECT_EQ(job->record().endError, static_cast<uint32_t>(ERROR_INVALID_DATA));
    EXPECT_EQ(script.calls.back(), "cancel");
    EXPECT_EQ(this->contentOf(document), "[");
}

TYPED_TEST(TransferItems, APauseInAnItemRepeatsItUnlessItGotThrough) {
    Script& script = this->script_;
    for (const DWORD answer : {DWORD{ERROR_CANCELLED}, DWORD{ERROR_SUCCESS}}) {
        SCOPED_TRACE(answer);
        this->anew();
        script.items["b"] = {answer};
        const auto job = this->makeJob();
        bool asked = false;
        script.onItem = [&](const std::string& name) {
            if (name == "b" && !std::exchange(asked, true)) {
                EXPECT_TRUE(job->pause(true));
            }
        };
        this->run(*job, paused);
        EXPECT_EQ(job->record().pausedManually, 1u);
        this->run(*job, completed);
        EXPECT_EQ(script.stored(), answer == ERROR_SUCCESS
                                       ? (Names{"sources", "a", "b", "c"})
                                       : (Names{"sources", "a", "b", "b", "c"}));
        EXPECT_EQ(job->record().pausedManually, 0u);
        EXPECT_EQ(job->record().doneSize, 21u);
    }
}

TYPED_TEST(TransferItems, APauseThatIsTakenBackRepeatsWhatItHasBrokenOff) {
    Script& script = this->script_;
    for (const bool list : {false, true}) {
        SCOPED_TRACE(list);
        this->anew();
        const auto job = this->makeJob();
        bool asked = false;
        const auto pauseAndResume = [&] {
            if (!std::exchange(asked, true)) {
                EXPECT_TRUE(job->pause(true) && job->resume());
            }
        };
        if (list) {
            script.onList = pauseAndResume;
            script.list = {ERROR_CANCELLED};
        } else {
            script.onItem = [&](const std::string& name) {
                if (name == "b") {
                    pauseAndResume();
                }
            };
            // The second time it is Windows that says so.
            script.items["b"] = {ERROR_CANCELLED, ERROR_CANCELLED};
        }
        this->run(*job);
        if (list) {
            EXPECT_EQ(job->state(), paused) << "to be resumed by itself";
            EXPECT_EQ(job->record().pausedManually, 0u);
            this->run(*job);
        }
        EXPECT_EQ(job->state(), completed);
        EXPECT_EQ(script.stored(), list ? (Names{"sources", "a", "b", "c"})
                                        : (Names{"sources", "a", "b", "b", "c"}));
        EXPECT_EQ(job->record().doneSize, 21u);
        EXPECT_EQ(job->errors(), list ? Names{} : Names{"b 995 "});
    }
}

TYPED_TEST(TransferItems, WhatPassesParksTheRunUntilItHasPassed) {
    struct Row {
        const char* name;
        DWORD item;
        DWORD record;  // what recording the failed item ends in
        uint64_t room;
        int32_t state;
    };
    const Row rows[] = {
        {"full", ERROR_DISK_FULL, 0, 1000, paused},
        {"full, as a handle says", ERROR_HANDLE_DISK_FULL, 0, 1000, paused},
        {"the item alone does not fit", ERROR_DISK_FULL, 0, uint64_t{1} << 40, completed},
        {"another error", ERROR_ACCESS_DENIED, 0, 1000, completed},
        {"no room for the failed item", ERROR_ACCESS_DENIED, ERROR_DISK_FULL, 1000, paused},
        {"its document is in use", ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, 1000, paused},
        {"a part of it is", ERROR_ACCESS_DENIED, ERROR_LOCK_VIOLATION, 1000, paused},
        {"the failed item cannot be kept", ERROR_ACCESS_DENIED, ERROR_CRC, 1000, failed},
    };
    Script& script = this->script_;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        this->anew();
        script.room = row.room;
        script.items["b"] = {row.item};
        script.record = row.record;
        const auto job = this->makeJob();
        this->run(*job, row.state);
        if (row.state != completed) {
            EXPECT_EQ(job->record().endError, row.record != 0 ? row.record : row.item);
            EXPECT_EQ(script.calls.back() == "cancel", row.state == failed);
            EXPECT_EQ(script.stored(), (Names{"sources", "a", "b"}));
        }
        if (row.state == paused) {
            this->run(*job, completed);
            EXPECT_EQ(script.stored(), (Names{"sources", "a", "b", "b", "c"}));
        }
        EXPECT_EQ(job->errors().size(), row.state == completed ? 1u : 0u);
    }
}

TYPED_TEST(TransferItems, AListWithoutItsEndNeverCompletes) {
    this->script_.items["b"] = {WSAECONNRESET};
    const auto job = this->makeJob();
    this->run(*job);
    const std::string content = this->contentOf(this->list());
    this->write(this->list(), content.substr(0, content.size() - 6));
    this->run(*job, failed);
    EXPECT_EQ(job->record().endError, static_cast<uint32_t>(ERROR_FILE_CORRUPT));
    EXPECT_EQ(this->script_.count("end"), 0u);
}

// They would make the new list whole before it is.
TYPED_TEST(TransferItems, ANewListWaitsForTheTotalsOfTheLastToGo) {
    const auto job = this->makeJob();
    this->run(*job, completed);
    const size_t listed = this->script_.listed;
    {
        const Held held(this->dataPath(L"\\job\\j1\\act\\totals"));
        this->run(*job, paused);
        EXPECT_EQ(job->record().endError, DWORD{ERROR_SHARING_VIOLATION});
    }
    EXPECT_EQ(this->script_.listed, listed);
    this->write(this->sources() + L"\\d", "content");
    this->script_.catalog.push_back(this->item(L"C:\\sources\\d"));
    this->run(*job, completed);
    EXPECT_EQ(this->script_.stored().back(), "d");
    FileHandle looked = holdFile(this->dataPath(L"\\job\\j1\\act\\totals"));
    const Meanwhile leaves([&] { looked.reset(); });
    this->run(*job, completed);
}

TYPED_TEST(TransferItems, OnlyAListThatIsLostIsMadeAnewAndGoneThroughFromItsBeginning) {
    const std::wstring totals = this->dataPath(L"\\job\\j1\\act\\totals");
    struct Row {
        const char* name;
        std::wstring file;
        enum { deleted, damaged, held } how;
    };
    const Row rows[] = {
        {"no list", this->list(), Row::deleted},
        {"no totals", totals, Row::deleted},
        {"totals without sense", totals, Row::damaged},
        {"another program reads the list", this->list(), Row::held},
        {"another program reads the totals", totals, Row::held},
    };
    Script& script = this->script_;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        this->anew();
        script.items["b"] = {WSAECONNRESET};
        const auto job = this->makeJob();
        this->run(*job, paused);
        script.calls.clear();
        if (row.how == Row::held) {
            const Held held(row.file);
            this->run(*job, paused);
            EXPECT_EQ(job->record().endError, DWORD{ERROR_SHARING_VIOLATION});
            EXPECT_EQ(script.calls, Names{}) << "nothing can be said of its end either";
        } else if (row.how == Row::damaged) {
            this->write(row.file, "{}");
        } else {
            ASSERT_NE(DeleteFileW(row.file.c_str()), 0);
        }
        this->run(*job, completed);
        EXPECT_EQ(script.stored(),
                  row.how == Row::held ? (Names{"b", "c"}) : (Names{"sources", "a", "b", "c"}));
    }
}

}  // namespace
}  // namespace dorvo
