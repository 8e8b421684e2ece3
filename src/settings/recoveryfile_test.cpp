#include "settings/recoveryfile.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

// Made with hashlib's scrypt, the openssl command line and a GHASH of its own.
constexpr const char* example = R"({
    "check" : "6091c1063a80704330e31a79679d7341",
    "format" : "dorvo recovery file",
    "n" : 1024,
    "nonce" : "YGFiY2RlZmdoaWpr",
    "p" : 1,
    "r" : 8,
    "salt" : "QEFCQ0RFRkdISUpLTE1OTw==",
    "sealed" : "p0oOJn1VQdPGMTJxIUScNggJzI1VEQD+wZ6IbFhIBBP7sI5frJAGPDq30lEGZalgtu52rrtcv/7yauWMg/p6BdbejP5L04omI8Xt0aoCf54tR4C9OJk=",
    "version" : 1
}
)";

std::string counting(char first, size_t count) {
    std::string bytes(count, '\0');
    for (size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<char>(first + static_cast<char>(i));
    }
    return bytes;
}

class RecoveryFileTest : public testing::Test {
protected:
    RecoveryFile open(const std::string& text, const std::string& passphrase = "correct horse") {
        return openRecoveryFile(text, passphrase, user_, keys_);
    }

    std::string user_;
    std::string keys_;
};

TEST_F(RecoveryFileTest, IsTheExample) {
    EXPECT_EQ(sealRecoveryFile("alice", counting(0, 64), "correct horse", counting(0x40, 16),
                               counting(0x60, 12), {1024, 8, 1}),
              example);
    ASSERT_EQ(open(example), RecoveryFile::opened);
    EXPECT_EQ(user_, "alice");
    EXPECT_EQ(keys_, counting(0, 64));
}

TEST_F(RecoveryFileTest, AWrongPassphraseIsNoDamage) {
    for (const char* passphrase : {"", "correct hors", "Correct horse", "correct horse "}) {
        EXPECT_EQ(open(example, passphrase), RecoveryFile::wrongPassphrase) << passphrase;
    }
    EXPECT_EQ(user_ + keys_, "");
}

TEST_F(RecoveryFileTest, SealsAUserAndOneKeyToALimit) {
    constexpr size_t most = recoveryKeyLimit;
    const auto content = [](size_t count, size_t keyBytes, const std::string& user) {
        return std::string(1, static_cast<char>(count)) + std::string(keyBytes, 'k') + user;
    };
    for (const size_t count : {size_t{1}, most}) {
        std::string written;
        ASSERT_TRUE(writeRecoveryContent("bob", std::string(count * 32, 'k'), written));
        EXPECT_EQ(written, content(count, count * 32, "bob"));
        ASSERT_TRUE(readRecoveryContent(written, user_, keys_));
        EXPECT_EQ(user_ + keys_, "bob" + std::string(count * 32, 'k'));
    }
    user_ = keys_ = "";
    for (const std::string& damaged :
         {std::string(), content(0, 0, "bob"), content(1, 31, "b"), content(1, 32, ""),
          content(2, 32, "bob"), content(most + 1, (most + 1) * 32, "bob"),
          content(255, size_t{255} * 32, "bob"), content(1, 32, "b\nob"),
          content(1, 32, std::string("b\0b", 3))}) {
        EXPECT_FALSE(readRecoveryContent(damaged, user_, keys_)) << damaged.size();
        EXPECT_EQ(user_ + keys_, "");
    }
    for (const size_t keyBytes : {size_t{0}, size_t{31}, (most + 1) * 32}) {
        EXPECT_THROW(sealRecoveryFile("a", std::string(keyBytes, 'k'), "p", counting(0, 16),
                                      counting(0, 12), {2, 2, 1}),
                     std::runtime_error);
    }
}

// Whatever byte is another one or missing, the key never comes out wrong.
TEST_F(RecoveryFileTest, DamageIsSeenEverywhere) {
    const std::string whole = example;
    for (size_t i = 0; i < whole.size(); ++i) {
        std::string text = whole;
        text[i] = static_cast<char>(text[i] ^ 1);
        const bool blank = whole[i] == ' ' || whole[i] == '\n';
        if (const RecoveryFile result = open(text); result != RecoveryFile::damaged) {
            EXPECT_TRUE(blank && result == RecoveryFile::opened) << i;
        }
        if (i + 2 < whole.size()) {  // without its last brace
            EXPECT_EQ(open(whole.substr(0, i)), RecoveryFile::damaged) << i;
        }
    }
}

TEST_F(RecoveryFileTest, AsksForNoMoreThanItsBounds) {
    const auto crafted = [](const RecoveryCost& cost) {
        return sealRecoveryFile("a", counting(0, 32), "p", counting(0, 16), counting(0, 12), cost);
    };
    EXPECT_EQ(open(crafted({2, 2, 4}), "p"), RecoveryFile::opened);
    for (const RecoveryCost cost : {RecoveryCost{1 << 18, 2, 1}, {2, 9, 1}, {2, 2, 5}}) {
        EXPECT_EQ(open(crafted(cost), "p"), RecoveryFile::damaged) << cost.n << ' ' << cost.r;
    }
    EXPECT_EQ(open(example + std::string(recoveryFileLimit, ' ')), RecoveryFile::damaged);
    EXPECT_THROW(sealRecoveryFile(std::string(recoveryFileLimit, 'a'), counting(0, 32), "p",
                                  counting(0, 16), counting(0, 12), {2, 2, 1}),
                 std::runtime_error);
}

}  // namespace
}  // namespace dorvo
