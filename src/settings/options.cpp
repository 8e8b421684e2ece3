#include "settings/options.h"

#include <algorithm>
#include <mutex>
#include <new>

#include "base/log.h"
#include "base/paths.h"
#include "json_spirit/json_spirit.h"
#include "settings/storefile.h"

namespace dorvo {
namespace {

constexpr const char* hostKey = "webServerHost";
constexpr const char* portKey = "webServerPort";
constexpr const char* nameKey = "webServerName";
constexpr const char* snapshotKey = "enableSnapshot";
constexpr const char* waitKey = "waitForServer";
constexpr const char* progressKey = "logProgress";

constexpr int defaultPort = 80;
constexpr int largestPort = 65535;

// An integer option, and the smallest value that its setter stores; less becomes `raised`.
struct IntegerOption {
    const char* key;
    int fallback;
    int smallest;
    int raised;

    int inRange(int value) const { return value < smallest ? raised : value; }
};
constexpr IntegerOption retryTimes = {"loginRetrytimes", 5, 1, 5};
constexpr IntegerOption retryDelay = {"loginAgainAfter", 300, 1, 300};
constexpr IntegerOption updateStart = {"update_start_at", 600'000, 20'000, 20'000};
constexpr IntegerOption updateAgain = {"update_again_at", 14'400'000, 120'000, 120'000};

std::wstring executablePath() {
    const std::wstring folder = executableDirectory();
    return folder.empty() ? folder : folder + L"options";
}

std::wstring dataPath() {
    return storePath(L"\\options");
}

}  // namespace

OptionsImpl::OptionsImpl() try { init(); } catch (const HResultError&) {  // from the lock
    throw std::bad_alloc();
}

OptionsImpl::OptionsImpl(const OptionsImpl& other) {
    const std::lock_guard guard(other.lock_);
    options_ = other.options_;
}

OptionsImpl& OptionsImpl::operator=(const OptionsImpl& other) {
    if (this != &other) {
        const std::scoped_lock guard(lock_, other.lock_);
        options_ = other.options_;
    }
    return *this;
}

OptionsImpl::~OptionsImpl() = default;

bool OptionsImpl::init() {
    const FunctionTrace trace("OptionsImpl::init", "options.cpp");
    const std::lock_guard guard(lock_);
    const std::wstring beside = executablePath();
    const std::wstring data = dataPath();
    const bool hasData = fileExists(data);
    if (fileExists(beside)) {
        if (!read(beside)) {
            return false;
        }
    } else if (hasData) {
        return read(data);
    } else {
        return logFailed("Neither \"%W\" nor \"%W\" exists.\n", beside, data);
    }
    if (!hasData) {
        save();
    }
    return true;
}

bool OptionsImpl::read(const std::wstring& path) {
    FileHandle file = openStoreForReading(path, FILE_SHARE_READ);
    std::string text;
    if (!file || !readStore(std::move(file), text)) {
        return logFailed("Failed to open options storage for reading.\n");
    }
    try {
        json_spirit::Value document;
        json_spirit::read_or_throw(text, document);
        if (document.type() != json_spirit::obj_type) {
            return logFailed("Options storage is not JSON object.\n");
        }
        options_ = document.get_obj();
        return true;
    } catch (const json_spirit::Error_position& error) {
        return logFailed("Failed to parse options storage, Line %d, column %d, %s.\n", error.line_,
                         error.column_, error.reason_);
    }
}

bool OptionsImpl::save() const {
    const FunctionTrace trace("OptionsImpl::save", "options.cpp");
    const std::string text = json_spirit::write_formatted(json_spirit::Value(options_));
    FileHandle data = openStoreForWriting(dataPath(), FILE_SHARE_READ);
    if (!data) {
        return logFailed("Failed to open options storage for writing.\n");
    }
    const bool written = writeStore(std::move(data), text);
    if (!written) {
        log(LogLevel::error, "Failed to write options storage, %m.\n");
    }
    if (FileHandle beside = openStoreForWriting(executablePath(), FILE_SHARE_READ)) {
        writeStore(std::move(beside), text);  // a folder of the program is often read-only
    }
    return written;
}

std::string OptionsImpl::text(const char* key) const {
    const auto option = options_.find(key);
    const bool found = option != options_.end() && option->second.type() == json_spirit::str_type;
    return found ? option->second.get_str() : std::string();
}

int OptionsImpl::number(const char* key, int fallback) const {
    const auto option = options_.find(key);
    if (option == options_.end() || option->second.type() != json_spirit::int_type ||
        option->second.is_uint64() || !std::in_range<int>(option->second.get_int64())) {
        return fallback;
    }
    return option->second.get_int();
}

bool OptionsImpl::truth(const char* key) const {
    const auto option = options_.find(key);
    return option != options_.end() && option->second.type() == json_spirit::bool_type &&
           option->second.get_bool();
}

void OptionsImpl::getServerInfo(std::string& host, unsigned short& port) const {
    const std::lock_guard guard(lock_);
    host = text(hostKey);
    const int number = this->number(portKey, defaultPort);
    const bool isPort = number >= 0 && number <= largestPort;
    port = static_cast<unsigned short>(isPort ? number : defaultPort);
}

void OptionsImpl::getServerInfo(std::string& name, std::string& host, unsigned short& port) const {
    const std::lock_guard guard(lock_);
    name = text(nameKey);
    getServerInfo(host, port);
}

bool OptionsImpl::enableSnapshot() const {
    const std::lock_guard guard(lock_);
    return truth(snapshotKey);
}

bool OptionsImpl::waitForServer() const {
    const std::lock_guard guard(lock_);
    return truth(waitKey);
}

bool OptionsImpl::logProgress() const {
    const std::lock_guard guard(lock_);
    return truth(progressKey);
}

int OptionsImpl::loginRetrytimes() const {
    const std::lock_guard guard(lock_);
    return number(retryTimes.key, retryTimes.fallback);
}

int OptionsImpl::loginAgainAfter() const {
    const std::lock_guard guard(lock_);
    return number(retryDelay.key, retryDelay.fallback);
}

int OptionsImpl::update_start_at() const {
    const std::lock_guard guard(lock_);
    return number(updateStart.key, updateStart.fallback);
}

int OptionsImpl::update_again_at() const {
    const std::lock_guard guard(lock_);
    return number(updateAgain.key, updateAgain.fallback);
}

bool OptionsImpl::setServerInfo(const char* name, const char* host, unsigned short port) {
    if (host == nullptr || *host == '\0' || port == 0) {
        return false;
    }
    const std::lock_guard guard(lock_);
    if (name != nullptr && *name != '\0') {
        options_[nameKey] = name;
    }
    options_[hostKey] = host;
    options_[portKey] = port;
    return save();
}

template <class T>
T OptionsImpl::store(const char* key, T value) {
    const std::lock_guard guard(lock_);
    options_[key] = value;
    save();
    return value;
}

int OptionsImpl::loginRetrytimes(int times) {
    return store(retryTimes.key, retryTimes.inRange(times));
}

int OptionsImpl::loginAgainAfter(int delay) {
    return store(retryDelay.key, retryDelay.inRange(delay));
}

int OptionsImpl::update_start_at(int delayMs) {
    return store(updateStart.key, updateStart.inRange(delayMs));
}

int OptionsImpl::update_again_at(int periodMs) {
    return store(updateAgain.key, updateAgain.inRange(periodMs));
}

bool OptionsImpl::waitForServer(bool wait) {
    return store(waitKey, wait);
}

bool OptionsImpl::enableSnapshot(bool on) {
    const std::lock_guard guard(lock_);
    options_[snapshotKey] = on;
    return save();
}

}  // namespace dorvo

template class ATL::CComSingleton<dorvo::OptionsImpl, ATL::CComAutoCriticalSection>;
