// Where package bytes are kept: containers, one or more a backup, that packages are laid into.
//
// A container is named by a number and is made by its first write. The catalog says which stretch
// of which container a package has; the store knows bytes only. Calls block, may come from any
// thread, and throw std::exception when the storage is down; the caller sees to it that one
// container is written by one thread at a time. Bytes written survive the death of the process, and
// a power cut once they are synced. A store that is away for a time, as a disk that is not mounted,
// throws too: nothing is made, taken for lost or forgotten meanwhile.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>

namespace dorvo {

// A container has lost what it was given. Other exceptions are of a storage that may come back.
class LostBytes : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class BlockStore {
public:
    virtual ~BlockStore() = default;

    // Of a container, in bytes: what begins a new one. A single package may be longer.
    [[nodiscard]] virtual int64_t limit() const = 0;

    virtual void write(int64_t container, int64_t offset, std::string_view bytes) = 0;
    // Fills the buffer from there. Throws LostBytes when the container has lost what stood there.
    virtual void read(int64_t container, int64_t offset, std::span<char> bytes) = 0;
    // How long the container is; nothing when there is none.
    [[nodiscard]] virtual std::optional<int64_t> length(int64_t container) = 0;
    // Gives up a stretch whose package is no longer wanted; what it reads as later is undefined.
    virtual void discard(int64_t container, int64_t offset, int64_t length) = 0;
    // Makes the whole container survive a power cut. False when it has lost bytes: it is shorter
    // than it must be, or the disk once failed to take what was written, which no second try would
    // tell: the store remembers it.
    [[nodiscard]] virtual bool sync(int64_t container, int64_t length) = 0;
    // The same for whatever it holds; and what is read of it from now on comes from the disk, not
    // from what the system remembers of a write that the disk has refused. False also when that
    // cannot be had.
    [[nodiscard]] virtual bool syncToReadAgain(int64_t container) { return sync(container, 0); }
    // Frees the container, and a power cut does not bring it back. One that is not there is no
    // error.
    virtual void remove(int64_t container) = 0;
};

}  // namespace dorvo
