#include "settings/options.h"

#include <windows.h>

#include "support/log_capture.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

class Options : public test::StoreTest {
protected:
    const std::wstring data_ = dataPath(L"\\options");
    const std::wstring beside_ = besideProgram(L"options");
};

// What is missing or of another type counts as absent; what stands in the file is given as it is.
TEST_F(Options, GivesWhatTheFileHoldsAndDefaultsElse) {
    struct Values {
        std::string host;
        unsigned short port = 80;
        bool snapshot = false;
        bool wait = false;
        bool progress = false;
        int retries = 5;
        int again = 300;
        int start = 600000;

        bool operator==(const Values&) const = default;
    };
    const std::pair<const char*, Values> rows[] = {
        {nullptr, {}},
        {"{\n\"a\" 1}", {}},
        {"[1]", {}},
        {R"({"webServerPort":"8080","webServerHost":7,"enableSnapshot":1,"loginRetrytimes":true,
             "loginAgainAfter":3.0,"update_start_at":4294967296})",
         {}},
        {R"({"webServerPort":0,"webServerHost":"h","enableSnapshot":true,"loginRetrytimes":-1,
             "waitForServer":true,"logProgress":true,
             "loginAgainAfter":7,"update_start_at":5})",
         {"h", 0, true, true, true, -1, 7, 5}},
    };
    for (const auto& [text, expected] : rows) {
        test::LogCapture captured;
        if (text != nullptr) {
            write(data_, text);
        }
        const OptionsImpl options;
        std::string name = "x";
        Values got;
        options.getServerInfo(name, got.host, got.port);
        got.snapshot = options.enableSnapshot();
        got.wait = options.waitForServer();
        got.progress = options.logProgress();
        got.retries = options.loginRetrytimes();
        got.again = options.loginAgainAfter();
        got.start = options.update_start_at();
        EXPECT_EQ(got, expected) << text;
        EXPECT_EQ(name, "");
        EXPECT_EQ(options.update_again_at(), 14400000);
        EXPECT_EQ(captured.begins("Neither "), text == nullptr);
        EXPECT_EQ(contentOf(data_), text == nullptr ? "" : text);
        DeleteFileW(beside_.c_str());
    }
}

TEST_F(Options, SettersBringSmallValuesIntoRange) {
    OptionsImpl options;
    EXPECT_EQ(options.loginRetrytimes(0), 5);
    EXPECT_EQ(options.loginAgainAfter(0), 300);
    EXPECT_EQ(options.update_start_at(19999), 20000);
    EXPECT_EQ(options.update_again_at(119999), 120000);
    EXPECT_TRUE(options.loginRetrytimes(1) == 1 && options.loginAgainAfter(7) == 7 &&
                options.update_start_at(20001) == 20001 &&
                options.update_again_at(120001) == 120001);
    const OptionsImpl again;
    EXPECT_TRUE(again.loginRetrytimes() == 1 && again.update_again_at() == 120001);
}

TEST_F(Options, TakesAServerWithHostAndPortIntoBothFiles) {
    OptionsImpl options;
    EXPECT_FALSE(options.setServerInfo("n", nullptr, 1) || options.setServerInfo("n", "", 1) ||
                 options.setServerInfo(nullptr, "h", 0));
    EXPECT_EQ(contentOf(data_), "");
    EXPECT_TRUE(options.setServerInfo("home", "h", 65535));
    EXPECT_TRUE(options.setServerInfo("", "h2", 8080));  // the name stays
    EXPECT_TRUE(options.setServerInfo(nullptr, "backup.example", 8081));
    EXPECT_TRUE(options.waitForServer(true));
    const std::string expected =
        "{\n    \"waitForServer\" : true,\n    \"webServerHost\" : \"backup.example\",\n"
        "    \"webServerName\" : \"home\",\n    \"webServerPort\" : 8081\n}";
    EXPECT_EQ(contentOf(data_), expected);
    EXPECT_EQ(contentOf(beside_), expected);
    EXPECT_TRUE(OptionsImpl().waitForServer());
}

TEST_F(Options, CopyBesideTheProgramWins) {
    write(beside_, R"({"webServerHost":"beside"})");
    OptionsImpl options;
    EXPECT_EQ(contentOf(data_), "{\n    \"webServerHost\" : \"beside\"\n}");
    write(data_, R"({"webServerHost":"data"})");
    std::string host;
    unsigned short port = 0;
    OptionsImpl().getServerInfo(host, port);
    EXPECT_EQ(host, "beside");
    DeleteFileW(beside_.c_str());
    OptionsImpl().getServerInfo(host, port);
    EXPECT_EQ(host, "data");
}

TEST_F(Options, SaveFailsOnlyForTheDataDirectory) {
    createDirectories(beside_);  // a folder in the file's place: as unwritable as it gets
    write(data_, "{}");
    OptionsImpl options;
    EXPECT_TRUE(options.setServerInfo("n", "h", 1));

    DeleteFileW(data_.c_str());
    createDirectories(data_);
    EXPECT_FALSE(options.setServerInfo("n", "h", 2));
    EXPECT_EQ(options.loginRetrytimes(9), 9);
}

}  // namespace
}  // namespace dorvo
