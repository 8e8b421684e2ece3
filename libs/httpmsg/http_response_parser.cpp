#include "httpmsg/http_response_parser.h"

#include <boost/beast/http/basic_parser.hpp>
#include <string>

namespace dorvo {

// Hands what the parser finds to a response. It stops at the end of the head, so the body's
// operations are never called.
class HTTP_Response_Parser::Impl final : public boost::beast::http::basic_parser<false> {
public:
    Impl() {
        eager(false);
        header_limit(HEAD_LIMIT);
        body_limit(boost::none);
    }

    HTTP_Response* response = nullptr;
    size_t consumed = 0;

private:
    using error_code = boost::beast::error_code;
    using string_view = boost::beast::string_view;

    void on_request_impl(boost::beast::http::verb, string_view, string_view, int,
                         error_code&) override {}
    void on_response_impl(int code, string_view, int version, error_code&) override {
        response->status(code);
        response->version(version / 10, version % 10);
    }
    void on_field_impl(boost::beast::http::field, string_view name, string_view value,
                       error_code& error) override {
        if (response->headers().put(std::string(name), std::string(value)) != 0) {
            error = make_error_code(boost::beast::http::error::bad_value);
        }
    }
    void on_header_impl(error_code&) override {}
    void on_body_init_impl(const boost::optional<std::uint64_t>&, error_code&) override {}
    std::size_t on_body_impl(string_view, error_code&) override { return 0; }
    void on_chunk_header_impl(std::uint64_t, string_view, error_code&) override {}
    std::size_t on_chunk_body_impl(std::uint64_t, string_view, error_code&) override { return 0; }
    void on_finish_impl(error_code&) override {}
};

HTTP_Response_Parser::HTTP_Response_Parser() : impl_(std::make_unique<Impl>()) {}

HTTP_Response_Parser::~HTTP_Response_Parser() = default;

int HTTP_Response_Parser::parse(const char* data, size_t length, size_t& consumed,
                                HTTP_Response& response) {
    consumed = 0;
    impl_->response = &response;
    boost::beast::error_code error;
    // The parser takes the first line by itself and the fields with their end: one call each.
    while (!impl_->is_header_done() && !error) {
        const size_t used =
            impl_->put(boost::asio::const_buffer(data + consumed, length - consumed), error);
        consumed += used;
    }
    impl_->consumed += consumed;
    const bool more = error == boost::beast::http::error::need_more;
    if (error && !more) {
        return BAD_MESSAGE;
    }
    // What is pending counts too: a head may not grow beyond the limit piece by piece.
    if (impl_->consumed > HEAD_LIMIT ||
        (more && impl_->consumed + length - consumed > HEAD_LIMIT)) {
        return BAD_MESSAGE;
    }
    if (!impl_->is_header_done()) {
        return response.status() == 0 ? NOT_BEGUN : IN_HEAD;
    }
    if (response.status() < 100) {
        return BAD_MESSAGE;
    }
    response.received(impl_->content_length().value_or(0), impl_->chunked(), impl_->keep_alive());
    return HEAD_DONE;
}

bool HTTP_Response_Parser::has_body() const {
    return impl_->is_header_done() && !impl_->is_done() &&
           (impl_->chunked() || impl_->content_length().value_or(0) != 0);
}

}  // namespace dorvo
