// Has runs dropped that a storage could not be told of when they ended: when it is woken, and every
// hour. It alone does; a run that ends tells its own storage.
//
// What is damaged is told once: its note lies there for people to see to. The thread is there from
// the first call of wake() until stop(). Any thread.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "base/api.h"
#include "base/handle.h"
#include "job/pendingdrops.h"

namespace dorvo {

class DORVO_JOB_API DropTeller {
public:
    // Has a run of the job dropped, and breaks that off when the event is set. False leaves the
    // last error.
    using Drop = std::function<bool(const JobDefinition&, const PendingDrop&, HANDLE stop)>;

    static constexpr DWORD hourMs = 60 * 60 * 1000;

    // An empty function asks the storages.
    explicit DropTeller(Drop drop = {}, DWORD againMs = hourMs);
    ~DropTeller() { stop(); }
    DropTeller(const DropTeller&) = delete;
    DropTeller& operator=(const DropTeller&) = delete;

    // Begins to tell what there is; does not wait for it.
    void wake();
    // Breaks off what can be broken off, and tells nothing more; does not wait for it.
    void signalStop();
    // The same, and returns once nothing is told any more, which takes as long as a server that is
    // not there.
    void stop();

private:
    static DWORD WINAPI body(void* self);
    void run();
    void tell(const PendingDrops& drops);
    std::unique_ptr<JobDefinition> definitionOf(const PendingDrops& drops);
    bool stopping() const;

    const Drop drop_;
    const DWORD againMs_;
    const KernelHandle stopEvent_;  // manual reset
    const KernelHandle wakeEvent_;  // auto reset
    std::mutex lock_;               // guards what follows
    HANDLE thread_ = nullptr;
    std::set<std::wstring> damaged_;  // the thread's: homes, and each note's with its name
};

}  // namespace dorvo
