// The routines of liblapack.so.3 that lie outside the routine set come from
// the reference LAPACK library. Each has an exported stub that puts its index
// in a register and jumps to the dispatcher, which jumps on to the address in
// its slot, resolved on first call.
#pragma once

extern "C" {
__attribute__((visibility("hidden"))) extern const char* const vorn_reference_names[];
__attribute__((visibility("hidden"))) extern const unsigned vorn_reference_count;
__attribute__((visibility("hidden"))) extern void* vorn_reference_slots[];

// Called by the dispatcher, with every argument register saved, when a slot
// is still empty: returns the routine's address and fills the slot.
__attribute__((visibility("hidden"))) void* vorn_reference_resolve(unsigned index);
}
