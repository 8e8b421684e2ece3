#include "scheduler/io_completion_port.h"

#include <utility>

namespace dorvo {

std::shared_ptr<Io_Completion_Port> Io_Completion_Port::create() {
    KernelHandle port(CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 0));
    if (!port) {
        return nullptr;
    }
    return std::shared_ptr<Io_Completion_Port>(new Io_Completion_Port(std::move(port)));
}

bool Io_Completion_Port::post(DWORD bytes, Event* event, OVERLAPPED* overlapped) {
    return PostQueuedCompletionStatus(port_.get(), bytes, reinterpret_cast<ULONG_PTR>(event),
                                      overlapped) != 0;
}

Io_Completion_Port::Packet Io_Completion_Port::receive(DWORD timeout_ms) {
    Packet packet;
    if (GetQueuedCompletionStatus(port_.get(), &packet.bytes, &packet.key, &packet.overlapped,
                                  timeout_ms) == 0) {
        packet.error = GetLastError();
    }
    return packet;
}

bool Io_Completion_Port::take(Packet& packet) {
    packet = receive(0);
    return packet.error == 0 || packet.key != 0;
}

}  // namespace dorvo
