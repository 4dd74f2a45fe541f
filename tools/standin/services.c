/* The mkl_serv_ services, the reference XERBLA replacements and the
   recording interface of standin.h. */
#include <ctype.h>
#include <malloc.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <windows.h>

#include "standin.h"

typedef void (*xerbla_fn)(const char*, const void*, long long);
typedef long long (*progress_fn)(void*, void*, void*, long long);

/* Defined by the generated entry stubs. */
extern volatile long long standin_entry_total;
extern volatile long long standin_entry_hits[];
extern const char* const standin_entry_names[];
extern const int standin_entry_name_count;

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
static volatile xerbla_fn installed_xerbla;
static volatile progress_fn installed_progress;

static void record(int kind, const void* caller, unsigned long long size, int alignment, void* pointer,
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

void standin_reset(void) {
  AcquireSRWLockExclusive(&lock);
  event_total = 0;
  live_blocks = 0;
  refuse_countdown = 0;
  refuse_every = 0;
  standin_entry_total = 0;
  for (int i = 0; i < standin_entry_name_count; i++) standin_entry_hits[i] = 0;
  ReleaseSRWLockExclusive(&lock);
}

int standin_event_count(void) {
  AcquireSRWLockShared(&lock);
  int n = event_total;
  ReleaseSRWLockShared(&lock);
  return n;
}

int standin_event_get(int i, standin_event* out) {
  int found = 0;
  AcquireSRWLockShared(&lock);
  if (i >= 0 && i < event_total && i < LOG_CAPACITY) {
    *out = events[i];
    found = 1;
  }
  ReleaseSRWLockShared(&lock);
  return found;
}

long long standin_entry_calls(void) { return standin_entry_total; }

long long standin_entry_calls_of(const char* entry) {
  for (int i = 0; i < standin_entry_name_count; i++)
    if (strcmp(standin_entry_names[i], entry) == 0) return standin_entry_hits[i];
  return -1;
}

void standin_refuse_allocation(int k) {
  AcquireSRWLockExclusive(&lock);
  refuse_countdown = k > 0 ? k : 0;
  ReleaseSRWLockExclusive(&lock);
}

void standin_refuse_all_allocations(int on) {
  AcquireSRWLockExclusive(&lock);
  refuse_every = on != 0;
  ReleaseSRWLockExclusive(&lock);
}

long long standin_live_allocations(void) {
  AcquireSRWLockShared(&lock);
  long long n = live_blocks;
  ReleaseSRWLockShared(&lock);
  return n;
}

void standin_set_report_callback(standin_report_fn callback, void* context) {
  AcquireSRWLockExclusive(&lock);
  report_callback = callback;
  report_context = context;
  ReleaseSRWLockExclusive(&lock);
}

void standin_set_printing(int on) { printing = on != 0; }

/* ---- allocation ---- */

static int refused_now(void) {
  AcquireSRWLockExclusive(&lock);
  int refuse = refuse_every;
  if (refuse_countdown > 0 && --refuse_countdown == 0) refuse = 1;
  ReleaseSRWLockExclusive(&lock);
  return refuse;
}

static void* obtain(size_t bytes, int alignment, int kind, const void* caller) {
  if (refused_now()) {
    record(STANDIN_REFUSED, caller, bytes, alignment, NULL, NULL, 0, 0);
    return NULL;
  }
  size_t align = 64;
  if (alignment >= 8 && (alignment & (alignment - 1)) == 0) align = (size_t)alignment;
  void* p = _aligned_malloc(bytes ? bytes : 1, align);
  if (p != NULL) {
    AcquireSRWLockExclusive(&lock);
    live_blocks++;
    ReleaseSRWLockExclusive(&lock);
  }
  record(p ? kind : STANDIN_REFUSED, caller, bytes, alignment, p, NULL, 0, 0);
  return p;
}

static void release(void* p, int kind, const void* caller) {
  record(kind, caller, 0, 0, p, NULL, 0, 0);
  if (p == NULL) return;
  AcquireSRWLockExclusive(&lock);
  live_blocks--;
  ReleaseSRWLockExclusive(&lock);
  _aligned_free(p);
}

void* mkl_serv_allocate(size_t bytes, int alignment) {
  return obtain(bytes, alignment, STANDIN_ALLOCATE, __builtin_return_address(0));
}
void mkl_serv_deallocate(void* p) { release(p, STANDIN_DEALLOCATE, __builtin_return_address(0)); }
void* mkl_serv_malloc(size_t bytes, int alignment) {
  return obtain(bytes, alignment, STANDIN_MALLOC, __builtin_return_address(0));
}
void mkl_serv_free(void* p) { release(p, STANDIN_FREE, __builtin_return_address(0)); }

/* ---- handlers ---- */

void* mkl_serv_set_xerbla_interface(xerbla_fn handler) {
  record(STANDIN_SET_XERBLA, __builtin_return_address(0), 0, 0, (void*)handler, NULL, 0, 0);
  return (void*)InterlockedExchangePointer((void* volatile*)&installed_xerbla, (void*)handler);
}

void* mkl_serv_set_progress_interface(progress_fn handler) {
  record(STANDIN_SET_PROGRESS, __builtin_return_address(0), 0, 0, (void*)handler, NULL, 0, 0);
  return (void*)InterlockedExchangePointer((void* volatile*)&installed_progress, (void*)handler);
}

void mkl_serv_default_xerbla(const char* name, const void* position, long long length) {
  const long long pos = position ? *(const long long*)position : 0;
  record(STANDIN_DEFAULT_REPORT, __builtin_return_address(0), 0, 0, NULL, name, pos, length);
  AcquireSRWLockShared(&lock);
  standin_report_fn callback = report_callback;
  void* context = report_context;
  ReleaseSRWLockShared(&lock);
  if (callback) callback(name, pos, length, context);
  if (printing) {
    int n = length > 0 ? (int)length : 0;
    while (n > 0 && name[n - 1] == ' ') n--;
    printf("Intel MKL ERROR: Parameter %lld was incorrect on entry to %.*s.\n", pos, n, name);
    fflush(stdout);
  }
}

long long mkl_serv_default_progress(void* thread, void* step, void* stage, long long length) {
  (void)thread, (void)step, (void)stage, (void)length;
  return 0;
}

/* Reference XERBLA, as gfortran calls it: name, 64-bit INFO, hidden length.
   Goes to the installed handler as MKL's own error path would. */
void xerbla_(const char* srname, const int64_t* info, size_t length) {
  record(STANDIN_LIBRARY_REPORT, __builtin_return_address(0), 0, 0, NULL, srname, *info, (long long)length);
  xerbla_fn handler = installed_xerbla;
  if (handler)
    handler(srname, info, (long long)length);
  else
    mkl_serv_default_xerbla(srname, info, (long long)length);
}

/* Reference XERBLA_ARRAY: the name, blank-padded to 32, goes to XERBLA. */
void xerbla_array_(const char* srname_array, const int64_t* srname_len, const int64_t* info) {
  char name[32];
  memset(name, ' ', sizeof name);
  int64_t n = *srname_len < 32 ? *srname_len : 32;
  if (n > 0) memcpy(name, srname_array, (size_t)n);
  xerbla_(name, info, sizeof name);
}

int mkl_serv_lsame(const char* a, const char* b, int la, int lb) {
  (void)la, (void)lb;
  return toupper((unsigned char)*a) == toupper((unsigned char)*b);
}

double mkl_serv_dsecnd(void) {
  LARGE_INTEGER now, rate;
  QueryPerformanceCounter(&now);
  QueryPerformanceFrequency(&rate);
  return (double)now.QuadPart / (double)rate.QuadPart;
}

float mkl_serv_second(void) { return (float)mkl_serv_dsecnd(); }
