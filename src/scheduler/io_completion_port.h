// A Windows I/O completion port and the packets that travel through it.
//
// The object owns the port. Any thread may post and receive. Closing a port does not wake those who
// wait on it: post them a packet first.
#pragma once

#include <windows.h>

#include <memory>

#include "base/handle.h"

namespace dorvo {

class Io_Completion_Port {
public:
    // Receives the packets that carry the object's address as their key. It must outlive them.
    class Event {
    public:
        Event() = default;
        virtual ~Event() = default;
        // `key` is the packet's completion key, this object. The thread's last error is the error
        // of the packet's operation, 0 for a packet that was posted.
        virtual void completion(DWORD bytes, ULONG_PTR key, OVERLAPPED* overlapped) = 0;
        Event(const Event&) = delete;
        Event& operator=(const Event&) = delete;
    };

    struct Packet {
        DWORD error = 0;  // 0, WAIT_TIMEOUT, or why the operation or the wait failed
        DWORD bytes = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* overlapped = nullptr;

        Event* event() const { return reinterpret_cast<Event*>(key); }
    };

    // Null, with the thread's last error, when the system makes no port.
    static std::shared_ptr<Io_Completion_Port> create();

    // False with the thread's last error. Does not block. A null `event` is the packet that ends
    // the thread which receives it.
    bool post(DWORD bytes, Event* event, OVERLAPPED* overlapped);
    // Waits up to `timeout_ms` for a packet.
    Packet receive(DWORD timeout_ms);
    // Takes the next packet that is already there. False when there is none.
    bool take(Packet& packet);

private:
    explicit Io_Completion_Port(KernelHandle port) : port_(std::move(port)) {}

    KernelHandle port_;
};

}  // namespace dorvo
