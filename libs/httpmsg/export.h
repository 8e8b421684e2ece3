// Marks what httpmsg.dll exports; nothing where the library is compiled in.
#pragma once

#if defined(_WIN32) && defined(DORVO_HTTPMSG_BUILD)
#define DORVO_HTTPMSG_API __declspec(dllexport)
#elif defined(_WIN32)
#define DORVO_HTTPMSG_API __declspec(dllimport)
#else
#define DORVO_HTTPMSG_API
#endif
