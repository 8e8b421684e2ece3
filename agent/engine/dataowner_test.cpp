#include "engine/dataowner.h"

#include <gtest/gtest.h>

namespace dorvo::agent {
namespace {

TEST(DataOwner, NamesTheMutexByTheDirectoryWhateverItsCase) {
    EXPECT_EQ(DataOwner::mutexName(L"C:\\Data"), DataOwner::mutexName(L"c:\\DATA"));
    EXPECT_NE(DataOwner::mutexName(L"C:\\Data"), DataOwner::mutexName(L"C:\\Data2"));
}

}  // namespace
}  // namespace dorvo::agent
