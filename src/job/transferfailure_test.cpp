#include "job/transferfailure.h"

#include <gtest/gtest.h>

namespace dorvo {
namespace {

TEST(TransferFailure, DecidesByCodeOptionAndPendingStop) {
    struct Row {
        const char* name;
        Failure failure;
        FailureAction item;
        FailureAction run;
    };
    using enum FailureAction;
    const Row rows[] = {
        {"network", {.code = 10054, .networkError = true}, pause, pause},
        {"service busy", {.code = 0x200101F7, .networkError = true}, pause, pause},
        {"401", {.code = 0x20010191}, pause, pause},
        {"406", {.code = 0x20010196}, pause, pause},
        {"403", {.code = 0x20010193}, record, fail},
        {"409", {.code = 0x20010199}, record, fail},
        {"bare 401 is no status", {.code = 401}, record, fail},
        {"access denied", {.code = 5}, record, fail},
        {"no error at all", {.code = 0}, record, fail},
        {"refused", {.code = 10061}, record, fail},
        {"refused, worth waiting", {.code = 10061, .waitForServer = true}, pause, pause},
        {"name not found", {.code = 11001}, record, fail},
        {"name not found, worth waiting", {.code = 11001, .waitForServer = true}, pause, pause},
        {"the option is about the server only", {.code = 5, .waitForServer = true}, record, fail},
        {"cancelled", {.code = 1223}, leave, leave},
        {"network while stopping",
         {.code = 10054, .networkError = true, .stopping = true},
         leave,
         leave},
        {"401 while stopping", {.code = 0x20010191, .stopping = true}, leave, leave},
        {"403 while stopping", {.code = 0x20010193, .stopping = true}, leave, leave},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(itemFailure(row.failure), row.item);
        EXPECT_EQ(runFailure(row.failure), row.run);
    }
}

}  // namespace
}  // namespace dorvo
