#include "fair_queue.h"

#include <gtest/gtest.h>

#include <sstream>

namespace dorvo {

namespace {

TEST(FairQueue, ServesInTurnsAndSendsAwayWhoTakesUpMost) {
    // "a1x" comes from the address a as the user 1.
    struct Row {
        const char* name;
        size_t capacity;
        const char* come;
        const char* served;
        const char* sentAway;
    };
    const Row rows[] = {
        {"first come, first served", 9, "a1 b1 c1", "a1 b1 c1 ", ""},
        {"an address that comes often", 9, "a1x a1y a1z b1", "a1x b1 a1y a1z ", ""},
        {"users of an address", 9, "a1x a1y a2 b1", "a1x b1 a2 a1y ", ""},
        {"a user from many addresses", 9, "a1x a1y b1 c1", "a1x b1 c1 a1y ", ""},
        {"full, a stranger comes", 3, "a1x a1y a1z b1", "a1x b1 a1y ", "a1z "},
        {"full, the crowd comes", 3, "a1x a1y b1 a1z", "a1x b1 a1y ", "a1z "},
        {"full, another of the crowd's address", 3, "a1x a1y a2 a3", "a1x a2 a3 ", "a1y "},
        {"full, nobody is more than others", 2, "a1 b1 c1", "a1 b1 ", "c1 "},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FairQueue<std::string> queue(row.capacity);
        std::string sentAway;
        std::istringstream come(row.come);
        for (std::string who; come >> who;) {
            if (const auto one = queue.push(who.substr(0, 1), who.substr(1, 1), who)) {
                sentAway += *one + " ";
            }
        }
        std::string served;
        while (const auto one = queue.pop()) {
            served += *one + " ";
        }
        EXPECT_EQ(served, row.served);
        EXPECT_EQ(sentAway, row.sentAway);
        EXPECT_TRUE(queue.empty());
    }
}

}  // namespace

}  // namespace dorvo
