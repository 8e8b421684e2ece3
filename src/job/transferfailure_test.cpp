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
        {"in use", {.code = 32}, record, pause, pause},
        {"a part of it in use", {.code = 33}, record, pause, pause},
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
        EXPECT_EQ(stepFailure(row.failure), row.run);
        EXPECT_EQ(endFailure(row.failure, {row.failure.code, endTries, endTries}), row.end);
    }
}

TEST(TransferFailure, AnEndIsTriedUntilItsFailureIsBelieved) {
    struct Row {
        const char* name;
        Failure failure;
        unsigned backup;  // the try at which it is believed; 0: never
        unsigned start;   // the same of a start to end
        unsigned restore;
    };
    const Row rows[] = {
        {"409", {.code = 0x20010199}, endTries, 1, 1},
        {"404", {.code = 0x20010194}, endTries, endTries, 1},
        {"403", {.code = 0x20010193}, endTries, endTries, 1},
        {"a folder that has lost items", {.code = 5023}, 1, 1, 1},
        {"500", {.code = 0x200101F4}, 0, 0, endTries},
        {"network", {.code = 10054, .networkError = true}, 0, 0, endTries},
        {"409 while stopping", {.code = 0x20010199, .stopping = true}, 0, 0, 0},
        {"cancelled", {.code = 1223}, 0, 0, 0},
    };
    using enum FailureAction;
    for (const Row& row : rows) {
        const FailureAction waits = isCancelled(row.failure) ? leave : pause;
        EndFailures failures;
        for (unsigned i = 1; i <= endTries; ++i) {
            SCOPED_TRACE(testing::Message() << row.name << ", try " << i);
            failures = withOneMore(failures, row.failure);
            const auto is = [&](unsigned believed, FailureAction then) {
                return believed != 0 && i >= believed ? then : waits;
            };
            EXPECT_EQ(endFailure(row.failure, failures), is(row.backup, fail));
            EXPECT_EQ(startToEndFailure(row.failure, failures), is(row.start, fail));
            EXPECT_EQ(restoreEndFailure(row.failure, failures), is(row.restore, settle));
        }
    }
}

TEST(ResumeBackoff, GrowsUntilTheRunComesFurther) {
    ResumeBackoff backoff;
    RunProgress at;
    for (const uint64_t seconds : {30U, 60U, 120U, 240U, 300U, 300U}) {
        EXPECT_EQ(backoff.afterFailureAt(at), seconds * 1000);
    }
    for (uint64_t RunProgress::*const field :
         {&RunProgress::listed, &RunProgress::position, &RunProgress::offset}) {
        at.*field += 1;
        EXPECT_EQ(backoff.afterFailureAt(at), 30'000u);
        EXPECT_EQ(backoff.afterFailureAt(at), 60'000u);
    }
    at.blocks = 1;
    EXPECT_EQ(backoff.afterFailureAt(at), 30'000u);
    backoff.reset();
    EXPECT_EQ(backoff.afterFailureAt(at), 30'000u);
}

}  // namespace
}  // namespace dorvo
