// The companion library exports the standard names only; everything else
// stays hidden (a DLL exports only what is marked).
#pragma once
#if defined(_WIN32)
#define VORN_DROPIN_EXPORT __declspec(dllexport)
#define VORN_DROPIN_HIDDEN
#else
#define VORN_DROPIN_EXPORT __attribute__((visibility("default")))
#define VORN_DROPIN_HIDDEN __attribute__((visibility("hidden")))
#endif
