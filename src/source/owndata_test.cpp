#include "source/owndata.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "base/paths.h"
#include "base/text.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

class OwnDataTest : public testing::Test {
protected:
    test::TemporaryFolder ground_{L"OwnData"};
    const std::wstring data_ = ground_.path() + L"\\Maker\\Product";
};

TEST_F(OwnDataTest, BackupsHoldSettingsExclusionsAndDefinitionsOnly) {
    OwnData own(data_);
    for (const wchar_t* kept :
         {L"", L"\\", L"\\options", L"\\Exclusions", L"\\job", L"\\job\\1", L"\\JOB\\1\\DEF"}) {
        EXPECT_FALSE(own.leavesOut(data_ + kept)) << toUtf8(kept);
        EXPECT_TRUE(own.partOf(data_ + kept)) << toUtf8(kept);
    }
    for (const wchar_t* live :
         {L"\\keys", L"\\cookies", L"\\passwords", L"\\log", L"\\log.old", L"\\control",
          L"\\options.new", L"\\job\\1\\info", L"\\job\\1\\src", L"\\job\\1\\act\\vol\\1",
          L"\\job\\1\\hist", L"\\job\\1\\tmp\\5", L"\\job\\1\\def.new"}) {
        EXPECT_TRUE(own.leavesOut(data_ + live)) << toUtf8(live);
    }
    for (const std::wstring& elsewhere :
         {ground_.path(), ground_.path() + L"\\Maker", data_ + L" 2\\keys", data_.substr(2),
          ground_.path() + L"\\x" + data_.substr(ground_.path().size()) + L"\\keys"}) {
        EXPECT_FALSE(own.leavesOut(elsewhere)) << toUtf8(elsewhere);
        EXPECT_FALSE(own.partOf(elsewhere)) << toUtf8(elsewhere);
    }
}

// Its other names, through other drives, are a matter of whole systems.
TEST_F(OwnDataTest, IsNoFolderThatIsOnlyCalledLikeIt) {
    ASSERT_TRUE(createDirectories(data_));
    OwnData own(data_);
    EXPECT_EQ(own.partOf(L"\\\\?\\" + data_ + L"\\Keys"), L"KEYS");
    const std::wstring twin = ground_.path() + L"\\other\\Maker\\Product";
    ASSERT_TRUE(createDirectories(twin));
    EXPECT_FALSE(own.leavesOut(twin + L"\\keys"));
    EXPECT_FALSE(own.leavesOut(twin + L"\\keys")) << "asked again";
}

}  // namespace
}  // namespace dorvo
