// Repointing another library's relocated references to a name.
#pragma once
#include <link.h>

#include "dropin/export.h"

// Points every relocated slot of `symbol` in `map` (global offset table and
// procedure linkage slots, read-only after relocation or not) at `target`;
// returns the value the first held, or null when there is none.
VORN_DROPIN_HIDDEN void* vorn_repoint(const link_map* map, const char* symbol, void* target);
