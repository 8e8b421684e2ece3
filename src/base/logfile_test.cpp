#include "base/logfile.h"

#include <ace/Log_Msg.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "base/log.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using test::fileContent;

class LogFileTest : public testing::Test {
protected:
    test::TemporaryFolder ground_{L"logfile_test"};
    const std::wstring path_ = ground_.path() + L"\\log";
    LogFile file_;
};

TEST_F(LogFileTest, WritesTimeThreadLevelAndMessage) {
    ASSERT_TRUE(file_.open(path_));
    file_.write(LogLevel::error, "@77@Failed {x}, 5.\n");
    file_.write(LogLevel::information, "no thread and no line end");
    file_.close();
    const std::regex expected(
        R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} 77 error Failed \{x\}, 5\.\n)"
        R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} - info no thread and no line end\n)");
    EXPECT_TRUE(std::regex_match(fileContent(path_), expected)) << fileContent(path_);
}

TEST_F(LogFileTest, AppendsToWhatIsThereAndToWhatAnotherWriterAdds) {
    LogFile other;
    for (LogFile* const writer : {&file_, &other}) {
        ASSERT_TRUE(writer->open(path_));
        writer->write(LogLevel::debug, "@1@x\n");
    }
    file_.write(LogLevel::debug, "@1@x\n");
    file_.close();
    other.close();
    EXPECT_EQ(std::ranges::count(fileContent(path_), 'x'), 3);
}

TEST_F(LogFileTest, KeepsOneOldFileAndStaysBelowItsLimit) {
    constexpr uint64_t limit = 200;
    ASSERT_TRUE(file_.open(path_, limit));
    for (int i = 0; i < 20; ++i) {
        file_.write(LogLevel::debug, "@1@line " + std::to_string(i) + "\n");
    }
    file_.close();
    const std::string now = fileContent(path_);
    const std::string old = fileContent(path_ + L".old");
    EXPECT_LE(now.size(), limit);
    EXPECT_LE(old.size(), limit);
    EXPECT_TRUE(now.ends_with("line 19\n"));
    EXPECT_NE(old.find("line"), std::string::npos);
    EXPECT_EQ((old + now).find("line 0\n"), std::string::npos);
    EXPECT_FAILS(ERROR_PATH_NOT_FOUND, file_.open(path_ + L"\\no\\folder"));
    file_.write(LogLevel::error, "@1@lost\n");
}

TEST_F(LogFileTest, TakesTheModulesLogAndProgressWhenAsked) {
    const u_long mask = ACE_Log_Msg::instance()->priority_mask(ACE_Log_Msg::PROCESS);
    ASSERT_TRUE(openLogFile(path_));
    log(LogLevel::information, "Remove job %C.\n", "a");
    { FunctionTrace trace("Thing::run", "thing.cpp"); }
    log(LogLevel::debug, "no progress\n");
    logProgress(true);
    log(LogLevel::debug, "progress\n");
    { FunctionTrace trace("Thing::run", "thing.cpp"); }
    closeLogFile();
    log(LogLevel::information, "after\n");
    ACE_Log_Msg::instance()->priority_mask(mask, ACE_Log_Msg::PROCESS);
    ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::STDERR);
    const std::string all = fileContent(path_);
    EXPECT_NE(all.find(" info Remove job a.\n"), std::string::npos) << all;
    EXPECT_EQ(all.find("Thing::run"), std::string::npos);
    EXPECT_EQ(all.find("no progress"), std::string::npos);
    EXPECT_NE(all.find(" debug progress\n"), std::string::npos);
    EXPECT_EQ(all.find("after"), std::string::npos);
}

}  // namespace
}  // namespace dorvo
