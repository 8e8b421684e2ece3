#include "storage/web/scripted_backup.h"
// The sockets' header comes before the others.

#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "storage/web/web_increment_check.h"
#include "support/fails_with.h"

namespace dorvo::test {
namespace {

class WebIncrementCheck : public ScriptedBackupService {};

TEST_F(WebIncrementCheck, OneCheckIsOneListToTheService) {
    singleton<OptionsImpl>().setServerInfo("s", "127.0.0.1", service_.port());
    singleton<CookieManagerImpl>().saveCookie("alice", "c");
    {
        std::vector<bool> send;
        const LogCapture log;
        EXPECT_FAILS(0x20010191u, Web_Increment_Check("nobody", makeTask()).check({}, send));
        EXPECT_TRUE(log.begins("Failed to find cookie while doing increment check."));
        EXPECT_TRUE(service_.seen().empty());
    }
    Web_Increment_Check check("alice", makeTask());
    const std::vector<IncrementCheck::File> files = {{L"C:\\x", 1}};
    std::vector<bool> send;
    status_ = [this](const Seen&) { return service_.seen().size() == 1 ? "503 Busy" : "200 OK"; };
    for (const char* first : {"true", "true", "false"}) {
        EXPECT_FALSE(check.check(files, send));  // {} is no answer
        EXPECT_NE(service_.last().body.find(std::string("\"first\":") + first), std::string::npos);
    }
}

TEST(NamedFiles, AreMarkedInTheirOrder) {
    struct Row {
        Names named;
        bool good;
        std::vector<bool> marks;
    };
    const Row rows[] = {
        {{}, true, {false, false, false, false}},
        {{"a", "c"}, true, {true, false, false, true}},
        {{"a", "b", "b", "c"}, true, {true, true, true, true}},
        {{"c", "a"}, false, {}},
        {{"d"}, false, {}},
    };
    for (const Row& row : rows) {
        std::vector<bool> marks;
        EXPECT_EQ(markNamed({"a", "b", "b", "c"}, row.named, marks), row.good);
        if (row.good) {
            EXPECT_EQ(marks, row.marks);
        }
    }
}

}  // namespace
}  // namespace dorvo::test
