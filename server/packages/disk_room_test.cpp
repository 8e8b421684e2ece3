// What a disk with little room lets through.
#include "packages/disk_room.h"

#include <sys/resource.h>

#include <atomic>
#include <csignal>

#include "testing/service_fixture.h"

namespace dorvo {

namespace {

constexpr int64_t mib = int64_t{1} << 20U;

TEST(DiskRoom, KeepsAHundredthFreeWithinBounds) {
    const std::pair<int64_t, int64_t> rows[] = {// total and reserve, in MiB
                                                {int64_t{1} << 24U, 1024},
                                                {20000, 200},
                                                {2000, 64},
                                                {100, 10}};
    for (const auto& [total, reserve] : rows) {
        DiskSpace space{reserve * mib, total * mib};
        DiskRoom room("/nowhere", std::nullopt, [&](const auto&) { return space; });
        EXPECT_NO_THROW(room.requireForUpload()) << total;
        --space.available;
        EXPECT_THROW(room.requireForUpload(), std::exception) << total;
    }
}

TEST(DiskRoom, LooksForRoomToHoldOnlyWhereThereIsAReserve) {
    int looks = 0;
    DiskRoom room("/nowhere", 0, [&](const auto&) {
        ++looks;
        return DiskSpace{1000 * mib, 1000 * mib};
    });
    room.requireForUpload();
    looks = 0;
    room.requireForUpload();
    EXPECT_EQ(looks, 2);  // the two disks
}

TEST(DiskRoom, KeepsWhatItHoldsWhereThereIsNoMore) {
    const TempFolder folder;
    int64_t available = 2 * mib;
    DiskRoom room(folder.path(), 64 * mib, [&](const auto&) {
        return DiskSpace{available, 1000 * mib};
    });
    room.hold();
    const auto held = [&] { return std::filesystem::file_size(folder.path() / "reserve"); };
    ASSERT_EQ(held(), 1 * mib);
    available = 100 * mib;
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit low{3 * mib, before.rlim_max};
    ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    setrlimit(RLIMIT_FSIZE, &low);
    room.hold();
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(held(), 1 * mib);
    room.hold();
    EXPECT_EQ(held(), 16 * mib);
}

class LowDisk : public ServiceFixture {
protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        options.reserve = 100;
        options.space = [this](const std::filesystem::path& folder) {
            return DiskSpace{folder.filename() == disk ? available.load() : 1000, 1000};
        };
        restart();
    }

    std::atomic<int64_t> available = 100;
    std::string disk = "packages";  // the folder whose disk is low
};

TEST_F(LowDisk, RefusesWhatStoresMoreAndNothingElse) {
    backup("done", {{"a"}});
    offer("run", {{"a", 2}, {"b", 2}});
    run("run", "a", "a", 2);
    putInfo("run", "b", 1);
    run("other", "c", "c");
    for (const std::string& low : {std::string("packages"), data.filename().string()}) {
        SCOPED_TRACE(low);
        disk = low;
        available = 99;
        const std::string before = everything();
        const Answer refused = postAs(
            alice, uploadBlockPath,
            blockForm("run", "b", "1.jpg", "b", "92eb5ffee6ae2fec3ad71c777531578f"), formType);
        EXPECT_EQ(refused.status, 503);
        EXPECT_NE(refused.body.find("disk is full"), std::string::npos) << refused.body;
        EXPECT_EQ(putInfo("run", "c", 5), 503);
        EXPECT_EQ(offer("run", {{"d"}}) + offer("new", {{"d"}}), "<503><503>");
        EXPECT_EQ(start("new"), 503);
        EXPECT_EQ(start("run"), 200);
        EXPECT_EQ(putBlock("run", "a", 1, "a"), 200);  // is there
        EXPECT_EQ(everything(), before);
    }
    EXPECT_EQ(read("done", "a"), 200);
    EXPECT_EQ(post(startRestorePath, R"({"jobdefinitionid":"r","jobinstanceid":"done"})").status,
              200);
    EXPECT_EQ(addError("run", "b"), 200);
    EXPECT_EQ(end("run"), 200);
    EXPECT_EQ(cancel("other"), 200);
    restart();
    EXPECT_EQ(start("new"), 503);
    available = 100;
    backup("new", {{"d"}});
}

}  // namespace

}  // namespace dorvo
