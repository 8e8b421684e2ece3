#include "text/secret.h"

#include <gtest/gtest.h>

#include "text/agenterror.h"
#include "text/faketerminal.h"

namespace dorvo::agent {
namespace {

TEST(SecretInput, IsTextInUtf8) {
    const std::pair<std::string, bool> rows[] = {
        {"plain", true},
        {"gr\xC3\xBC\xC3\x9F", true},
        {"\xF0\x9F\x94\x91", true},
        {"", false},
        {"gr\xFC\xDF", false},              // Latin-1
        {"\xFF\xFEp", false},               // UTF-16's mark
        {std::string("p\0w\0", 4), false},  // and its zeros
        {"\xC0\x80", false},
        {"\xED\xA0\x80", false},
    };
    for (const auto& [line, taken] : rows) {
        FakeTerminal terminal;
        terminal.input = line;
        if (taken) {
            EXPECT_EQ(readSecretLine(terminal, "password").text, line);
        } else {
            EXPECT_THROW(readSecretLine(terminal, "password"), AgentError)
                << testing::PrintToString(line);
        }
    }
}

}  // namespace
}  // namespace dorvo::agent
