/* The hand-written half of the bridge: loading the Linux computational
   library, its services wrapped in the recording interface, and the thunks
   through which the library calls the caller's Windows-ABI handlers and
   callbacks. */
#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "bridge.h"

volatile long long standin_entry_total;
__thread int bridge_windows_thread;
static __thread W select_slot;

typedef void(__cdecl* windows_xerbla)(const char*, const void*, W);
typedef W(__cdecl* windows_progress)(W, W, W, W);

/* The library's own services. */
static struct {
  void* (*set_xerbla)(void*);
  void* (*set_progress)(void*);
  void (*default_xerbla)(const char*, const void*, W);
  W (*default_progress)(W, W, W, W);
  void* (*allocate)(size_t, int);
  void (*deallocate)(void*);
  void* (*malloc)(size_t, int);
  void (*free)(void*);
  W (*lsame)(W, W, W, W);
  float (*second)(void);
  double (*dsecnd)(void);
} mkl;

static windows_xerbla installed_xerbla;
static windows_progress installed_progress;
/* Progress calls made on a Windows thread, relayed from one of the
   library's, and handler calls that ran on one of the library's threads
   (seen by the default progress service, which the layer's handler calls). */
static long long progress_calls[3];

/* ---- callbacks from the library ---- */

/* The library reports errors and progress from its own OpenMP threads too
   (?ORMLQ and ?ORMRQ check their arguments there). Those threads were made
   by the OpenMP runtime, not by wine: they carry their creator's thread
   block, so Windows code run on them would act as another thread. Their
   calls are carried out on a Windows thread of the bridge's own, the relay,
   while the library's thread waits: the caller's handlers see every call,
   as they do on Linux. */
typedef struct {
  int kind; /* 0: a report, 1: progress */
  W args[4];
  W result;
} handler_call;

static pthread_mutex_t relay_queue = PTHREAD_MUTEX_INITIALIZER; /* one call at a time */
static pthread_mutex_t relay_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t relay_wake = PTHREAD_COND_INITIALIZER;
static handler_call* relay_pending;
static int relay_done;

static void call_handler(handler_call* c) {
  if (c->kind == 1) {
    c->result = __atomic_load_n(&installed_progress, __ATOMIC_ACQUIRE)(c->args[0], c->args[1], c->args[2], c->args[3]);
    return;
  }
  const char* name = (const char*)c->args[0];
  const void* position = (const void*)c->args[1];
  recording_event(STANDIN_LIBRARY_REPORT, __builtin_return_address(0), 0, 0, NULL, name,
                  position ? *(const long long*)position : 0, c->args[2]);
  __atomic_load_n(&installed_xerbla, __ATOMIC_ACQUIRE)(name, position, c->args[2]);
}

static DWORD WINAPI relay(void* unused) {
  (void)unused;
  bridge_windows_thread = 1;
  pthread_mutex_lock(&relay_lock);
  for (;;) {
    while (relay_pending == NULL) pthread_cond_wait(&relay_wake, &relay_lock);
    handler_call* c = relay_pending;
    pthread_mutex_unlock(&relay_lock);
    call_handler(c);
    pthread_mutex_lock(&relay_lock);
    relay_pending = NULL;
    relay_done = 1;
    pthread_cond_broadcast(&relay_wake);
  }
  return 0;
}

/* On a Windows thread, at once; on one of the library's, through the relay. */
static void on_windows_thread(handler_call* c) {
  if (bridge_windows_thread) {
    call_handler(c);
    return;
  }
  pthread_mutex_lock(&relay_queue);
  pthread_mutex_lock(&relay_lock);
  relay_pending = c;
  relay_done = 0;
  pthread_cond_broadcast(&relay_wake);
  while (!relay_done) pthread_cond_wait(&relay_wake, &relay_lock);
  pthread_mutex_unlock(&relay_lock);
  pthread_mutex_unlock(&relay_queue);
}

static void xerbla_thunk(const char* name, const void* position, W length) {
  if (__atomic_load_n(&installed_xerbla, __ATOMIC_ACQUIRE) == NULL) {
    mkl.default_xerbla(name, position, length);
    return;
  }
  handler_call c = {0, {(W)name, (W)position, length, 0}, 0};
  on_windows_thread(&c);
}

static W progress_thunk(W thread, W step, W stage, W length) {
  if (__atomic_load_n(&installed_progress, __ATOMIC_ACQUIRE) == NULL)
    return mkl.default_progress(thread, step, stage, length);
  __atomic_add_fetch(&progress_calls[!bridge_windows_thread], 1, __ATOMIC_RELAXED);
  handler_call c = {1, {thread, step, stage, length}, 0};
  on_windows_thread(&c);
  return c.result;
}

long long __cdecl standin_progress_calls(int which) {
  return which >= 0 && which < 3 ? __atomic_load_n(&progress_calls[which], __ATOMIC_RELAXED) : -1;
}

W bridge_select_swap(W select) {
  const W previous = select_slot;
  select_slot = select;
  return previous;
}

static W selected(void) {
  if (select_slot == 0) {
    fprintf(stderr, "bridge: SELECT called on a thread that did not pass the sorting driver\n");
    abort();
  }
  return select_slot;
}

static W select1(W a) { return ((W(__cdecl*)(W))selected())(a); }
static W select2(W a, W b) { return ((W(__cdecl*)(W, W))selected())(a, b); }
static W select3(W a, W b, W c) { return ((W(__cdecl*)(W, W, W))selected())(a, b, c); }
void* const bridge_select_thunk[4] = {NULL, (void*)select1, (void*)select2, (void*)select3};

/* ---- services, as the layer calls them ---- */

void* __cdecl bridge_mkl_serv_set_xerbla_interface(windows_xerbla handler) {
  recording_event(STANDIN_SET_XERBLA, __builtin_return_address(0), 0, 0, (void*)handler, NULL, 0, 0);
  windows_xerbla previous = __atomic_exchange_n(&installed_xerbla, handler, __ATOMIC_ACQ_REL);
  mkl.set_xerbla(handler ? (void*)xerbla_thunk : NULL);
  return (void*)previous;
}

void* __cdecl bridge_mkl_serv_set_progress_interface(windows_progress handler) {
  recording_event(STANDIN_SET_PROGRESS, __builtin_return_address(0), 0, 0, (void*)handler, NULL, 0, 0);
  windows_progress previous = __atomic_exchange_n(&installed_progress, handler, __ATOMIC_ACQ_REL);
  mkl.set_progress(handler ? (void*)progress_thunk : NULL);
  return (void*)previous;
}

void __cdecl bridge_mkl_serv_default_xerbla(const char* name, const void* position, W length) {
  if (recording_default_report(name, position, length, __builtin_return_address(0))) {
    fflush(stdout);
    mkl.default_xerbla(name, position, length);
  }
}

W __cdecl bridge_mkl_serv_default_progress(W thread, W step, W stage, W length) {
  __atomic_add_fetch(&progress_calls[2], !bridge_windows_thread, __ATOMIC_RELAXED);
  return mkl.default_progress(thread, step, stage, length);
}

void* __cdecl bridge_mkl_serv_allocate(size_t bytes, int alignment) {
  return recording_obtain(bytes, alignment, STANDIN_ALLOCATE, __builtin_return_address(0), mkl.allocate);
}
void __cdecl bridge_mkl_serv_deallocate(void* p) {
  recording_release(p, STANDIN_DEALLOCATE, __builtin_return_address(0), mkl.deallocate);
}
void* __cdecl bridge_mkl_serv_malloc(size_t bytes, int alignment) {
  return recording_obtain(bytes, alignment, STANDIN_MALLOC, __builtin_return_address(0), mkl.malloc);
}
void __cdecl bridge_mkl_serv_free(void* p) {
  recording_release(p, STANDIN_FREE, __builtin_return_address(0), mkl.free);
}
W __cdecl bridge_mkl_serv_lsame(W a, W b, W la, W lb) { return mkl.lsame(a, b, la, lb); }
float __cdecl bridge_mkl_serv_second(void) { return mkl.second(); }
double __cdecl bridge_mkl_serv_dsecnd(void) { return mkl.dsecnd(); }

/* ---- loading ---- */

static int fail(const char* what, const char* detail) {
  fprintf(stderr, "bridge: %s: %s\n", what, detail ? detail : "(no detail)");
  return 0;
}

static void* symbol(const char* name) { return dlsym(RTLD_DEFAULT, name); }

/* The core uses log10 without naming libm, and it and its threading layer
   need each other: so libm first, everything global, bound lazily. The
   threading layer is GNU OpenMP's unless VORN_BRIDGE_THREADING=sequential. */
static int load(void) {
  const char* threading = getenv("VORN_BRIDGE_THREADING");
  const int sequential = threading != NULL && strcmp(threading, "sequential") == 0;
  const char* libraries[] = {"libm.so.6", sequential ? "libm.so.6" : "libgomp.so.1", "libmkl_core.so",
                             sequential ? "libmkl_sequential.so" : "libmkl_gnu_thread.so"};
  for (size_t i = 0; i < sizeof libraries / sizeof *libraries; i++)
    if (dlopen(libraries[i], RTLD_LAZY | RTLD_GLOBAL) == NULL) return fail(libraries[i], dlerror());

  struct {
    const char* name;
    void** slot;
  } services[] = {
      {"mkl_serv_set_xerbla_interface", (void**)&mkl.set_xerbla},
      {"mkl_serv_set_progress_interface", (void**)&mkl.set_progress},
      {"mkl_serv_default_xerbla", (void**)&mkl.default_xerbla},
      {"mkl_serv_default_progress", (void**)&mkl.default_progress},
      {"mkl_serv_allocate", (void**)&mkl.allocate},
      {"mkl_serv_deallocate", (void**)&mkl.deallocate},
      {"mkl_serv_malloc", (void**)&mkl.malloc},
      {"mkl_serv_free", (void**)&mkl.free},
      {"mkl_serv_lsame", (void**)&mkl.lsame},
      {"mkl_serv_second", (void**)&mkl.second},
      {"mkl_serv_dsecnd", (void**)&mkl.dsecnd},
  };
  for (size_t i = 0; i < sizeof services / sizeof *services; i++)
    if ((*services[i].slot = symbol(services[i].name)) == NULL) return fail("missing service", services[i].name);
  for (int i = 0; i < standin_entry_name_count; i++)
    if ((bridge_target[i] = symbol(standin_entry_names[i])) == NULL)
      return fail("missing entry", standin_entry_names[i]);
  return 1;
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
  (void)instance, (void)reserved;
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  // The relay starts running once the loader is done; nothing waits on it before.
  HANDLE thread = CreateThread(NULL, 0, relay, NULL, 0, NULL);
  if (thread == NULL) return fail("relay thread", "CreateThread failed");
  CloseHandle(thread);
  return load();
}
