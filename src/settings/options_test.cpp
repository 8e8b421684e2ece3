#include "settings/options.h"

#include <windows.h>

#include <functional>

#include "support/log_capture.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

class Options : public test::StoreTest {
protected:
    const std::wstring data_ = dataPath(L"\\options");
    const std::wstring beside_ = besideProgram(L"options");
};

TEST_F(Options, HasDefaultsWithoutAFile) {
    test::LogCapture captured;
    const OptionsImpl options;
    EXPECT_TRUE(captured.has(LogLevel::error, "Neither \"" + toUtf8(beside_) + "\" nor \"" +
                                                  toUtf8(data_) + "\" exists.\n"));
    std::string name = "x";
    std::string host = "x";
    unsigned short port = 0;
    options.getServerInfo(name, host, port);
    EXPECT_EQ(name, "");
    EXPECT_EQ(host, "");
    EXPECT_EQ(port, 80);
    EXPECT_FALSE(options.enableSnapshot());
    EXPECT_FALSE(options.waitForServer());
    EXPECT_EQ(options.loginRetrytimes(), 5);
    EXPECT_EQ(options.loginAgainAfter(), 300);
    EXPECT_EQ(options.update_start_at(), 600000);
    EXPECT_EQ(options.update_again_at(), 14400000);
}

TEST_F(Options, SettersBringSmallValuesIntoRange) {
    struct Row {
        const char* name;
        int given, stored;
        std::function<int(OptionsImpl&, int)> set;
        std::function<int(const OptionsImpl&)> get;
    };
    const auto row = [](const char* name, int given, int stored, int (OptionsImpl::*set)(int),
                        int (OptionsImpl::*get)() const) {
        return Row{name, given, stored, std::mem_fn(set), std::mem_fn(get)};
    };
    using O = OptionsImpl;
    const Row rows[] = {
        row("no retry", 0, 5, &O::loginRetrytimes, &O::loginRetrytimes),
        row("negative retries", -3, 5, &O::loginRetrytimes, &O::loginRetrytimes),
        row("one retry", 1, 1, &O::loginRetrytimes, &O::loginRetrytimes),
        row("no delay", 0, 300, &O::loginAgainAfter, &O::loginAgainAfter),
        row("a delay", 7, 7, &O::loginAgainAfter, &O::loginAgainAfter),
        row("early start", 19999, 20000, &O::update_start_at, &O::update_start_at),
        row("earliest start", 20000, 20000, &O::update_start_at, &O::update_start_at),
        row("short period", 119999, 120000, &O::update_again_at, &O::update_again_at),
        row("a period", 120001, 120001, &O::update_again_at, &O::update_again_at),
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        OptionsImpl options;
        EXPECT_EQ(row.set(options, row.given), row.stored);
        EXPECT_EQ(row.get(options), row.stored);
        EXPECT_EQ(row.get(OptionsImpl()), row.stored);
    }
}

TEST_F(Options, WritesBothFilesSorted) {
    OptionsImpl options;
    EXPECT_TRUE(options.setServerInfo("home", "backup.example", 8080));
    EXPECT_TRUE(options.waitForServer(true));
    const std::string expected =
        "{\n    \"waitForServer\" : true,\n    \"webServerHost\" : \"backup.example\",\n"
        "    \"webServerName\" : \"home\",\n    \"webServerPort\" : 8080\n}";
    EXPECT_EQ(contentOf(data_), expected);
    EXPECT_EQ(contentOf(beside_), expected);
    EXPECT_TRUE(OptionsImpl().waitForServer());
}

TEST_F(Options, ServerNeedsHostAndPort) {
    OptionsImpl options;
    EXPECT_FALSE(options.setServerInfo("n", nullptr, 1));
    EXPECT_FALSE(options.setServerInfo("n", "", 1));
    EXPECT_FALSE(options.setServerInfo(nullptr, "h", 0));
    EXPECT_EQ(contentOf(data_), "");

    EXPECT_TRUE(options.setServerInfo("n", "h", 65535));
    EXPECT_TRUE(options.setServerInfo("", "h2", 8080));
    EXPECT_TRUE(options.setServerInfo(nullptr, "h3", 8081));
    std::string name;
    std::string host;
    unsigned short port = 0;
    options.getServerInfo(name, host, port);
    EXPECT_EQ(name, "n");
    EXPECT_EQ(host, "h3");
    EXPECT_EQ(port, 8081);
}

TEST_F(Options, ValuesOfAnotherTypeCountAsAbsent) {
    write(data_, R"({"webServerPort":"8080","webServerHost":7,"enableSnapshot":1,
        "loginRetrytimes":true,"loginAgainAfter":3.0,"update_start_at":4294967296})");
    const OptionsImpl options;
    std::string host;
    unsigned short port = 0;
    options.getServerInfo(host, port);
    EXPECT_EQ(host, "");
    EXPECT_EQ(port, 80);
    EXPECT_FALSE(options.enableSnapshot());
    EXPECT_EQ(options.loginRetrytimes(), 5);
    EXPECT_EQ(options.loginAgainAfter(), 300);
    EXPECT_EQ(options.update_start_at(), 600000);
}

TEST_F(Options, GettersGiveHandEditedValuesAsTheyStand) {
    write(data_, R"({"loginRetrytimes":-1,"update_start_at":5,"enableSnapshot":true,
        "webServerPort":0})");
    const OptionsImpl options;
    std::string host;
    unsigned short port = 1;
    options.getServerInfo(host, port);
    EXPECT_EQ(port, 0);
    EXPECT_EQ(options.loginRetrytimes(), -1);
    EXPECT_EQ(options.update_start_at(), 5);
    EXPECT_TRUE(options.enableSnapshot());
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

TEST_F(Options, SaysWhatIsWrongWithAFile) {
    const std::pair<const char*, const char*> rows[] = {
        {"{\n\"a\" 1}", "Failed to parse options storage, Line 2, column 5, syntax error.\n"},
        {"[1]", "Options storage is not JSON object.\n"},
    };
    for (const auto& [text, message] : rows) {
        write(data_, text);
        test::LogCapture captured;
        EXPECT_EQ(OptionsImpl().loginRetrytimes(), 5);
        EXPECT_TRUE(captured.has(LogLevel::error, message)) << message;
        EXPECT_EQ(contentOf(data_), text);
    }
}

TEST_F(Options, SaveFailsOnlyForTheDataDirectory) {
    createDirectories(beside_);  // a folder in the file's place: as unwritable as it gets
    write(data_, "{}");
    OptionsImpl options;
    EXPECT_TRUE(options.setServerInfo("n", "h", 1));

    DeleteFileW(data_.c_str());
    createDirectories(data_);
    test::LogCapture captured;
    EXPECT_FALSE(options.setServerInfo("n", "h", 2));
    EXPECT_TRUE(captured.has(LogLevel::error, "Failed to open options storage for writing.\n"));
    EXPECT_EQ(options.loginRetrytimes(9), 9);
}

TEST_F(Options, CopiesTakeTheValues) {
    OptionsImpl options;
    options.loginRetrytimes(9);
    const OptionsImpl copy(options);
    options.loginRetrytimes(8);
    EXPECT_EQ(copy.loginRetrytimes(), 9);
    options = copy;
    EXPECT_EQ(options.loginRetrytimes(), 9);
}

}  // namespace
}  // namespace dorvo
