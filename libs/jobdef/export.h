// Marks what jobdef.dll exports.
#pragma once

#if defined(_WIN32) && defined(DORVO_JOBDEF_BUILD)
#define DORVO_JOBDEF_API __declspec(dllexport)
#elif defined(_WIN32)
#define DORVO_JOBDEF_API __declspec(dllimport)
#else
#define DORVO_JOBDEF_API
#endif
