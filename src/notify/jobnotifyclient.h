// Asks a local endpoint for news of a job's state: GET "/jobnotify/", answered by a JSON object
// with the string members "id" and "state".
//
// A request that cannot be sent is sent again after a while, for as long as it takes. An answer of
// another form is logged and dropped. One Open() brings one answer; who wants the next one calls
// Open() again, in OnJobState() for instance. The class that implements OnJobState() calls Close()
// in its destructor.
#pragma once

#include <cstdint>
#include <string>

#include "notify/winhttprequest.h"

namespace dorvo {

class DORVO_JOB_API JobNotifyClient : public WinHttpRequest {
public:
    static constexpr DWORD defaultRetryDelayMs = 3000;

    ~JobNotifyClient() override;

    // Sends the request; does not wait for the answer. Host and port count in the first call: later
    // ones send the same request again. ERROR_WINHTTP_INCORRECT_HANDLE_STATE while one is under
    // way, ERROR_CANCELLED after Close(). One thread at a time.
    HRESULT Open(const wchar_t* host, uint16_t port);

protected:
    explicit JobNotifyClient(DWORD retryDelayMs = defaultRetryDelayMs);

    HRESULT OnReadComplete(const void* data, DWORD size) override;
    // Throws when the response has another form.
    void OnResponseComplete(HRESULT result) override;
    void OnRequestError(const WINHTTP_ASYNC_RESULT& result) override;

    // `state` is a JobState, 0 for a text that names none. On a thread of WinHTTP: hand the news on
    // and return.
    virtual void OnJobState(const char* id, int state) = 0;

private:
    HRESULT openConnection(const wchar_t* host, uint16_t port);

    const DWORD retryDelayMs_;
    WinHttpHandle session_;
    WinHttpHandle connection_;
    std::string response_;
};

}  // namespace dorvo
