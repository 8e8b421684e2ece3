// Volumes: classification, their files, and paths onto snapshots and back.
#include "source/jobvolume.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/files.h"
#include "base/paths.h"
#include "base/uuid.h"
#include "support/files.h"
#include "support/log_capture.h"

namespace dorvo {
namespace {

using testing::ElementsAre;

const char* const jobId = "job-volumes";

// The worked example of docs/formats/volume-file.md.
const char* const exampleFile = R"({
    "path" : "C:/",
    "state" : 0,
    "snapshotSetId" : "00112233-4455-6677-8899-aabbccddeeff",
    "snapshotId" : "ffeeddcc-bbaa-9988-7766-554433221100",
    "shadowPath" : "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy7\\",
    "creationTimestamp" : 134215200000000000,
    "source" : [
        "C:/Users/Zoë",
        "C:/data/a.txt"
    ]
})";

class VolumeFiles : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(volumeDirectory(jobId, directory_));
        rm_rf(directory_, true);
        ASSERT_TRUE(createDirectories(directory_));
    }

    std::wstring directory_;
};

TEST_F(VolumeFiles, AreReadAndWrittenAsDocumented) {
    test::storeFile(directory_ + L"\\1", exampleFile);
    VolumeMap volumes;
    volumes[L"Z:\\"] = std::make_shared<JobVolume>();
    loadVolumes(jobId, volumes);
    ASSERT_EQ(volumes.size(), 1u);
    const JobVolume& volume = *volumes.at(L"C:\\");
    EXPECT_EQ(volume.index, 1);
    EXPECT_EQ(uuidText(volume.snapshotSetId), "00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(volume.shadowPath, L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy7\\");
    EXPECT_EQ(volume.creationTimestamp, 134215200000000000);
    EXPECT_THAT(volume.sources, ElementsAre(L"C:\\Users\\Zo\u00eb", L"C:\\data\\a.txt"));
    EXPECT_TRUE(removeVolumeFile(volume, jobId) && volume.save(jobId));
    EXPECT_EQ(test::fileContent(directory_ + L"\\1"), exampleFile);
    EXPECT_FALSE(volume.save("..\\x"));
}

TEST_F(VolumeFiles, DamagedOnesAreLeftOut) {
    const std::string good = exampleFile;
    for (const wchar_t* name : {L"\\1", L"\\01", L"\\notes.txt"}) {
        test::storeFile(directory_ + name, good);
    }
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string text = good;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::pair<const char*, std::string> rows[] = {
        {"empty", ""},
        {"cut off", good.substr(0, good.size() / 2)},
        {"no object", "[]"},
        {"no path", with("\"path\"", "\"pfad\"")},
        {"a state that is a text", with("\"state\" : 0", "\"state\" : \"0\"")},
        {"a state out of range", with("\"state\" : 0", "\"state\" : 4294967296")},
        {"no UUID", with("ffeeddcc-", "ffeeddcc")},
        {"a source that is a number", with("\"C:/data/a.txt\"", "7")},
    };
    for (const auto& [what, text] : rows) {
        SCOPED_TRACE(what);
        test::LogCapture log;
        test::storeFile(directory_ + L"\\2", text);
        VolumeMap volumes;
        loadVolumes(jobId, volumes);
        EXPECT_EQ(volumes.size(), 1u);
        EXPECT_EQ(log.lines().size(), 1u);
        EXPECT_TRUE(log.begins("Failed to load job {job-volumes} volume file 2, "));
    }
}

TEST_F(VolumeFiles, GoOnlyWhenTheRunIsOver) {
    for (const int code : {0, 1, 6, 7, 8, 9, 10}) {
        SCOPED_TRACE(code);
        VolumeMap volumes;
        JobVolume volume;
        volume.index = 1;
        volumes[L"C:\\"] = std::make_shared<JobVolume>(volume);
        ASSERT_TRUE(volume.save(jobId));
        clearVolumes(volumes, jobId, code);
        EXPECT_TRUE(volumes.empty());
        EXPECT_EQ(removeVolumeFile(volume, jobId), code == 0 || code == 6 || code == 8);
    }
}

// Wine's drive Z: is a second volume.
TEST(SourceClassifier, GroupsSourcesByVolumeInTheOrderMet) {
    VolumeMap volumes;
    const auto old = std::make_shared<JobVolume>();
    volumes[L"Q:\\"] = old;
    const std::wstring longSource =
        L"Z:\\" + std::wstring(200, L'a') + L"\\" + std::wstring(200, L'b');
    test::LogCapture log;
    SourceClassifier()(
        {L"Z:\\tmp", L"C:\\windows\\system32", L"", L"Z:\\none", longSource, L"C:\\"}, volumes);
    EXPECT_TRUE(log.begins("Failed to get volume path name from '', err="));
    EXPECT_EQ(log.lines().size(), 1u);
    ASSERT_EQ(volumes.size(), 2u);
    const JobVolume& first = *volumes.at(L"Z:\\");
    EXPECT_EQ(first.index, 1);
    EXPECT_THAT(first.sources, ElementsAre(L"Z:\\tmp", L"Z:\\none", longSource));
    const JobVolume& second = *volumes.at(L"C:\\");
    EXPECT_EQ(second.index, 2);
    EXPECT_THAT(second.sources, ElementsAre(L"C:\\windows\\system32", L"C:\\"));

    SourceClassifier()({}, volumes);
    EXPECT_TRUE(volumes.empty());
}

TEST(ShadowPath, LeadsToTheSnapshotAndBack) {
    using Text = const wchar_t*;
    const std::tuple<Text, Text, Text, Text> there[] = {
        {L"C:\\a\\b", L"C:\\", L"", L"C:\\a\\b"},
        {L"C:\\a\\b", L"", L"S", L"C:\\a\\b"},
        {L"C:\\", L"C:\\", L"S", L"S"},
        {L"C:\\dir", L"C:\\", L"S", L"S\\dir"},
        {L"C:\\dir\\", L"C:\\", L"S", L"S\\dir"},
        {L"C:\\mnt\\dir", L"C:\\mnt\\", L"S\\", L"S\\dir"},
        {L"C:\\mnt", L"C:\\mnt\\", L"S\\", L"S\\"},
        {L"C:\\mnt\\\\", L"C:\\mnt\\", L"S", L"S\\"},
    };
    for (const auto& [source, volume, shadow, expected] : there) {
        EXPECT_EQ(toShadowPath(source, volume, shadow), expected);
    }
    const std::tuple<Text, Text, Text, Text> back[] = {
        {L"S\\", L"S\\", L"C:\\", L"C:\\"},
        {L"S\\a\\b", L"S\\", L"C:\\", L"C:\\a\\b"},
        {L"S\\a\\b", L"S\\a", L"C:\\a", L"C:\\a\\b"},
        {L"S\\a", L"S\\", L"C:\\mnt", L"C:\\mnt\\a"},
        {L"C:\\a\\b", L"C:\\a", L"C:\\a", L"C:\\a\\b"},
    };
    for (const auto& [entry, walked, source, expected] : back) {
        EXPECT_EQ(toLivePath(entry, walked, source), expected);
    }
}

}  // namespace
}  // namespace dorvo
