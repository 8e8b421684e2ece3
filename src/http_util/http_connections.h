// The module's connections: the one connector and its cache of idle connections.
//
// Reached through ATL::CComSingleton<HTTP_Connections>. Invokers take connections from it and give
// them back; any thread.
#pragma once

#include <cstddef>

#include "base/singleton.h"

namespace dorvo {

class HTTP_Connector;

class DORVO_JOB_API HTTP_Connections {
public:
    HTTP_Connections();
    HTTP_Connections(const HTTP_Connections&) = delete;
    HTTP_Connections& operator=(const HTTP_Connections&) = delete;

    HTTP_Connector& connector() { return connector_; }

    // Closes the idle connections. Call it when the jobs have ended; may be called again, and the
    // connector goes on to work.
    void stop();

    // Connections that exist, idle or in use.
    size_t count();

private:
    HTTP_Connector& connector_;  // lives as long as the process: nothing is closed at its exit
};

}  // namespace dorvo

extern template class DORVO_JOB_API
    ATL::CComSingleton<dorvo::HTTP_Connections, ATL::CComAutoCriticalSection>;
