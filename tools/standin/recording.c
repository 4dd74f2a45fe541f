/* The recording interface of standin.h, shared by both back-ends of the
   Windows tests: the reference-backed stand-in (mingw) and the bridge to
   the real computational library (winelib). Each supplies the services
   themselves and calls in here to log, refuse and count. */
#include <stdint.h>
#include <string.h>
#include <windows.h>

#include "recording.h"

enum { LOG_CAPACITY = 65536 };

static SRWLOCK lock = SRWLOCK_INIT;
static standin_event events[LOG_CAPACITY];
static int event_total;
static long long live_blocks;
static int refuse_countdown; /* the allocation that sees it reach 1 fails */
static int refuse_every;
static int printing = 1;
static standin_report_fn report_callback;
static void* report_context;

void recording_event(int kind, const void* caller, unsigned long long size, int alignment, void* pointer,
                     const char* name, long long position, long long length) {
  AcquireSRWLockExclusive(&lock);
  if (event_total < LOG_CAPACITY) {
    standin_event* e = &events[event_total];
    memset(e, 0, sizeof *e);
    e->kind = kind;
    e->caller = caller;
    e->size = size;
    e->alignment = alignment;
    e->pointer = pointer;
    if (name != NULL && length > 0) {
      size_t n = length < STANDIN_NAME_CAPACITY - 1 ? (size_t)length : STANDIN_NAME_CAPACITY - 1;
      memcpy(e->name, name, n);
    }
    e->position = position;
    e->length = length;
    e->entry_calls = standin_entry_total;
  }
  event_total++;
  ReleaseSRWLockExclusive(&lock);
}

void STANDIN_API standin_reset(void) {
  AcquireSRWLockExclusive(&lock);
  event_total = 0;
  live_blocks = 0;
  refuse_countdown = 0;
  refuse_every = 0;
  standin_entry_total = 0;
  for (int i = 0; i < standin_entry_name_count; i++) standin_entry_hits[i] = 0;
  ReleaseSRWLockExclusive(&lock);
}

int STANDIN_API standin_event_count(void) {
  AcquireSRWLockShared(&lock);
  int n = event_total;
  ReleaseSRWLockShared(&lock);
  return n;
}

int STANDIN_API standin_event_get(int i, standin_event* out) {
  int found = 0;
  AcquireSRWLockShared(&lock);
  if (i >= 0 && i < event_total && i < LOG_CAPACITY) {
    *out = events[i];
    found = 1;
  }
  ReleaseSRWLockShared(&lock);
  return found;
}

long long STANDIN_API standin_entry_calls(void) { return standin_entry_total; }

long long STANDIN_API standin_entry_calls_of(const char* entry) {
  for (int i = 0; i < standin_entry_name_count; i++)
    if (strcmp(standin_entry_names[i], entry) == 0) return standin_entry_hits[i];
  return -1;
}

void STANDIN_API standin_refuse_allocation(int k) {
  AcquireSRWLockExclusive(&lock);
  refuse_countdown = k > 0 ? k : 0;
  ReleaseSRWLockExclusive(&lock);
}

void STANDIN_API standin_refuse_all_allocations(int on) {
  AcquireSRWLockExclusive(&lock);
  refuse_every = on != 0;
  ReleaseSRWLockExclusive(&lock);
}

long long STANDIN_API standin_live_allocations(void) {
  AcquireSRWLockShared(&lock);
  long long n = live_blocks;
  ReleaseSRWLockShared(&lock);
  return n;
}

void STANDIN_API standin_set_report_callback(standin_report_fn callback, void* context) {
  AcquireSRWLockExclusive(&lock);
  report_callback = callback;
  report_context = context;
  ReleaseSRWLockExclusive(&lock);
}

void STANDIN_API standin_set_printing(int on) { printing = on != 0; }

static int refused_now(void) {
  AcquireSRWLockExclusive(&lock);
  int refuse = refuse_every;
  if (refuse_countdown > 0 && --refuse_countdown == 0) refuse = 1;
  ReleaseSRWLockExclusive(&lock);
  return refuse;
}

void* recording_obtain(size_t bytes, int alignment, int kind, const void* caller, recording_allocate_fn allocate) {
  if (refused_now()) {
    recording_event(STANDIN_REFUSED, caller, bytes, alignment, NULL, NULL, 0, 0);
    return NULL;
  }
  void* p = allocate(bytes, alignment);
  if (p != NULL) {
    AcquireSRWLockExclusive(&lock);
    live_blocks++;
    ReleaseSRWLockExclusive(&lock);
  }
  recording_event(p ? kind : STANDIN_REFUSED, caller, bytes, alignment, p, NULL, 0, 0);
  return p;
}

void recording_release(void* p, int kind, const void* caller, recording_release_fn release) {
  recording_event(kind, caller, 0, 0, p, NULL, 0, 0);
  if (p == NULL) return;
  AcquireSRWLockExclusive(&lock);
  live_blocks--;
  ReleaseSRWLockExclusive(&lock);
  release(p);
}

int recording_default_report(const char* name, const void* position, long long length, const void* caller) {
  const long long pos = position ? *(const long long*)position : 0;
  recording_event(STANDIN_DEFAULT_REPORT, caller, 0, 0, NULL, name, pos, length);
  AcquireSRWLockShared(&lock);
  standin_report_fn callback = report_callback;
  void* context = report_context;
  ReleaseSRWLockShared(&lock);
  if (callback) callback(name, pos, length, context);
  return printing;
}
