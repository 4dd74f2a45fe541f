/* Recording interface of the test stand-in for the computational library
   (mkl_intel_thread.dll built over the reference BLAS/LAPACK). Tests link
   against libmkl_intel_thread_standin.a and include this header to see what
   the layer did: which services it called, in what order relative to the
   computational entries, and what it reported. */
#ifndef VORN_STANDIN_H
#define VORN_STANDIN_H

#ifdef __cplusplus
extern "C" {
#endif

/* The Windows calling convention, also where a winelib build defaults to
   the host's. */
#define STANDIN_API __cdecl

enum standin_event_kind {
  STANDIN_ALLOCATE = 1,       /* mkl_serv_allocate succeeded */
  STANDIN_DEALLOCATE,         /* mkl_serv_deallocate */
  STANDIN_MALLOC,             /* mkl_serv_malloc succeeded */
  STANDIN_FREE,               /* mkl_serv_free */
  STANDIN_REFUSED,            /* an allocate or malloc that was made to fail */
  STANDIN_SET_XERBLA,         /* mkl_serv_set_xerbla_interface; pointer = handler */
  STANDIN_SET_PROGRESS,       /* mkl_serv_set_progress_interface; pointer = handler */
  STANDIN_DEFAULT_REPORT,     /* mkl_serv_default_xerbla was called */
  STANDIN_LIBRARY_REPORT      /* the reference XERBLA was called by a computational routine */
};

#define STANDIN_NAME_CAPACITY 64

typedef struct standin_event {
  int kind;
  const void* caller;        /* return address of the service call */
  unsigned long long size;   /* bytes asked for (allocations) */
  int alignment;             /* alignment asked for (allocations) */
  void* pointer;             /* block returned or released; handler installed */
  char name[STANDIN_NAME_CAPACITY]; /* reports: the first min(length, 63) bytes, NUL-terminated */
  long long position;        /* reports: the 64-bit value at the position address */
  long long length;          /* reports: the name length passed */
  long long entry_calls;     /* standin_entry_calls() when the event happened */
} standin_event;

/* Clears the log, the entry counters, the live count and any refusal. The
   installed handlers stay. */
void STANDIN_API standin_reset(void);

/* Events recorded since the last reset (the log keeps the first 65536). */
int STANDIN_API standin_event_count(void);
/* Copies event i (0-based); returns 0 when there is no such event. */
int STANDIN_API standin_event_get(int i, standin_event* out);

/* Calls of the computational entries (mkl_blas_*, mkl_lapack_*,
   mkl_lapack_ps_*, mkl_spblas_*) since the last reset, all together or of
   one entry by its exported name (-1 for a name not exported). */
long long STANDIN_API standin_entry_calls(void);
long long STANDIN_API standin_entry_calls_of(const char* entry);

/* Makes the k-th allocation from now on (k >= 1, counting mkl_serv_allocate
   and mkl_serv_malloc) return NULL, once; k = 0 cancels. */
void STANDIN_API standin_refuse_allocation(int k);
/* While on, every allocation returns NULL. */
void STANDIN_API standin_refuse_all_allocations(int on);
/* Successful allocations minus deallocations of non-NULL blocks. */
long long STANDIN_API standin_live_allocations(void);

/* Also called, outside the lock, for every mkl_serv_default_xerbla call
   (NULL removes it). The name is not NUL-terminated. */
typedef void(STANDIN_API* standin_report_fn)(const char* name, long long position, long long length, void* context);
void STANDIN_API standin_set_report_callback(standin_report_fn callback, void* context);

/* Whether mkl_serv_default_xerbla prints its line to stdout (on by default). */
void STANDIN_API standin_set_printing(int on);

/* The bridge to the real library only (the reference never calls it):
   calls of the installed progress handler made on a Windows thread (0),
   made on the library's own threads and relayed to a Windows thread (1),
   and calls from the handler that ran on the library's own threads (2). */
long long STANDIN_API standin_progress_calls(int which);

#ifdef __cplusplus
}
#endif
#endif
