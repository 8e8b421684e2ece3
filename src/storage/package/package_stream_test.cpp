// A whole tree through a real connection, plain and chunked, and back into files.
#include "storage/package/sent_packages.h"
// The sockets' header comes before the others.
#include <random>

#include "base/local_time.h"
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

// A folder, or a file of one content.
struct Entry {
    std::wstring path;  // below the root; parents come first
    DWORD attributes;
    std::string content;
    bool directory() const { return attributes == FILE_ATTRIBUTE_DIRECTORY; }
};

std::vector<Entry> make_tree() {
    constexpr DWORD folder = FILE_ATTRIBUTE_DIRECTORY;
    constexpr DWORD file = FILE_ATTRIBUTE_ARCHIVE;
    return {
        {L"\\a", folder, {}},
        {L"\\a\\Zo\u00eb", folder, {}},
        {L"\\empty", folder, {}},
        {L"\\nothing", file, {}},
        {L"\\one", file, "1"},
        {L"\\a\\block", file, "0123456789abcdef"},
        {L"\\a\\piece", file, bytes_from(1, piece_size, 256)},
        {L"\\a\\piece and a byte", file, bytes_from(2, piece_size + 1, 256)},
        {L"\\a\\Zo\u00eb\\\u65e5\u672c.txt", file, bytes_from(3, 3 * piece_size + 100, 4)},
        {L"\\a\\Zo\u00eb\\zeros", file, std::string(2 * piece_size, '\0')},
        {L"\\read-only", file | FILE_ATTRIBUTE_READONLY, "do not touch"},
    };
}

constexpr uint64_t written_time = 0x01C0'1234'0123'4567;

void send_file_head(HTTP_Invoker_T& invoker, const std::wstring& path, const Entry& entry) {
    const std::string name = toUtf8(path);
    filehead head;
    head.init();
    head.set(entry.attributes, entry.content.size(), written_time, written_time + 10'000'000,
             written_time, bytes_of(name), static_cast<uint16_t>(name.size()));
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
void expect_received(const std::wstring& root, const std::vector<Entry>& tree) {
    for (const Entry& entry : tree) {
        SCOPED_TRACE(toUtf8(entry.path));
        const WIN32_FILE_ATTRIBUTE_DATA got = test::dataOf(root + entry.path);
        EXPECT_EQ(got.dwFileAttributes, entry.attributes);
        if (!entry.directory()) {
            EXPECT_TRUE(test::fileContent(root + entry.path) == entry.content);
            EXPECT_EQ(toTicks(got.ftLastWriteTime), written_time);
            EXPECT_EQ(toTicks(got.ftLastAccessTime), written_time + 10'000'000);
        }
    }
}

TEST(PackageStream, BringsAWholeTreeAcross) {
    datahead::set_key(bytes_of("an AES key of thirty-two letters"), 32);
    const std::vector<Entry> tree = make_tree();
    size_t length = 0;  // without compression
    for (const bool chunked : {true, false}) {
        SCOPED_TRACE(chunked ? "chunked" : "plain");
        const test::TemporaryFolder to(L"dorvo-packages-to");
        const auto send = [&](bool compress) {
            return [&, compress](HTTP_Invoker_T& invoker) {
                for (const Entry& entry : tree) {
                    send_file_head(invoker, to.path() + entry.path, entry);
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
        expect_received(to.path(), tree);
    }
}

}  // namespace
}  // namespace dorvo
