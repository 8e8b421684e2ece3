// The stop signal of a storage: heard at once while items travel, only after a patience while the
// run is being ended. A stop must not keep a run from being ended in order, and a server that
// stalls there must not hold up the host for ever.
//
// beginFinish() is for the thread that uses the storage; asking is for any thread after it.
#pragma once

#include <windows.h>

#include "base/interrupter.h"

namespace dorvo {

class patient_interrupter : public interrupter {
public:
    static constexpr DWORD defaultPatienceMs = 60'000;

    // `stop` is borrowed and may be null.
    patient_interrupter(HANDLE stop, DWORD patienceMs)
        : interrupter(stop), patienceMs_(patienceMs) {}

    bool interrupted() const override {
        return !(finishing_ && GetTickCount64() - finishingSince_ < patienceMs_) &&
               interrupter::interrupted();
    }

protected:
    // The patience begins.
    void beginFinish() {
        finishing_ = true;
        finishingSince_ = GetTickCount64();
    }

private:
    DWORD patienceMs_;
    bool finishing_ = false;
    ULONGLONG finishingSince_ = 0;  // tick count, milliseconds
};

}  // namespace dorvo
