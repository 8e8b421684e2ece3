// How fast storage-server takes requests, beside a floor: the same HTTP server with a service that
// answers {} to everything. Both, and the load, are in this process; they take turns, so that what
// else the machine does falls on both.
//
// usage: server_speed [SECONDS [FOLDER]]    seconds a turn (3), folder of the data (the system's
// temporary one)
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "catalog/sqlite_catalog.h"
#include "common/digest.h"
#include "httpd/testing/client.h"
#include "storage_server.h"

using namespace dorvo;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

namespace {

constexpr size_t offered = 100000;  // small requests that a turn has at most
const std::string token(64, 'a');
const std::string cookie = "DORVOSESSION=" + token;
const std::string web = "/dorvo/WebServer/";
const std::string upload = "/dorvo/Storage%20Server/backupServer/";

class Floor : public HttpService {
public:
    Admission admit(const WebRequest& /*head*/) override {
        Admission admission;
        admission.bodyLimit = size_t{32} << 20U;
        admission.known = true;
        return admission;
    }
    std::optional<LongPoll> handle(const WebRequest& /*request*/, Respond respond) override {
        respond({});
        return {};
    }
    WebReply refuse(int status, const char* /*why*/) override {
        WebReply reply;
        reply.status = status;
        return reply;
    }
};

void require(const Answer& answer) {
    if (answer.status != 200) {
        std::cerr << "server_speed: " << answer.status << ' ' << answer.body << '\n';
        std::exit(1);
    }
}

// One connection's backup.
class Load {
public:
    Load(uint16_t port, std::string name, size_t files) : client_(port), name_(std::move(name)) {
        std::string source;
        for (size_t i = 0; i < files; ++i) {
            source += (i == 0 ? "" : ",") + (R"({"path":")" + std::to_string(i)) +
                      R"(","mtimeHigh":0,"mtimeLow":1})";
        }
        post(web + "catalog/FilesToBackup.php", R"({"id":"job","jobinstanceid":")" + name_ +
                                                    R"(","compress":true,"source":[)" + source +
                                                    "]}");
        post(web + "jobs/StartJob.php", R"({"jobdefinitionid":"job","jobinstanceid":")" + name_ +
                                            R"(","totalfiles":1,"totaldirectories":0,)"
                                            R"("totalsize":1,"starttime":"now"})");
        info("large", 255);
    }

    // Information of the next file, which is empty.
    void small() { info(std::to_string(next_++), 0); }

    // The next block of the one large file.
    void block() {
        static const std::string bytes(blockBytes, 'x');
        static const std::string digest = hexText(md5(bytes));
        const std::string field = "--b\r\nContent-Disposition: form-data; name=\"";
        std::string form = field + "md5\"\r\n\r\n" + digest + "\r\n" + field +
                           "jobinstanceid\"\r\n\r\n" + name_ + "\r\n" + field +
                           "sourcename\"\r\n\r\nlarge\r\n" + field + "file\"; filename=\"" +
                           std::to_string(++blocks_) + ".jpg\"\r\n\r\n";
        form += bytes;
        form += "\r\n--b--\r\n";
        require(client_.post(upload + "uploadblock.php", form, cookie,
                             "multipart/form-data; boundary=b"));
    }

private:
    void post(const std::string& path, const std::string& body) {
        require(client_.post(path, body, cookie));
    }
    void info(const std::string& path, int sizeHigh) {
        std::string attributes;
        for (const char* name :
             {"nFileSizeHigh", "nFileSizeLow", "ftCreationTimedwHighDateTime",
              "ftCreationTimedwLowDateTime", "ftLastAccessTimedwHighDateTime",
              "ftLastAccessTimedwLowDateTime", "ftLastWriteTimedwHighDateTime"}) {
            attributes += std::string("\"") + name + "\":0,";
        }
        post(upload + "uploadfile.php",
             R"({"type":"file","attri":{"dwFileAttributes":0,)" + attributes +
                 R"("ftLastWriteTimedwLowDateTime":1},"jobinstanceid":")" + name_ +
                 R"(","sourcename":")" + path + R"(","totalsizeHigh":)" + std::to_string(sizeHigh) +
                 R"(,"totalsizeLow":0,"totalblock":1})");
    }

    Client client_;
    std::string name_;
    size_t next_ = 0;
    size_t blocks_ = 0;
};

// Requests a second of so many connections at once, each with a backup of its own.
double rate(uint16_t port, size_t connections, bool blocks, Clock::duration time) {
    static int turn = 0;
    ++turn;
    std::atomic<size_t> done = 0;
    std::barrier begin(static_cast<std::ptrdiff_t>(connections) + 1);
    std::vector<std::thread> threads;
    const size_t files = blocks ? 0 : offered / connections;
    for (size_t i = 0; i < connections; ++i) {
        threads.emplace_back([&, name = std::to_string(turn) + "-" + std::to_string(i)] {
            Load load(port, name, files);
            begin.arrive_and_wait();
            const auto end = Clock::now() + time;
            size_t count = 0;
            for (; Clock::now() < end && (blocks || count < files); ++count) {
                blocks ? load.block() : load.small();
            }
            done += count;
        });
    }
    begin.arrive_and_wait();
    const auto since = Clock::now();
    for (std::thread& thread : threads) {
        thread.join();
    }
    return static_cast<double>(done) / std::chrono::duration<double>(Clock::now() - since).count();
}

void measure(uint16_t server, uint16_t floor, Clock::duration time) {
    std::printf("%-8s %11s %12s %12s %8s\n", "what", "connections", "server", "floor", "ratio");
    for (const bool blocks : {false, true}) {
        for (const size_t connections : {size_t{1}, size_t{8}, size_t{32}}) {
            const double scale = blocks ? static_cast<double>(blockBytes) / 1e6 : 1;
            const double reference = rate(floor, connections, blocks, time) * scale;
            const double own = rate(server, connections, blocks, time) * scale;
            std::printf("%-8s %11zu %12.0f %12.0f %8.2f\n", blocks ? "MB/s" : "small/s",
                        connections, own, reference, own / reference);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 3;
    const fs::path parent = argc > 2 ? fs::path(argv[2]) : fs::temp_directory_path();
    std::string folder = parent / "dorvo-speed-XXXXXX";
    if (seconds <= 0 || ::mkdtemp(folder.data()) == nullptr) {
        std::cerr << "usage: server_speed [SECONDS [FOLDER]]\n";
        return 2;
    }
    const auto quiet = [](const std::string&) {};
    try {
        ServerOptions options;
        options.data = folder;
        options.port = 0;
        {
            SqliteCatalog catalog(prepareDataFolder(folder));
            catalog.addUser("u", "-");
            catalog.addSession(sha256(token), "u", "pc", std::time(nullptr), 3600);
        }
        StorageServer server(options, quiet);
        Floor nothing;
        HttpServer floor(nothing, "127.0.0.1", 0, options.limits, {2, 16}, quiet);
        measure(server.port(), floor.port(), std::chrono::seconds(seconds));
    } catch (const std::exception& error) {
        std::cerr << "server_speed: " << error.what() << '\n';
    }
    fs::remove_all(folder);
}
