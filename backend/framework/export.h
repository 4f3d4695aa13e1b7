// Which symbols leave the shared libraries. Everything else is hidden.
#pragma once

#if defined(_WIN32)
#define TARNWICK_EXPORT __declspec(dllexport)
#define TARNWICK_IMPORT __declspec(dllimport)
#else
#define TARNWICK_EXPORT __attribute__((visibility("default")))
#define TARNWICK_IMPORT __attribute__((visibility("default")))
#endif

#if defined(TARNWICK_FRAMEWORK_BUILD)
#define TARNWICK_FRAMEWORK_API TARNWICK_EXPORT
#else
#define TARNWICK_FRAMEWORK_API TARNWICK_IMPORT
#endif

#if defined(TARNWICK_FILTERS_BUILD)
#define TARNWICK_FILTERS_API TARNWICK_EXPORT
#else
#define TARNWICK_FILTERS_API TARNWICK_IMPORT
#endif

#if defined(TARNWICK_WORKBENCH_BUILD)
#define TARNWICK_WORKBENCH_API TARNWICK_EXPORT
#else
#define TARNWICK_WORKBENCH_API TARNWICK_IMPORT
#endif
