#include "settings/recoveryfile.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

// Made with hashlib's scrypt, the openssl command line and a GHASH of its own.
constexpr const char* example = R"({
    "check" : "034d32ebf107da4eabd86b5a59fba8c3",
    "format" : "dorvo recovery file",
    "n" : 1024,
    "nonce" : "YGFiY2RlZmdoaWpr",
    "p" : 1,
    "r" : 8,
    "salt" : "QEFCQ0RFRkdISUpLTE1OTw==",
    "sealed" : "pUsNJ3pUQtLJMDFwJkWfNxcIz4xSEAP/zp+LbV9JBxKF/MYe6pci7QETb3n7BnnDBLLyJHU=",
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
        return openRecoveryFile(text, passphrase, user_, key_);
    }

    std::string user_;
    std::string key_;
};

TEST_F(RecoveryFileTest, IsTheExample) {
    EXPECT_EQ(sealRecoveryFile("alice", counting(0, 32), "correct horse", counting(0x40, 16),
                               counting(0x60, 12), {1024, 8, 1}),
              example);
    ASSERT_EQ(open(example), RecoveryFile::opened);
    EXPECT_EQ(user_, "alice");
    EXPECT_EQ(key_, counting(0, 32));
}

TEST_F(RecoveryFileTest, AWrongPassphraseIsNoDamage) {
    for (const char* passphrase : {"", "correct hors", "Correct horse", "correct horse "}) {
        EXPECT_EQ(open(example, passphrase), RecoveryFile::wrongPassphrase) << passphrase;
    }
    EXPECT_EQ(user_ + key_, "");
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
    const auto crafted = [](RecoveryCost cost) {
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
