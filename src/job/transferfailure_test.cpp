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
        FailureAction end;
    };
    using enum FailureAction;
    const Row rows[] = {
        {"network", {.code = 10054, .networkError = true}, pause, pause, pause},
        {"service busy", {.code = 0x200101F7, .networkError = true}, pause, pause, pause},
        {"401", {.code = 0x20010191}, pause, pause, pause},
        {"406", {.code = 0x20010196}, pause, pause, pause},
        {"403", {.code = 0x20010193}, record, fail, fail},
        {"409", {.code = 0x20010199}, record, fail, fail},
        {"400", {.code = 0x20010190}, record, fail, fail},
        {"404", {.code = 0x20010194}, record, fail, fail},
        {"a folder that has lost items", {.code = 5023}, record, fail, fail},
        {"500", {.code = 0x200101F4}, record, fail, pause},
        {"502", {.code = 0x200101F6}, record, fail, pause},
        {"disk full", {.code = 112}, record, pause, pause},
        {"handle disk full", {.code = 39}, record, pause, pause},
        {"quota exceeded", {.code = 1295}, record, pause, pause},
        {"disk full while stopping", {.code = 112, .stopping = true}, leave, leave, leave},
        {"bare 401 is no status", {.code = 401}, record, fail, pause},
        {"access denied", {.code = 5}, record, fail, pause},
        {"no error at all", {.code = 0}, record, fail, pause},
        {"refused", {.code = 10061}, record, fail, pause},
        {"refused, worth waiting", {.code = 10061, .waitForServer = true}, pause, pause, pause},
        {"name not found", {.code = 11001}, record, fail, pause},
        {"name not found, worth waiting",
         {.code = 11001, .waitForServer = true},
         pause,
         pause,
         pause},
        {"the option is about the server only",
         {.code = 5, .waitForServer = true},
         record,
         fail,
         pause},
        {"cancelled", {.code = 1223}, leave, leave, leave},
        {"network while stopping",
         {.code = 10054, .networkError = true, .stopping = true},
         leave,
         leave,
         leave},
        {"401 while stopping", {.code = 0x20010191, .stopping = true}, leave, leave, leave},
        {"403 while stopping", {.code = 0x20010193, .stopping = true}, leave, leave, leave},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(itemFailure(row.failure), row.item);
        EXPECT_EQ(runFailure(row.failure), row.run);
        EXPECT_EQ(endFailure(row.failure), row.end);
    }
}

TEST(TransferFailure, AnEndIsTriedUntilItsFailureIsBelieved) {
    struct Row {
        const char* name;
        Failure failure;
        FailureAction backup;  // before the last try, and at it
        FailureAction backupLast;
        FailureAction restore;
        FailureAction restoreLast;
    };
    using enum FailureAction;
    const Row rows[] = {
        {"409", {.code = 0x20010199}, pause, fail, settle, settle},
        {"404", {.code = 0x20010194}, fail, fail, settle, settle},
        {"500", {.code = 0x200101F4}, pause, pause, pause, settle},
        {"network", {.code = 10054, .networkError = true}, pause, pause, pause, settle},
        {"409 while stopping", {.code = 0x20010199, .stopping = true}, leave, leave, leave, leave},
        {"cancelled", {.code = 1223}, leave, leave, leave, leave},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(endFailure(row.failure, endTries - 1), row.backup);
        EXPECT_EQ(endFailure(row.failure, endTries), row.backupLast);
        EXPECT_EQ(restoreEndFailure(row.failure, endTries - 1), row.restore);
        EXPECT_EQ(restoreEndFailure(row.failure, endTries), row.restoreLast);
    }
}

}  // namespace
}  // namespace dorvo
