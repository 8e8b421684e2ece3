#include "storage/package/sent_packages.h"
// The sockets' header comes before the others.
#include "base/text.h"
#include "storage/package/filehead.h"
#include "support/files.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using test::Bytes;
using test::bytes_of;
using test::from_hex;
using test::golden_time;

void set_golden(filehead& head) {
    EXPECT_TRUE(head.set(0x20, 28, golden_time + 10'000'000, golden_time + 20'000'000, golden_time,
                         bytes_of(test::golden_name),
                         static_cast<uint16_t>(test::golden_name.size())));
}

Bytes package(uint32_t attributes, const std::wstring& path, uint64_t size = 0) {
    const std::string name = toUtf8(path);
    file_package_head head{};
    head.package = {static_cast<uint32_t>(sizeof(head) + name.size()), file_package_magic};
    head.attributes = attributes;
    head.size = size;
    head.last_write = golden_time + 1;
    head.last_access = golden_time + 2;
    head.creation = golden_time + (uint64_t{3} << 32);
    head.name = {sizeof(head), static_cast<uint16_t>(name.size())};
    Bytes bytes(sizeof(head) + name.size());
    write_wire(bytes.data(), head);
    std::copy(name.begin(), name.end(), bytes.begin() + sizeof(head));
    return bytes;
}

DWORD attributes_of(const std::wstring& path) {
    return GetFileAttributesW(path.c_str());
}

TEST(FileHead, SendsTheExamplePlainAndAsOneChunk) {
    const Bytes golden = from_hex(test::golden_file);
    const std::string bytes(golden.begin(), golden.end());
    const auto send = [&](HTTP_Invoker_T& invoker) {
        Bytes buffer(sizeof(file_package_head));
        filehead head(buffer.data());
        set_golden(head);
        EXPECT_EQ(head.get_head_length(), 64u);
        EXPECT_TRUE(head.send_package(invoker));
    };
    EXPECT_EQ(test::sent_body(bytes.size(), send), bytes);
    EXPECT_EQ(test::sent_body(std::nullopt, send), "50\r\n" + bytes + "\r\n0\r\n\r\n");
}

TEST(FileHead, KeepsTheUuidsLastHalfBehindTheMagic) {
    const auto packages = test::sent_packages([](HTTP_Invoker_T& invoker) {
        for (int i = 0; i < 2; ++i) {
            filehead head;
            head.init();
            head.set(16, 0, 0, 0, 0, nullptr, 0);
            head.send_package(invoker);
            head.uninit();
        }
    });
    ASSERT_EQ(packages.size(), 2u);
    EXPECT_NE(packages[0], packages[1]);
    for (const Bytes& bytes : packages) {
        ASSERT_EQ(bytes.size(), 64u) << "no name, nothing but the head";
        const auto head = read_wire<file_package_head>(bytes.data());
        EXPECT_EQ(+head.package.magic, file_package_magic);
        EXPECT_EQ(head.identifier[0] & 0xC0, 0x80) << "where a UUID's second half has its variant";
        EXPECT_EQ(Bytes(bytes.begin() + 16, bytes.begin() + 24), Bytes(8));
        EXPECT_EQ(+head.name.offset, 64u);
    }
}

TEST(FileHead, SharesHeadAndNameWithItsCopies) {
    const auto packages = test::sent_packages([](HTTP_Invoker_T& invoker) {
        filehead head;
        head.init();
        set_golden(head);
        filehead copy(head);
        head.set(0x21, 0, 0, 0, 0, bytes_of("b"), 1);
        head.uninit();
        copy.send_package(invoker);
    });
    ASSERT_EQ(packages.size(), 1u);
    EXPECT_EQ(+read_wire<file_package_head>(packages[0].data()).attributes, 0x21u);
    EXPECT_EQ(packages[0].size(), 65u);
    EXPECT_EQ(packages[0].back(), 'C') << "the name buffer is still the copy's own";
}

TEST(FileHead, MakesADirectoryOfExactlySixteen) {
    const test::TemporaryFolder folder(L"dorvo-filehead");
    filehead head;
    Bytes directory = package(16, folder.path() + L"\\Zo\u00eb");
    Bytes file = package(0x31, folder.path() + L"\\file");
    for (int again = 0; again < 2; ++again) {
        EXPECT_TRUE(head.handle_head(directory));
    }
    EXPECT_EQ(attributes_of(folder.path() + L"\\Zo\u00eb"), 16u);
    EXPECT_TRUE(head.handle_head(file));
    EXPECT_TRUE(current_received_file().file);
    current_received_file().file.reset();
    EXPECT_EQ(attributes_of(folder.path() + L"\\file"), 0x21u) << "archived and read-only";
}

TEST(FileHead, OpensWhatIsThereAndForgetsTheFileBefore) {
    const test::TemporaryFolder folder(L"dorvo-filehead");
    const std::wstring path = folder.path() + L"\\file";
    test::storeFile(path, "longer than what comes");
    filehead head;
    Bytes file = package(0x20, path, 0x1122334455667788);
    ASSERT_TRUE(head.handle_head(file));
    received_file& current = current_received_file();
    EXPECT_EQ(current.attributes, 0x20u);
    EXPECT_EQ(current.size_high, 0x11223344u);
    EXPECT_EQ(current.size_low, 0x55667788u);
    const auto ticks = [](const FILETIME& time) {
        return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    };
    EXPECT_EQ(ticks(current.last_write), golden_time + 1);
    EXPECT_EQ(ticks(current.last_access), golden_time + 2);
    EXPECT_EQ(ticks(current.creation), golden_time + (uint64_t{3} << 32));

    const FileHandle before(current.file.get());  // nobody else will close it
    Bytes directory = package(16, folder.path() + L"\\directory");
    ASSERT_TRUE(head.handle_head(directory));
    EXPECT_FALSE(current.file);
    EXPECT_EQ(current.attributes + current.size_low + current.last_write.dwLowDateTime, 0u);
    const FileHandle shared(CreateFileW(path.c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                        0, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_FALSE(shared) << "still open, and shared with nobody";
}

TEST(FileHead, TouchesNothingForAPackageThatContradictsItself) {
    const test::LogCapture capture;
    const test::TemporaryFolder folder(L"dorvo-filehead");
    const std::wstring path = folder.path() + L"\\file";
    Bytes earlier = package(0x20, folder.path() + L"\\earlier");
    filehead head;
    ASSERT_TRUE(head.handle_head(earlier));
    HANDLE current = current_received_file().file.get();
    const auto refused = [&](auto&& handle) {
        SetLastError(0);
        return !handle() && GetLastError() == ERROR_INVALID_DATA &&
               current_received_file().file.get() == current &&
               attributes_of(path) == INVALID_FILE_ATTRIBUTES;
    };
    Bytes whole = package(0x20, path);
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_TRUE(refused([&] { return head.handle_head(std::span(whole.data(), size)); }))
            << size;
    }
    // Without a length from outside the package's own is what it is held to.
    const std::pair<size_t, uint16_t> changes[] = {{0, 4}, {0, 63}, {4, 0}, {60, 66}, {62, 0xFFFF}};
    for (const auto& [at, value] : changes) {
        Bytes changed = whole;
        write_wire(changed.data() + at, value);
        EXPECT_TRUE(refused([&] { return head.handle_head(changed.data()); })) << at;
    }
    EXPECT_EQ(test::errors_in(capture), whole.size() + std::size(changes));
    EXPECT_TRUE(head.handle_head(whole.data()));
    current_received_file().file.reset();
    CloseHandle(current);
}

}  // namespace
}  // namespace dorvo
