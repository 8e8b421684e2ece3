#include "settings/keymanager.h"

#include <array>
#include <thread>
#include <vector>

#include "base/error_codes.h"
#include "base/handle.h"
#include "base/md5.h"
#include "json_spirit/json_spirit.h"
#include "settings/encodedtext.h"
#include "settings/globalkey.h"
#include "settings/recoveryfile.h"
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

    // The bytes 0 to 31.
    static constexpr const wchar_t* countingKey = L"AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=";
    const std::wstring path_ = dataPath(L"\\keys");
};

TEST_F(Keys, GlobalKeyIsTheRegistrysValue) {
    Record record{};
    ASSERT_TRUE(globalKey(record));
    for (unsigned i = 0; i < record.size(); ++i) {
        EXPECT_EQ(record[i], i);
    }
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
        EXPECT_FALSE(globalKey(record));
        EXPECT_FALSE(globalKey(record));
        EXPECT_FALSE(KeyManagerImpl::encryptStringToTextFile(path_.c_str(), "{}"));
        EXPECT_EQ(GetFileAttributesW(path_.c_str()), INVALID_FILE_ATTRIBUTES);
    }
}

TEST_F(Keys, EncodedFileIsOneLineOfBase64) {
    // Made with the openssl command line; empty: whatever it is.
    const std::pair<std::string, std::string> rows[] = {
        {"{\n    \"S1\" : \"alice\"\n}", "foD5P74fVjw6ak4RYOqAjRiZXfP0u9/f8Xu6KNrSiOY="},
        {std::string(32, '0'), "W+h+LltEfJRLIcmvd1bA2GJbO9LQPIAXfLAB16q/25I+lOWi8F+8sj6FONDyMxTt"},
        {"", ""},
        {std::string(15, 'x'), ""},
        {std::string(16, 'x'), ""},
        {std::string(100'000, 'x'), ""},
    };
    for (const auto& [plain, file] : rows) {
        ASSERT_TRUE(KeyManagerImpl::encryptStringToTextFile(path_.c_str(), plain));
        EXPECT_TRUE(file.empty() || contentOf(path_) == file);
        std::string text = "x";
        EXPECT_TRUE(KeyManagerImpl::decryptStringFromTextFile(path_.c_str(), text));
        EXPECT_EQ(text, plain);
    }
}

TEST_F(Keys, DamagedEncodedFileFails) {
    ASSERT_TRUE(KeyManagerImpl::encryptStringToTextFile(path_.c_str(), std::string(40, 'x')));
    const std::string whole = contentOf(path_);
    std::string text = "kept";
    for (size_t length = 0; length < whole.size(); ++length) {
        write(path_, whole.substr(0, length));
        EXPECT_FALSE(KeyManagerImpl::decryptStringFromTextFile(path_.c_str(), text)) << length;
    }
    for (const char* other : {"{\"S1\":\"alice\"}", "AAAA\nAAAA", "====", "A=AA", "é"}) {
        write(path_, other);
        EXPECT_FALSE(KeyManagerImpl::decryptStringFromTextFile(path_.c_str(), text)) << other;
    }
    write(path_, whole);
    setMachineKey(nullptr);  // as on another machine
    EXPECT_FALSE(KeyManagerImpl::decryptStringFromTextFile(path_.c_str(), text));
    DeleteFileW(path_.c_str());
    createDirectories(path_);
    EXPECT_FALSE(KeyManagerImpl::encryptStringToTextFile(path_.c_str(), "{}"));
    EXPECT_FALSE(KeyManagerImpl::decryptStringFromTextFile(path_.c_str(), text));
    EXPECT_EQ(text, "kept");
}

TEST_F(Keys, UsersKeyIsMadeOnceAndKept) {
    Record alice{};
    Record bob{};
    std::string md5;
    {
        KeyManagerImpl keys;
        EXPECT_FAILS(ERROR_NOT_FOUND, keys.keyChecksum("alice", md5));
        EXPECT_FALSE(find(keys, nullptr, alice) || find(keys, "", alice));
        EXPECT_FAILS(ERROR_INVALID_PARAMETER,
                     keys.findKey("alice", alice.data(), 32, alice.data(), 16));
        EXPECT_EQ(GetFileAttributesW(path_.c_str()), INVALID_FILE_ATTRIBUTES);
        alice = keyOf(keys, "alice");
        bob = keyOf(keys, "bob");
    }
    EXPECT_NE(alice, bob);
    KeyManagerImpl keys;
    EXPECT_EQ(keyOf(keys, "alice"), alice);
    ASSERT_TRUE(keys.keyChecksum("alice", md5));
    EXPECT_EQ(md5, checksum(alice));

    std::string text;
    ASSERT_TRUE(KeyManagerImpl::decryptStringFromTextFile(path_.c_str(), text));
    json_spirit::Value stored;
    json_spirit::read_or_throw(text, stored);
    EXPECT_EQ(decodeBase64(stored.get_obj().at("bob").get_str()),
              std::string(bob.begin(), bob.end()));
}

// A key that is made over an unreadable one would lose every backup of its user.
TEST_F(Keys, NothingIsMadeOverAFileThatCannotBeRead) {
    ASSERT_TRUE(KeyManagerImpl::encryptStringToTextFile(path_.c_str(), "[]"));
    const std::string array = contentOf(path_);
    for (const std::string& damaged : {std::string(), std::string("{}"), array}) {
        write(path_, damaged);
        KeyManagerImpl keys;
        Record record{};
        EXPECT_FAILS(ERROR_DECRYPTION_FAILED, find(keys, "alice", record));
        EXPECT_EQ(contentOf(path_), damaged);
    }
}

TEST_F(Keys, DamagedEntryIsNotReplacedAndOthersWork) {
    ASSERT_TRUE(KeyManagerImpl::encryptStringToTextFile(
        path_.c_str(), R"({"alice":"AAEC","bob":7,"carol":"not Base64"})"));
    KeyManagerImpl keys;
    Record record{};
    std::string md5;
    for (const char* user : {"alice", "bob", "carol"}) {
        EXPECT_FALSE(find(keys, user, record)) << user;
        EXPECT_FALSE(keys.keyChecksum(user, md5)) << user;
    }
    EXPECT_TRUE(find(keys, "dave", record));
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
    createDirectories(path_ + L".new");
    Record bob{};
    EXPECT_FALSE(find(keys, "bob", bob) || find(keys, "bob", bob));
    EXPECT_EQ(contentOf(path_), before);
    RemoveDirectoryW((path_ + L".new").c_str());
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

TEST_F(Keys, GoToAnotherMachineInARecoveryFile) {
    const std::wstring folder = dataPath(L"\\taken");
    const std::wstring file = folder + L"\\key";
    createDirectories(folder);
    Record alice{};
    {
        KeyManagerImpl keys;
        EXPECT_FAILS(ERROR_NOT_FOUND, keys.exportKey("alice", "open sesame", file.c_str()));
        alice = keyOf(keys, "alice");
        for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
            EXPECT_FALSE(keys.exportKey(nothing, "open sesame", file.c_str()));
            EXPECT_FAILS(ERROR_INVALID_PARAMETER, keys.exportKey("alice", nothing, file.c_str()));
        }
        EXPECT_FAILS(ERROR_PATH_NOT_FOUND,
                     keys.exportKey("alice", "open sesame", (folder + L"\\no\\key").c_str()));
        ASSERT_TRUE(keys.exportKey("alice", "open sesame", file.c_str()));
        std::wstring directory;
        ASSERT_TRUE(dataDirectory(directory));
        for (const std::wstring& hidden : {file, directory}) {
            const std::wstring access = accessTo(hidden);
            EXPECT_TRUE(access.starts_with(L"D:"));
            for (const wchar_t* everybody : {L";;;WD)", L";;;BU)", L";;;AU)"}) {
                EXPECT_EQ(access.find(everybody), std::wstring::npos) << toUtf8(access);
            }
        }
        const std::string written = contentOf(file);
        EXPECT_FAILS(ERROR_FILE_EXISTS, keys.exportKey("alice", "another", file.c_str()));
        EXPECT_EQ(contentOf(file), written);
    }
    DeleteFileW(path_.c_str());
    setMachineKey(nullptr);
    const std::wstring damaged = folder + L"\\damaged";
    write(damaged, contentOf(file).substr(1));
    const std::wstring large = folder + L"\\large";
    write(large, std::string(20000, ' '));
    struct Row {
        const char* user;
        const char* passphrase;
        std::wstring file;
        uint32_t error;
        const char* owner;
    };
    const Row rows[] = {
        {"alice", "open sesam", file, errorWrongPassphrase, ""},
        {"alice", "", file, ERROR_INVALID_PARAMETER, ""},
        {"bob", "open sesame", file, errorRecoveryFileOfOther, "alice"},
        {"alice", "open sesame", damaged, errorRecoveryFileDamaged, ""},
        {"alice", "open sesame", large, errorRecoveryFileDamaged, ""},
        {"alice", "open sesame", folder + L"\\none", ERROR_FILE_NOT_FOUND, ""},
    };
    KeyManagerImpl keys;
    std::string owner;
    for (const Row& row : rows) {
        SCOPED_TRACE(toUtf8(row.file) + row.passphrase);
        owner = "before";
        EXPECT_FAILS(row.error, keys.importKey(row.user, row.passphrase, row.file.c_str(), owner));
        EXPECT_EQ(owner, row.owner);
        EXPECT_EQ(GetFileAttributesW(path_.c_str()), INVALID_FILE_ATTRIBUTES);
    }
    for (const char* user : {static_cast<const char*>(nullptr), "alice"}) {  // the same again
        ASSERT_TRUE(keys.importKey(user, "open sesame", file.c_str(), owner));
        EXPECT_EQ(owner, "alice");
    }
    EXPECT_EQ(keyOf(KeyManagerImpl(), "alice"), alice);

    // Where the user has a key already it stays, and the imported one is found by its checksum.
    DeleteFileW(path_.c_str());
    Record imported{};
    std::string own;
    const std::string taken = checksum(alice);
    {
        KeyManagerImpl other;
        own = checksum(keyOf(other, "alice"));
        EXPECT_FAILS(ERROR_NOT_FOUND, findHeld(other, "alice", taken, imported));
        for (int again = 0; again < 2; ++again) {
            ASSERT_TRUE(other.importKey("alice", "open sesame", file.c_str(), owner));
            EXPECT_EQ(other.importedKeys("alice"), 1u);
        }
    }
    KeyManagerImpl both;
    std::string md5;
    ASSERT_TRUE(both.keyChecksum("alice", md5));
    EXPECT_EQ(md5, own);
    EXPECT_TRUE(findHeld(both, "alice", own, imported));
    EXPECT_NE(imported, alice);
    EXPECT_TRUE(findHeld(both, "alice", taken, imported));
    EXPECT_EQ(imported, alice);
    EXPECT_FALSE(findHeld(both, "ali", taken, imported));
    EXPECT_EQ(both.importedKeys("ali"), 0u);

    // All of them go to a machine that has none, or one of its own, and come all at once.
    const std::wstring all = folder + L"\\all";
    ASSERT_TRUE(both.exportKey("alice", "open sesame", all.c_str()));
    for (const size_t before : {size_t{0}, size_t{1}}) {
        DeleteFileW(path_.c_str());
        KeyManagerImpl third;
        const std::string first = before == 0 ? own : checksum(keyOf(third, "alice"));
        CreateDirectoryW((path_ + L".new").c_str(), nullptr);  // nothing can be saved
        EXPECT_FALSE(third.importKey("alice", "open sesame", all.c_str(), owner));
        EXPECT_FALSE(findHeld(third, "alice", own, imported) ||
                     findHeld(third, "alice", taken, imported));
        RemoveDirectoryW((path_ + L".new").c_str());
        for (int again = 0; again < 2; ++again) {
            ASSERT_TRUE(third.importKey("alice", "open sesame", all.c_str(), owner));
            EXPECT_EQ(third.importedKeys("alice"), 1u + before);
        }
        KeyManagerImpl later;
        EXPECT_TRUE(findHeld(later, "alice", own, imported));
        EXPECT_TRUE(findHeld(later, "alice", taken, imported));
        EXPECT_EQ(imported, alice);
        ASSERT_TRUE(later.keyChecksum("alice", md5));
        EXPECT_EQ(md5, first);
    }

    // More than a file holds are refused as they come, so that an export never leaves one out.
    KeyManagerImpl many;
    const auto sealed = [&](char first, size_t count) {
        std::string keys;
        for (size_t i = 0; i < count; ++i) {
            keys += std::string(31, first) + static_cast<char>(i);
        }
        write(folder + L"\\many",
              sealRecoveryFile("carol", keys, "open sesame", std::string(recoverySaltSize, 's'),
                               std::string(recoveryNonceSize, 'n'), {2, 2, 1}));
        return many.importKey("carol", "open sesame", (folder + L"\\many").c_str(), owner);
    };
    EXPECT_TRUE(sealed('a', userKeyLimit - 1));
    EXPECT_FAILS(ERROR_TOO_MANY_SECRETS, sealed('b', 2));
    EXPECT_EQ(many.importedKeys("carol"), userKeyLimit - 2);
    EXPECT_TRUE(sealed('b', 1));
    EXPECT_FALSE(sealed('c', 1));
    EXPECT_TRUE(many.exportKey("carol", "open sesame", (folder + L"\\64").c_str()));

    WIN32_FIND_DATAW found{};
    const FindHandle leftover(FindFirstFileW((folder + L"\\*.new").c_str(), &found));
    EXPECT_FALSE(leftover);
}

}  // namespace
}  // namespace dorvo
