// Export macro shared by every public header of roomcore.dll.
#pragma once

#if defined(ROOMCORE_BUILD)
#define ROOMCORE_API __declspec(dllexport)
#else
#define ROOMCORE_API __declspec(dllimport)
#endif
