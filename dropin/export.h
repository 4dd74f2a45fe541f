// The companion library exports the standard names only; everything else
// stays hidden.
#pragma once
#define VORN_DROPIN_EXPORT __attribute__((visibility("default")))
