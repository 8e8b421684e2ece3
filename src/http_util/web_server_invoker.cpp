#include "http_util/web_server_invoker.h"

#include <ace/os_include/sys/os_uio.h>

#include <algorithm>
#include <array>
#include <exception>
#include <string>

#include "base/interrupter.h"
#include "base/last_error.h"
#include "base/log.h"
#include "http_util/http_command.h"
#include "http_util/http_connections.h"
#include "http_util/http_location.h"

namespace dorvo {
namespace {

// Of an answer other than 200 only the beginning is of interest.
constexpr size_t errorTextLimit = size_t{1024} * 1024;

// A server that moves a page does so once or twice. One that sends every request on, as the gate of
// a guests' network does, is asked ever more rarely.
constexpr DWORD firstPauseMs = 100;
constexpr DWORD longestPauseMs = 30'000;

// Before the nth redirect of an exchange is followed, counted from 1.
constexpr DWORD pause_before_redirect(unsigned nth) {
    DWORD pause = nth > 1 ? firstPauseMs : 0;
    for (unsigned i = 2; i < nth && pause < longestPauseMs; ++i) {
        pause *= 2;
    }
    return std::min(pause, longestPauseMs);
}

// Reads the rest of such an answer, so that the connection stays usable; a longer one is not worth
// the connection. False when it could not be read.
bool read_error_text(HTTP_Invoker_T& invoker, std::string& text) {
    HTTP_Input_Stream stream(invoker);
    std::array<char, 4096> bytes;
    for (;;) {
        const int64_t got = stream.read(bytes.data(), bytes.size());
        if (got <= 0) {
            return got == 0;
        }
        text.append(bytes.data(), static_cast<size_t>(got));
        if (text.size() >= errorTextLimit) {
            text.resize(errorTextLimit);
            invoker.close();
            return true;
        }
    }
}

}  // namespace

bool Web_Server_Invoker::set_server(const char* host, uint16_t port, int32_t send_buffer) {
    if (host == nullptr || *host == '\0') {
        return logFailed("Invalid host name(=null).\n");
    }
    if (port == 0) {
        return logFailed("Invalid server port(=0).\n");
    }
    invoker_ = std::make_unique<HTTP_Invoker_T>(host, port);
    invoker_->set_interrupter(interrupter_);
    send_buffer_ = send_buffer;
    return true;
}

void Web_Server_Invoker::set_interrupter(const interrupter* interrupter) {
    interrupter_ = interrupter;
    if (invoker_ != nullptr) {
        invoker_->set_interrupter(interrupter);
    }
}

int Web_Server_Invoker::run(HTTP_Command& command) {
    refused_ = false;
    redirects_ = 0;
    while (step(command) >= 0) {
    }
    const bool failed = (command.state() & HTTP_Command::FAILED) != 0;
    if (failed && !refused_ && GetLastError() != ERROR_CANCELLED) {
        log(LogLevel::information, "%s: Failed, retrying...\n", command.name());
        command.state(HTTP_Command::READY);
        while (step(command) >= 0) {
        }
    }
    return (command.state() & HTTP_Command::FAILED) != 0 ? -1 : 0;
}

int Web_Server_Invoker::step(HTTP_Command& command) {
    LastErrorGuard last;
    error_ = 0;
    const int state = command.state();
    int result = -1;
    if ((state & HTTP_Command::PASSING) != 0) {
        result = 0;
    } else if ((state & HTTP_Command::FAILED) != 0) {
        if (invoker_ != nullptr) {
            invoker_->close();
        }
    } else if (state == HTTP_Command::READY && interrupter_ != nullptr &&
               interrupter_->interrupted()) {
        send_failed(command, ERROR_CANCELLED);
    } else if (state != HTTP_Command::DONE && connect(command)) {
        switch (state) {
            case HTTP_Command::READY: result = send(command); break;
            case HTTP_Command::SENT: result = receive(command); break;
            case HTTP_Command::RECEIVED: result = done(command); break;
            default:
                error_ = ERROR_INVALID_PARAMETER;
                log(LogLevel::error, "%s: Unknown command state(%d).\n", command.name(), state);
                break;
        }
    }
    if (error_ != 0) {
        last.set(error_);
    }
    return result;
}

bool Web_Server_Invoker::connect(HTTP_Command& command) {
    if (invoker_ == nullptr) {
        command.state(HTTP_Command::CONNECT_FAILED);
        error_ = ERROR_INVALID_PARAMETER;
        return logFailed(
            "%s: The connection can't established, the connection is not initialized.\n",
            command.name());
    }
    if (command.state() == HTTP_Command::READY) {
        drop_stale();
    }
    if (invoker_->state() != HTTP_Invoker_T::NOT_CONNECTED) {
        return true;
    }
    HTTP_Connections& connections = *ATL::CComSingleton<HTTP_Connections>::instance();
    if (invoker_->connect(connections.connector()) != 0) {
        error_ = invoker_->last_error();
        invoker_->close();
        log(LogLevel::error, "%s: Connect to server failed. error = %d.\n", command.name(), error_);
        command.state(HTTP_Command::CONNECT_FAILED);
        return false;
    }
    if (send_buffer_ > 0) {
        invoker_->set_send_buffer(send_buffer_);
    }
    return true;
}

// A connection that was held since the last exchange. What came over it meanwhile answers nothing
// that was asked, least of all the next request; one that was closed is no failure of that either.
void Web_Server_Invoker::drop_stale() {
    const int state = invoker_->state();
    const bool held = state == HTTP_Invoker_T::CONNECTED || state == HTTP_Invoker_T::RESPONSE_DONE;
    if (held && !invoker_->quiet()) {
        log(LogLevel::debug, "The connection to %s:%u was closed or spoke unasked meanwhile.\n",
            invoker_->host(), invoker_->port());
        invoker_->close();
    }
}

int Web_Server_Invoker::send_failed(HTTP_Command& command, uint32_t error) {
    if (invoker_ != nullptr) {
        invoker_->close();
    }
    // An invoker that was called out of order has no error of its own.
    error_ = error != 0 ? error : ERROR_GEN_FAILURE;
    log(LogLevel::error, "%s: Send request failed. error = %d.\n", command.name(), error_);
    command.state(HTTP_Command::SEND_FAILED);
    return -1;
}

int Web_Server_Invoker::send(HTTP_Command& command) {
    if (!command.prepare_request()) {
        refused_ = true;
        error_ = GetLastError();
        command.state(HTTP_Command::SEND_FAILED);
        return -1;
    }
    command.state(HTTP_Command::SENDING);
    std::string text;
    const Memory_Pieces body = command.request_body(text);
    std::array<iovec, std::tuple_size_v<Memory_Pieces>> pieces{};
    constexpr int count = static_cast<int>(pieces.size());
    uint64_t length = 0;
    for (size_t i = 0; i < pieces.size(); ++i) {
        pieces[i].iov_base = const_cast<char*>(static_cast<const char*>(body[i].data));
        pieces[i].iov_len = static_cast<u_long>(body[i].length);
        length += body[i].length;
    }
    command.http_request().content_length(length);
    bool sent = invoker_->send_request(command.http_request()) == 0;
    if (sent && invoker_->state() == HTTP_Invoker_T::BODY_EXPECTED) {
        const bool empty = length == 0;
        sent = invoker_->chunked() ? (empty || invoker_->send_chunk(pieces.data(), count) >= 0) &&
                                         invoker_->send_chunk(nullptr, 0) >= 0
                                   : empty || invoker_->send_content(pieces.data(), count) >= 0;
    }
    if (!sent) {
        return send_failed(command, invoker_->last_error());
    }
    command.state(HTTP_Command::SENT);
    return 0;
}

int Web_Server_Invoker::receive(HTTP_Command& command) {
    command.state(HTTP_Command::RECEIVING);
    command.http_response().reset();
    invoker_->set_answer_timeout(command.answer_timeout());
    if (invoker_->recv_response(command.http_response()) != 0) {
        error_ = invoker_->last_error();
        invoker_->close();
        log(LogLevel::error, "%s: Receive response header failed. error = %d.\n", command.name(),
            error_);
        command.state(HTTP_Command::RECEIVE_FAILED);
        return 0;
    }
    if (invoker_->state() == HTTP_Invoker_T::RECEIVING_BODY && !receive_body(command)) {
        log(LogLevel::error, "%s: Receive response data failed. error = %d.\n", command.name(),
            error_);
        command.state(HTTP_Command::RECEIVE_FAILED);
        return 0;
    }
    command.state(HTTP_Command::RECEIVED);
    return finish(command);
}

bool Web_Server_Invoker::receive_body(HTTP_Command& command) {
    bool read = false;
    try {
        if (command.http_response().status() == 200) {
            HTTP_Input_Stream stream(*invoker_);
            read = command.read_body(stream);
        } else {
            read = read_error_text(*invoker_, command.error_text());
        }
        error_ = read ? ERROR_INVALID_DATA : GetLastError();
    } catch (const std::exception&) {
        error_ = ERROR_OUTOFMEMORY;
    }
    const bool whole = invoker_->state() == HTTP_Invoker_T::RESPONSE_DONE ||
                       invoker_->state() == HTTP_Invoker_T::NOT_CONNECTED;
    if (read && whole) {
        error_ = 0;
        return true;
    }
    return false;
}

int Web_Server_Invoker::finish(HTTP_Command& command) {
    if (!invoker_->keep_alive() && invoker_->state() != HTTP_Invoker_T::NOT_CONNECTED) {
        log(LogLevel::information, "%s: connection closed.\n", command.name());
        invoker_->close();
    }
    const int status = command.http_response().status();
    if (status >= 300 && status <= 399 && redirect(command)) {
        redirects_ += 1;
        const interrupter nobody;
        (interrupter_ != nullptr ? *interrupter_ : nobody).wait(pause_before_redirect(redirects_));
        command.state(HTTP_Command::READY);
        return 0;
    }
    return done(command);
}

int Web_Server_Invoker::done(HTTP_Command& command) {
    command.handle_response();
    command.state(HTTP_Command::DONE);
    return 0;
}

// Aims the request at the path that the server names. The server itself stays the same one: a port
// of 0 is never accepted as another.
bool Web_Server_Invoker::redirect(HTTP_Command& command) {
    const char* const location = command.http_response().location();
    log(LogLevel::debug, "%s: redirect to %s.\n", command.name(),
        location != nullptr ? location : "unkown");
    std::string host;
    std::string path;
    if (location == nullptr || !split_location(location, host, path)) {
        return false;
    }
    set_server(host.c_str(), 0, 0);
    return command.http_request().uri(path) == 0;
}

}  // namespace dorvo
