// Marks what httpmsg.dll exports.
#pragma once

#if defined(DORVO_HTTPMSG_BUILD)
#define DORVO_HTTPMSG_API __declspec(dllexport)
#else
#define DORVO_HTTPMSG_API __declspec(dllimport)
#endif
