// What a client sends on one connection, to a server of its own with one user logged in: it is
// answered or hung up on, and never the server's fault.
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "catalog/sqlite_catalog.h"
#include "common/digest.h"
#include "common/files.h"
#include "dispatcher.h"
#include "httpd/http_connection.h"
#include "input.h"
#include "packages/file_block_store.h"
#include "packages/package_marker.h"

using namespace dorvo;
namespace asio = boost::asio;

namespace {

constexpr int64_t sessionLifetime = 3600;

// Goes with the process.
class TemporaryFolder {
public:
    TemporaryFolder() {
        fuzz::require(::mkdtemp(path_.data()) != nullptr);
        writeMarker(path_, {});
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }
    // Leaves the marker.
    void clear() const {
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            if (entry.is_directory()) {
                std::filesystem::remove_all(entry);
            }
        }
    }

private:
    std::string path_ = std::filesystem::temp_directory_path() / "dorvo-fuzz-XXXXXX";
};

std::string readAll(int socket) {
    std::string all;
    std::array<char, 4096> bytes{};
    for (;;) {
        const ssize_t count = ::recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (count <= 0) {
            return all;
        }
        all.append(bytes.data(), static_cast<size_t>(count));
    }
}

std::string answersTo(std::string_view input, Dispatcher& dispatcher) {
    std::array<int, 2> ends{};
    fuzz::require(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0);
    const FileDescriptor client(ends[0]);
    fuzz::require(::send(client.get(), input.data(), input.size(), 0) ==
                  static_cast<ssize_t>(input.size()));
    ::shutdown(client.get(), SHUT_WR);

    OpenConnections open(HttpLimits{});
    MemoryBudget memory(size_t{1} << 20U, size_t{1} << 20U);
    asio::io_context io;
    auto work = asio::make_work_guard(io);
    asio::io_context workers;
    auto rest = asio::make_work_guard(workers);
    const HttpConnection::Shared shared{dispatcher, {},   [](const std::string&) {},
                                        workers,    open, memory};
    asio::ip::tcp::socket socket(asio::make_strand(io));
    socket.assign(asio::ip::tcp::v4(), ends[1]);
    {
        const auto connection = std::make_shared<HttpConnection>(std::move(socket), shared, 1);
        fuzz::require(open.enter(1, "", connection));
        connection->start();
    }
    std::thread serving([&] { io.run(); });
    std::thread working([&] { workers.run(); });
    open.waitUntilEmpty();
    work.reset();
    rest.reset();
    serving.join();
    working.join();
    return readAll(client.get());
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const TemporaryFolder folder;
    folder.clear();
    SqliteCatalog catalog(":memory:");
    FileBlockStore blocks(folder.path());
    catalog.addUser("alice", "");
    catalog.addSession(sha256(std::string(64, 'a')), "alice", "pc", std::time(nullptr),
                       sessionLifetime);
    DiskRoom room(folder.path(), 0, {});
    Dispatcher dispatcher(catalog, blocks, room, sessionLifetime);
    const std::string answers = answersTo(fuzz::text(data, size), dispatcher);
    fuzz::require(answers.empty() || answers.starts_with("HTTP/1."));
    for (const char* fault : {"HTTP/1.0 50", "HTTP/1.1 50"}) {
        fuzz::require(answers.find(fault) == std::string::npos);
    }
    return 0;
}
