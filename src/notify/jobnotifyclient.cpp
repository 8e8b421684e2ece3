#include "notify/jobnotifyclient.h"

#include <json_spirit/json_spirit.h>

#include <utility>

#include "base/job_state.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/text.h"

namespace dorvo {
namespace {

// An answer is some hundred bytes long. Of one that does not end, this much is kept.
constexpr size_t responseLimit = size_t{1} << 20;

}  // namespace

JobNotifyClient::JobNotifyClient(DWORD retryDelayMs) : retryDelayMs_(retryDelayMs) {}

JobNotifyClient::~JobNotifyClient() {
    Close();
}

HRESULT JobNotifyClient::Open(const wchar_t* host, uint16_t port) {
    return whileOpen([&] {
        HRESULT result = openConnection(host, port);
        if (SUCCEEDED(result)) {
            result = openRequest(connection_.get(), L"GET", L"/jobnotify/");
        }
        return SUCCEEDED(result) ? send() : result;
    });
}

HRESULT JobNotifyClient::openConnection(const wchar_t* host, uint16_t port) {
    if (!session_) {
        session_.reset(WinHttpOpen(nullptr, WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME,
                                   WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC));
    }
    if (session_ && !connection_) {
        connection_.reset(WinHttpConnect(session_.get(), host, port, 0));
    }
    if (connection_) {
        return S_OK;
    }
    const DWORD error = GetLastError();
    log(LogLevel::error, "Failed to connect to notify endpoint {%s:%u}, errorcode=%d, %s.\n",
        toUtf8(host == nullptr ? L"" : host).c_str(), port, error, errorText(error));
    return HRESULT_FROM_WIN32(error);
}

HRESULT JobNotifyClient::OnReadComplete(const void* data, DWORD size) {
    if (response_.size() <= responseLimit) {
        response_.append(static_cast<const char*>(data), size);
    }
    return S_OK;
}

void JobNotifyClient::OnResponseComplete(HRESULT result) {
    // Cleared first: the next response may begin while OnJobState() still has this one.
    const std::string text = std::exchange(response_, {});
    if (FAILED(result)) {
        return;
    }
    json_spirit::Value value;
    json_spirit::read_or_throw(text, value);
    const json_spirit::Object& answer = value.get_obj();
    const std::string& state = json_spirit::object_get_str_or_throw(answer, "state");
    const std::string& id = json_spirit::object_get_str_or_throw(answer, "id");
    OnJobState(id.c_str(), jobStateFromString(state.c_str()));
}

void JobNotifyClient::OnRequestError(const WINHTTP_ASYNC_RESULT& result) {
    response_.clear();
    if (result.dwResult != API_SEND_REQUEST) {
        return;
    }
    constexpr HRESULT sentByAnother = HRESULT_FROM_WIN32(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
    HRESULT sent = E_FAIL;
    while (FAILED(sent) && sent != sentByAnother && !closedWithin(retryDelayMs_)) {
        sent = send();
    }
}

}  // namespace dorvo
