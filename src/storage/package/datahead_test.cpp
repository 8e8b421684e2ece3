#include "storage/package/sent_packages.h"
// The sockets' header comes before the others.
#include <random>

#include "storage/package/datahead.h"
#include "storage/package/filehead.h"
#include "support/fails_with.h"
#include "support/files.h"
#include "support/temporary_folder.h"

namespace dorvo {
namespace {

using test::Bytes;
using test::bytes_of;
using test::from_hex;

constexpr std::string_view iv = "\xf0\xf1\xf2\xf3\xf4\xf5\xf6\xf7\xf8\xf9\xfa\xfb\xfc\xfd\xfe\xff";

void set_key(std::string_view key = test::golden_key) {
    datahead::set_key(bytes_of(std::string(key).c_str()), static_cast<uint32_t>(key.size()));
}

std::string random_text(size_t size) {
    std::mt19937 random(1);
    std::string text(size, '\0');
    for (char& c : text) {
        c = static_cast<char>(random());
    }
    return text;
}

// Everything that a piece has but its checks.
void set_piece(datahead& head, const std::string& content, bool compress, uint16_t encryption = 1,
               uint16_t extra = 16) {
    head.reset();
    head.set_data_length(static_cast<uint32_t>(content.size()));
    head.set_compress(compress ? 2 : 0, 6);
    head.set_encrypt(encryption, extra, bytes_of(iv));
    head.set_data_content(bytes_of(content), content.size());
}

data_package_head head_of(const Bytes& package) {
    return read_wire<data_package_head>(package.data());
}

// The file being received, as its file package would leave it.
class DataHead : public testing::Test {
protected:
    DataHead() { set_key(); }
    ~DataHead() override { current_received_file() = {}; }

    void open() {
        received_file& current = current_received_file();
        current = {};
        current.last_write = current.last_access = current.creation = {0x12345678, 0x01DCD403};
        current.file.reset(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(current.file);
    }
    std::string written() {
        current_received_file().file.reset();
        return test::fileContent(path);
    }

    const test::TemporaryFolder folder{L"dorvo-datahead"};
    const std::wstring path = folder.path() + L"\\file";
};

TEST_F(DataHead, SendsAndReceivesTheExamples) {
    for (const bool compress : {false, true}) {
        const Bytes golden = from_hex(compress ? test::golden_compressed_data : test::golden_data);
        const std::string content(test::golden_content);
        const auto send = [&](HTTP_Invoker_T& invoker) {
            Bytes buffer(sizeof(data_package_head));
            datahead head(buffer.data());
            set_piece(head, content, compress);
            head.set_data_check(0x11223344);
            head.set_data_processed_check(0x55667788);
            head.set_data_check_algo(1);
            head.set_data_end();
            EXPECT_EQ(head.get_head_length(), 36u);
            EXPECT_TRUE(head.send_package(invoker));
        };
        const std::string bytes(golden.begin(), golden.end());
        EXPECT_EQ(test::sent_body(bytes.size(), send), bytes);
        EXPECT_EQ(test::sent_body(std::nullopt, send), "54\r\n" + bytes + "\r\n0\r\n\r\n");

        open();
        Bytes received = golden;
        datahead head;
        EXPECT_TRUE(head.handle_head(received));
        EXPECT_FALSE(current_received_file().file) << "closed by the last piece";
        WIN32_FILE_ATTRIBUTE_DATA data;
        ASSERT_TRUE(GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data));
        EXPECT_EQ(data.ftLastWriteTime.dwLowDateTime, 0x12345678u);
        EXPECT_EQ(written(), content);
    }
}

TEST_F(DataHead, TakesNoVectorThatNoReceiverTakes) {
    set_key(test::golden_key);
    const std::string longer(20, 'i');
    auto packages = test::sent_packages([&](HTTP_Invoker_T& invoker) {
        datahead head;
        head.init();
        EXPECT_TRUE(head.set_encrypt(1, 16, bytes_of(iv)));
        EXPECT_FALSE(head.set_encrypt(2, 17, bytes_of(longer)));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
        head.set_data_content(bytes_of(iv), 4);
        EXPECT_TRUE(head.send_package(invoker));
        head.uninit();
    });
    ASSERT_EQ(packages.size(), 1u);
    EXPECT_EQ(packages[0].size(), 36u + 16 + 16);
    EXPECT_EQ(+head_of(packages[0]).encryption, 1);
}

TEST_F(DataHead, EncodesAsItsRulesSay) {
    struct Row {
        const char* what;
        std::string content;
        bool compress;
        uint16_t encryption;
        std::string key;
        size_t processed;
        uint16_t compression;  // in the head that is sent
        bool received;
        uint16_t extra = 16;
    };
    const std::string random = random_text(65536);
    const std::string zeros(200'000, '\0');
    const std::string twenty(20, 'k');
    const Row rows[] = {
        {"a whole block gains another", "0123456789abcdef", false, 1, {}, 32, 0, true},
        {"15 bytes are padded to a block", "0123456789abcde", false, 2, {}, 16, 0, true},
        {"nothing becomes a block that no receiver takes", "", false, 3, {}, 16, 0, false},
        {"no zlib stream for nothing", "", true, 1, {}, 16, 2, false},
        {"a longer key", "abc", false, 1, std::string(24, 'k'), 16, 0, true},
        {"the longest key", "abc", false, 1, std::string(32, 'k'), 16, 0, true},
        {"64 KiB fit in place", random, false, 1, {}, 65552, 0, true},
        {"too long when compressed: encrypted only", random, true, 1, {}, 65552, 0, true},
        {"a larger piece", random + "more", false, 1, {}, 65552, 0, true},
        {"a compressed piece too large for a receiver", zeros, true, 1, {}, 224, 2, false},
        {"a wrong key length: in the clear", "in the clear", false, 1, twenty, 12, 0, false},
        {"a wrong key length, compressing", "in the clear", true, 1, twenty, 12, 0, false},
        {"not encrypted: nothing is carried", "content", true, 0, {}, 0, 2, true},
        {"a short vector goes on with zeros", "content", false, 1, {}, 16, 0, true, 5},
    };
    const test::LogCapture quiet;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        set_key(row.key.empty() ? test::golden_key : row.key);
        auto packages = test::sent_packages([&](HTTP_Invoker_T& invoker) {
            datahead head;
            head.init();
            head.set_encrypt(1, 16, bytes_of(iv));  // an earlier piece's
            set_piece(head, row.content, row.compress, row.encryption, row.extra);
            EXPECT_TRUE(head.send_package(invoker));
            head.uninit();
        });
        ASSERT_EQ(packages.size(), 1u);
        const data_package_head sent = head_of(packages[0]);
        const size_t extra = row.encryption == 0 ? 0 : row.extra;
        EXPECT_EQ(packages[0].size(), 36 + extra + row.processed);
        EXPECT_EQ(+sent.extra.length, extra);
        EXPECT_EQ(+sent.compression, row.compression);
        EXPECT_EQ(+sent.compression_level, row.compression == 0 ? 0 : 6);
        EXPECT_EQ(+sent.encryption, row.encryption);
        EXPECT_EQ(+sent.flags, 0u);

        open();
        datahead receiver;
        EXPECT_EQ(receiver.handle_head(packages[0]), row.received);
        EXPECT_EQ(written(), row.received && row.encryption != 0 ? row.content : "");
    }
}

TEST_F(DataHead, SharesHeadAndBuffersWithItsCopies) {
    auto packages = test::sent_packages([](HTTP_Invoker_T& invoker) {
        auto head = std::make_unique<datahead>();
        head->init();
        datahead copy;
        copy = *head;
        set_piece(copy, "shared!", false);
        set_piece(*head, "written", false);
        head.reset();
        copy.send_package(invoker);
        EXPECT_FALSE(datahead().send_package(invoker)) << "without a head there is nothing to send";
    });
    ASSERT_EQ(packages.size(), 1u);
    open();
    EXPECT_TRUE(datahead().handle_head(packages[0]));
    EXPECT_EQ(written(), "written");
}

TEST_F(DataHead, CarriesTheLastPieceAgainWithoutEncryption) {
    auto packages = test::sent_packages([](HTTP_Invoker_T& invoker) {
        datahead head;
        head.init();
        set_piece(head, "first", false);
        head.send_package(invoker);
        set_piece(head, "0123456789abcdef?", false, 0);
        head.send_package(invoker);
    });
    ASSERT_EQ(packages.size(), 2u);
    EXPECT_EQ(std::string(packages[1].begin() + 36, packages[1].end()), "0123456789abcdef");
    open();
    datahead receiver;
    EXPECT_TRUE(receiver.handle_head(packages[0]));
    EXPECT_TRUE(receiver.handle_head(packages[1]));
    EXPECT_EQ(written(), "firstfirst");
}

TEST_F(DataHead, SettersRefuseWhatTheyDoNotKnow) {
    Bytes buffer(sizeof(data_package_head), 0xFF);
    datahead head(buffer.data());
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 8), Bytes(8)) << "attaching clears these";
    EXPECT_EQ(Bytes(buffer.begin() + 32, buffer.end()), Bytes(4));
    head.reset();
    EXPECT_TRUE(head.set_compress(4, 9));
    EXPECT_TRUE(head.set_data_check_algo(1) && head.set_data_check_algo(2));
    EXPECT_EQ(+head_of(buffer).flags, 6u) << "added, never cleared";
    const Bytes before = buffer;
    EXPECT_FALSE(head.set_compress(5, 1) || head.set_encrypt(4, 1, bytes_of(iv)) ||
                 head.set_data_check_algo(3));
    EXPECT_EQ(buffer, before);
    head.reset();
    EXPECT_EQ(+head_of(buffer).compression, 4u) << "not of one piece alone";
    EXPECT_FALSE(head.set_data_content(nullptr, uint64_t{1} << 32));
}

TEST_F(DataHead, WritesNothingOfWhatItCannotDecode) {
    const test::LogCapture quiet;
    const std::function<void(Bytes&)> damages[] = {
        [](Bytes&) { set_key("another key here"); },
        [](Bytes&) { set_key(std::string(20, 'k')); },
        [](Bytes& bytes) { bytes.back() ^= 1; },
        [](Bytes& bytes) {  // less than a block is left
            bytes.resize(bytes.size() - 7);
            write_wire(bytes.data(), static_cast<uint32_t>(bytes.size()));
        },
        [](Bytes& bytes) {  // nothing is left
            bytes.resize(52);
            write_wire(bytes.data(), uint32_t{52});
        },
        [](Bytes& bytes) { bytes[12] = 27; },                 // plain: longer than its head says
        [](Bytes& bytes) { bytes[24] ^= zlib_compression; },  // zlib where none is
        [](Bytes& bytes) { bytes.pop_back(); },               // shorter than it says
        [](Bytes& bytes) { bytes[34] = 17; },                 // an extra that is too long
        [](Bytes& bytes) { bytes[4] = 0; },                   // of another kind
    };
    for (size_t i = 0; i < std::size(damages); ++i) {
        SCOPED_TRACE(i);
        set_key();
        Bytes bytes = from_hex(test::golden_data);
        damages[i](bytes);
        open();
        datahead head;
        SetLastError(0);
        EXPECT_FAILS(ERROR_INVALID_DATA, head.handle_head(bytes));
        EXPECT_TRUE(current_received_file().file) << "the file is still awaiting its end";
        EXPECT_EQ(written(), "");
    }
}

}  // namespace
}  // namespace dorvo
