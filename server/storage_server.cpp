#include "storage_server.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "common/files.h"
#include "descriptor_limit.h"
#include "endpoints/password_hash.h"
#include "reconcile.h"

namespace dorvo {

namespace fs = std::filesystem;

namespace {

// None while another process has it.
std::optional<FileDescriptor> tryLock(const fs::path& data) {
    prepareDataFolder(data);
    const fs::path path = data / "lock";
    FileDescriptor fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!fd) {
        throw std::system_error(errno, std::generic_category(), "cannot open " + path.string());
    }
    if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        return std::nullopt;
    }
    return fd;
}

FileDescriptor lockData(const fs::path& data) {
    auto lock = tryLock(data);
    if (!lock) {
        throw std::runtime_error(data.string() + " is served by another process");
    }
    return *std::move(lock);
}

std::string bootIdentity() {
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::string boot;
    std::getline(file, boot);
    if (boot.empty()) {
        throw std::runtime_error("cannot tell which boot of the machine this is");
    }
    return boot;
}

// Everything of the file system that the data lies on, whoever wrote it.
void syncFileSystem(const fs::path& data) {
    const FileDescriptor fd(::open(data.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || ::syncfs(fd.get()) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot sync " + data.string());
    }
}

std::string soundCatalog(const fs::path& data, const FileBlockStore& blocks, DiskRoom& room) {
    room.begin();
    requireSoundCatalog(data / "catalog.db", blocks);
    return prepareDataFolder(data);
}

// Connections give way to files: who is in must be able to store.
HttpLimits fitted(HttpLimits limits, const HttpLog& log) {
    const size_t descriptors = raiseDescriptorLimit();
    const size_t connections = fittingConnections(limits.connections, descriptors);
    if (connections < limits.connections) {
        log("at most " + std::to_string(connections) + " connections, for at most " +
            std::to_string(descriptors) + " files may be open");
        limits.connections = connections;
    }
    return limits;
}

// What a start can do without: the next one makes up for it.
template <class Call>
void whileThereIsRoom(const Call& call) {
    try {
        call();
    } catch (const DiskFull& full) {
        logEvent(std::string("left for the next start: ") + full.what());
    }
}

// For another program that writes to the catalog. It is less than what makes a client try again.
constexpr std::chrono::seconds catalogPatience(2);

// The address of a name such as "localhost", an IPv4 one where it has one; an address stays what it
// is.
std::string listenAddress(const std::string& host) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* first = nullptr;
    const int result = ::getaddrinfo(host.c_str(), nullptr, &hints, &first);
    if (result != 0) {
        throw std::runtime_error("cannot serve at '" + host + "': " + ::gai_strerror(result));
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> all(first, &::freeaddrinfo);
    const addrinfo* chosen = first;
    while (chosen != nullptr && chosen->ai_family != AF_INET) {
        chosen = chosen->ai_next;
    }
    if (chosen == nullptr) {
        chosen = first;
    }
    std::array<char, NI_MAXHOST> text{};
    if (::getnameinfo(chosen->ai_addr, chosen->ai_addrlen, text.data(), text.size(), nullptr, 0,
                      NI_NUMERICHOST) != 0) {
        throw std::runtime_error("cannot serve at '" + host + "'");
    }
    return text.data();
}

// Calls of endpoints wait for locks and, at the end of a backup, for the disk.
HttpThreads threadCounts() {
    const size_t cores = std::max(1U, std::thread::hardware_concurrency());
    return {cores, std::max<size_t>(16, 2 * cores)};
}

}  // namespace

const char* const serverVersion = DORVO_VERSION;

HttpLimits serviceLimits() {
    HttpLimits limits;
    limits.stranger = std::chrono::seconds(10);
    limits.connectionsOfAddress = 256;
    limits.manyBehind = {"127.0.0.1", "::1"};
    return limits;
}

std::string prepareDataFolder(const fs::path& data) {
    if (fs::create_directories(data)) {
        fs::permissions(data, fs::perms::owner_all);
    }
    return (data / "catalog.db").string();
}

StorageServer::StorageServer(const ServerOptions& options, HttpLog log)
    : data_(options.data),
      lock_(lockData(data_)),
      events_(log),
      blocks_(data_ / "packages", options.containerBytes,
              [this](int64_t container, size_t bytes) { syncPoints_->wrote(container, bytes); }),
      room_(data_, options.reserve, options.space),
      catalog_(
          soundCatalog(data_, blocks_, room_), [this] { generations_->follow(); }, catalogPatience),
      dispatcher_(catalog_, blocks_, room_, options.sessionLifetime) {
    const std::string boot = options.boot.empty() ? bootIdentity() : options.boot;
    room_.givingWay([&] { reconcile(catalog_, blocks_, boot, logEvent); });
    // A copy that was put back may not be on the disk yet, and all promises stand on it. Where this
    // fails it stays a crash: what the disk has refused now no later sync would tell.
    syncFileSystems();
    try {
        whileThereIsRoom([this] { catalog_.finishCancelling(); });
        room_.hold();
        whileThereIsRoom([this] { catalog_.everythingIsSynced(); });
        beginToServe(options, std::move(log));
    } catch (const std::exception&) {
        // The next start is not to take this one for a crash.
        try {
            end();
        } catch (const std::exception& error) {
            logEvent(std::string("the end is not on record: ") + error.what());
        }
        throw;
    }
    logEvent("started, version " + std::string(serverVersion) + ", on " + endpoint() + ", data " +
             data_.string());
}

void StorageServer::beginToServe(const ServerOptions& options, HttpLog log) {
    generations_ = std::make_unique<Generations>(catalog_, blocks_, options.generationPace);
    syncPoints_ = std::make_unique<SyncPoints>(catalog_, blocks_, options.syncPace);
    const std::string address = listenAddress(options.address);
    try {
        http_ = std::make_unique<HttpServer>(dispatcher_, address, options.port,
                                             fitted(options.limits, logEvent), threadCounts(),
                                             std::move(log));
    } catch (const std::system_error&) {
        throw;  // a thread, and nothing that is about the address
    } catch (const std::exception& error) {
        throw std::runtime_error("cannot serve at " + address + ", port " +
                                 std::to_string(options.port) + ": " + error.what());
    }
    // The last: it ends backups, and a start that fails leaves everything as it was.
    abandonedRuns_ =
        std::make_unique<AbandonedRuns>(catalog_, room_, options.runLifetime,
                                        [this](int64_t instance, std::chrono::seconds lifetime) {
                                            dispatcher_.giveUp(instance, lifetime.count());
                                        });
}

// The packages may lie on a disk of their own; one that is away was synced as it went.
void StorageServer::syncFileSystems() const {
    syncFileSystem(data_);
    if (fs::exists(blocks_.folder())) {
        syncFileSystem(blocks_.folder());
    }
}

StorageServer::~StorageServer() {
    try {
        stop();
    } catch (const std::exception&) {
        // It stays marked as in service: the next start takes it for what it is, a crash.
        stopped_ = true;
    }
}

void StorageServer::stop() {
    if (stopped_) {
        return;
    }
    stopped_ = true;
    logEvent("stopping");
    end();
    logEvent("stopped");
}

void StorageServer::end() {
    if (http_) {
        http_->stop();
    }
    abandonedRuns_.reset();
    dispatcher_.stop();
    if (generations_) {
        generations_->stop();
    }
    syncFileSystems();
    recordEnd();
}

void StorageServer::recordEnd() {
    try {
        room_.givingWay([this] {
            // With this process ends the memory of what the disk has refused.
            for (const int64_t container : blocks_.refused()) {
                catalog_.damageContainer(container);
            }
            catalog_.endService();
        });
        if (generations_) {
            generations_->follow();
        }
    } catch (const DiskFull& full) {
        // Everything is on the disk but this: the next start takes it for a crash, which costs
        // nothing.
        logEvent(std::string("the end is not on record: ") + full.what());
    }
}

void addUser(const fs::path& data, const std::string& name, const std::string& password) {
    checkAccount(name, password);
    const auto lock = tryLock(data);
    const std::string path = prepareDataFolder(data);
    if (lock) {
        requireSoundCatalog(path, FileBlockStore(data / "packages"));
    } else if (!SqliteCatalog::isUpToDate(path)) {
        throw std::runtime_error(data.string() +
                                 " is in use, by a program of another version: stop it first");
    }
    SqliteCatalog catalog(path);
    if (!catalog.addUser(name, hashPassword(password))) {
        throw std::runtime_error("there is a user " + name + " already");
    }
    syncFolder(data);
}

}  // namespace dorvo
