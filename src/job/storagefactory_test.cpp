// Jobs of both kinds on what the factory makes of a folder.
#include "job/storagefactory.h"

#include "base/error_codes.h"
#include "base/machine_name.h"
#include "job/scripted_job.h"
#include "settings/keymanager.h"
#include "settings/options.h"
#include "settings/recoveryfile.h"
#include "storage/userkey.h"

namespace dorvo {
namespace {

using namespace test;

class StorageFactoryTest : public ScriptedJobTest {
protected:
    static std::wstring location() { return dataPath(L"\\disk"); }

    static void importKey(const std::string& user) {
        const std::wstring file = dataPath(L"\\recovery file");
        write(file, sealRecoveryFile(user, std::string(recoveryKeySize, 'k'), "sesame",
                                     std::string(recoverySaltSize, 's'),
                                     std::string(recoveryNonceSize, 'n'), {2, 8, 1}));
        std::string owner;
        ASSERT_TRUE(
            singleton<KeyManagerImpl>().importKey(user.c_str(), "sesame", file.c_str(), owner));
    }

    static std::unique_ptr<Scripted<BackupJob>> makeBackup(Script& script,
                                                           const std::string& user = "alice") {
        createDirectories(dataPath(L"\\job\\b"));
        auto definition = std::make_unique<BackupJobDefinition>("b", L"backup", user);
        definition->setSource({sources()});
        definition->useLocalStorage(location());
        BackupJob::Services services;
        services.snapshotsEnabled = [] { return false; };
        services.waitForServer = [] { return false; };
        services.tellDrops = [] {};
        return std::make_unique<Scripted<BackupJob>>(script, std::move(definition),
                                                     std::move(services));
    }
    static std::unique_ptr<Scripted<RestoreJob>> makeRestore(Script& script,
                                                             const std::string& instance,
                                                             const std::string& user = "alice") {
        createDirectories(dataPath(L"\\job\\r"));
        std::string machine;
        EXPECT_TRUE(machineName(machine));
        auto definition = std::make_unique<RestoreJobDefinition>("r", L"restore", user);
        definition->setOrigin(machine, "b", instance);
        definition->setTarget(target(), sources());
        definition->useLocalStorage(location());
        return std::make_unique<Scripted<RestoreJob>>(
            script, std::move(definition), TransferServices{[] { return false; }, {}, {}});
    }
};

// As on a machine that made a key of its own before the recovery file came to it.
TEST_F(StorageFactoryTest, EachBackupGetsTheKeyThatItWasMadeWith) {
    createDirectories(location());
    write(sources() + L"\\a", "content");
    importKey("there");
    auto backup = makeBackup(script_, "there");
    run(*backup, completed);

    UserKey own;
    ASSERT_TRUE(ownKey("here", own));
    auto restore = makeRestore(script_, backup->instanceText(), "here");
    run(*restore);
    EXPECT_EQ(restore->record().endError, errorKeyForeign);
    importKey("here");
    run(*restore, completed);
    EXPECT_EQ(contentOf(target() + L"\\a"), "content");

    backup.reset();
    rm_rf(dataPath(L"\\job\\b"), true);
    backup = makeBackup(script_, "here");
    write(sources() + L"\\b", "more");
    run(*backup, completed);
    EXPECT_EQ(backup->record().fileCount, 1u) << "one was carried over, and can be read with it";
}

// Another server does not know the run, and its no would be the last word.
TEST_F(StorageFactoryTest, ARunIsDroppedByNoServerButItsOwn) {
    ASSERT_TRUE(singleton<OptionsImpl>().setServerInfo("", "127.0.0.1", 1));  // nobody is there
    const KernelHandle stop(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const BackupJobDefinition job("b", L"backup", "alice");
    for (const auto& [server, asked] :
         {std::pair{"", true}, {"127.0.0.1:1", true}, {"127.0.0.1:2", false}}) {
        SCOPED_TRACE(server);
        const PendingDrop drop{"11111111-1111-1111-1111-111111111111", L"", server};
        EXPECT_FALSE(dropBackupRun(job, drop, stop.get()));
        EXPECT_EQ(GetLastError() != errorOtherServer, asked);
    }
}

}  // namespace
}  // namespace dorvo
