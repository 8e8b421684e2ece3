// What a job asks of whoever keeps it: the job manager.
#pragma once

#include <windows.h>

namespace dorvo {

class JobHost {
public:
    // Takes the handle of a thread that removes a job, to join it. Any thread.
    virtual void adoptRemoveThread(HANDLE thread) = 0;
    // Takes the job out and destroys it; called by the job's remove thread.
    virtual bool deleteJob(const char* id) = 0;
    // Has the runs told that storages are to drop; does not wait for it. Any thread.
    virtual void tellDrops() = 0;

protected:
    ~JobHost() = default;
};

}  // namespace dorvo
