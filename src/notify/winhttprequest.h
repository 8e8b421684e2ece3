// One asynchronous HTTP request, which may be sent again and again: turns the status callbacks of
// WinHTTP into virtual calls.
//
// The virtual calls come on WinHTTP's threads, one at a time for one response. What they throw is
// logged and goes no further. A class that overrides them calls Close() at the start of its own
// destructor: from then on none comes any more.
#pragma once

#include <windows.h>
#include <winhttp.h>

#include <memory>

#include "base/api.h"
#include "base/handle.h"

namespace dorvo {

// Owns one handle of the platform's HTTP service: a session, a connection or a request.
struct WinHttpHandlePolicy {
    using value_type = HINTERNET;
    static value_type invalid() { return nullptr; }
    static void close(value_type value) { WinHttpCloseHandle(value); }
};

using WinHttpHandle = UniqueHandle<WinHttpHandlePolicy>;

class DORVO_JOB_API WinHttpRequest : protected WinHttpHandle {
public:
    // Close()
    virtual ~WinHttpRequest();
    WinHttpRequest(const WinHttpRequest&) = delete;
    WinHttpRequest& operator=(const WinHttpRequest&) = delete;

    // Ends whatever is under way, for good: what is opened or sent afterwards fails with
    // ERROR_CANCELLED. Waits for the virtual calls in progress, never for the server; from within
    // such a call it waits for nothing, so the object is not destroyed there. Idempotent; any
    // thread.
    void Close();

protected:
    WinHttpRequest();

    // The next bytes of a body. A failure ends the response with that result.
    virtual HRESULT OnReadComplete(const void* data, DWORD size) = 0;
    // The end of a response: 0, or what OnReadComplete() has answered.
    virtual void OnResponseComplete(HRESULT result) = 0;
    // The operation dwResult (API_...) has failed with dwError. The request may be sent again.
    virtual void OnRequestError(const WINHTTP_ASYNC_RESULT& result) = 0;

    // Runs `body` unless the request is closed, while Close() waits for its end. ERROR_CANCELLED
    // once it is closed.
    template <class Body>
    HRESULT whileOpen(Body&& body) {
        const Inside inside(*state_);
        return inside ? body() : HRESULT_FROM_WIN32(ERROR_CANCELLED);
    }

    // Makes the request on a connection, which stays the caller's and outlives it. A request that
    // is there already stays. Logged.
    HRESULT openRequest(HINTERNET connection, const wchar_t* verb, const wchar_t* path);
    // Sends the request without waiting. ERROR_WINHTTP_INCORRECT_HANDLE_STATE while it is under
    // way. Logged.
    HRESULT send();
    // Waits until the request is closed; false when the time has passed.
    bool closedWithin(DWORD ms) const;

private:
    struct State;

    // A stay that Close() waits for; false once the request is closed.
    class DORVO_JOB_API Inside {
    public:
        explicit Inside(State& state);
        ~Inside();
        Inside(const Inside&) = delete;
        Inside& operator=(const Inside&) = delete;
        explicit operator bool() const { return entered_; }

    private:
        State& state_;
        bool entered_;
    };

    static void CALLBACK onStatus(HINTERNET handle, DWORD_PTR context, DWORD status, void* info,
                                  DWORD size);
    void advance(HINTERNET handle, DWORD status, void* info, DWORD size);
    void fail(const WINHTTP_ASYNC_RESULT& result);
    void complete(HRESULT result);

    // What a late callback may touch lives as long as WinHTTP may call, whatever became of the
    // object.
    std::shared_ptr<State> state_;
};

}  // namespace dorvo
