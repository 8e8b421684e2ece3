// Marks what jobdef.dll exports.
#pragma once

#if defined(DORVO_JOBDEF_BUILD)
#define DORVO_JOBDEF_API __declspec(dllexport)
#else
#define DORVO_JOBDEF_API __declspec(dllimport)
#endif
