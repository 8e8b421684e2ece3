// A whole tree through a real connection, plain and chunked, and back into files.
#include "storage/package/sent_packages.h"
// The sockets' header comes before the others.
#include <map>
#include <random>

#include "base/text.h"
#include "storage/package/datahead.h"
#include "storage/package/filehead.h"
#include "support/files.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using test::Bytes;
using test::bytes_of;

constexpr size_t piece_size = 65536;

std::string bytes_from(uint32_t seed, size_t size, uint32_t kinds) {
    std::mt19937 random(seed);
    std::string text(size, '\0');
    for (char& c : text) {
        c = static_cast<char>(random() % kinds);
    }
    return text;
}

struct Entry {
    std::string content;
    WIN32_FILE_ATTRIBUTE_DATA data{};
    bool directory() const { return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
};
using Tree = std::map<std::wstring, Entry>;  // by path below the root; parents come first

void read_tree(const std::wstring& root, const std::wstring& below, Tree& tree) {
    WIN32_FIND_DATAW found;
    const FindHandle find(FindFirstFileW((root + below + L"\\*").c_str(), &found));
    ASSERT_TRUE(find);
    do {
        const std::wstring name = found.cFileName;
        if (name == L"." || name == L"..") {
            continue;
        }
        const std::wstring path = below + L"\\" + name;
        Entry& entry = tree[path];
        ASSERT_TRUE(
            GetFileAttributesExW((root + path).c_str(), GetFileExInfoStandard, &entry.data));
        if (entry.directory()) {
            read_tree(root, path, tree);
        } else {
            entry.content = test::fileContent(root + path);
        }
    } while (FindNextFileW(find.get(), &found) != 0);
}

void make_tree(const std::wstring& root) {
    for (const wchar_t* folder : {L"\\a", L"\\a\\Zo\u00eb", L"\\empty"}) {
        ASSERT_TRUE(CreateDirectoryW((root + folder).c_str(), nullptr));
    }
    const std::pair<const wchar_t*, std::string> files[] = {
        {L"\\nothing", ""},
        {L"\\one", "1"},
        {L"\\a\\block", "0123456789abcdef"},
        {L"\\a\\piece", bytes_from(1, piece_size, 256)},
        {L"\\a\\piece and a byte", bytes_from(2, piece_size + 1, 256)},
        {L"\\a\\Zo\u00eb\\\u65e5\u672c.txt", bytes_from(3, 3 * piece_size + 100, 4)},
        {L"\\a\\Zo\u00eb\\zeros", std::string(2 * piece_size, '\0')},
        {L"\\read-only", "do not touch"},
    };
    LONG day = 0;
    for (const auto& [path, content] : files) {
        test::storeFile(root + path, content);
        const FileHandle file(CreateFileW((root + path).c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
        const FILETIME written{0x1234567, static_cast<DWORD>(0x01C00000 + 201 * ++day)};
        const FILETIME accessed{0x7654321, static_cast<DWORD>(0x01D00000 + 201 * day)};
        ASSERT_TRUE(SetFileTime(file.get(), nullptr, &accessed, &written));
    }
    ASSERT_TRUE(SetFileAttributesW((root + L"\\read-only").c_str(), FILE_ATTRIBUTE_READONLY));
}

uint64_t joined(DWORD high, DWORD low) {
    return uint64_t{high} << 32 | low;
}

uint64_t ticks(const FILETIME& time) {
    return joined(time.dwHighDateTime, time.dwLowDateTime);
}

void send_file_head(HTTP_Invoker_T& invoker, const std::wstring& path, const Entry& entry) {
    const std::string name = toUtf8(path);
    const WIN32_FILE_ATTRIBUTE_DATA& data = entry.data;
    filehead head;
    head.init();
    head.set(entry.directory() ? DWORD{FILE_ATTRIBUTE_DIRECTORY} : data.dwFileAttributes,
             joined(data.nFileSizeHigh, data.nFileSizeLow), ticks(data.ftLastWriteTime),
             ticks(data.ftLastAccessTime), ticks(data.ftCreationTime), bytes_of(name),
             static_cast<uint16_t>(name.size()));
    EXPECT_TRUE(head.send_package(invoker));
    head.uninit();
}

void send_content(HTTP_Invoker_T& invoker, const std::string& content, bool compress) {
    datahead head;
    head.init();
    size_t at = 0;
    uint8_t number = 0;
    do {
        const std::string piece = content.substr(at, piece_size);
        at += piece.size();
        const Bytes iv(16, ++number);
        head.reset();
        head.set_data_length(static_cast<uint32_t>(piece.size()));
        head.set_compress(compress ? 2 : 0, 6);
        // Nothing at all goes unencrypted: no receiver takes an encrypted nothing.
        head.set_encrypt(piece.empty() ? 0 : 1, 16, iv.data());
        head.set_data_content(bytes_of(piece), piece.size());
        if (at == content.size()) {
            head.set_data_end();
        }
        EXPECT_TRUE(head.send_package(invoker));
    } while (at < content.size());
    head.uninit();
}

void receive(std::vector<Bytes> packages) {
    filehead file;
    std::unique_ptr<datahead> data;
    for (Bytes& bytes : packages) {
        if (read_wire<package_prefix>(bytes.data()).magic == file_package_magic) {
            ASSERT_TRUE(file.handle_head(bytes));
            data = std::make_unique<datahead>();
        } else {
            ASSERT_TRUE(data->handle_head(bytes));
        }
    }
}

// Wine keeps no creation times: that they arrive is shown by FileHead's tests. Packages don't bring
// back the times of directories.
void expect_equal(Tree& received, const Tree& sent) {
    EXPECT_EQ(received.size(), sent.size());
    for (const auto& [path, entry] : sent) {
        SCOPED_TRACE(toUtf8(path));
        const Entry& got = received[path];
        EXPECT_EQ(got.data.dwFileAttributes, entry.data.dwFileAttributes);
        EXPECT_TRUE(got.content == entry.content);
        if (!entry.directory()) {
            EXPECT_EQ(ticks(got.data.ftLastWriteTime), ticks(entry.data.ftLastWriteTime));
            EXPECT_EQ(ticks(got.data.ftLastAccessTime), ticks(entry.data.ftLastAccessTime));
        }
    }
}

TEST(PackageStream, BringsAWholeTreeAcross) {
    datahead::set_key(bytes_of("an AES key of thirty-two letters"), 32);
    const test::TemporaryFolder from(L"dorvo-packages-from");
    ASSERT_NO_FATAL_FAILURE(make_tree(from.path()));
    Tree sent;
    ASSERT_NO_FATAL_FAILURE(read_tree(from.path(), {}, sent));
    size_t length = 0;  // without compression
    for (const bool chunked : {true, false}) {
        SCOPED_TRACE(chunked ? "chunked" : "plain");
        const test::TemporaryFolder to(L"dorvo-packages-to");
        const auto send = [&](bool compress) {
            return [&, compress](HTTP_Invoker_T& invoker) {
                for (const auto& [path, entry] : sent) {
                    send_file_head(invoker, to.path() + path, entry);
                    if (!entry.directory()) {
                        send_content(invoker, entry.content, compress);
                    }
                }
            };
        };
        std::string stream;
        if (chunked) {
            length = test::unchunked(test::sent_body(std::nullopt, send(false))).size();
            stream = test::unchunked(test::sent_body(std::nullopt, send(true)));
            EXPECT_LT(stream.size(), length) << "some of it compresses";
        } else {
            stream = test::sent_body(length, send(false));
        }
        ASSERT_NO_FATAL_FAILURE(receive(test::split(stream)));
        Tree received;
        ASSERT_NO_FATAL_FAILURE(read_tree(to.path(), {}, received));
        expect_equal(received, sent);
    }
}

}  // namespace
}  // namespace dorvo
