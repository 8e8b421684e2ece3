// Where commands find the resident agent: the file "control" of the data directory,
// {"port","token","proof"}.
//
// SYSTEM, administrators and the data directory's owner may read it; whoever can, can do with the
// agent what they can do with the directory. Failures are AgentErrors.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace dorvo::agent {

struct ControlAddress {
    uint16_t port = 0;
    std::string token;  // what the resident asks of a command
    std::string proof;  // what it answers to one, for another program may have got the port
};

class ControlFile {
public:
    // Writes it to a new file that replaces the one there. For the one who owns the data directory.
    explicit ControlFile(const ControlAddress& address);
    // Deletes it.
    ~ControlFile();
    ControlFile(const ControlFile&) = delete;
    ControlFile& operator=(const ControlFile&) = delete;

    // What the file says; nothing where there is none or it says nothing that is understood. Throws
    // when this user may not read it.
    static std::optional<ControlAddress> read();

    static std::wstring path();
};

}  // namespace dorvo::agent
