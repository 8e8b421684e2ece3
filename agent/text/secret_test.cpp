#include "text/secret.h"

#include <gtest/gtest.h>

#include "text/agenterror.h"
#include "text/faketerminal.h"

namespace dorvo::agent {
namespace {

TEST(SecretInput, IsTextInUtf8) {
    FakeTerminal terminal;
    terminal.input = "gr\xC3\xBC\xC3\x9F";
    EXPECT_EQ(readSecretLine(terminal, "password").text, terminal.input);
    for (const std::string& line : {std::string(), std::string("gr\xFC\xDF"),
                                    std::string("\xFF\xFEp"), std::string("p\0w\0", 4)}) {
        terminal.input = line;
        EXPECT_THROW(readSecretLine(terminal, "password"), AgentError)
            << testing::PrintToString(line);
    }
}

}  // namespace
}  // namespace dorvo::agent
