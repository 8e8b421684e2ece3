#include "control/controlserver.h"

#include <windows.h>
//
#include <bcrypt.h>

#include <array>

#include "control/controlservice.h"
#include "httpd/http_server.h"
#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

constexpr size_t secretBytes = 32;
// Logins wait for the storage server: other commands still find a thread.
constexpr HttpThreads threads{1, 8};

HttpLimits limits() {
    HttpLimits limits;
    limits.connections = 64;
    limits.discardedBytes = size_t{4} << 20U;
    limits.memoryBytes = size_t{16} << 20U;
    // The end of the system leaves seconds for the runs to pause: no client may use them up.
    limits.stopPatience = std::chrono::seconds(2);
    return limits;
}

// In hexadecimal digits.
std::string newSecret() {
    std::array<unsigned char, secretBytes> bytes{};
    if (BCryptGenRandom(nullptr, bytes.data(), static_cast<ULONG>(bytes.size()),
                        BCRYPT_USE_SYSTEM_PREFERRED_RNG) != 0) {
        throw AgentError("The system gives no random numbers for the control port");
    }
    constexpr const char* digits = "0123456789abcdef";
    std::string secret;
    for (const unsigned char byte : bytes) {
        secret += digits[byte >> 4U];
        secret += digits[byte & 15U];
    }
    return secret;
}

}  // namespace

struct ControlServer::Impl {
    Impl(Engine& engine, EventLog& events)
        : address{0, newSecret(), newSecret()},
          service(engine, events, address.token, address.proof),
          server(service, "127.0.0.1", 0, limits(), threads, [](const std::string&) {}) {
        address.port = server.port();
    }

    ControlAddress address;
    ControlService service;
    HttpServer server;
};

ControlServer::ControlServer(Engine& engine, EventLog& events) {
    try {
        impl_ = std::make_unique<Impl>(engine, events);
    } catch (const AgentError&) {
        throw;
    } catch (const std::exception& error) {
        throw AgentError(std::string("The control port cannot be opened: ") + error.what());
    }
}

ControlServer::~ControlServer() = default;

const ControlAddress& ControlServer::address() const {
    return impl_->address;
}

void ControlServer::stop() {
    impl_->server.stop();
}

}  // namespace dorvo::agent
