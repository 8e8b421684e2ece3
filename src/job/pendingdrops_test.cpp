// Which runs are told to which storage, and how long they are kept in mind.
#include "job/pendingdrops.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "base/handle.h"
#include "jobdef/backupjobdefinition.h"
#include "settings/storefile.h"
#include "support/log_capture.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

constexpr char first[] = "11111111-1111-1111-1111-111111111111";
constexpr char second[] = "22222222-2222-2222-2222-222222222222";

class PendingDropsTest : public test::StoreTest {
protected:
    // What a storage is told that answers with that error, 0: that it has dropped the run.
    std::string told(DWORD error) const { return told(drops_, error); }
    static std::string told(const PendingDrops& drops, DWORD error) {
        std::string text;
        const test::LogCapture quiet;
        drops.tell([&](const PendingDrop& drop) {
            text += drop.instanceId.substr(0, 1) + "@" + toUtf8(drop.location) + drop.server + " ";
            SetLastError(error);
            return error == ERROR_SUCCESS;
        });
        return text;
    }

    const PendingDrops drops_{"j1"};
    const std::wstring folder_ = dataPath(L"\\job\\j1\\drops");
};

TEST_F(PendingDropsTest, AreToldToTheirPlaceUntilItAnswers) {
    for (const DWORD error : {DWORD{ERROR_SUCCESS}, DWORD{ERROR_INVALID_STATE}}) {
        SCOPED_TRACE(error);
        drops_.failed({first, L"E:\\b\u00fc"}, WSAESTALE);
        drops_.failed({second, L"", "server:80"}, WSAECONNRESET);
        drops_.failed({"33333333-3333-3333-3333-333333333333", L""}, ERROR_INVALID_STATE);
        const std::string both = "1@E:\\b\u00fc 2@server:80 ";
        EXPECT_EQ(told(WSAESTALE), both) << "still away";
        EXPECT_EQ(told(error), both);
        EXPECT_EQ(told(ERROR_SUCCESS), "");
        EXPECT_TRUE(isMissing(folder_));
    }
}

// Told to the web service, a run of a folder would be forgotten, and its data stay there for good.
TEST_F(PendingDropsTest, OneThatCannotBeReadIsToldLater) {
    drops_.add({first, L"E:\\b"});
    write(folder_ + L"\\no instance", "E:\\b");
    {
        const FileHandle held(CreateFileW((folder_ + L"\\" + toWide(first)).c_str(), GENERIC_READ,
                                          0, nullptr, OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(held);
        EXPECT_EQ(told(ERROR_SUCCESS), "");
    }
    EXPECT_EQ(told(ERROR_SUCCESS), "1@E:\\b ");
    EXPECT_TRUE(fileExists(folder_ + L"\\no instance"));
}

// Of an older version, and on the way to an address at which the server is not any more.
TEST_F(PendingDropsTest, AreBoundToAServerAsLoginsAre) {
    drops_.add({first, L"", "old:80"});
    drops_.add({second, L""});
    drops_.add({"33333333-3333-3333-3333-333333333333", L"E:\\b"});
    EXPECT_EQ(told(WSAESTALE), "1@old:80 2@ 3@E:\\b ");
    PendingDrops::bindTo("set:80", Bind::unbound);
    EXPECT_EQ(told(WSAESTALE), "1@old:80 2@set:80 3@E:\\b ");
    createDirectories(dataPath(L"\\job\\j1"));
    drops_.handOn(BackupJobDefinition("j1", L"name", "alice"));
    PendingDrops::bindTo("new:80", Bind::all);
    const auto handedOn = PendingDrops::handedOn();
    ASSERT_EQ(handedOn.size(), 1u);
    EXPECT_EQ(told(PendingDrops(handedOn[0]), WSAESTALE), "1@new:80 2@new:80 3@E:\\b ");
}

}  // namespace
}  // namespace dorvo
