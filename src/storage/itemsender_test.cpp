#include "storage/itemsender.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "base/last_error.h"
#include "storage/backupstorage.h"
#include "storage/items.h"
#include "storage/itemtemppath.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/store_watch.h"
#include "support/temporary_folder.h"

namespace dorvo::test {
namespace {

constexpr uint64_t block = uploadBlockSize;

// Where a virtual operation stands among those of its class; a destructor takes two places.
template <class Operation>
size_t slotOf(Operation operation) {
    size_t words[2];
    static_assert(sizeof(operation) == sizeof(words));
    std::memcpy(words, &operation, sizeof(words));
    return words[0] / sizeof(void*);
}

// Calls from other modules go by these.
TEST(BackupStorageTest, HasItsOperationsInTheirPlaces) {
    EXPECT_EQ(slotOf(&BackupStorage::start), 2u);
    EXPECT_EQ(slotOf(&BackupStorage::end), 4u);
    EXPECT_EQ(slotOf(&BackupStorage::cancel), 5u);
    EXPECT_EQ(slotOf(&BackupStorage::backup), 6u);
}

// A keeper that says what it was asked.
class Sent : public testing::Test, protected BlockSink {
protected:
    Sent() { storeFile(source_, std::string(3 * block + 15, 'x')); }

    void begin(const SentItem&) override { said_ += "begin "; }
    bool compare(const SentItem&, uint32_t& blocks) override {
        said_ += "compare ";
        blocks = std::min(blocks, same_);
        return answer(compareError_);
    }
    void giveUp(const SentItem&) override { said_ += "giveUp "; }
    bool announce(const SentItem& item, uint32_t& held) override {
        said_ += "announce" + std::to_string(held) + " ";
        held = std::min(held, held_);
        announced_(item);
        return true;
    }
    bool goBack(const SentItem&, uint32_t held) override {
        said_ += "goBack ";
        ItemProgress(record_).backTo(held, held * block);
        return true;
    }
    bool put(const SentItem&, uint32_t number, std::span<const std::byte> bytes,
             uint32_t& accepted) override {
        said_ += std::to_string(number) + " ";
        stored_ += bytes.size();
        accepted = number;
        return answer(number == failing_ ? ERROR_NETWORK_BUSY : 0);
    }
    bool finish(const SentItem&) override {
        said_ += "finish";
        return true;
    }
    void failed(SendStep, const SentItem&) const override {}

    static bool answer(DWORD error) {
        SetLastError(error);
        return error == 0;
    }
    bool send() {
        BackupTask task;
        task.activity = record_;
        task.compress = false;
        interrupter never;
        said_.clear();
        ItemSender sender(task, folder_.path(), never, *this);
        const bool done = sender.send({source_.c_str(), data_, 7, nullptr});
        const LastErrorGuard keep;
        EXPECT_FALSE(exists(itemTempPath(folder_.path(), 7))) << "the package is taken away";
        return done;
    }

    const LogCapture log_;
    const TemporaryFolder folder_{L"dorvo-sent"};
    const std::wstring source_ = folder_.path() + L"\\source";
    WIN32_FILE_ATTRIBUTE_DATA data_{};
    JobActivity own_{};
    JobActivity* record_ = &own_;
    std::string said_;
    uint64_t stored_ = 0;
    uint32_t same_ = 9;
    uint32_t held_ = 9;
    uint32_t failing_ = 0;
    DWORD compareError_ = 0;
    std::function<void(const SentItem&)> announced_ = [](const SentItem&) {};
};

TEST_F(Sent, TakesALargePackageAwayWhateverComesOfIt) {
    storeFile(source_, std::string(ItemPackage::mostInMemory + 1, 'x'));
    announced_ = [&](const SentItem&) { EXPECT_TRUE(exists(itemTempPath(folder_.path(), 7))); };
    for (const uint32_t failing : {0U, 2U}) {
        failing_ = failing;
        EXPECT_EQ(send(), failing == 0);
    }
}

// Two of four blocks are through; then something happens before the run goes on.
TEST_F(Sent, GoesOnBehindTheBlocksThatAreThere) {
    struct Row {
        const char* name;
        std::function<void()> change;
        const char* said;
        DWORD error = 0;
    };
    const Row rows[] = {
        {"nothing", [] {}, "begin compare announce2 3 4 finish"},
        {"another content", [&] { same_ = 0; }, "begin compare giveUp announce0 1 2 3 4 finish"},
        {"half another content", [&] { same_ = 1; }, "begin compare giveUp announce1 2 3 4 finish"},
        {"the keeper has lost one", [&] { held_ = 1; },
         "begin compare announce2 goBack 2 3 4 finish"},
        {"another content, of which the keeper has one", [&] { same_ = 0, held_ = 1; },
         "begin compare giveUp announce0 1 2 3 4 finish"},
        {"another time", [&] { data_.ftLastWriteTime.dwLowDateTime ^= 1; },
         "begin giveUp announce0 1 2 3 4 finish"},
        {"on record of another package", [&] { own_.packageSize += 16; },
         "begin giveUp announce0 1 2 3 4 finish"},
        {"on record of another item", [&] { own_.itemNumber = 9; },
         "begin announce0 1 2 3 4 finish"},
        {"nobody can tell", [&] { compareError_ = ERROR_CANCELLED; }, "begin compare ",
         ERROR_CANCELLED},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        own_ = {};
        data_ = dataOf(source_);
        failing_ = 3;
        EXPECT_FAILS(ERROR_NETWORK_BUSY, send());
        EXPECT_EQ(said_, "begin announce0 1 2 3 ");
        EXPECT_EQ(own_.acceptedBlocks, 2u);
        failing_ = 0;
        row.change();
        EXPECT_EQ(send() ? 0 : GetLastError(), row.error);
        EXPECT_EQ(said_, row.said);
        EXPECT_EQ(own_.acceptedBlocks, row.error == 0 ? 4u : 2u);
        EXPECT_EQ(own_.fileOffset, row.error == 0 ? 3 * block + 16 : 0);
        same_ = held_ = 9;
        compareError_ = 0;
    }
}

// A scanner, or a disk that lies.
TEST_F(Sent, APackageThatHasLostItsEndIsNotKept) {
    storeFile(source_, std::string(ItemPackage::mostInMemory, 'x'));
    data_ = dataOf(source_);
    announced_ = [this](const SentItem&) {
        const std::wstring package = itemTempPath(folder_.path(), 7);
        storeFile(package, fileContent(package).substr(0, block));
    };
    EXPECT_FAILS(ERROR_HANDLE_EOF, send());
    EXPECT_EQ(said_, "begin announce0 1 ");
}

// A process that is killed between the two must not show a block that a resumed run does not know.
TEST_F(Sent, ABlockIsOnRecordBeforeItShows) {
    StoreWatch watch;
    record_ = static_cast<JobActivity*>(watch.page());
    data_ = dataOf(source_);
    constexpr size_t accepted = offsetof(JobActivity, acceptedBlocks);
    constexpr size_t shown = offsetof(JobActivity, fileOffset);
    std::vector<size_t> stores;
    announced_ = [&](const SentItem&) { watch.begin(); };
    EXPECT_TRUE(send());
    for (const size_t offset : watch.end()) {
        if (offset == accepted || offset == shown) {
            stores.push_back(offset);
        }
    }
    EXPECT_EQ(stores, (std::vector<size_t>{accepted, shown, accepted, shown, accepted, shown,
                                           accepted, shown}));
}

}  // namespace
}  // namespace dorvo::test
