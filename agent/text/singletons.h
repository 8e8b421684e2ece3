// The settings singletons by short names.
#pragma once

#include "settings/cookiemanager.h"
#include "settings/keymanager.h"
#include "settings/options.h"
#include "settings/passwordmanager.h"

namespace dorvo::agent {

template <class T>
T& singleton() {
    return *ATL::CComSingleton<T, ATL::CComAutoCriticalSection>::instance();
}

inline OptionsImpl& options() {
    return singleton<OptionsImpl>();
}
inline CookieManagerImpl& cookies() {
    return singleton<CookieManagerImpl>();
}
inline KeyManagerImpl& keys() {
    return singleton<KeyManagerImpl>();
}
inline PasswordManagerImpl& passwords() {
    return singleton<PasswordManagerImpl>();
}

}  // namespace dorvo::agent
