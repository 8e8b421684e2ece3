// Runs commands against one server: connects when needed, sends, receives, follows redirects to the
// same server, and tries a failed exchange once more. Redirects of one exchange have no limit but
// come with growing pauses.
//
// The connection stays open between commands; one that the server has closed or spoken over since
// is replaced before the next command is sent, which does not count as a try. One thread at a time.
#pragma once

#include <cstdint>
#include <memory>

#include "base/api.h"
#include "http_util/http_invoker_t.h"

namespace dorvo {

class HTTP_Command;

class DORVO_JOB_API Web_Server_Invoker {
public:
    // Aims at a server. `send_buffer` (SO_SNDBUF) counts when it is positive. False for a null or
    // empty host or port 0, with the former server kept.
    bool set_server(const char* host, uint16_t port, int32_t send_buffer);

    // Asked before each sending and while receiving, so that neither a stalled server nor redirects
    // without end hold up a stop; the command then fails with 1223 and isn't tried again. Borrowed;
    // null asks nobody.
    void set_interrupter(const interrupter* interrupter);

    // One transition of the command's state. 0 to be called again, -1 to stop. Keeps the thread's
    // last error unless it reports a new one. Blocks.
    int step(HTTP_Command& command);

    // Steps a READY command until the exchange is over; after a failure once more from the start. A
    // command that is DONE stays so: set its state to READY to run it again. 0 when a response
    // was received whole, whatever its status; -1 with the thread's last error otherwise.
    int run(HTTP_Command& command);

    // The connection, null before set_server.
    HTTP_Invoker_T* invoker() const { return invoker_.get(); }

private:
    bool connect(HTTP_Command& command);
    void drop_stale();
    int send(HTTP_Command& command);
    int send_failed(HTTP_Command& command, uint32_t error);
    int receive(HTTP_Command& command);
    bool receive_body(HTTP_Command& command);
    int finish(HTTP_Command& command);
    int done(HTTP_Command& command);
    bool redirect(HTTP_Command& command);

    std::unique_ptr<HTTP_Invoker_T> invoker_;
    int32_t send_buffer_ = 0;
    const interrupter* interrupter_ = nullptr;  // borrowed
    uint32_t error_ = 0;                        // what this step reports; 0 when nothing
    unsigned redirects_ = 0;                    // followed in this exchange
    bool refused_ = false;                      // the command's own prepare said no
};

}  // namespace dorvo
