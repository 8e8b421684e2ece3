// Writer and reader of source lists against each other and against damaged files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "record/jobactsrcreader.h"
#include "record/jobactsrcwriter.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/list_records.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using testing::ElementsAre;

class SourceList : public testing::Test {
protected:
    test::TemporaryFolder ground_{L"dorvo_srclist"};
    const std::wstring path_ = ground_.path() + L"\\src";
};

TEST_F(SourceList, CarriesRecordsLargerThanTheBuffer) {
    const std::wstring longest(32739, L'x');
    JobHistorySourceWriter writer;
    ASSERT_TRUE(writer.open(path_, false));
    ASSERT_TRUE(writer.addEntry(longest, {}, 1));
    EXPECT_FAILS(ERROR_FILENAME_EXCED_RANGE, writer.addEntry(longest + L"x", {}, 2));
    ASSERT_TRUE(writer.endSet());
    ASSERT_TRUE(writer.close());
    EXPECT_THAT(test::listRecords(path_), ElementsAre(L"FI 1 " + longest, L"ES"));
}

TEST_F(SourceList, AppendsOnlyToAListWithContent) {
    const test::LogCapture quiet;
    JobHistorySourceWriter writer;
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, writer.open(path_, true));

    test::storeFile(path_, "");
    EXPECT_FAILS(ERROR_ALREADY_EXISTS, writer.open(path_, true));

    ASSERT_TRUE(writer.open(path_, false));
    ASSERT_TRUE(writer.startSet());
    ASSERT_TRUE(writer.open(path_, true)) << "reopening writes and closes what was open";
    ASSERT_TRUE(writer.endSet());
    ASSERT_TRUE(writer.close());
    EXPECT_THAT(test::listRecords(path_), ElementsAre(L"SS", L"ES"));
}

TEST_F(SourceList, EndsAtDamageAndSaysSoOnlyInsideARecord) {
    const std::tuple<const char*, std::string, bool> rows[] = {
        {"empty", "", false},
        {"part of a head", "ESE", false},
        {"part of a body", std::string("VOLB\x12\0\x08\0\x0a\0C", 11), true},
        {"no body", std::string("SSET\x08\0", 6), true},
        {"a size below the head's", std::string("ESET\x05\0", 6), true},
    };
    for (const auto& [what, bytes, logged] : rows) {
        SCOPED_TRACE(what);
        test::storeFile(path_, bytes);
        test::LogCapture log;
        JobActivitySourceReader reader;
        ASSERT_TRUE(reader.open(path_, 0));
        EXPECT_EQ(reader.next(), 0u);
        EXPECT_EQ(!log.lines().empty(), logged);
    }
}

TEST_F(SourceList, WhatFailedOnceFailsEverythingAfterIt) {
    JobHistorySourceWriter writer;
    EXPECT_FALSE(writer.startSet()) << "nothing is open";
    JobActivitySourceReader reader;
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND, reader.open(path_, 0));
    EXPECT_EQ(reader.offset(), -1);
    EXPECT_EQ(reader.next(), 0u);
    test::storeFile(path_, "content");
    // A handle without the right to write fails like a disk that is full.
    writer.attach(FileHandle(CreateFileW(path_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)));
    EXPECT_TRUE(writer.startSet()) << "buffered";
    EXPECT_FAILS(ERROR_ACCESS_DENIED, writer.flush());
    SetLastError(0);
    EXPECT_FAILS(ERROR_ACCESS_DENIED, writer.endSet());
    EXPECT_FALSE(writer.close());
}

}  // namespace
}  // namespace dorvo
