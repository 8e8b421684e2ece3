#include "notify/winhttprequest.h"

#include <json_spirit/json_spirit.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include "base/last_error.h"
#include "base/log.h"

namespace dorvo {
namespace {

constexpr int connectTimeoutMs = 60'000;
constexpr int sendTimeoutMs = 30'000;

HRESULT failure(const char* what, DWORD error) {
    log(LogLevel::error, "Failed to %s notify request, errorcode=%d, %s.\n", what, error,
        errorText(error));
    return HRESULT_FROM_WIN32(error);
}

}  // namespace

struct WinHttpRequest::State {
    std::mutex lock;  // guards the members up to closing
    std::condition_variable left;
    std::vector<DWORD> inside;  // the threads that Close() waits for, once for each stay
    bool closed = false;
    bool sent = false;     // a request is under way
    KernelHandle closing;  // manual-reset, made with the request and then unchanged

    WinHttpRequest* object = nullptr;      // borrowed; there for whoever is inside
    std::array<char, 8192> buffer{};       // WinHTTP reads into it
    std::shared_ptr<State> heldByWinHttp;  // itself, until the handle's last callback
};

WinHttpRequest::Inside::Inside(State& state) : state_(state) {
    std::lock_guard guard(state_.lock);
    entered_ = !state_.closed;
    if (entered_) {
        state_.inside.push_back(GetCurrentThreadId());
    }
}

// The last one out closes the handle, so that none is closed under a call that uses it.
WinHttpRequest::Inside::~Inside() {
    if (!entered_) {
        return;
    }
    WinHttpHandle closed;
    std::lock_guard guard(state_.lock);
    state_.inside.erase(std::ranges::find(state_.inside, GetCurrentThreadId()));
    if (state_.closed && state_.inside.empty()) {
        closed.reset(state_.object->release());
    }
    state_.left.notify_all();
}

WinHttpRequest::WinHttpRequest() : state_(std::make_shared<State>()) {
    state_->object = this;
}

WinHttpRequest::~WinHttpRequest() {
    Close();
}

void WinHttpRequest::Close() {
    WinHttpHandle closed;
    std::unique_lock guard(state_->lock);
    state_->closed = true;
    if (state_->closing) {
        SetEvent(state_->closing.get());
    }
    if (std::ranges::find(state_->inside, GetCurrentThreadId()) != state_->inside.end()) {
        return;
    }
    state_->left.wait(guard, [&] { return state_->inside.empty(); });
    closed.reset(release());
}

HRESULT WinHttpRequest::openRequest(HINTERNET connection, const wchar_t* verb,
                                    const wchar_t* path) {
    if (*this) {
        return S_OK;
    }
    KernelHandle closing(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!closing) {
        return failure("open", GetLastError());
    }
    WinHttpHandle request(WinHttpOpenRequest(connection, verb, path, nullptr, WINHTTP_NO_REFERER,
                                             WINHTTP_DEFAULT_ACCEPT_TYPES, 0));
    if (!request) {
        return failure("open", GetLastError());
    }
    // The handle may be closed before it was ever sent: its last callback needs the context too.
    auto context = reinterpret_cast<DWORD_PTR>(state_.get());
    if (WinHttpSetTimeouts(request.get(), 0, connectTimeoutMs, sendTimeoutMs, -1) == 0 ||
        WinHttpSetOption(request.get(), WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof(context)) ==
            0 ||
        WinHttpSetStatusCallback(request.get(), onStatus, WINHTTP_CALLBACK_FLAG_ALL_NOTIFICATIONS,
                                 0) == WINHTTP_INVALID_STATUS_CALLBACK) {
        return failure("open", GetLastError());
    }
    state_->heldByWinHttp = state_;
    std::lock_guard guard(state_->lock);
    state_->closing = std::move(closing);
    reset(request.release());
    return S_OK;
}

HRESULT WinHttpRequest::send() {
    {
        std::lock_guard guard(state_->lock);
        if (state_->closed) {
            return HRESULT_FROM_WIN32(ERROR_CANCELLED);
        }
        if (state_->sent) {
            return HRESULT_FROM_WIN32(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
        }
        state_->sent = true;
    }
    if (WinHttpSendRequest(get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0,
                           reinterpret_cast<DWORD_PTR>(state_.get())) != 0) {
        return S_OK;
    }
    const HRESULT result = failure("send", GetLastError());
    std::lock_guard guard(state_->lock);
    state_->sent = false;
    return result;
}

bool WinHttpRequest::closedWithin(DWORD ms) const {
    return WaitForSingleObject(state_->closing.get(), ms) != WAIT_TIMEOUT;
}

void CALLBACK WinHttpRequest::onStatus(HINTERNET handle, DWORD_PTR context, DWORD status,
                                       void* info, DWORD size) {
    auto* address = reinterpret_cast<State*>(context);
    if (address == nullptr) {
        return;
    }
    const std::shared_ptr<State> state = address->heldByWinHttp;
    if (status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING) {
        state->heldByWinHttp.reset();
        return;
    }
    const Inside inside(*state);
    if (!inside) {
        return;
    }
    try {
        state->object->advance(handle, status, info, size);
    } catch (const json_spirit::Error_position& error) {
        log(LogLevel::error, "Failed to read notify response {line %u, column %u}, %s.\n",
            error.line_, error.column_, error.reason_);
    } catch (const std::exception& error) {
        log(LogLevel::error, "Failed to handle notify response, %s.\n", error.what());
    } catch (...) {
        log(LogLevel::error, "Failed to handle notify response.\n");
    }
}

// The step that follows on what has happened. A step that fails at once may be told of here only:
// then nothing else comes.
void WinHttpRequest::advance(HINTERNET handle, DWORD status, void* info, DWORD size) {
    const auto step = [&](DWORD operation, BOOL begun) {
        if (begun == 0) {
            fail({operation, GetLastError()});
        }
    };
    const auto query = [&] {
        step(API_QUERY_DATA_AVAILABLE, WinHttpQueryDataAvailable(handle, nullptr));
    };
    switch (status) {
        case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
            step(API_RECEIVE_RESPONSE, WinHttpReceiveResponse(handle, nullptr));
            break;
        case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE: query(); break;
        case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE: {
            auto& buffer = state_->buffer;
            const DWORD there = *static_cast<const DWORD*>(info);
            if (there == 0) {
                complete(S_OK);
            } else {
                const DWORD wanted = std::min(there, static_cast<DWORD>(buffer.size()));
                step(API_READ_DATA, WinHttpReadData(handle, buffer.data(), wanted, nullptr));
            }
            break;
        }
        case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
            if (size == 0) {
                complete(S_OK);
            } else if (const HRESULT result = OnReadComplete(info, size); FAILED(result)) {
                complete(result);
            } else {
                query();
            }
            break;
        case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
            fail(*static_cast<const WINHTTP_ASYNC_RESULT*>(info));
            break;
        default: break;
    }
}

void WinHttpRequest::fail(const WINHTTP_ASYNC_RESULT& result) {
    failure("complete", result.dwError);
    {
        std::lock_guard guard(state_->lock);
        state_->sent = false;
    }
    OnRequestError(result);
}

void WinHttpRequest::complete(HRESULT result) {
    {
        std::lock_guard guard(state_->lock);
        state_->sent = false;
    }
    OnResponseComplete(result);
}

}  // namespace dorvo
