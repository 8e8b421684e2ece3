// Marks what job.dll exports to its host.
#pragma once

#if defined(_WIN32) && defined(DORVO_JOB_BUILD)
#define DORVO_JOB_API __declspec(dllexport)
#elif defined(_WIN32)
#define DORVO_JOB_API __declspec(dllimport)
#else
#define DORVO_JOB_API
#endif
