#include "http_util/http_connections.h"

#include "base/log.h"
#include "http_util/http_connector.h"

namespace dorvo {
namespace {

HTTP_Connector& make_connector() {
    startAce();
    return *new HTTP_Connector;
}

}  // namespace

HTTP_Connections::HTTP_Connections() : connector_(make_connector()) {}

void HTTP_Connections::stop() {
    connector_.connections().close_idle();
}

size_t HTTP_Connections::count() {
    return connector_.connections().count();
}

}  // namespace dorvo

template class ATL::CComSingleton<dorvo::HTTP_Connections, ATL::CComAutoCriticalSection>;
