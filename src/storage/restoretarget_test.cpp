// What becomes of a target on disk. READONLY and HIDDEN are what Wine keeps of guarding attributes,
// and of the times it keeps those of writing and access; that a creation time survives the rename,
// and that a READONLY file cannot simply be replaced, only Windows shows.
#include "storage/restoretarget.h"

#include <gtest/gtest.h>
#include <sddl.h>

#include <functional>
#include <optional>
#include <vector>

#include "base/local_time.h"
#include "base/private_access.h"
#include "source/transformation.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using test::dataOf;
using test::exists;
using test::fileContent;
using test::storeFile;

constexpr std::array<uint8_t, 16> run = {0xAB, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
constexpr DWORD guards = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;

WIN32_FILE_ATTRIBUTE_DATA recorded(DWORD attributes) {
    return {attributes,
            toFileTime(132'000'000'012'345'671),
            toFileTime(132'000'000'112'345'673),
            toFileTime(132'000'000'212'345'677),
            0,
            0};
}

class Target : public testing::Test {
protected:
    void SetUp() override {
        storeFile(folder_ + L"\\plain", "new");
        BackupTransformation backup(true);
        ASSERT_TRUE(
            backup.transform((folder_ + L"\\plain").c_str(), package_.c_str(), nullptr, nullptr));
        restore_.key = backup.key;
        restore_.iv = backup.iv;
        target_.emplace(folder_ + L"\\sub\\a.txt", run, 17);
    }
    const std::wstring& path() const { return target_->path(); }
    // Up to the point where the file has only to be put in its place.
    bool ready(DWORD attributes = FILE_ATTRIBUTE_ARCHIVE) {
        const WIN32_FILE_ATTRIBUTE_DATA data = recorded(attributes);
        return target_->makeParents() && target_->decode(package_, restore_, nullptr) &&
               target_->setAttributes(data.dwFileAttributes) && target_->openToSetTimes() &&
               target_->setTimes(data);
    }
    void expectNoSibling() const { EXPECT_FALSE(exists(target_->sibling())); }

    test::TemporaryFolder ground_{L"dorvo_target"};
    const std::wstring& folder_ = ground_.path();
    const std::wstring package_ = folder_ + L"\\package";
    RestoreTransformation restore_{true};
    std::optional<RestoreTarget> target_;
};

TEST_F(Target, ReplacesAGuardedFileOnlyWhenToldTo) {
    ASSERT_TRUE(target_->makeParents());
    storeFile(path(), "old");
    ASSERT_TRUE(SetFileAttributesW(path().c_str(), guards));

    ASSERT_TRUE(ready());
    EXPECT_FAILS(ERROR_FILE_EXISTS, target_->place(false));
    expectNoSibling();
    EXPECT_EQ(fileContent(path()), "old");
    EXPECT_EQ(dataOf(path()).dwFileAttributes & guards, guards);

    ASSERT_TRUE(ready());
    ASSERT_TRUE(target_->place(true));
    EXPECT_EQ(fileContent(path()), "new");
    EXPECT_EQ(dataOf(path()).dwFileAttributes & guards, 0u);
}

// "D:(A;;FA;;;SY)...": who may do what with the file.
std::wstring accessOf(const std::wstring& path) {
    std::vector<std::byte> descriptor(4096);
    auto size = static_cast<DWORD>(descriptor.size());
    wchar_t* text = nullptr;
    if (GetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, descriptor.data(), size, &size) ==
            0 ||
        ConvertSecurityDescriptorToStringSecurityDescriptorW(
            descriptor.data(), SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr) == 0) {
        return L"unknown";
    }
    std::wstring access = text;
    LocalFree(text);
    return access;
}

// Of alternate streams, owners and encrypted files only Windows can show anything.
TEST_F(Target, TakesOverTheAccessListOfTheFileThatItReplaces) {
    ASSERT_TRUE(target_->makeParents());
    PrivateAccess own(PrivateAccess::Kind::file);
    const std::wstring usual = accessOf(package_);
    for (const bool shut : {true, false}) {
        SCOPED_TRACE(shut);
        storeFile(path(), "old");
        if (shut) {
            ASSERT_TRUE(SetFileSecurityW(path().c_str(), DACL_SECURITY_INFORMATION,
                                         own.attributes()->lpSecurityDescriptor));
        }
        const std::wstring before = accessOf(path());
        EXPECT_EQ(before == usual, !shut);
        storeFile(target_->sibling(), "anybody's to read");  // of a run that was killed
        ASSERT_TRUE(ready());
        EXPECT_NE(accessOf(target_->sibling()), usual) << "nobody reads it meanwhile";
        ASSERT_TRUE(target_->place(true));
        EXPECT_EQ(fileContent(path()), "new");
        EXPECT_EQ(accessOf(path()), before);
        ASSERT_TRUE(DeleteFileW(path().c_str()));
    }
    ASSERT_TRUE(ready() && target_->place(true));
    EXPECT_EQ(accessOf(path()), usual);
    // What was private when it was there to be seen is so afterwards.
    storeFile(path(), "old");
    ASSERT_TRUE(SetFileSecurityW(path().c_str(), DACL_SECURITY_INFORMATION,
                                 own.attributes()->lpSecurityDescriptor));
    const std::wstring before = accessOf(path());
    ASSERT_TRUE(ready() && DeleteFileW(path().c_str()) && target_->place(false));
    EXPECT_EQ(accessOf(path()), before);
    // So is what has become private, or has come, since the file was decoded.
    for (const bool there : {true, false}) {
        SCOPED_TRACE(there);
        ASSERT_TRUE(DeleteFileW(path().c_str()));
        target_.emplace(folder_ + L"\\sub\\a.txt", run, 17);
        if (there) {
            storeFile(path(), "old");
        }
        ASSERT_TRUE(ready());
        storeFile(path(), "old");
        ASSERT_TRUE(SetFileSecurityW(path().c_str(), DACL_SECURITY_INFORMATION,
                                     own.attributes()->lpSecurityDescriptor));
        ASSERT_TRUE(target_->place(true));
        EXPECT_EQ(accessOf(path()), before);
    }
}

class WatchedTarget : public RestoreTarget {
public:
    using RestoreTarget::RestoreTarget;

    std::vector<std::string> steps;
    bool flushed = true;                    // what the disk says
    std::function<void()> onMoved = [] {};  // the run may be killed here

protected:
    bool flushFile(HANDLE file) override {
        steps.emplace_back("flush");
        SetLastError(ERROR_IO_DEVICE);
        return flushed && RestoreTarget::flushFile(file);
    }
    bool moveFile(const std::wstring& from, const std::wstring& to, DWORD flags) override {
        steps.emplace_back("move");
        const bool moved = RestoreTarget::moveFile(from, to, flags);
        onMoved();
        return moved;
    }
};

TEST_F(Target, IsOnTheDiskAndOnRecordBeforeItIsInItsPlace) {
    PlacingRecord record("placing test");
    for (const bool replace : {true, false}) {
        SCOPED_TRACE(replace);
        WatchedTarget target(folder_ + L"\\b.txt", run, 5, &record);
        target.onMoved = [] { EXPECT_TRUE(PlacingRecord("placing test").isPlaced(run, 5)); };
        ASSERT_TRUE(target.makeParents() && target.decode(package_, restore_, nullptr));
        ASSERT_TRUE(target.openToSetTimes() && target.setTimes(recorded(0)));
        target.flushed = false;
        EXPECT_FAILS(ERROR_IO_DEVICE, target.place(replace));
        EXPECT_FALSE(exists(target.path()) || exists(target.sibling()));

        target.flushed = true;
        target.steps.clear();
        ASSERT_TRUE(target.decode(package_, restore_, nullptr));
        ASSERT_TRUE(target.openToSetTimes() && target.setTimes(recorded(0)));
        ASSERT_TRUE(target.place(replace));
        EXPECT_EQ(target.steps, (std::vector<std::string>{"flush", "move"}));
        EXPECT_TRUE(PlacingRecord("placing test").isPlaced(run, 5));
        ASSERT_TRUE(DeleteFileW(target.path().c_str()));
    }
    // Without a word on record nothing readable is made, nor is what was there touched.
    PlacingRecord none("no|job");
    RestoreTarget target(folder_ + L"\\c.txt", run, 6, &none);
    for (const bool left : {false, true}) {
        if (left) {
            storeFile(target.sibling(), "left");
        }
        EXPECT_FALSE(target.decode(package_, restore_, nullptr));
        EXPECT_EQ(exists(target.sibling()), left);
    }
    record.finish();
}

// The record lets go of a sibling when it is gone, and not before.
TEST_F(Target, StaysOnRecordAsLongAsItsSiblingMayBeThere) {
    PlacingRecord record("placing test");
    const std::wstring sibling = target_->sibling();
    for (const char* end : {"placed", "given up", "held"}) {
        SCOPED_TRACE(end);
        const bool held = std::string(end) == "held";
        FileHandle reader;
        target_.emplace(folder_ + L"\\sub\\a.txt", run, 17, &record);
        ASSERT_TRUE(ready());
        if (std::string(end) == "placed") {
            ASSERT_TRUE(target_->place(true));
        } else if (held) {
            target_->setAttributes(0);
            reader.reset(CreateFileW(sibling.c_str(), GENERIC_READ,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                     nullptr));
            ASSERT_TRUE(reader);
        }
        target_.reset();
        EXPECT_EQ(exists(sibling), held);
        reader.reset();
        storeFile(sibling, "there");
        EXPECT_TRUE(record.removeSibling());
        EXPECT_EQ(exists(sibling), !held) << "what was let go is nobody's to delete";
    }
    record.finish();
}

TEST_F(Target, LeavesTheGoodFileWhenItFails) {
    ASSERT_TRUE(target_->makeParents());
    storeFile(path(), "old");
    ASSERT_TRUE(SetFileAttributesW(path().c_str(), guards));
    const auto expectOld = [&] {
        expectNoSibling();
        EXPECT_EQ(fileContent(path()), "old");
        EXPECT_EQ(dataOf(path()).dwFileAttributes & guards, guards);
    };

    ASSERT_TRUE(ready(guards));
    target_.emplace(folder_ + L"\\sub\\a.txt", run, 17);  // the item is given up
    expectOld();

    // Somebody has the old file open and shares nothing with whoever would replace it.
    const FileHandle held(CreateFileW(path().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(ready(guards));
    EXPECT_FALSE(target_->place(true));
    EXPECT_NE(GetLastError(), DWORD{ERROR_SUCCESS});
    expectOld();
}

TEST_F(Target, LeavesNothingOfAPackageThatCannotBeDecoded) {
    const std::string package = fileContent(package_);
    storeFile(package_, package.substr(0, package.size() - 16));
    PlacingRecord record("placing test");
    target_.emplace(folder_ + L"\\sub\\a.txt", run, 17, &record);
    EXPECT_FALSE(ready());
    expectNoSibling();
    EXPECT_FALSE(exists(path()));
    storeFile(target_->sibling(), "somebody's");
    EXPECT_TRUE(record.removeSibling() && exists(target_->sibling())) << "it was let go";
    record.finish();
}

TEST_F(Target, IsNeverPutInTheFoldersPlace) {
    ASSERT_TRUE(createDirectories(path() + L"\\kept"));
    for (const bool replace : {true, false}) {
        ASSERT_TRUE(ready());
        EXPECT_FAILS(replace ? ERROR_CANNOT_MAKE : ERROR_FILE_EXISTS, target_->place(replace));
        expectNoSibling();
        EXPECT_TRUE(exists(path() + L"\\kept"));
    }
}

TEST_F(Target, WritesOverWhatAKilledRunHasLeft) {
    ASSERT_TRUE(target_->makeParents());
    storeFile(target_->sibling(), "half a fi");
    ASSERT_TRUE(SetFileAttributesW(target_->sibling().c_str(), guards));
    ASSERT_TRUE(ready() && target_->place(false));
    EXPECT_EQ(fileContent(path()), "new");

    const std::wstring other = RestoreTarget(path(), run, 18).sibling();
    EXPECT_NE(other, target_->sibling());
    EXPECT_NE(RestoreTarget(path(), {1}, 17).sibling(), target_->sibling());
}

TEST_F(Target, LeavesTheRootOfADriveAsItIs) {
    const std::wstring drive = folder_.substr(0, 2);
    for (const std::wstring& root : {drive, drive + L"\\"}) {
        bool existed = false;
        EXPECT_TRUE(makeRestoredDirectory(root, existed));
        EXPECT_TRUE(existed);
        EXPECT_TRUE(dressRestoredDirectory(root, recorded(guards)));
    }
    EXPECT_TRUE(RestoreTarget(drive + L"\\a.txt", run, 1).makeParents());
    bool existed = true;
    EXPECT_FALSE(makeRestoredDirectory(L"Q:", existed));
}

}  // namespace
}  // namespace dorvo
