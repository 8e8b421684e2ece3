// Who may use the service: accounts, the checksums of their keys, and sessions. What all calls keep
// to stands in catalog.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace dorvo {

struct Session {
    int64_t userId = 0;
    int64_t machineId = 0;
    std::string user;
    std::string machine;
};

class Accounts {
public:
    virtual ~Accounts() = default;

    // Durable. False when the name is taken.
    virtual bool addUser(std::string_view name, std::string_view passwordHash) = 0;
    // The account's password hash.
    virtual std::optional<std::string> findPassword(std::string_view user) = 0;

    // The MD5 of the user's keys, empty when there is none.
    virtual std::string findKeys(int64_t user) = 0;
    // Durable. Keeps the MD5 unless there is another one. Whether it is kept now.
    virtual bool putKeys(int64_t user, std::string_view md5) = 0;

    // Sessions are kept under a hash of their token. Times are seconds. Adding one also forgets
    // those that expired.
    virtual void addSession(std::string_view tokenHash, std::string_view user,
                            std::string_view machine, int64_t now, int64_t lifetime) = 0;
    // The session unless it has been idle for the lifetime; finding it counts as use.
    virtual std::optional<Session> findSession(std::string_view tokenHash, int64_t now,
                                               int64_t lifetime) = 0;
    // When a session was last used, 0 when there is none.
    virtual int64_t lastUse() = 0;
    // Durable.
    virtual void removeSession(std::string_view tokenHash) = 0;
};

}  // namespace dorvo
