// Marks what vssreq.dll exports.
#pragma once

#if defined(DORVO_VSSREQ_BUILD)
#define DORVO_VSSREQ_API __declspec(dllexport)
#else
#define DORVO_VSSREQ_API __declspec(dllimport)
#endif
