#include "scheduler/io_completion_port_ex.h"

#include <objbase.h>

#include <utility>

#include "base/thread.h"

namespace dorvo {
namespace {

constexpr DWORD stopPacket = ERROR_NO_MORE_ITEMS;  // what a step gives for the worker's end
constexpr DWORD wakeBytes = 4;
constexpr int64_t clockChange = -1;  // a timer's id never is

}  // namespace

void Io_Completion_Port_Ex::Wake::completion(DWORD, ULONG_PTR, OVERLAPPED* overlapped) {
    if (reinterpret_cast<intptr_t>(overlapped) == clockChange) {
        owner_->rearm();
    } else {
        owner_->fire_due();
    }
}

bool Io_Completion_Port_Ex::open() {
    std::shared_ptr<Io_Completion_Port> made = Io_Completion_Port::create();
    if (!made) {
        return false;
    }
    install(std::move(made));
    return true;
}

void Io_Completion_Port_Ex::install(std::shared_ptr<Io_Completion_Port> port) {
    std::lock_guard guard(port_lock_);
    if (!ports_.empty()) {
        ports_.back()->post(wakeBytes, &wake_, nullptr);
    }
    ports_.push_back(std::move(port));
}

bool Io_Completion_Port_Ex::activate() {
    std::lock_guard guard(life_);
    if (thread_ != nullptr && WaitForSingleObject(thread_, 0) == WAIT_TIMEOUT) {
        SetLastError(ERROR_SERVICE_ALREADY_RUNNING);
        return false;
    }
    return joinThread(thread_) && startThread(worker, this, thread_);
}

bool Io_Completion_Port_Ex::close() {
    if (on_worker()) {
        SetLastError(ERROR_POSSIBLE_DEADLOCK);
        return false;
    }
    std::lock_guard guard(life_);
    if (!post(0, nullptr, nullptr) && GetLastError() != ERROR_INVALID_HANDLE) {
        return false;
    }
    if (!joinThread(thread_)) {
        return false;
    }
    drain();
    return true;
}

void Io_Completion_Port_Ex::drain() {
    std::deque<std::shared_ptr<Io_Completion_Port>> old;
    {
        std::lock_guard guard(port_lock_);
        old.swap(ports_);
    }
    Io_Completion_Port::Packet packet;
    for (const std::shared_ptr<Io_Completion_Port>& port : old) {
        while (port->take(packet)) {
            if (packet.key != 0 && packet.event() != &wake_) {
                deliver(packet);
            }
        }
    }
}

bool Io_Completion_Port_Ex::wait() {
    if (on_worker()) {
        SetLastError(ERROR_POSSIBLE_DEADLOCK);
        return false;
    }
    KernelHandle thread;
    {
        std::lock_guard guard(life_);
        if (thread_ == nullptr) {
            return true;
        }
        HANDLE copy = nullptr;
        if (DuplicateHandle(GetCurrentProcess(), thread_, GetCurrentProcess(), &copy, SYNCHRONIZE,
                            FALSE, 0) == 0) {
            return false;
        }
        thread.reset(copy);
    }
    return WaitForSingleObject(thread.get(), INFINITE) == WAIT_OBJECT_0;
}

bool Io_Completion_Port_Ex::notify_time_change() {
    return post_wake(clockChange);
}

bool Io_Completion_Port_Ex::notify_wake() {
    return post_wake(0);
}

bool Io_Completion_Port_Ex::post(DWORD bytes, Io_Completion_Port::Event* event,
                                 OVERLAPPED* overlapped) {
    std::lock_guard guard(port_lock_);
    if (ports_.empty()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    return ports_.back()->post(bytes, event, overlapped);
}

bool Io_Completion_Port_Ex::post_wake(int64_t value) {
    return post(wakeBytes, &wake_, reinterpret_cast<OVERLAPPED*>(value));
}

long Io_Completion_Port_Ex::schedule_timer(Timeout_Handler* handler, uint64_t deadline) {
    std::lock_guard guard(lock_);
    const int32_t id = ++last_id_;
    handler->timer_id_ = id;
    if (heap_.push({id, deadline, handler}) && !post_wake(id)) {
        return -1;
    }
    return id;
}

int Io_Completion_Port_Ex::cancel_timer(Timeout_Handler* handler) {
    std::lock_guard guard(lock_);
    const int32_t id = handler->timer_id_;
    if (id < 0) {
        return -1;
    }
    const Timer_Heap::Removed removed = heap_.remove(id);
    if (removed == Timer_Heap::Removed::none && rearming_.remove(id) == Timer_Heap::Removed::none) {
        SetLastError(ERROR_NOT_FOUND);
        return -1;
    }
    if (removed == Timer_Heap::Removed::front) {
        post_wake(heap_.front().id);
    }
    return 0;
}

DWORD WINAPI Io_Completion_Port_Ex::worker(void* self) {
    return static_cast<Io_Completion_Port_Ex*>(self)->work();
}

DWORD Io_Completion_Port_Ex::work() {
    const HRESULT com = CoInitialize(nullptr);
    if (FAILED(com)) {
        return static_cast<DWORD>(com);
    }
    worker_id_ = GetCurrentThreadId();
    DWORD result = 0;
    do {
        result = step(INFINITE);
    } while (result == 0 || result == WAIT_TIMEOUT);
    worker_id_ = 0;
    CoUninitialize();
    return result == stopPacket ? 0 : result;
}

DWORD Io_Completion_Port_Ex::step(DWORD timeout_ms) {
    std::shared_ptr<Io_Completion_Port> port;
    bool replaced = false;
    {
        std::lock_guard guard(port_lock_);
        if (ports_.empty()) {
            return ERROR_INVALID_HANDLE;
        }
        port = ports_.front();
        replaced = ports_.size() > 1;
    }
    Io_Completion_Port::Packet packet;
    if (!replaced) {
        packet = port->receive(wait_time(timeout_ms));
    } else if (!port->take(packet)) {
        std::lock_guard guard(port_lock_);
        ports_.pop_front();  // nothing is posted to it any more
        return 0;
    }
    if (packet.key != 0) {
        return deliver(packet);
    }
    if (packet.error == WAIT_TIMEOUT) {
        fire_due();
        return WAIT_TIMEOUT;
    }
    return packet.error != 0 ? packet.error : stopPacket;
}

DWORD Io_Completion_Port_Ex::deliver(const Io_Completion_Port::Packet& packet) {
    SetLastError(packet.error);
    packet.event()->completion(packet.bytes, packet.key, packet.overlapped);
    return 0;
}

DWORD Io_Completion_Port_Ex::wait_time(DWORD timeout_ms) {
    std::lock_guard guard(lock_);
    return heap_.empty() ? timeout_ms : Timer_Heap::wait_ms(heap_.front().deadline, clock_());
}

void Io_Completion_Port_Ex::fire_due() {
    std::lock_guard guard(lock_);
    const uint64_t now = clock_();
    while (!heap_.empty() && heap_.front().deadline <= now) {
        const Timer_Entry due = heap_.pop();
        due.handler->handle_timeout(due.deadline);
    }
}

void Io_Completion_Port_Ex::rearm() {
    std::lock_guard guard(lock_);
    // A handler may cancel another's timer, which then must not be called: rearming_ is searched.
    std::swap(rearming_, heap_);
    while (!rearming_.empty()) {
        rearming_.pop().handler->handle_timeout(Timeout_Handler::clockChanged);
    }
}

}  // namespace dorvo
