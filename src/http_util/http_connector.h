// ACE's strategy connector, put together so that it hands out cached connections.
#pragma once

#include <ace/Connector.h>

#include "http_util/http_connect_strategy.h"

namespace dorvo {

class HTTP_Connector : public ACE_Strategy_Connector<HTTP_Svc_Handler, ACE_SOCK_Connector> {
public:
    HTTP_Connector()
        : ACE_Strategy_Connector(nullptr, &nothing_, &strategy_, &no_activation_),
          creation_(nullptr, nullptr),
          strategy_(creation_) {}

    HTTP_Connect_Strategy& connections() { return strategy_; }

private:
    // The cached strategy makes and activates handlers; the connector itself must do neither.
    class Nothing : public ACE_Creation_Strategy<HTTP_Svc_Handler> {
    public:
        Nothing() : ACE_Creation_Strategy(nullptr, nullptr) {}
        int make_svc_handler(HTTP_Svc_Handler*&) override { return 0; }
    };

    Nothing nothing_;
    ACE_NOOP_Concurrency_Strategy<HTTP_Svc_Handler> no_activation_;
    ACE_Creation_Strategy<HTTP_Svc_Handler> creation_;
    HTTP_Connect_Strategy strategy_;
};

}  // namespace dorvo
