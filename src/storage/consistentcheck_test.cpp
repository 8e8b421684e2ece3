#include "storage/consistentcheck.h"

#include "base/handle.h"
#include "support/files.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using ConsistentCheck = test::StoreTest;

TEST_F(ConsistentCheck, EmptiesTheDirectoryAndTellsWhatStayed) {
    EXPECT_EQ(consistentcheckfreeall(), 0) << "there is none";
    const std::wstring folder = dataPath(L"\\consistentcheck");
    for (const wchar_t* name : {L"\\deep\\deeper\\file", L"\\held", L"\\last"}) {
        write(folder + name, "x");
    }
    {
        const FileHandle held(CreateFileW((folder + L"\\held").c_str(), GENERIC_READ, 0, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(consistentcheckfreeall(), 0);
        EXPECT_TRUE(test::exists(folder + L"\\held"));
        EXPECT_FALSE(test::exists(folder + L"\\deep"));
        EXPECT_FALSE(test::exists(folder + L"\\last"));
    }
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(consistentcheckfreeall(), 1);
        EXPECT_FALSE(test::exists(folder + L"\\held"));
        EXPECT_TRUE(test::exists(folder));
    }
}

}  // namespace
}  // namespace dorvo
