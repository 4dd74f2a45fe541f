/* What the generated forwarders (entries.c) share with runtime.c. */
#ifndef VORN_BRIDGE_H
#define VORN_BRIDGE_H
#include <windows.h>

#include "recording.h"

/* An argument or result as it crosses: every entry takes pointers and
   integers only, which both conventions pass register-wide, in order. */
typedef long long W;

/* The computational library's entry behind each forwarder, by index. */
extern void* bridge_target[];
/* Set on a thread that entered the bridge from Windows code: only there may
   the library's calls into the caller's handlers go on into Windows code. */
extern __thread int bridge_windows_thread;

static inline void bridge_enter(int index) {
  bridge_windows_thread = 1;
  __atomic_add_fetch(&standin_entry_total, 1, __ATOMIC_RELAXED);
  __atomic_add_fetch(&standin_entry_hits[index], 1, __ATOMIC_RELAXED);
}

/* The caller's SELECT/SELCTG for this thread's call; returns the one it
   replaces. The library calls the thunk of the callback's arity instead. */
W bridge_select_swap(W select);
extern void* const bridge_select_thunk[4];
#endif
