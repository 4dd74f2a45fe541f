// The routines of liblapack.so.3 that lie outside the routine set come from
// the reference LAPACK library. Each has an exported stub that puts its index
// in a register and jumps to the dispatcher, which jumps on to the address in
// its slot, resolved on first call.
#pragma once
#include "dropin/export.h"

extern "C" {
VORN_DROPIN_HIDDEN extern const char* const vorn_reference_names[];
VORN_DROPIN_HIDDEN extern const unsigned vorn_reference_count;
VORN_DROPIN_HIDDEN extern void* vorn_reference_slots[];

// Called by the dispatcher, with every argument register saved, when a slot
// is still empty: returns the routine's address and fills the slot.
VORN_DROPIN_HIDDEN void* vorn_reference_resolve(unsigned index);
}
