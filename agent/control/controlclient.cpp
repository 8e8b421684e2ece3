#include "control/controlclient.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <mutex>
#include <optional>

#include "text/failuretext.h"

namespace dorvo::agent {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace {

constexpr std::chrono::seconds sendPatience(10);
constexpr size_t answerBytes = size_t{64} << 20U;

ExitCode exitCodeOf(int code) {
    return code >= exitFailed && code <= exitStopped ? static_cast<ExitCode>(code) : exitFailed;
}

json_spirit::Object objectOf(const http::response<http::string_body>& answer) {
    try {
        json_spirit::Value value;
        json_spirit::read_or_throw(answer.body(), value);
        json_spirit::Object& object = value.get_obj();
        if (answer.result() == http::status::ok) {
            return std::move(object);
        }
        const std::string& sentence = json_spirit::object_get_str_or_throw(object, "error");
        throw AgentError(sentence, exitCodeOf(object["code"].get_int()));
    } catch (const AgentError&) {
        throw;
    } catch (const json_spirit::Error_position&) {
    } catch (const std::runtime_error&) {
    }
    throw ResidentGone("Another program answers at the resident agent's port");
}

}  // namespace

struct ControlClient::Impl {
    // Begins an operation and serves this thread's context until it is over.
    template <class Begin>
    beast::error_code run(const Begin& begin) {
        beast::error_code result;
        {
            std::lock_guard guard(lock);
            if (closed) {
                return asio::error::operation_aborted;
            }
            begin([&result](beast::error_code error, auto&&...) { result = error; });
        }
        io.restart();
        io.run();
        return result;
    }

    ControlAddress address;
    asio::io_context io{1};
    std::optional<beast::tcp_stream> stream;  // of the call in progress
    std::mutex lock;  // guards closed, and that no operation begins after it
    bool closed = false;
};

ControlClient::ControlClient(ControlAddress address) : impl_(std::make_unique<Impl>()) {
    impl_->address = std::move(address);
}

ControlClient::~ControlClient() = default;

void ControlClient::close() {
    std::lock_guard guard(impl_->lock);
    impl_->closed = true;
    // On the caller's thread, as all that touches the stream.
    asio::post(impl_->io, [this] {
        if (impl_->stream) {
            impl_->stream->close();
        }
    });
}

json_spirit::Object ControlClient::call(const std::string& name, const json_spirit::Object& body,
                                        std::chrono::milliseconds patience) {
    const asio::ip::tcp::endpoint endpoint(asio::ip::address_v4::loopback(), impl_->address.port);
    http::request<http::string_body> request(http::verb::post, "/control/" + name, 11);
    request.set(http::field::host, "127.0.0.1:" + std::to_string(impl_->address.port));
    request.set(http::field::authorization, "Bearer " + impl_->address.token);
    request.set(http::field::content_type, "application/json");
    request.keep_alive(false);
    request.body() = json_spirit::write(json_spirit::Value(body));
    request.prepare_payload();

    beast::tcp_stream& stream = impl_->stream.emplace(impl_->io);
    stream.expires_after(sendPatience);
    const beast::error_code unreachable =
        impl_->run([&](auto done) { stream.async_connect(endpoint, std::move(done)); });
    if (unreachable) {
        throw ResidentGone("The resident agent cannot be reached at its port " +
                           std::to_string(impl_->address.port) + ": " +
                           failureText(static_cast<uint32_t>(unreachable.value())));
    }
    // What was refused before it was sent to its end is answered too: the read tells.
    static_cast<void>(
        impl_->run([&](auto done) { http::async_write(stream, request, std::move(done)); }));
    beast::flat_buffer buffer;
    http::response_parser<http::string_body> parser;
    parser.body_limit(answerBytes);
    stream.expires_after(patience);
    const beast::error_code error =
        impl_->run([&](auto done) { http::async_read(stream, buffer, parser, std::move(done)); });
    if (error == beast::error::timeout) {
        throw ResidentGone("The resident agent does not answer: its log says what it does");
    }
    if (error) {
        throw ResidentGone("The resident agent has ended before it answered");
    }
    if (parser.get().result() == http::status::forbidden) {
        throw ResidentGone("The resident agent at port " + std::to_string(impl_->address.port) +
                           " has been started anew: run the command again");
    }
    if (parser.get().result() == http::status::service_unavailable) {
        throw ResidentGone("The resident agent is busy with other commands: try again in a moment");
    }
    return objectOf(parser.get());
}

}  // namespace dorvo::agent
