"""The faults tools/mutate/run.py plants, one at a time, in a scratch copy.

Each fault names its file, an anchor text that must occur exactly once there
(run.py refuses the list otherwise, so that a fault never silently stops
applying after the code moves), the text that replaces it, and the CTest
regex of the suites that could plausibly catch it. Faults sit where one
plant recompiles little (a table entry, one routine's override, one hand
file) wherever that is as realistic as the shared header every unit
includes; a few are in those headers on purpose.

The slow suites are named only where they are the likeliest catch, so that
a run of the whole list fits in an hour on a shared two-core machine: the
guard-page harness for array faults, the LAPACK test programs
(lapack_suite_d) for the faults in INFO, and numpy_linalg, the LAPACK test
programs and the hosts (R, Octave, ScaLAPACK, the package) for the
companions' report route; the netlib CBLAS programs' error exits hold the
CBLAS reports, both orders, to the positions the reference documents."""
from dataclasses import dataclass


@dataclass(frozen=True)
class Fault:
    id: str
    layer: str
    description: str
    file: str
    anchor: str
    replacement: str
    suites: str
    windows_only: bool = False  # observable only in vorn.dll; needs --windows


def any_of(*regexes: str) -> str:
    # CTest's regular expressions take at most nine groups: the suites are
    # plain alternatives, each anchored on its own.
    return "|".join(regexes)


def suites(*prefixes: str) -> str:
    """GoogleTest suites by name (the test name follows a dot)."""
    return "|".join(f"^{p}\\." for p in prefixes)


# GoogleTest suites of vorn_tests, by the part of the library they test.
GT_LEVEL1 = suites("Level1", "SparseLevel1")
GT_CHECKERS = r"^Level2And3/|^GemmExtensions\."
GT_LAPACK = any_of(suites("LapackSweep", "LapackOracle", "LapackPrechecks"),
                   r"/LapackArrays\.", r"^lapack_arrays_guard_pages$")
GT_SERVICE = suites("Service")
GT_TYPED = suites("TypedEntries", "TypedExports")
GT_ALLOCATOR = suites("AlignedAlloc")
GT_CSR = suites("CsrProduct")
GT_EXPORTS = suites("Exports")
CONCURRENCY = r"^PlainFamilyConcurrency\.|^openmp_host_"
EXAMPLE = r"^example_runs$|^consumer_"
# The companions: their own tests, the netlib programs, the export checks.
DROPIN = r"^LapackDropin|^dropin_|^netlib_|^xerbla_"
DROPIN_FAST = r"^LapackDropin|^dropin_exports$|^dropin_lapack_exports$|^dropin_departures_complete$|^netlib_|^xerbla_"
NUMPY = r"^numpy_linalg$"
HOSTS = r"^host_|^package_deb$"
LAPACK_SUITE_D = r"^lapack_suite_d$"
CATALOGUE = r"^catalogue_"
WINDOWS = r"^windows_"

# Everything a fault in the frame every routine goes through can reach,
# short of the slowest programs.
FRAME_WIDE = any_of(GT_LEVEL1, GT_CHECKERS, GT_LAPACK, GT_SERVICE, GT_TYPED, GT_EXPORTS, CONCURRENCY,
                    EXAMPLE, DROPIN, LAPACK_SUITE_D)
# The companions' checks that call LAPACK routines (not the BLAS programs).
DROPIN_LAPACK = r"^LapackDropin|^dropin_guard_page_harness$|^dropin_departures_complete$|^xerbla_"
LAPACK_WIDE = any_of(GT_LAPACK, GT_TYPED, CONCURRENCY, DROPIN_LAPACK)
# Faults in the hooks, pre-checks and queries: the harness (a minute under
# load) compares array contents at documented sizes, not these.
LAPACK_FRAME = any_of(GT_LAPACK, GT_TYPED, CONCURRENCY, r"^LapackDropin|^xerbla_")
# The LAPACK test programs (45 s, and minutes when a fault makes them
# misbehave) where their INFO checks are the likeliest catch.
LAPACK_WITH_SUITE = any_of(LAPACK_WIDE, LAPACK_SUITE_D)
BLAS_WIDE = any_of(GT_LEVEL1, GT_CHECKERS, GT_TYPED, CONCURRENCY, DROPIN_FAST)
SERVICES = any_of(GT_SERVICE, GT_LAPACK, r"^LapackDropin|^xerbla_")
COMPANIONS = any_of(DROPIN, CONCURRENCY)
# Reports: numpy's, R's and the LAPACK test programs' error exits as well.
REPORT_ROUTE = any_of(COMPANIONS, NUMPY, HOSTS, LAPACK_SUITE_D)
CBLAS = any_of(r"^netlib_x.cblat", r"^xerbla_", NUMPY, r"^dropin_exports$")

FAULTS = [
    # ------------------------------------------------------------ frame
    Fault("frame-widen-zero-extends", "frame",
          "every scalar widened by zero extension instead of sign extension",
          "frame/lp64.h",
          "inline i64 widen(const i32* p) { return static_cast<i64>(*p); }",
          "inline i64 widen(const i32* p) { return static_cast<i64>(static_cast<std::uint32_t>(*p)); }",
          FRAME_WIDE),
    Fault("frame-widen-arrays-zero-extends", "frame",
          "integer arrays longer than four elements widened by zero extension",
          "frame/scratch.cpp",
          "  for (i64 i = 0; i < count; ++i) dst[i] = src[i];",
          "  for (i64 i = 0; i < count; ++i) dst[i] = static_cast<std::uint32_t>(src[i]);",
          any_of(GT_LEVEL1, LAPACK_WIDE)),
    Fault("frame-copy-back-one-short", "frame",
          "every integer copy-back stops one element short",
          "frame/scratch.cpp",
          "  for (i64 i = 0; i < count; ++i) narrow(dst + i, src[i]);",
          "  for (i64 i = 0; i + 1 < count; ++i) narrow(dst + i, src[i]);",
          LAPACK_WIDE),
    Fault("frame-copy-in-skips-empty", "frame",
          "a zero-length input array is no longer read (the contract reads its first element)",
          "frame/scratch.h",
          "widen_all(dst, src, length > 1 ? length : 1); }",
          "widen_all(dst, src, length); }",
          LAPACK_WIDE),
    Fault("frame-report-name-length", "frame",
          "the layer's reports pass the name's length plus one",
          "frame/report.cpp",
          "vorn_if_xerbla(buffer, &cell, static_cast<int>(n));",
          "vorn_if_xerbla(buffer, &cell, static_cast<int>(n + 1));",
          any_of(GT_CHECKERS, GT_LAPACK, GT_SERVICE, GT_CSR, GT_TYPED, GT_LEVEL1, DROPIN_FAST)),
    Fault("frame-hooks-out-of-order", "frame",
          "the progress handler installed before the error handler",
          "frame/hooks.h",
          "  mkl_serv_set_xerbla_interface(&vorn_if_xerbla);\n  mkl_serv_set_progress_interface(&vorn_progress_handler);",
          "  mkl_serv_set_progress_interface(&vorn_progress_handler);\n  mkl_serv_set_xerbla_interface(&vorn_if_xerbla);",
          any_of(GT_LAPACK, GT_SERVICE, DROPIN_FAST)),
    Fault("frame-progress-not-forwarded", "frame",
          "the installed progress handler answers 0 instead of asking the default one",
          "frame/hooks.cpp",
          "  return mkl_serv_default_progress(thread, step, stage, length);",
          "  (void)thread, (void)step, (void)stage, (void)length;\n  return 0;",
          any_of(GT_LAPACK, GT_SERVICE, DROPIN_FAST)),
    Fault("frame-xerbla-upper-through-lower", "frame",
          "XERBLA's upper spelling exported through the lower interface function",
          "tools/codegen/overrides.py",
          'UPPER_ENTRY_TARGET = {"XERBLA": "vorn_if_XERBLA"}',
          "UPPER_ENTRY_TARGET = {}",
          any_of(GT_SERVICE, GT_EXPORTS, DROPIN_FAST)),
    Fault("frame-lsamen-hooks-after-call", "frame",
          "LSAMEN installs the hooks after calling the library",
          "frame/service.cpp",
          "  vorn::install_hooks();\n  return vorn::narrowed(mkl_lapack_lsamen(&n64, ca, cb, lca, lcb));",
          "  const int same = vorn::narrowed(mkl_lapack_lsamen(&n64, ca, cb, lca, lcb));\n"
          "  vorn::install_hooks();\n  return same;",
          SERVICES),
    Fault("frame-ilaenv-lengths-swapped", "frame",
          "ILAENV hands the library the two character lengths swapped",
          "frame/service.cpp",
          "&n3_64, &n4_64, lname, lopts));",
          "&n3_64, &n4_64, lopts, lname));",
          SERVICES),
    Fault("frame-xerbla-array-length-info-swapped", "frame",
          "XERBLA_ARRAY forwards the name's length and INFO swapped",
          "frame/service.cpp",
          "mkl_lapack_xerbla_array(srname, &len64, &info64, length);",
          "mkl_lapack_xerbla_array(srname, &info64, &len64, length);",
          SERVICES),
    Fault("frame-prechecks-query-rejected", "frame",
          "the pre-checks treat LWORK = -1 as a short workspace (no query)",
          "frame/prechecks.h",
          "return lwork.value < minimum && lwork.value != kQuery; }",
          "return lwork.value < minimum; }",
          LAPACK_FRAME),
    Fault("frame-scratch-last-not-released", "frame",
          "the scratch set leaks the last array it holds",
          "frame/scratch_impl.h",
          "  for (std::size_t i = 0; i < count_; ++i) mkl_serv_deallocate(held_[i]);",
          "  for (std::size_t i = 0; i + 1 < count_; ++i) mkl_serv_deallocate(held_[i]);",
          any_of(GT_LAPACK, GT_LEVEL1, CONCURRENCY)),

    # ------------------------------------------------------------ BLAS checkers
    Fault("blas-gemv-lda-position", "blas",
          "?GEMV reports a bad LDA at position 7 (it is 6)",
          "blas/level2_rules.h",
          ".covers(lda, m, 6).not_zero(incx, 8).not_zero(incy, 11).verdict();",
          ".covers(lda, m, 7).not_zero(incx, 8).not_zero(incy, 11).verdict();",
          BLAS_WIDE),
    Fault("blas-ger-increments-swapped", "blas",
          "?GER tests INCY before INCX (two rules of the level-2 table swapped)",
          "blas/level2_rules.h",
          "return Checks(name).not_negative(m, 1).not_negative(n, 2).not_zero(incx, 5).not_zero(incy, 7)",
          "return Checks(name).not_negative(m, 1).not_negative(n, 2).not_zero(incy, 7).not_zero(incx, 5)",
          BLAS_WIDE),
    Fault("blas-gbmv-band-off-by-one", "blas",
          "?GBMV rejects LDA = KL + KU + 1 (band leading dimension off by one)",
          "blas/level2_rules.h",
          ".exceeds(lda, kl + ku, 8)",
          ".exceeds(lda, kl + ku + 1, 8)",
          BLAS_WIDE),
    Fault("blas-gemm-ld-order-swapped", "blas",
          "?GEMM tests LDB before LDA (two rules of the level-3 table swapped)",
          "blas/level3_rules.h",
          ".covers(lda, nrowa, 8).covers(ldb, nrowb, 10)",
          ".covers(ldb, nrowb, 10).covers(lda, nrowa, 8)",
          BLAS_WIDE),
    Fault("blas-trmm-right-side-rows", "blas",
          "?TRMM/?TRSM size A by M whatever SIDE",
          "blas/level3_rules.h",
          ".option(diag, kDiag, 4).not_negative(m, 5).not_negative(n, 6)\n      .covers(lda, nrowa, 9)",
          ".option(diag, kDiag, 4).not_negative(m, 5).not_negative(n, 6)\n      .covers(lda, m, 9)",
          BLAS_WIDE),
    Fault("blas-dzgemm-accepts-conjugate", "blas",
          "DZGEMM accepts TRANSA = 'C' for its real A",
          "blas/level3_checkers.h",
          'VORN_GEMM(dzgemm, double, "DZGEMM ", kNoConjugate)',
          'VORN_GEMM(dzgemm, double, "DZGEMM ", kTrans)',
          BLAS_WIDE),
    Fault("blas-dsyrk-name-unpadded", "blas",
          "DSYRK reports its name without the reference's trailing blank",
          "blas/level3_checkers.h",
          'VORN_SYRK(dsyrk, double, "DSYRK ", kTrans)',
          'VORN_SYRK(dsyrk, double, "DSYRK", kTrans)',
          BLAS_WIDE),
    Fault("blas-hook-on-level1", "blas",
          "the hooks are installed on the BLAS path too",
          "tools/codegen/interfaces.py",
          "    if not uses_blas_frame(r) and r.name not in overrides.PS_ENTRY_WITHOUT_HOOKS:",
          "    if r.name not in overrides.PS_ENTRY_WITHOUT_HOOKS:",
          any_of(GT_LEVEL1, GT_CHECKERS, GT_LAPACK, GT_TYPED)),
    Fault("blas-sparse-index-one-short", "blas",
          "sparse level 1: one index fewer widened than NZ",
          "tools/codegen/interfaces.py",
          'f"  vorn::copy_exactly({local_name(indx)}, {param_name(indx)}, {local_name(nz)});"',
          'f"  vorn::copy_exactly({local_name(indx)}, {param_name(indx)}, {local_name(nz)} - 1);"',
          any_of(GT_LEVEL1, GT_TYPED, CONCURRENCY)),
    Fault("blas-sparse-nz-zero-extended", "blas",
          "sparse level 1: NZ widened by zero extension",
          "tools/codegen/interfaces.py",
          'f"  vorn::i64 {local_name(nz)} = vorn::widen({param_name(nz)});"',
          'f"  vorn::i64 {local_name(nz)} = static_cast<vorn::i64>(static_cast<std::uint32_t>(*{param_name(nz)}));"',
          any_of(GT_LEVEL1, GT_TYPED, CONCURRENCY)),

    # ------------------------------------------------------------ LAPACK, generated frames and their tables
    Fault("lapack-info-not-narrowed", "lapack",
          "DGETRS's INFO treated as an input: never narrowed back",
          "tools/codegen/overrides.py",
          '    "ILAVER": {"VERS_MAJOR"',
          '    "DGETRS": {"INFO": "in"},\n    "ILAVER": {"VERS_MAJOR"',
          LAPACK_WITH_SUITE),
    Fault("lapack-getrf-ipiv-one-short", "catalogue",
          "DGETRF's IPIV documented one element short in the catalogue (copy length off by one)",
          "catalogue/routines.cat",
          "IPIV:i[]:out:MIN(M,N) INFO:i:out @SRC/dgetrf.f",
          "IPIV:i[]:out:MIN(M,N)-1 INFO:i:out @SRC/dgetrf.f",
          any_of(LAPACK_WITH_SUITE, CATALOGUE)),
    Fault("lapack-stebz-iblock-one-short", "lapack",
          "?STEBZ's IBLOCK scratch length N-1 (override size expression off by one)",
          "tools/codegen/overrides.py",
          '("STEBZ", "IBLOCK"): ArrayRule(length="N"),',
          '("STEBZ", "IBLOCK"): ArrayRule(length="N-1"),',
          LAPACK_WIDE),
    Fault("lapack-liwork-query-not-back", "lapack",
          "IWORK(1), the minimal LIWORK, is not copied back",
          "tools/codegen/overrides.py",
          'LENGTH_QUERY_IWORK = ArrayRule(length="MAX(1,LIWORK)", copy_back=True, back_length="1")',
          'LENGTH_QUERY_IWORK = ArrayRule(length="MAX(1,LIWORK)", copy_back=False, back_length="1")',
          LAPACK_WIDE),
    Fault("lapack-lacn2-isgn-not-back", "lapack",
          "?LACN2's ISGN is not copied back (dropped copy-back)",
          "tools/codegen/overrides.py",
          '("LACN2", "ISGN"): ArrayRule(length="N", copy_in=False, copy_back=True),',
          '("LACN2", "ISGN"): ArrayRule(length="N", copy_in=False, copy_back=False),',
          LAPACK_WIDE),
    Fault("lapack-isuppz-back-by-n", "lapack",
          "ISUPPZ copied back over 2N elements instead of 2M",
          "tools/codegen/overrides.py",
          'copy_back=True, back_length="2*MAX(1,M)")',
          'copy_back=True, back_length="2*MAX(1,N)")',
          LAPACK_WIDE),
    Fault("lapack-liwork-not-a-query", "lapack",
          "LIWORK = -1 no longer counts as a workspace query",
          "tools/codegen/overrides.py",
          'QUERY_LENGTHS = ("LWORK", "LIWORK", "NZC")',
          'QUERY_LENGTHS = ("LWORK", "NZC")',
          LAPACK_FRAME),
    Fault("lapack-sytrf-pivots-on-query", "lapack",
          "?SYTRF's IPIV obtained and converted on a workspace query",
          "tools/codegen/overrides.py",
          '"SYTRF": "IPIV", "HETRF": "IPIV",',
          '"HETRF": "IPIV",',
          LAPACK_FRAME),
    Fault("lapack-fact-pivots-always-read", "lapack",
          "expert drivers read IPIV from the caller whatever FACT",
          "tools/codegen/overrides.py",
          'FACT_CONDITIONED = {"IPIV": ArrayRule(copy_in="FACT=\'F\'"',
          'FACT_CONDITIONED = {"IPIV": ArrayRule(copy_in=True',
          LAPACK_WIDE),
    Fault("lapack-dtrevc-select-not-back", "lapack",
          "DTREVC's SELECT is not copied back (LOGICAL copy-back dropped)",
          "tools/codegen/overrides.py",
          '("DTREVC", "SELECT"): ArrayRule(length="N", taken=_SELECTED, copy_in=True, copy_back=True),',
          '("DTREVC", "SELECT"): ArrayRule(length="N", taken=_SELECTED, copy_in=True, copy_back=False),',
          LAPACK_WIDE),
    Fault("lapack-bwork-without-sorting", "lapack",
          "?GEES/?GGES take BWORK also when not sorting",
          "tools/codegen/overrides.py",
          "_SORTING = \"SORT='S' & !QUERY\"",
          '_SORTING = "!QUERY"',
          LAPACK_FRAME),
    Fault("lapack-trsen-select-not-read", "lapack",
          "?TRSEN/?TGSEN's SELECT not read from the caller",
          "tools/codegen/overrides.py",
          '_SELECT_READ = ArrayRule(length="N", copy_in=True, copy_back=False)',
          '_SELECT_READ = ArrayRule(length="N", copy_in=False, copy_back=False)',
          LAPACK_WIDE),
    Fault("lapack-hsein-ifaill-side", "lapack",
          "?HSEIN takes IFAILL only for SIDE = 'L', not for 'B'",
          "tools/codegen/overrides.py",
          "(\"HSEIN\", \"IFAILL\"): ArrayRule(taken=\"SIDE='L' | SIDE='B'\"),",
          "(\"HSEIN\", \"IFAILL\"): ArrayRule(taken=\"SIDE='L'\"),",
          LAPACK_FRAME),
    Fault("lapack-laed2-indx-documented", "lapack",
          "?LAED2's INDX at its documented N (the library reads INDX(N+1))",
          "tools/codegen/overrides.py",
          '("LAED2", "INDX"): ArrayRule(length="N+1", back_length="N"),',
          '("LAED2", "INDX"): ArrayRule(length="N", back_length="N"),',
          LAPACK_WIDE),
    Fault("lapack-ps-array-entries-hooked", "lapack",
          "the ps entries with integer arrays (?GETC2, ?GTTS2, ?LASD3) install the hooks",
          "tools/codegen/interfaces.py",
          '    if r.name not in overrides.PS_ENTRY_WITHOUT_HOOKS:\n        call.insert(0, "vorn::install_hooks();")',
          '    if r.name:\n        call.insert(0, "vorn::install_hooks();")',
          LAPACK_FRAME),
    Fault("lapack-ormqr-precheck-m-n-swapped", "lapack",
          "?ORMQR's pre-check examines N as M and M as N",
          "tools/codegen/overrides.py",
          '"ORMQR": ("ormqr_real", "SIDE TRANS M N K LDA LDC LWORK"),',
          '"ORMQR": ("ormqr_real", "SIDE TRANS N M K LDA LDC LWORK"),',
          LAPACK_FRAME),
    Fault("lapack-dlasd6-spelling-sharing", "lapack",
          "DLASD6's dlasd6_ spelling bound to the upper entry (spelling sharing)",
          "tools/codegen/overrides.py",
          'LOWER_UNDERSCORE_SHARES_LOWER = frozenset({"DLASD6"})',
          "LOWER_UNDERSCORE_SHARES_LOWER = frozenset()",
          any_of(GT_EXPORTS, GT_LAPACK, DROPIN_FAST)),
    Fault("lapack-shared-scalar-cells", "lapack",
          "the array frames keep their integer cells in static storage (shared between threads)",
          "tools/codegen/interfaces.py",
          '\n        lines.append(f"  vorn::i64 {local_name(a)} = {init};")',
          '\n        lines.append(f"  static vorn::i64 {local_name(a)};\\n  {local_name(a)} = {init};")',
          LAPACK_WIDE),

    # ------------------------------------------------------------ LAPACK, hand-written frames
    Fault("lapack-laswp-negative-step", "lapack",
          "?LASWP steps through IPIV by INCX instead of |INCX| (negative INCX converts nothing)",
          "lapack/row_interchanges.h",
          "const i64 step = abs_of(incx64);",
          "const i64 step = incx64;",
          LAPACK_WIDE),
    Fault("lapack-laswp-hooks-after-call", "lapack",
          "?LASWP installs the hooks after the call",
          "lapack/row_interchanges.h",
          "  install_hooks();\n  call(&n64, &lda64, &k1_64, &k2_64, ipiv64, &incx64);",
          "  call(&n64, &lda64, &k1_64, &k2_64, ipiv64, &incx64);\n  install_hooks();",
          LAPACK_FRAME),
    Fault("lapack-gelsd-iwork-short", "lapack",
          "?GELSD/?LALSD's IWORK sized by LAPACK's (3 NLVL + 11) over the layer's shorter depth",
          "lapack/divide_conquer.h",
          "return (3 * nlvl + 14) * p;",
          "return (3 * nlvl + 11) * p;",
          LAPACK_WIDE),
    Fault("lapack-gelsd-info-not-narrowed", "lapack",
          "?GELSD/?LALSD leave INFO as the caller had it",
          "lapack/divide_conquer.h",
          "  if (iwork_first != nullptr) narrow(iwork_first, iwork64[0]);\n  narrow(info, info64);",
          "  if (iwork_first != nullptr) narrow(iwork_first, iwork64[0]);",
          LAPACK_WITH_SUITE),
    Fault("lapack-bdsdc-iq-not-back", "lapack",
          "?BDSDC's IQ not copied back (dropped copy-back)",
          "lapack/divide_conquer.h",
          "  if (compact) copy_back(iq, iq64, iq_length);",
          "",
          LAPACK_WIDE),
    Fault("lapack-lasda-perm-outside-set", "lapack",
          "?LASDA's PERM allocated outside the scratch set: never released",
          "lapack/divide_conquer.h",
          "    perm64 = scratch.obtain(ldgcol * levels);",
          "    perm64 = static_cast<i64*>(mkl_serv_allocate(scratch_bytes(ldgcol * levels), kScratchAlignment));",
          LAPACK_WIDE),
    Fault("lapack-laeda-qptr-short", "lapack",
          "?LAEDA's QPTR scratch array one element short of the N + 2 it fills",
          "lapack/divide_conquer.h",
          "  i64* const qptr64 = scratch.obtain(n + 2);",
          "  i64* const qptr64 = scratch.obtain(n + 1);",
          LAPACK_WIDE),

    # ------------------------------------------------------------ typed family, allocator, CSR
    Fault("typed-lda-forwards-ldb", "typed",
          "typed entries with LDA and LDB forward LDB for both",
          "tools/codegen/typed.py",
          "args = [forwarded(p, a) for p, a in zip(entry.params, r.args)]",
          "args = [forwarded(p, r.arg('LDB') if a.name == 'LDA' and r.arg('LDB') else a) "
          "for p, a in zip(entry.params, r.args)]",
          any_of(GT_TYPED, EXAMPLE)),
    Fault("alloc-alignment-ignored", "typed",
          "the aligned allocator asks for 64-byte alignment whatever the caller's",
          "typed/aligned_memory.cpp",
          "mkl_serv_malloc(static_cast<std::size_t>(size), alignment);",
          "mkl_serv_malloc(static_cast<std::size_t>(size), 64);",
          any_of(GT_ALLOCATOR, GT_TYPED, EXAMPLE)),
    Fault("alloc-refusal-bad-alloc", "typed",
          "a refused allocation throws std::bad_alloc instead of OutOfAlignedMemory",
          "typed/aligned_memory.cpp",
          "  throw ARDU::OutOfAlignedMemory(text.str());",
          "  throw std::bad_alloc();",
          any_of(GT_ALLOCATOR, GT_TYPED, EXAMPLE)),
    Fault("alloc-size-zero-allocates", "typed",
          "a zero-byte request goes to the library instead of giving null",
          "typed/aligned_memory.cpp",
          "  if (size == 0) return nullptr;\n",
          "",
          any_of(GT_ALLOCATOR, GT_TYPED, EXAMPLE)),
    Fault("csr-request-range", "typed",
          "CSR product: REQUEST = 2 rejected",
          "typed/csr_product.cpp",
          "if (static_cast<unsigned>(*request) > 2) return 2;",
          "if (static_cast<unsigned>(*request) > 1) return 2;",
          any_of(GT_CSR, GT_TYPED, EXAMPLE)),
    Fault("csr-nnzmax-position", "typed",
          "CSR product: a bad NNZMAX reported at position 15 (it is 16)",
          "typed/csr_product.cpp",
          "  if (*request == 0 && *nnzmax < 0) return 16;",
          "  if (*request == 0 && *nnzmax < 0) return 15;",
          any_of(GT_CSR, GT_TYPED, EXAMPLE)),
    Fault("csr-ja-ia-swapped", "typed",
          "DCSRMULTCSR forwards A's column indices and row pointers swapped",
          "typed/csr_product.cpp",
          "  mkl_spblas_lp64_mkl_dcsrmultcsr(trans, request, sort, m, n, k, a, ja, ia, b,",
          "  mkl_spblas_lp64_mkl_dcsrmultcsr(trans, request, sort, m, n, k, a, ia, ja, b,",
          any_of(GT_CSR, GT_TYPED, EXAMPLE)),

    # ------------------------------------------------------------ companions (dropin) and CBLAS
    Fault("dropin-trevc-not-routed", "dropin",
          "DTREVC forwarded to the layer instead of the reference (departure routed wrongly)",
          "tools/codegen/dropin_departures.py",
          'Departure("TREVC", "SD", ',
          'Departure("TREVC", "S", ',
          COMPANIONS),
    Fault("dropin-asum-quick-return-zero", "dropin",
          "the companion's ?ASUM/?SCAL quick return no longer covers INCX = 0",
          "tools/codegen/dropin.py",
          "if (*{param_name(r.arg(\"INCX\"))} <= 0) return",
          "if (*{param_name(r.arg(\"INCX\"))} < 0) return",
          COMPANIONS),
    Fault("dropin-xerbla-not-to-program", "dropin",
          "the report route hands reports to the default handler, never to the program's XERBLA",
          "dropin/xerbla_route.cpp",
          "  delivering = frame;\n  program(name, &info, static_cast<std::size_t>(length));",
          "  delivering = frame;\n  original(name, position, length);",
          REPORT_ROUTE),
    Fault("dropin-reference-xerbla-not-repointed", "dropin",
          "the reference LAPACK's own XERBLA calls are not pointed at the program's binding",
          "dropin/reference_resolve.cpp",
          '    if (dlinfo(h, RTLD_DI_LINKMAP, &map) == 0) vorn_repoint(map, "xerbla_", '
          "reinterpret_cast<void*>(&xerbla_));",
          "    static_cast<void>(map);",
          REPORT_ROUTE),
    Fault("dropin-level2-lengths-dropped", "dropin",
          "the companion's level-2 BLAS forwarders pass 1 for every option length, not the caller's",
          "tools/codegen/dropin.py",
          'call += [f"static_cast<int>({param_name(a)}_len)" for a in chars]',
          'call += ["1" for a in chars]',
          any_of(COMPANIONS, CBLAS)),
    Fault("cblas-trsm-side-not-flipped", "cblas",
          "row-major ?TRSM keeps SIDE (transposition dropped)",
          "tools/codegen/cblas.py",
          '"TRSM": dict(swap=[("M", "N")], flip=["SIDE", "UPLO"]),',
          '"TRSM": dict(swap=[("M", "N")], flip=["UPLO"]),',
          CBLAS),
    Fault("cblas-ger-vectors-not-swapped", "cblas",
          "row-major ?GER swaps M and N but not the vectors",
          "tools/codegen/cblas.py",
          'GER = dict(swap=[("M", "N"), ("X", "Y"), ("INCX", "INCY")])',
          'GER = dict(swap=[("M", "N")])',
          CBLAS),
    Fault("cblas-iamax-one-based", "cblas",
          "cblas_i?amax returns the Fortran (one-based) index",
          "tools/codegen/cblas.py",
          '"  return i > 0 ? static_cast<std::size_t>(i - 1) : 0;"',
          '"  return static_cast<std::size_t>(i);"',
          CBLAS),

    # ------------------------------------------------------------ Windows
    Fault("windows-export-missing", "windows",
          "vorn.dll's module definition leaves out VORN_instable_zhpgvx_ (one spelling no Windows test links)",
          "tools/codegen/exports.py",
          'out += [f"    {n}={_stub(r, i)}" for n in names]',
          'out += [f"    {n}={_stub(r, i)}" for n in names if n != "VORN_instable_zhpgvx_"]',
          WINDOWS, windows_only=True),
    # The bridge to the real computational library (a test back-end).
    Fault("bridge-select-one-slot", "windows",
          "the bridge keeps one SELECT for the process instead of one per thread",
          "tools/bridge/runtime.c", "static __thread W select_slot;", "static W select_slot;",
          r"^windows_plain_calls_bridge$", windows_only=True),
    Fault("bridge-progress-into-windows-code", "windows",
          "the bridge runs the Windows progress handler on the library's own threads too",
          "tools/bridge/runtime.c", "const int library_thread = !bridge_windows_thread;",
          "const int library_thread = 0;", r"^windows_library_threads_bridge$", windows_only=True),
    Fault("bridge-report-skips-handler", "windows",
          "a report raised by the library goes to its default handler, not the one the layer installed",
          "tools/bridge/runtime.c", "  handler(name, position, length);",
          "  mkl.default_xerbla(name, position, length);", r"^windows_plain_calls_bridge$", windows_only=True),
]
