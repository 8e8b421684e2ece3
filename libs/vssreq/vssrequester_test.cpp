#include "vssreq/vssrequester.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "support/fails_with.h"

namespace dorvo {
namespace {

using testing::ElementsAre;

// What a provider was asked, and what it is to answer. Outlives the requester that owns the
// provider.
struct Script {
    std::vector<std::string> calls;
    HRESULT begin = S_OK;
    HRESULT supports = S_OK;
    std::wstring unsupported;
    std::wstring unknown;
    HRESULT prepare = S_OK;
    HRESULT snapshot = S_OK;
    HRESULT complete = S_OK;
    std::promise<void>* waiting = nullptr;  // begin waits for the end event then
};

class ScriptedProvider : public SnapshotProvider {
public:
    explicit ScriptedProvider(Script& script) : script_(script) {}

    HRESULT begin(int type, HANDLE end) override {
        script_.calls.push_back("begin " + std::to_string(type));
        if (script_.waiting != nullptr) {
            script_.waiting->set_value();
            WaitForSingleObject(end, INFINITE);
            return HRESULT_FROM_WIN32(ERROR_CANCELLED);
        }
        EXPECT_EQ(WaitForSingleObject(end, 0), DWORD{WAIT_TIMEOUT});
        return script_.begin;
    }
    HRESULT supports(const std::wstring& volume, bool& supported) override {
        supported = volume != script_.unsupported;
        about_ = volume;
        return volume == script_.unknown ? static_cast<HRESULT>(0x80042308) : script_.supports;
    }
    HRESULT prepare(const std::vector<std::wstring>& volumes, HANDLE) override {
        script_.calls.emplace_back("prepare");
        volumes_ = volumes;
        about_.clear();
        return script_.prepare;
    }
    HRESULT snapshot(std::vector<SnapshotVolume>& made, HANDLE) override {
        script_.calls.emplace_back("snapshot");
        for (const std::wstring& volume : volumes_) {
            SnapshotVolume one;
            one.volumePath = volume;
            one.shadowPath = L"\\\\?\\GLOBALROOT\\Device\\Copy" + std::to_wstring(made.size());
            made.push_back(one);
        }
        return script_.snapshot;
    }
    HRESULT complete() override {
        script_.calls.emplace_back("complete");
        return script_.complete;
    }
    const char* step() const override { return "Step"; }
    std::wstring volume() const override { return about_; }

private:
    Script& script_;
    std::vector<std::wstring> volumes_;
    std::wstring about_;
};

class Requester : public testing::Test {
protected:
    Script script_;
    // The second stands for a volume that is mounted there.
    const std::vector<std::wstring> volumes_ = {L"C:\\", L"C:\\windows\\"};
    std::unique_ptr<VSSRequester> requester_ =
        std::make_unique<VSSRequester>(std::make_unique<ScriptedProvider>(script_));

    bool start(const std::vector<std::wstring>& volumes, int kind = VSSRequester::full,
               bool now = true) {
        return requester_->startBackup(&volumes, kind, now);
    }
};

TEST_F(Requester, SnapshotsLastFromStartToEnd) {
    for (const bool atOnce : {true, false}) {
        script_.calls.clear();
        ASSERT_TRUE(start(volumes_, VSSRequester::copy, atOnce));
        EXPECT_EQ(requester_->volumeCount(), atOnce ? 2 : 0);
        ASSERT_TRUE(atOnce || requester_->makeSnapshot());
        ASSERT_EQ(requester_->volumeCount(), 2);
        EXPECT_EQ(requester_->volume(1).volumePath, volumes_[1]);
        EXPECT_EQ(requester_->volume(1).shadowPath, L"\\\\?\\GLOBALROOT\\Device\\Copy1");
        EXPECT_TRUE(requester_->endBackup() && requester_->endBackup());
        EXPECT_EQ(requester_->volumeCount(), 0);
        EXPECT_THAT(script_.calls, ElementsAre("begin 5", "prepare", "snapshot", "complete"));
    }
    // An older backup ends before a new one, and the last with the object.
    script_.calls.clear();
    EXPECT_TRUE(start(volumes_) && start(volumes_));
    requester_.reset();
    EXPECT_THAT(script_.calls, ElementsAre("begin 1", "prepare", "snapshot", "complete", "begin 1",
                                           "prepare", "snapshot", "complete"));
}

TEST_F(Requester, AsksNobodyForNothingOrForAnUnknownKind) {
    EXPECT_TRUE(requester_->startBackup(nullptr, VSSRequester::full, true));
    EXPECT_TRUE(start({}) && requester_->makeSnapshot() && requester_->endBackup());
    for (const int unknown : {-1, 7}) {
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, start(volumes_, unknown));
    }
    EXPECT_TRUE(script_.calls.empty());
}

TEST_F(Requester, AFailureEndsTheBackupAndIsTheLastError) {
    const struct {
        uint32_t begin, supports, prepare, snapshot;
        DWORD error;
        std::vector<std::string> calls;
    } rows[] = {
        {0x80070005, 0, 0, 0, 5, {"begin 1", "complete"}},           // one of Windows
        {0, 0x80042306, 0, 0, 0x80042306, {"begin 1", "complete"}},  // that is no "unsupported"
        {0, 0, 0x80042308, 0, 0x80042308, {"begin 1", "prepare", "complete"}},
        {0, 0, 0, 0x8004230C, 0x8004230C, {"begin 1", "prepare", "snapshot", "complete"}},
    };
    script_.complete = E_FAIL;  // must not hide the reason
    for (const auto& row : rows) {
        script_.calls.clear();
        script_.begin = static_cast<HRESULT>(row.begin);
        script_.supports = static_cast<HRESULT>(row.supports);
        script_.prepare = static_cast<HRESULT>(row.prepare);
        script_.snapshot = static_cast<HRESULT>(row.snapshot);
        EXPECT_FAILS(row.error, start(volumes_));
        EXPECT_EQ(requester_->volumeCount(), 0);
        EXPECT_EQ(script_.calls, row.calls);
        EXPECT_EQ(requester_->failedVolume(), row.supports != 0 ? L"C:\\" : L"");
    }
}

TEST_F(Requester, VolumesThatCanHaveNoneAreLeftOut) {
    script_.unsupported = L"C:\\";
    ASSERT_TRUE(start(volumes_));
    ASSERT_EQ(requester_->volumeCount(), 1);
    EXPECT_EQ(requester_->volume(0).volumePath, volumes_[1]);
    script_.calls.clear();
    ASSERT_TRUE(start({L"C:\\"}));
    EXPECT_EQ(requester_->volumeCount(), 0);
    EXPECT_TRUE(requester_->endBackup());
    EXPECT_THAT(script_.calls, ElementsAre("complete", "begin 1", "complete"));
}

// The service has no answer for them.
TEST_F(Requester, VolumesThatAreAwayCostTheOthersNothing) {
    const std::wstring away = L"C:\\no such volume\\";
    script_.unknown = away;
    ASSERT_TRUE(start({away, L"C:\\"}));
    ASSERT_EQ(requester_->volumeCount(), 1);
    EXPECT_EQ(requester_->volume(0).volumePath, L"C:\\");
    EXPECT_TRUE(requester_->wasAway(away));
    EXPECT_FALSE(requester_->wasAway(L"C:\\"));
    EXPECT_TRUE(start({away}));
    EXPECT_EQ(requester_->volumeCount(), 0);
    script_.begin = E_FAIL;
    EXPECT_FALSE(start({away}));
}

TEST_F(Requester, TheEndEventBreaksOffAStartAndNotTheNextOne) {
    std::promise<void> waiting;
    script_.waiting = &waiting;
    auto started = std::async(std::launch::async, [&] {
        const bool worked = start(volumes_);
        return std::pair(worked, GetLastError());
    });
    waiting.get_future().wait();
    requester_->setEndEvent();
    EXPECT_EQ(started.get(), std::pair(false, DWORD{ERROR_CANCELLED}));

    script_.waiting = nullptr;
    EXPECT_TRUE(start(volumes_));
}

TEST_F(Requester, AnEndThatComesJustBeforeAStartIsNotLost) {
    requester_->setEndEvent();
    EXPECT_FAILS(ERROR_CANCELLED, start(volumes_));
    EXPECT_THAT(script_.calls, testing::IsEmpty());
    EXPECT_TRUE(start(volumes_));

    requester_->setEndEvent();  // during the backup: nothing is under way
    EXPECT_TRUE(requester_->endBackup());
    EXPECT_TRUE(start(volumes_));
}

// Wine has the service's library but not the service; only Windows shows more than this.
TEST(ShadowCopies, AMachineWithoutTheServiceGetsAnError) {
    VSSRequester requester;
    const std::vector<std::wstring> volumes = {L"C:\\"};
    if (requester.startBackup(&volumes, VSSRequester::copy, true)) {
        GTEST_SKIP() << "the service is there";
    }
    EXPECT_NE(GetLastError(), DWORD{ERROR_SUCCESS});
    EXPECT_STRNE(requester.step(), "");
    EXPECT_EQ(requester.volumeCount(), 0);
}

}  // namespace
}  // namespace dorvo
