#include "resident/systemwatch.h"

#include <array>

#include "base/log.h"
#include "base/logfile.h"
#include "base/thread.h"
#include "scheduler/iocp_dispatcher.h"
#include "text/agenterror.h"
#include "text/failuretext.h"

namespace dorvo::agent {
namespace {

constexpr const wchar_t* windowClass = L"DorvoSystemWatch";
constexpr const wchar_t* zoneKey = L"SYSTEM\\CurrentControlSet\\Control\\TimeZoneInformation";

// A top-level window, as messages to all windows go to no others; never shown. Made, used and
// destroyed on one thread. Without one (a service has no desktop) there are no messages.
class HiddenWindow {
public:
    // The procedure finds `data` among the window's data.
    HiddenWindow(WNDPROC procedure, const void* data) {
        WNDCLASSW description{};
        description.lpfnWndProc = procedure;
        description.hInstance = GetModuleHandleW(nullptr);
        description.lpszClassName = windowClass;
        RegisterClassW(&description);
        window_ = CreateWindowExW(0, windowClass, L"", WS_OVERLAPPED, 0, 0, 0, 0, nullptr, nullptr,
                                  description.hInstance, nullptr);
        if (window_ != nullptr) {
            SetWindowLongPtrW(window_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(data));
        }
    }
    ~HiddenWindow() {
        if (window_ != nullptr) {
            DestroyWindow(window_);
        }
        UnregisterClassW(windowClass, GetModuleHandleW(nullptr));
    }
    HiddenWindow(const HiddenWindow&) = delete;
    HiddenWindow& operator=(const HiddenWindow&) = delete;

private:
    HWND window_ = nullptr;
};

// Signals its event when a value of the key has changed.
class ZoneKey {
public:
    ZoneKey() : changed_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
        HKEY key = nullptr;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, zoneKey, 0, KEY_NOTIFY, &key) == ERROR_SUCCESS) {
            key_.reset(key);
        }
        listen();
    }

    HANDLE changed() const { return changed_.get(); }
    void listen() {
        if (key_) {
            RegNotifyChangeKeyValue(key_.get(), FALSE, REG_NOTIFY_CHANGE_LAST_SET, changed_.get(),
                                    TRUE);
        }
    }

private:
    KernelHandle changed_;
    RegistryKey key_;
};

SystemWatch::News newsOfPower(WPARAM event) {
    return event == PBT_APMRESUMEAUTOMATIC || event == PBT_APMRESUMESUSPEND
               ? SystemWatch::News::wake
               : SystemWatch::News::none;
}

}  // namespace

SystemWatch::SystemWatch(HANDLE sessionEnds)
    : sessionEnds_(sessionEnds), stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    if (!startThread(&SystemWatch::body, this, thread_)) {
        throw AgentError("The watch over the clock cannot be started: " +
                         failureText(GetLastError()));
    }
}

SystemWatch::~SystemWatch() {
    SetEvent(stop_.get());
    joinThread(thread_);
}

SystemWatch::News SystemWatch::newsOfMessage(UINT message, WPARAM parameter) {
    return message == WM_TIMECHANGE       ? News::clockChange
           : message == WM_POWERBROADCAST ? newsOfPower(parameter)
                                          : News::none;
}

SystemWatch::News SystemWatch::newsOfControl(DWORD control, DWORD eventType) {
    return control == SERVICE_CONTROL_TIMECHANGE   ? News::clockChange
           : control == SERVICE_CONTROL_POWEREVENT ? newsOfPower(eventType)
                                                   : News::none;
}

bool SystemWatch::messageEndsSession(UINT message, WPARAM parameter) {
    return message == WM_ENDSESSION && parameter != FALSE;
}

LRESULT SystemWatch::handleMessage(HWND window, UINT message, WPARAM parameter, LPARAM other) {
    const auto* const self =
        reinterpret_cast<const SystemWatch*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (const News news = newsOfMessage(message, parameter); news != News::none) {
        tell(news);
    } else if (self != nullptr && messageEndsSession(message, parameter)) {
        SetEvent(self->sessionEnds_);
        WaitForSingleObject(self->stop_.get(), INFINITE);
    }
    return DefWindowProcW(window, message, parameter, other);
}

void SystemWatch::tell(News news) {
    switch (news) {
        case News::none: break;
        case News::clockChange:
            logLine(LogLevel::information,
                    "The clock may have changed: what is due when is planned again.");
            IocpDispatherWrapper::notifyTimeChange();
            break;
        case News::wake:
            logLine(LogLevel::information, "The machine has woken: what has come due begins.");
            IocpDispatherWrapper::notifyWake();
            break;
    }
}

DWORD SystemWatch::body(void* self) {
    static_cast<const SystemWatch*>(self)->watch();
    return 0;
}

void SystemWatch::watch() const {
    const HiddenWindow window(&SystemWatch::handleMessage, this);
    ZoneKey zone;
    const std::array<HANDLE, 2> wakers = {stop_.get(), zone.changed()};
    for (;;) {
        const DWORD woken = MsgWaitForMultipleObjects(static_cast<DWORD>(wakers.size()),
                                                      wakers.data(), FALSE, INFINITE, QS_ALLINPUT);
        if (woken == WAIT_OBJECT_0 || woken == WAIT_FAILED) {
            return;
        }
        if (woken == WAIT_OBJECT_0 + 1) {
            zone.listen();
            tell(News::clockChange);
            continue;
        }
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != 0) {
            DispatchMessageW(&message);
        }
    }
}

}  // namespace dorvo::agent
