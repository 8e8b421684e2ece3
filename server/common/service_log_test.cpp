#include "common/service_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "testing/temp_folder.h"

namespace dorvo {

namespace {

namespace fs = std::filesystem;

class Log : public testing::Test {
protected:
    // Without the times, which must be there.
    static std::string lines(const fs::path& file) {
        std::ifstream stream(file);
        const std::string text{std::istreambuf_iterator<char>(stream), {}};
        return std::regex_replace(text, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )"),
                                  "@");
    }

    const TempFolder folder_;
};

TEST_F(Log, LinesAreOneLineWhateverIsInThem) {
    const fs::path file = folder_.path() / "log";
    const RequestLog log(file.string());
    const std::pair<std::string, std::string> rows[] = {
        {"plain \"text\" s\u00e9cret", "plain \"text\" s\u00e9cret"},
        {"a\r\n2026-01-01T00:00:00.000Z forged", "a\\x0d\\x0a2026-01-01T00:00:00.000Z forged"},
        {"\x1b[2J\x7f", "\\x1b[2J\\x7f"},
        {"\u009b2J", "\\xc2\\x9b2J"},
        {"\\x0a", "\\\\x0a"},
        {std::string("\0", 1), "\\x00"},
    };
    std::string expected;
    for (const auto& [line, written] : rows) {
        log.write(line);
        expected +=
            "@" + std::regex_replace(written, std::regex(R"(\d{4}-\d\d-\d\dT\S{13} )"), "@") + "\n";
    }
    EXPECT_EQ(lines(file), expected);
}

TEST_F(Log, GoesOnInAFileOfItsNameWhenToldTo) {
    const fs::path file = folder_.path() / "log";
    const RequestLog log(file.string());
    log.write("one");
    fs::rename(file, folder_.path() / "old");
    log.write("two");
    log.reopen();
    log.write("three");
    EXPECT_EQ(lines(folder_.path() / "old"), "@one\n@two\n");
    EXPECT_EQ(lines(file), "@three\n");

    // It cannot be opened: the one that there is stays in use.
    fs::rename(file, folder_.path() / "older");
    fs::create_directory(file);
    log.reopen();
    log.write("four");
    const std::string rest = lines(folder_.path() / "older");
    EXPECT_TRUE(rest.starts_with("@three\n@service: cannot open ")) << rest;
    EXPECT_TRUE(rest.ends_with("\n@four\n")) << rest;
}

}  // namespace

}  // namespace dorvo
