/* What a back-end of the Windows tests shares with recording.c: the entry
   counters its entries keep, and the calls that log, refuse and count. */
#ifndef VORN_RECORDING_H
#define VORN_RECORDING_H
#include <stddef.h>

#include "standin.h"

/* Defined by the back-end's generated entries. */
extern volatile long long standin_entry_total;
extern volatile long long standin_entry_hits[];
extern const char* const standin_entry_names[];
extern const int standin_entry_name_count;

typedef void* (*recording_allocate_fn)(size_t bytes, int alignment);
typedef void (*recording_release_fn)(void* p);

void recording_event(int kind, const void* caller, unsigned long long size, int alignment, void* pointer,
                     const char* name, long long position, long long length);
/* An allocation service: refused when asked to be, else allocate's block. */
void* recording_obtain(size_t bytes, int alignment, int kind, const void* caller, recording_allocate_fn allocate);
void recording_release(void* p, int kind, const void* caller, recording_release_fn release);
/* mkl_serv_default_xerbla's record and callback; returns whether to print. */
int recording_default_report(const char* name, const void* position, long long length, const void* caller);
#endif
