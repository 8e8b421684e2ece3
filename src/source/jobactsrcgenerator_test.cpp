#include "source/jobactsrcgenerator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/paths.h"
#include "support/fails_with.h"
#include "support/fake_files.h"
#include "support/files.h"
#include "support/list_records.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using test::FakeFiles;
using testing::ElementsAre;
using testing::IsEmpty;

class Always : public interrupter {
public:
    bool interrupted() const override { return true; }
};

// Sends every file.
class BatchCheck : public IncrementCheck {
public:
    bool check(const std::vector<File>& files, std::vector<bool>& send) override {
        batches.push_back(files.size());
        for (size_t i = 0; i < files.size(); ++i) {
            EXPECT_FALSE(send[i]);
            EXPECT_EQ(files[i].lastWriteTime, 0x800000007u);
            send[i] = true;
        }
        if (error != ERROR_SUCCESS && batches.size() == failsAt) {
            SetLastError(error);
            return false;
        }
        return true;
    }

    DWORD error = ERROR_SUCCESS;
    size_t failsAt = 1;
    std::vector<size_t> batches;
};

class Generator : public testing::Test {
protected:
    void SetUp() override {
        list_ = folder_ + L"\\src";
        options_.files = &files_;
        options_.failedItem = [this](const std::wstring& path, DWORD error) {
            failed_.emplace_back(path.size(), error);
        };
    }
    void TearDown() override { EXPECT_EQ(files_.open(), 0); }

    JobVolume& volume(const std::wstring& path, std::vector<std::wstring> sources) {
        auto made = std::make_shared<JobVolume>();
        made->path = path;
        made->sources = std::move(sources);
        volumes_[path] = made;
        return *made;
    }
    std::vector<std::wstring> records() const { return test::listRecords(list_); }
    void addMany(int count) {
        for (int i = 0; i < count; ++i) {
            files_.addFile(L"C:\\", L"f" + std::to_wstring(i));
        }
    }

    FakeFiles files_;
    VolumeMap volumes_;
    JobActivitySourceGenerator::Options options_;
    std::vector<std::pair<size_t, DWORD>> failed_;
    test::TemporaryFolder ground_{L"dorvo_generator"};
    const std::wstring& folder_ = ground_.path();
    std::wstring list_;
};

TEST_F(Generator, WalksTheSnapshotOnceAndNamesLivePathsAndWhatItLeavesOut) {
    const DWORD folderLink = FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY;
    files_.addFolder(L"S:\\", L"a");
    files_.addFolder(L"S:\\a", L"private");
    files_.addFile(L"S:\\a\\private", L"secret");
    files_.add(L"S:\\a", {L"link", folderLink, 0, IO_REPARSE_TAG_SYMLINK});
    files_.addFile(L"S:\\a\\link", L"y");
    for (const auto& [folder, name] : {std::pair(L"S:\\a", L"named"), {L"S:\\A", L"Named"}}) {
        files_.add(folder, {name, folderLink, 0, IO_REPARSE_TAG_MOUNT_POINT});
        files_.addFile(std::wstring(folder) + L"\\" + name, L"x");
    }
    volume(L"C:\\", {L"C:\\a", L"c:\\A\\Named"}).shadowPath = L"S:\\";
    options_.excluded.add(L"c:\\A\\PRIVATE");
    std::vector<std::pair<std::wstring, DWORD>> leftOut;
    options_.leftOut = [&](const std::wstring& path, DWORD tag) {
        leftOut.emplace_back(path, tag);
    };

    ASSERT_TRUE(JobActivitySourceGenerator(options_).generate(list_, volumes_));
    EXPECT_THAT(records(), ElementsAre(L"SS", L"VO C:\\", L"DI 1 C:\\a", L"DI 2 C:\\a\\link",
                                       L"DI 3 c:\\A\\Named", L"FI 4 c:\\A\\Named\\x", L"ES"));
    EXPECT_THAT(leftOut,
                ElementsAre(std::pair(std::wstring(L"C:\\a\\link"), IO_REPARSE_TAG_SYMLINK)));
}

TEST_F(Generator, AsksInBatchesOfAThousandFiles) {
    addMany(2001);
    files_.addFile(L"D:\\", L"g");
    volume(L"C:\\", {L"C:\\"});
    volume(L"D:\\", {L"D:\\"});
    BatchCheck check;
    options_.check = &check;

    JobActivitySourceGenerator generator(options_);
    ASSERT_TRUE(generator.generate(list_, volumes_));
    EXPECT_THAT(check.batches, ElementsAre(1000, 1000, 1, 1));
    const auto all = records();
    ASSERT_EQ(all.size(), 1u + 2 + 2001 + 2 + 1 + 1);
    EXPECT_EQ(all[2003], L"FI 2002 C:\\f2000");
    EXPECT_EQ(generator.fileCount(), 2002u);
}

TEST_F(Generator, AFailureKeepsTheOlderListAndItsReason) {
    files_.addFile(L"C:\\", L"f");
    volume(L"C:\\", {L"C:\\"});
    ASSERT_TRUE(JobActivitySourceGenerator(options_).generate(list_, volumes_));
    const auto older = records();

    addMany(1500);
    BatchCheck check;
    check.error = ERROR_NETNAME_DELETED;
    for (const size_t batch : {size_t{1}, size_t{2}}) {
        check.batches.clear();
        check.failsAt = batch;
        options_.check = &check;
        EXPECT_FAILS(ERROR_NETNAME_DELETED,
                     JobActivitySourceGenerator(options_).generate(list_, volumes_));
        EXPECT_EQ(check.batches.size(), batch) << "nothing is asked after the failure";
        EXPECT_EQ(records(), older);
        EXPECT_FALSE(test::exists(list_ + L".part"));
    }

    const Always stop;
    options_.stop = &stop;
    check.batches.clear();
    EXPECT_FAILS(ERROR_CANCELLED, JobActivitySourceGenerator(options_).generate(list_, volumes_));
    EXPECT_THAT(check.batches, IsEmpty());
    EXPECT_EQ(records(), older);
}

TEST_F(Generator, StopsInATreeThatYieldsNothing) {
    addMany(3000);
    volume(L"C:\\", {L"C:\\"});
    test::NameFilter nothing({});
    const Always stop;
    options_.filter = &nothing;
    options_.stop = &stop;
    EXPECT_FAILS(ERROR_CANCELLED, JobActivitySourceGenerator(options_).generate(list_, volumes_));
    EXPECT_LT(nothing.asked.size(), 1100u);
}

TEST_F(Generator, APathThatNoRecordHoldsIsAFailedItem) {
    // The snapshot's path is short enough to be walked, the live one is too long to be listed.
    const std::wstring deep(32'760, L'x');
    files_.addFile(L"S:\\", L"f", 3);
    files_.addFile(L"S:\\", L"g.longer.name", 4);
    const std::wstring mount = L"C:\\" + deep.substr(0, 32'739 - 5) + L"\\";
    volume(mount, {mount}).shadowPath = L"S:\\";

    JobActivitySourceGenerator generator(options_);
    ASSERT_TRUE(generator.generate(list_, volumes_));
    EXPECT_THAT(failed_,
                ElementsAre(std::pair(size_t{32'739 - 1 + 13}, DWORD{ERROR_FILENAME_EXCED_RANGE})));
    EXPECT_EQ(generator.walked().fileCount(), 2u);
    EXPECT_EQ(generator.fileCount(), 1u);
    EXPECT_EQ(records().size(), 5u);
}

TEST_F(Generator, WhatCannotBeReadIsAFailedItemByItsLivePath) {
    files_.addFolder(L"S:\\", L"closed");
    files_.addFile(L"S:\\", L"f");
    files_.addFolder(L"S:\\", L"private");
    files_.unlistable = L"S:\\closed";
    volume(L"C:\\mount\\", {L"C:\\mount\\", L"C:\\mount\\gone", L"C:\\mount\\private\\gone"})
        .shadowPath = L"S:\\";
    options_.excluded.add(L"C:\\mount\\private");

    JobActivitySourceGenerator generator(options_);
    ASSERT_TRUE(generator.generate(list_, volumes_));
    EXPECT_THAT(failed_,
                ElementsAre(std::pair(wcslen(L"C:\\mount\\closed"), DWORD{ERROR_ACCESS_DENIED}),
                            std::pair(wcslen(L"C:\\mount\\gone"), DWORD{ERROR_FILE_NOT_FOUND})));
    EXPECT_EQ(generator.fileCount(), 1u);
}

TEST_F(Generator, NamesThatDoNotSurviveUtf8AreFailedItemsOfTheirOwn) {
    files_.addFile(L"C:\\", L"\xD83D\xDE00");  // a whole pair
    files_.addFile(L"C:\\", L"\xFFFD");
    files_.addFile(L"C:\\", L"a\xD800");
    files_.addFile(L"C:\\", L"\xDC00\xD801");
    files_.addFolder(L"C:\\", L"\xDFFFz");
    files_.addFile(L"C:\\\xDFFFz", L"below");
    files_.addFile(L"C:\\", L"left out \xD800");
    volume(L"C:\\", {L"C:\\"});
    options_.leavesOut = [](const ComparablePath& path) {
        return path.text().starts_with(L"C:\\LEFT");
    };
    std::vector<std::wstring> names;
    options_.failedItem = [&](const std::wstring& path, DWORD error) {
        names.push_back(path);
        EXPECT_EQ(error, DWORD{ERROR_NO_UNICODE_TRANSLATION});
    };
    ASSERT_TRUE(JobActivitySourceGenerator(options_).generate(list_, volumes_));
    EXPECT_THAT(names, ElementsAre(L"C:\\a<U+D800>", L"C:\\<U+DC00><U+D801>", L"C:\\<U+DFFF>z"));
    EXPECT_THAT(records(), ElementsAre(L"SS", L"VO C:\\", L"DI 1 C:\\", L"FI 2 C:\\\xD83D\xDE00",
                                       L"FI 3 C:\\\xFFFD", L"ES"));
}

TEST_F(Generator, AListThatCannotBeWrittenIsAFailure) {
    const test::LogCapture quiet;
    volume(L"C:\\", {});
    // A folder stands where the list belongs.
    ASSERT_TRUE(createDirectories(list_));
    EXPECT_FALSE(JobActivitySourceGenerator(options_).generate(list_, volumes_));
    EXPECT_NE(GetLastError(), DWORD{ERROR_SUCCESS});
    EXPECT_FALSE(test::exists(list_ + L".part"));
}

}  // namespace
}  // namespace dorvo
