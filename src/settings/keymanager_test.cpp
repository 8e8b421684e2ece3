#include "settings/keymanager.h"

#include <array>
#include <numeric>
#include <thread>
#include <vector>

#include "base/error_codes.h"
#include "base/handle.h"
#include "base/md5.h"
#include "settings/encodedtext.h"
#include "settings/globalkey.h"
#include "settings/recoveryfile.h"
#include "support/failing_open.h"
#include "support/fails_with.h"
#include "support/file_access.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using test::accessTo;
using Record = std::array<unsigned char, aesKeySize + aesIvSize>;

bool find(KeyManagerImpl& keys, const char* user, Record& record) {
    return keys.findKey(user, record.data(), aesKeySize, record.data() + aesKeySize, aesIvSize);
}

// That must be there, or be made.
Record keyOf(auto&& keys, const char* user) {
    Record record{};
    EXPECT_TRUE(find(keys, user, record));
    return record;
}

std::string checksum(const Record& record) {
    return Md5::of(std::as_bytes(std::span(record)));
}

bool findHeld(KeyManagerImpl& keys, const char* user, const std::string& md5, Record& record) {
    return keys.findHeldKey(user, md5.c_str(), record.data(), aesKeySize,
                            record.data() + aesKeySize, aesIvSize);
}

Record counting(unsigned char first) {
    Record record{};
    std::iota(record.begin(), record.end(), first);
    return record;
}

class Keys : public test::StoreTest {
protected:
    Keys() { setMachineKey(countingKey); }
    ~Keys() override { setMachineKey(nullptr); }

    // Null removes it.
    static void setMachineKey(const wchar_t* base64) {
        constexpr const wchar_t* key = L"SOFTWARE\\trevold\\Dorvo";
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, L"random");
        if (base64 != nullptr) {
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"random", REG_SZ, base64,
                            static_cast<DWORD>((wcslen(base64) + 1) * sizeof(wchar_t)));
        }
    }
    static bool globalKey(Record& record) {
        return KeyManagerImpl::globalKey(record.data(), aesKeySize, record.data() + aesKeySize,
                                         aesIvSize);
    }
    bool encrypt(const std::string& text) const {
        return KeyManagerImpl::encryptStringToTextFile(path_.c_str(), text);
    }
    bool decrypt(std::string& text) const {
        return KeyManagerImpl::decryptStringFromTextFile(path_.c_str(), text);
    }
    bool isThere() const { return GetFileAttributesW(path_.c_str()) != INVALID_FILE_ATTRIBUTES; }
    // While a folder stands in the way of the new file.
    void cannotSave(bool cannot) const {
        const std::wstring fresh = path_ + L".new";
        EXPECT_TRUE(cannot ? createDirectories(fresh) : RemoveDirectoryW(fresh.c_str()) != 0);
    }

    // Recovery files, all with one passphrase.
    std::wstring file(const wchar_t* name) const { return dataPath(L"\\") + name; }
    bool exportTo(KeyManagerImpl& keys, const wchar_t* name, const char* user = "alice") const {
        return keys.exportKey(user, phrase, file(name).c_str());
    }
    bool importFrom(KeyManagerImpl& keys, const wchar_t* name, const char* user = "alice") {
        return keys.importKey(user, phrase, file(name).c_str(), owner_);
    }
    static constexpr const char* phrase = "open sesame";
    std::string owner_;

    // The bytes 0 to 31.
    static constexpr const wchar_t* countingKey = L"AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=";
    const std::wstring path_ = dataPath(L"\\keys");
};

TEST_F(Keys, GlobalKeyIsTheRegistrysValue) {
    Record record{};
    ASSERT_TRUE(globalKey(record));
    EXPECT_EQ(record, counting(0));
    EXPECT_FALSE(KeyManagerImpl::globalKey(record.data(), 32, record.data(), 16));
    EXPECT_FALSE(KeyManagerImpl::globalKey(record.data(), 16, record.data(), 8));
}

TEST_F(Keys, GlobalKeyIsMadeOnceHoweverManyAsk) {
    setMachineKey(nullptr);
    std::vector<Record> records(4);
    {
        std::vector<std::jthread> threads;
        threads.reserve(records.size());
        for (Record& record : records) {
            threads.emplace_back([&] { EXPECT_TRUE(globalKey(record)); });
        }
    }
    EXPECT_NE(records[0], Record{});
    EXPECT_EQ(records, std::vector<Record>(4, records[0]));
}

TEST_F(Keys, GlobalKeyIsNotWaitedForWithoutEnd) {
    setMachineKey(nullptr);
    const KernelHandle makers(CreateMutexW(nullptr, FALSE, L"Global\\trevold.Dorvo.random"));
    ASSERT_EQ(WaitForSingleObject(makers.get(), INFINITE), WAIT_OBJECT_0);
    std::jthread([] {
        std::string bytes;
        EXPECT_FALSE(machineKey(bytes, 0));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_TIMEOUT});
    }).join();
    ReleaseMutex(makers.get());
    Record record{};
    EXPECT_TRUE(globalKey(record));
}

TEST_F(Keys, DamagedGlobalKeyIsNeverReplaced) {
    for (const wchar_t* damaged :
         {L"", L"AAEC", L"???", L"AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwd",
          L"a text that is far longer than the one that belongs here"}) {
        setMachineKey(damaged);
        Record record{};
        EXPECT_FALSE(globalKey(record) || globalKey(record) || encrypt("{}"));
        EXPECT_FALSE(isThere());
    }
}

TEST_F(Keys, EncodedFileIsOneLineOfBase64) {
    // Made with the openssl command line; empty: whatever it is.
    const std::pair<std::string, std::string> rows[] = {
        {"{\n    \"S1\" : \"alice\"\n}", "foD5P74fVjw6ak4RYOqAjRiZXfP0u9/f8Xu6KNrSiOY="},
        {std::string(32, '0'), "W+h+LltEfJRLIcmvd1bA2GJbO9LQPIAXfLAB16q/25I+lOWi8F+8sj6FONDyMxTt"},
        {"", ""},
        {std::string(15, 'x'), ""},
        {std::string(100'000, 'x'), ""},
    };
    for (const auto& [plain, file] : rows) {
        std::string text = "x";
        ASSERT_TRUE(encrypt(plain) && decrypt(text));
        EXPECT_TRUE(file.empty() || contentOf(path_) == file);
        EXPECT_EQ(text, plain);
    }
}

TEST_F(Keys, DamagedEncodedFileFails) {
    ASSERT_TRUE(encrypt(std::string(40, 'x')));
    const std::string whole = contentOf(path_);
    std::vector<std::string> damaged = {"{\"S1\":\"alice\"}", "AAAA\nAAAA", "====", "A=AA", "é"};
    for (size_t length = 0; length < whole.size(); ++length) {
        damaged.push_back(whole.substr(0, length));
    }
    std::string text = "kept";
    for (const std::string& content : damaged) {
        write(path_, content);
        EXPECT_FALSE(decrypt(text)) << content;
    }
    write(path_, whole);
    setMachineKey(nullptr);  // as on another machine
    EXPECT_FALSE(decrypt(text));
    DeleteFileW(path_.c_str());
    createDirectories(path_);
    EXPECT_FALSE(encrypt("{}") || decrypt(text));
    EXPECT_EQ(text, "kept");
}

TEST_F(Keys, UsersKeyIsMadeOnceAndKept) {
    Record alice{};
    std::string md5;
    {
        KeyManagerImpl keys;
        EXPECT_FAILS(ERROR_NOT_FOUND, keys.keyChecksum("alice", md5));
        EXPECT_FALSE(find(keys, nullptr, alice) || find(keys, "", alice));
        EXPECT_FAILS(ERROR_INVALID_PARAMETER,
                     keys.findKey("alice", alice.data(), 32, alice.data(), 16));
        EXPECT_FALSE(isThere());
        alice = keyOf(keys, "alice");
        EXPECT_NE(keyOf(keys, "bob"), alice);
    }
    KeyManagerImpl keys;
    EXPECT_EQ(keyOf(keys, "alice"), alice);
    ASSERT_TRUE(keys.keyChecksum("alice", md5));
    EXPECT_EQ(md5, checksum(alice));
}

// Of her own key and one that was imported beside it.
TEST_F(Keys, FileOfAnOlderVersionIsRead) {
    const std::string imported = "bf61e899560fabde2f6d76f405a6eb70";
    encrypt(R"({"alice":"AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=",
                "alice\n)" +
            imported + R"(":"ICEiIyQlJicoKSorLC0uLzAxMjM0NTY3ODk6Ozw9Pj8="})");
    KeyManagerImpl keys;
    Record held{};
    EXPECT_EQ(keyOf(keys, "alice"), counting(0));
    EXPECT_EQ(keys.importedKeys("alice"), 1u);
    EXPECT_TRUE(findHeld(keys, "alice", imported, held));
    EXPECT_EQ(held, counting(32));
}

// A key that is made over an unreadable one would lose every backup of its user.
TEST_F(Keys, NothingIsMadeOverWhatCannotBeRead) {
    ASSERT_TRUE(encrypt("[]"));
    const std::string array = contentOf(path_);
    Record record{};
    for (const std::string& damaged : {std::string(), std::string("{}"), array}) {
        write(path_, damaged);
        KeyManagerImpl keys;
        EXPECT_FAILS(ERROR_DECRYPTION_FAILED, find(keys, "alice", record));
        EXPECT_EQ(contentOf(path_), damaged);
    }
    ASSERT_TRUE(encrypt(R"({"alice":"AAEC","bob":7,"carol":"not Base64"})"));
    KeyManagerImpl keys;
    std::string md5;
    for (const char* user : {"alice", "bob", "carol"}) {
        EXPECT_FALSE(find(keys, user, record) || keys.keyChecksum(user, md5)) << user;
    }
    EXPECT_TRUE(find(keys, "dave", record)) << "others work";
}

TEST_F(Keys, FileThatWasHeldByAnotherIsReadLater) {
    const Record alice = keyOf(KeyManagerImpl(), "alice");
    FileHandle held(
        CreateFileW(path_.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(held);
    KeyManagerImpl keys;
    Record record{};
    EXPECT_FALSE(find(keys, "alice", record));
    held.reset();
    EXPECT_EQ(keyOf(keys, "alice"), alice);
}

TEST_F(Keys, KeyThatCannotBeSavedIsNotHandedOut) {
    KeyManagerImpl keys;
    keyOf(keys, "alice");
    const std::string before = contentOf(path_);
    cannotSave(true);
    Record bob{};
    EXPECT_FALSE(find(keys, "bob", bob) || find(keys, "bob", bob));
    cannotSave(false);
    {
        const test::HalfWrites full;
        EXPECT_FALSE(find(keys, "bob", bob));
    }
    EXPECT_EQ(contentOf(path_), before);
    keyOf(keys, "bob");
}

// As a program that runs while another one imports.
TEST_F(Keys, WhatAnotherProgramHasSavedIsFoundBeforeAKeyIsMade) {
    KeyManagerImpl resident;
    keyOf(resident, "bob");
    const Record alice = keyOf(KeyManagerImpl(), "alice");
    EXPECT_EQ(keyOf(resident, "alice"), alice);
    write(path_, "damaged");
    Record carol{};
    EXPECT_FALSE(find(resident, "carol", carol));
    EXPECT_EQ(contentOf(path_), "damaged");
}

TEST_F(Keys, AreExportedForTheirOwnerAloneAndOverNothing) {
    KeyManagerImpl keys;
    EXPECT_FAILS(ERROR_NOT_FOUND, exportTo(keys, L"key"));
    keyOf(keys, "alice");
    for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, exportTo(keys, L"key", nothing));
        EXPECT_FAILS(ERROR_INVALID_PARAMETER,
                     keys.exportKey("alice", nothing, file(L"key").c_str()));
    }
    EXPECT_FAILS(ERROR_PATH_NOT_FOUND, exportTo(keys, L"no\\key"));
    {
        const test::HalfWrites full;
        EXPECT_FAILS(ERROR_DISK_FULL, exportTo(keys, L"key"));
    }
    ASSERT_TRUE(exportTo(keys, L"key"));
    for (const std::wstring& hidden : {file(L"key"), dataPath(L"")}) {
        const std::wstring access = accessTo(hidden);
        EXPECT_TRUE(access.starts_with(L"D:"));
        for (const wchar_t* everybody : {L";;;WD)", L";;;BU)", L";;;AU)"}) {
            EXPECT_EQ(access.find(everybody), std::wstring::npos) << toUtf8(access);
        }
    }
    const std::string written = contentOf(file(L"key"));
    EXPECT_FAILS(ERROR_FILE_EXISTS, exportTo(keys, L"key"));
    EXPECT_EQ(contentOf(file(L"key")), written);
    WIN32_FIND_DATAW found{};
    EXPECT_FALSE(FindHandle(FindFirstFileW(file(L"*.new").c_str(), &found)));
}

TEST_F(Keys, AreImportedWholeOrNotAtAll) {
    Record alice{};
    {
        KeyManagerImpl keys;
        alice = keyOf(keys, "alice");
        ASSERT_TRUE(exportTo(keys, L"key"));
    }
    DeleteFileW(path_.c_str());
    setMachineKey(nullptr);
    write(file(L"damaged"), contentOf(file(L"key")).substr(1));
    write(file(L"large"), std::string(20000, ' '));
    const struct {
        const char* user;
        const char* passphrase;
        const wchar_t* file;
        uint32_t error;
        const char* owner;
    } rows[] = {
        {"alice", "open sesam", L"key", errorWrongPassphrase, ""},
        {"alice", "", L"key", ERROR_INVALID_PARAMETER, ""},
        {"bob", phrase, L"key", errorRecoveryFileOfOther, "alice"},
        {"alice", phrase, L"damaged", errorRecoveryFileDamaged, ""},
        {"alice", phrase, L"large", errorRecoveryFileDamaged, ""},
        {"alice", phrase, L"none", ERROR_FILE_NOT_FOUND, ""},
    };
    KeyManagerImpl keys;
    for (const auto& row : rows) {
        SCOPED_TRACE(toUtf8(row.file) + row.passphrase);
        owner_ = "before";
        EXPECT_FAILS(row.error,
                     keys.importKey(row.user, row.passphrase, file(row.file).c_str(), owner_));
        EXPECT_EQ(owner_, row.owner);
        EXPECT_FALSE(isThere());
    }
    for (const char* user : {static_cast<const char*>(nullptr), "alice"}) {  // the same again
        ASSERT_TRUE(importFrom(keys, L"key", user));
        EXPECT_EQ(owner_, "alice");
    }
    EXPECT_EQ(keyOf(KeyManagerImpl(), "alice"), alice);
}

TEST_F(Keys, ThatAreImportedStandBesideTheOwnOneAndGoOnTogether) {
    std::string taken;
    {
        KeyManagerImpl keys;
        taken = checksum(keyOf(keys, "alice"));
        ASSERT_TRUE(exportTo(keys, L"key"));
    }
    DeleteFileW(path_.c_str());
    Record held{};
    std::string own;
    KeyManagerImpl resident;
    {
        KeyManagerImpl other;
        own = checksum(keyOf(other, "alice"));
        EXPECT_EQ(checksum(keyOf(resident, "alice")), own);
        EXPECT_FAILS(ERROR_NOT_FOUND, findHeld(other, "alice", taken, held));
        for (int again = 0; again < 2; ++again) {
            ASSERT_TRUE(importFrom(other, L"key"));
            EXPECT_EQ(other.importedKeys("alice"), 1u);
        }
    }
    // All of them go to a machine that has none, or one of its own, and come all at once.
    // Whoever has read the file before the other one imported it takes both.
    ASSERT_TRUE(exportTo(resident, L"all"));
    EXPECT_FALSE(findHeld(resident, "ali", taken, held));
    EXPECT_EQ(resident.importedKeys("ali"), 0u);
    for (const size_t before : {size_t{0}, size_t{1}}) {
        DeleteFileW(path_.c_str());
        KeyManagerImpl third;
        const std::string first = before == 0 ? own : checksum(keyOf(third, "alice"));
        cannotSave(true);
        EXPECT_FALSE(importFrom(third, L"all"));
        EXPECT_FALSE(findHeld(third, "alice", own, held) || findHeld(third, "alice", taken, held));
        cannotSave(false);
        for (int again = 0; again < 2; ++again) {
            ASSERT_TRUE(importFrom(third, L"all"));
            EXPECT_EQ(third.importedKeys("alice"), 1u + before);
        }
        KeyManagerImpl later;
        for (const std::string& md5 : {own, taken}) {
            EXPECT_TRUE(findHeld(later, "alice", md5, held));
            EXPECT_EQ(checksum(held), md5);
        }
        EXPECT_EQ(checksum(keyOf(later, "alice")), first);
    }
}

// More than a file holds are refused as they come, so that an export never leaves one out.
TEST_F(Keys, AreNoMoreThanAFileHolds) {
    KeyManagerImpl many;
    const auto sealed = [&](char first, size_t count) {
        std::string keys;
        for (size_t i = 0; i < count; ++i) {
            keys += std::string(31, first) + static_cast<char>(i);
        }
        write(file(L"many"),
              sealRecoveryFile("alice", keys, phrase, std::string(recoverySaltSize, 's'),
                               std::string(recoveryNonceSize, 'n'), {2, 2, 1}));
        return importFrom(many, L"many");
    };
    EXPECT_TRUE(sealed('a', userKeyLimit - 1));
    EXPECT_FAILS(ERROR_TOO_MANY_SECRETS, sealed('b', 2));
    EXPECT_EQ(many.importedKeys("alice"), userKeyLimit - 2);
    EXPECT_TRUE(sealed('b', 1));
    EXPECT_FALSE(sealed('c', 1));
    EXPECT_TRUE(exportTo(many, L"64"));
}

}  // namespace
}  // namespace dorvo
