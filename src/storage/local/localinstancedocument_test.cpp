#include "storage/local/localinstancedocument.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

LocalInstanceDocument sample() {
    LocalInstanceDocument document;
    document.state = LocalInstanceDocument::State::completed;
    document.sequence = 3;
    document.id = "00112233-4455-6677-8899-aabbccddeeff";
    document.jobId = "j";
    document.machine = "m";
    document.keyMd5 = std::string(32, 'a');
    document.packagesSize = UINT64_MAX;
    return document;
}

TEST(LocalInstanceDocument, ComesBackAsItWas) {
    EXPECT_EQ(parseLocalInstance(formatLocalInstance(sample())), sample());
}

TEST(LocalInstanceDocument, EveryMissingMemberAndEveryCutIsDamage) {
    const std::string text = formatLocalInstance(sample());
    for (size_t size = 0; size + 1 < text.size(); ++size) {
        EXPECT_FALSE(parseLocalInstance(text.substr(0, size))) << size;
    }
    for (size_t line = text.find('\n'); line + 2 < text.size(); line = text.find('\n', line + 1)) {
        std::string changed = text;
        const size_t name = changed.find('"', line) + 1;
        if (name != std::string::npos && name != 0 && name < text.size()) {
            changed[name] = 'X';
            EXPECT_FALSE(parseLocalInstance(changed)) << changed;
        }
    }
    for (const char* wrong : {"[]", "7", "{\"state\": 1}", ""}) {
        EXPECT_FALSE(parseLocalInstance(wrong)) << wrong;
    }
    LocalInstanceDocument document = sample();
    document.keyMd5 = "short";
    EXPECT_FALSE(parseLocalInstance(formatLocalInstance(document)));
}

}  // namespace
}  // namespace dorvo
