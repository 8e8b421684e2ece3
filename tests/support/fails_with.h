// An operation that must fail for a certain reason, in one word of a test.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

namespace dorvo::test {

// Whether the operation that has just returned `done` failed with this last error.
inline testing::AssertionResult failsWith(DWORD error, bool done) {
    const DWORD found = GetLastError();
    return (!done && found == error ? testing::AssertionSuccess() : testing::AssertionFailure())
           << (done ? "done" : "failed") << ", last error " << found << ", not " << error;
}

}  // namespace dorvo::test

#define EXPECT_FAILS(error, operation) EXPECT_TRUE(::dorvo::test::failsWith(error, operation))
