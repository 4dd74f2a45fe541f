"""Per-routine exceptions to the regular frame, each a named table.

Everything the generator does differently for a routine is decided here and
nowhere else, so that the irregular cases can be reviewed in one place."""
from dataclasses import dataclass

# Carried out by the computational library's mkl_lapack_ps_ entries, and
# called without installing the hooks. The set is irregular on purpose
# (SLARFX, ZLARFX and ZSPR are not in it).
PS_ENTRY_WITHOUT_HOOKS = frozenset("""
    CGETC2 DGETC2 SGETC2 ZGETC2 CGTTS2 DGTTS2 SGTTS2 ZGTTS2
    CPTTS2 DPTTS2 SPTTS2 ZPTTS2 CLARTV DLARTV SLARTV ZLARTV
    CLARFX DLARFX CSPR DLASD3 SLASD3 DLASD4 SLASD4""".split())

# LAPACK-spelled (four spellings) but built like level-1 BLAS: widened and
# forwarded to mkl_blas_, without hooks.
BLAS_FRAME_WITH_LAPACK_SPELLINGS = frozenset({"CROT", "ZROT"})

# Routines whose trailing-underscore lower spelling shares the plain lower
# spelling's address rather than the upper one's.
LOWER_UNDERSCORE_SHARES_LOWER = frozenset({"DLASD6"})

# Routines validated by the layer before the computational library is
# called. The real precisions check ?ORGHR but not ?SYGVD, the complex ones
# ?HEGVD but not ?UNGHR: deliberate.
PRECHECKED = frozenset("""
    SGEBRD SGEEV SGEHRD SGELQF SGEQRF SGESVD SGETF2 SGETRF SORGHR SORGQR
    SORMQL SORMQR SPOTRF SSYEVD SSYGST SSYTRD
    DGEBRD DGEEV DGEHRD DGELQF DGEQRF DGESVD DGETF2 DGETRF DORGHR DORGQR
    DORMQL DORMQR DPOTRF DSYEVD DSYGST DSYTRD
    CGEBRD CGEEV CGEHRD CGELQF CGEQRF CGESVD CGETF2 CGETRF CHEEVD CHEGST
    CHEGVD CHETRD CPOTRF CUNGQR CUNMQL CUNMQR
    ZGEBRD ZGEEV ZGEHRD ZGELQF ZGEQRF ZGESVD ZGETF2 ZGETRF ZHEEVD ZHEGST
    ZHEGVD ZHETRD ZPOTRF ZUNGQR ZUNMQL ZUNMQR""".split())

# The pre-check each of those routines runs, keyed by the routine name or,
# for all four precisions at once, by the name without its precision letter:
# the check function of frame/prechecks.h and the arguments it examines.
# Positions are taken from the routine's own argument list.
PRECHECK_CALLS = {
    "GEQRF": ("geqrf", "M N LDA LWORK"),
    "GELQF": ("gelqf", "M N LDA LWORK"),
    "GEBRD": ("gebrd", "M N LDA LWORK"),
    "GEHRD": ("gehrd", "N ILO IHI LDA LWORK"),
    "GETRF": ("getrf", "M N LDA"),
    "GETF2": ("getrf", "M N LDA"),
    "POTRF": ("potrf", "UPLO N LDA"),
    "ORGHR": ("orghr", "N ILO IHI LDA LWORK"),
    "ORGQR": ("orgqr", "M N K LDA LWORK"),
    "UNGQR": ("orgqr", "M N K LDA LWORK"),
    "ORMQR": ("ormqr_real", "SIDE TRANS M N K LDA LDC LWORK"),
    "ORMQL": ("ormqr_real", "SIDE TRANS M N K LDA LDC LWORK"),
    "UNMQR": ("ormqr_complex", "SIDE TRANS M N K LDA LDC LWORK"),
    "UNMQL": ("ormqr_complex", "SIDE TRANS M N K LDA LDC LWORK"),
    "GEEV": ("geev", "JOBVL JOBVR N LDA LDVL LDVR"),
    "GESVD": ("gesvd", "JOBU JOBVT M N LDA LDU LDVT"),
    "SYTRD": ("sytrd", "UPLO N LDA LWORK"),
    "HETRD": ("sytrd", "UPLO N LDA LWORK"),
    "SYGST": ("sygst", "ITYPE UPLO N LDA LDB"),
    "HEGST": ("sygst", "ITYPE UPLO N LDA LDB"),
    "SYEVD": ("syevd", "JOBZ UPLO N LDA LWORK LIWORK"),
    "HEEVD": ("heevd", "JOBZ UPLO N LDA LWORK LRWORK LIWORK"),
    # The single-precision routine goes without workspace tests; deliberate.
    "CHEGVD": ("hegvd_without_workspace", "ITYPE JOBZ UPLO N LDA LDB"),
    "ZHEGVD": ("hegvd", "ITYPE JOBZ UPLO N LDA LDB LWORK LRWORK LIWORK"),
}


def precheck_call(name: str) -> tuple[str, list[str]]:
    check, args = PRECHECK_CALLS.get(name) or PRECHECK_CALLS[name[1:]]
    return check, args.split()


# Integer scalars treated otherwise than their documented intent says:
# "in" is widened and never written back; "zeroed" is a 64-bit cell set to
# 0, passed, and narrowed back. The old machine-parameter routines keep this
# division although some of the "in" arguments are outputs in the reference.
INTEGER_SCALAR_TREATMENT = {
    "SLAMC1": {"BETA": "in", "T": "zeroed", "RND": "zeroed", "IEEE1": "zeroed"},
    "DLAMC1": {"BETA": "in", "T": "zeroed", "RND": "zeroed", "IEEE1": "zeroed"},
    "SLAMC2": {"BETA": "in", "EMIN": "in", "T": "zeroed", "RND": "zeroed", "EMAX": "zeroed"},
    "DLAMC2": {"BETA": "in", "EMIN": "in", "T": "zeroed", "RND": "zeroed", "EMAX": "zeroed"},
    "SLAMC4": {"EMIN": "in", "BASE": "in"},
    "DLAMC4": {"EMIN": "in", "BASE": "in"},
    "SLAMC5": {"BETA": "in", "P": "in", "EMIN": "in", "IEEE": "in", "EMAX": "zeroed"},
    "DLAMC5": {"BETA": "in", "P": "in", "EMIN": "in", "IEEE": "in", "EMAX": "zeroed"},
    "ILAVER": {"VERS_MAJOR": "zeroed", "VERS_MINOR": "zeroed", "VERS_PATCH": "zeroed"},
}

# Interface functions written by hand, with the file that holds them. These
# take caller-supplied character lengths or pass straight through.
HAND_WRITTEN = {
    "frame/hooks.cpp": frozenset({"XERBLA"}),
    "frame/service.cpp": frozenset("""
        LSAME LSAMEN SECOND DSECND ILAENV IPARMQ ILAPREC ILATRANS ILAUPLO
        ILADIAG CHLA_TRANSTYPE XERBLA_ARRAY""".split()),
    # Array routines whose sizes come from the library's own tree depth or
    # need conversions no table can express. Unlike the services above, their
    # prototypes and library declarations are generated from the catalogue.
    "lapack/divide_conquer_s.cpp": frozenset("SGELSD SLALSD SBDSDC SLASDA SLAEDA".split()),
    "lapack/divide_conquer_d.cpp": frozenset("DGELSD DLALSD DBDSDC DLASDA DLAEDA".split()),
    "lapack/divide_conquer_c.cpp": frozenset("CGELSD CLALSD".split()),
    "lapack/divide_conquer_z.cpp": frozenset("ZGELSD ZLALSD".split()),
    "lapack/row_interchanges_s.cpp": frozenset({"SLASWP"}),
    "lapack/row_interchanges_d.cpp": frozenset({"DLASWP"}),
    "lapack/row_interchanges_c.cpp": frozenset({"CLASWP"}),
    "lapack/row_interchanges_z.cpp": frozenset({"ZLASWP"}),
}

# Hand-written routines that the computational library's services carry out
# (mkl_serv_lsame, mkl_serv_default_xerbla, mkl_serv_second/dsecnd): no
# entry of their own is called, so none is imported.
SERVICE_BACKED = frozenset({"LSAME", "XERBLA", "SECOND", "DSECND"})
assert SERVICE_BACKED <= HAND_WRITTEN["frame/hooks.cpp"] | HAND_WRITTEN["frame/service.cpp"]

# Export entries that bypass the interface function: the upper XERBLA
# spelling jumps to its own function rather than through the lower one.
UPPER_ENTRY_TARGET = {"XERBLA": "vorn_if_XERBLA"}


# Groups whose interface functions are not built yet; their names are not
# exported until they are.
GROUPS_NOT_YET_BUILT = frozenset()


def hand_written() -> frozenset[str]:
    return frozenset().union(*HAND_WRITTEN.values())


def hand_written_file(name: str) -> str:
    return next(f for f, names in HAND_WRITTEN.items() if name in names)


# ---------------------------------------------------------------------------
# Integer and logical arrays of the LAPACK routines.
#
# By default an array is converted as the catalogue documents it: its DIM is
# the scratch length, an `in` array is widened into the scratch array right
# after it is obtained, an `out` array is narrowed back over its length after
# the call, `io` both. The tables below state every departure from that.
# Conditions and lengths are written over the routine's arguments in a small
# Fortran-like notation: integer expressions with + - * / ( ), MAX MIN ABS,
# LG(n) (smallest k with 2**k >= n) and DEPTH(n, smlsiz) (LAPACK's tree
# depth INT(LOG2(n/(smlsiz+1)))+1); comparisons = /= < > <= >=; a character
# argument compared with a letter (SORT='S') is an option test, folding
# lower case onto upper case; & | ! combine; QUERY is true when a workspace
# length argument is -1. Keys are a routine name or, for every precision at
# once, the name without its precision letter.

@dataclass(frozen=True)
class ArrayRule:
    length: str | None = None  # scratch elements; default: the catalogue's DIM
    taken: str | None = None  # condition for obtaining the array; default: always
    copy_in: str | bool | None = None  # None: by intent; False: never; str: condition
    copy_back: str | bool | None = None  # likewise
    back_length: str | None = None  # elements copied back; default: length


# Length arguments whose value -1 asks for a workspace query. A routine with
# several of them hands the library a full query when any one is -1.
QUERY_LENGTHS = ("LWORK", "LIWORK", "NZC")

# Scalars that the routine reads only under an option; the caller may leave
# them unset otherwise, so they are read only then (and are 0 otherwise).
OPTIONAL_SCALARS = {"IL": "RANGE='I'", "IU": "RANGE='I'"}

# Integer workspaces: the caller's array is neither read nor written, the
# library gets a scratch array of the documented length.
WORKSPACE_ARRAYS = frozenset({"IWORK"})

# Sizes that a DIM names without their being arguments.
DERIVED_SIZES = {
    # The merged problem of the divide-and-conquer SVD steps.
    **{f: {"N": "NL+NR+1"} for f in ("LALS0", "LASD1", "LASD2", "LASD3", "LASD6", "LASD7")},
    "LALSA": {"NLVL": "DEPTH(N,SMLSIZ)"},
}

# Arrays the catalogue gives no usable DIM for, or whose DIM is not what the
# routine indexes.
ARRAY_LENGTHS = {
    # The documented dimension from the routine's text (lg n as in ?LAED0's
    # own sizing).
    ("LAED0", "IWORK"): "6+6*N+5*N*LG(N)",
    # ?LAED7 merges one node of ?LAED0's tree; N is that node's size, but the
    # pointer arrays are the whole tree's, indexed up to the entry after the
    # node (NODE(TLVLS, CURLVL, CURPBM) is its position). PERM and GIVCOL
    # are indexed through the pointers: as far as the largest pointer the
    # routine reads, or this node's own N entries past its pointer
    # (TREE(pointers, TLVLS, CURLVL, CURPBM, N), see lapack/array_frame.h).
    ("LAED7", "QPTR"): "NODE(TLVLS,CURLVL,CURPBM)+1",
    ("LAED7", "PRMPTR"): "NODE(TLVLS,CURLVL,CURPBM)+1",
    ("LAED7", "GIVPTR"): "NODE(TLVLS,CURLVL,CURPBM)+1",
    ("LAED7", "PERM"): "TREE(PRMPTR,TLVLS,CURLVL,CURPBM,N)",
    ("LAED7", "GIVCOL"): "2*TREE(GIVPTR,TLVLS,CURLVL,CURPBM,N)",
}

# Pivot and permutation arrays that a workspace query (LWORK = -1) leaves
# alone: neither obtained nor converted then.
PIVOTS_SKIPPED_ON_QUERY = {
    "SYTRF": "IPIV", "HETRF": "IPIV", "SYSV": "IPIV", "HESV": "IPIV", "GETRI": "IPIV",
    "GEQP3": "JPVT", "GELSY": "JPVT",
}

# In the expert drivers with a FACT argument the pivots come from the caller
# only with FACT = 'F' and go back only when the routine factored.
FACT_CONDITIONED = {"IPIV": ArrayRule(copy_in="FACT='F'", copy_back="FACT='N' | FACT='E'")}

# IWORK sized by LIWORK: one element on a query, only IWORK(1) (the minimal
# LIWORK) goes back. Recognised by its DIM naming LIWORK.
LENGTH_QUERY_IWORK = ArrayRule(length="MAX(1,LIWORK)", copy_back=True, back_length="1")

# ISUPPZ exists only when every eigenvector is computed; what "every" means
# per routine.
_ALL_BY_RANGE = "(RANGE='A' | RANGE='I' & IU-IL=N-1)"
ISUPPZ_ROUTINES = {"SYEVR": _ALL_BY_RANGE, "HEEVR": _ALL_BY_RANGE, "STEVR": _ALL_BY_RANGE,
                   "STEGR": "N>0", "STEMR": "N>0"}


def isuppz_rule(family: str) -> ArrayRule:
    return ArrayRule(length="2*MAX(1,N)", taken=f"JOBZ='V' & !QUERY & {ISUPPZ_ROUTINES[family]}",
                     copy_back=True, back_length="2*MAX(1,M)")


# Expert eigen-drivers: IWORK of 5N, IFAIL of N when eigenvectors are wanted;
# neither on a query (the drivers without LWORK never query).
IFAIL_DRIVERS = frozenset("""SYEVX SYGVX HEEVX HEGVX SBEVX SBGVX SPEVX SPGVX STEVX
    HBEVX HBGVX HPEVX HPGVX""".split())
IFAIL_RULES = {"IWORK": ArrayRule(length="5*N", taken="!QUERY"),
               "IFAIL": ArrayRule(length="N", taken="JOBZ='V' & !QUERY", copy_back=True, back_length="N")}

# Integer arrays with a fixed formula.
FIXED_WORKSPACE = {
    ("GESDD", "IWORK"): ArrayRule(length="8*MIN(M,N)", taken="!QUERY"),
    ("TGSYL", "IWORK"): ArrayRule(length="M+N+6", taken="!QUERY"),
    ("TGSY2", "IWORK"): ArrayRule(length="M+N+2"),
    # IWORK(1..3) carry results in the reference but stay as the caller had them.
    ("GEJSV", "IWORK"): ArrayRule(length="M+3*N"),
    ("GGSVD", "IWORK"): ArrayRule(length="N", copy_back=True),  # sorting information
    ("GGSVP", "IWORK"): ArrayRule(length="N"),
    ("LARRJ", "IWORK"): ArrayRule(length="2*N"),
    ("STEBZ", "IBLOCK"): ArrayRule(length="N"),
    ("STEBZ", "ISPLIT"): ArrayRule(length="N"),
    ("STEBZ", "IWORK"): ArrayRule(length="3*N"),
    ("STEIN", "IBLOCK"): ArrayRule(length="N"),
    ("STEIN", "ISPLIT"): ArrayRule(length="N"),
    ("STEIN", "IWORK"): ArrayRule(length="N"),
    ("STEIN", "IFAIL"): ArrayRule(length="M"),
    ("LARRA", "ISPLIT"): ArrayRule(length="N"),
    ("LAMRG", "INDEX"): ArrayRule(length="N1+N2"),
    # Reverse communication: ISGN only ever comes back from the library.
    ("LACON", "ISGN"): ArrayRule(length="N", copy_in=False, copy_back=True),
    ("LACN2", "ISGN"): ArrayRule(length="N", copy_in=False, copy_back=True),
    ("LACN2", "ISAVE"): ArrayRule(length="3", copy_in=True, copy_back=True),
    ("LARNV", "ISEED"): ArrayRule(length="4", copy_in=True, copy_back=True),
    ("LARUV", "ISEED"): ArrayRule(length="4", copy_in=True, copy_back=True),
    ("LAR1V", "ISUPPZ"): ArrayRule(length="2", copy_in=False, copy_back=True),
}

# Logical arrays: taken only when the routine references them.
_SORTING = "SORT='S' & !QUERY"
_SELECTED = "HOWMNY='S'"
# BWORK is only written by the library, and only while sorting.
_SORTING_BWORK = ArrayRule(length="N", taken=_SORTING, copy_in=False, copy_back=True)
# SELECT read from the caller; the real routines may write it back, widening
# a selection to both halves of a complex pair.
_SELECT_READ = ArrayRule(length="N", copy_in=True, copy_back=False)
_SELECT_READ_WRITTEN = ArrayRule(length="N", copy_in=True, copy_back=True)
_SELECT_BY_HOWMNY = ArrayRule(length="N", taken=_SELECTED, copy_in=True, copy_back=False)
LOGICAL_ARRAYS = {
    ("GEES", "BWORK"): _SORTING_BWORK,
    ("GEESX", "BWORK"): _SORTING_BWORK,
    ("GGES", "BWORK"): _SORTING_BWORK,
    ("GGESX", "BWORK"): _SORTING_BWORK,
    ("GGEVX", "BWORK"): ArrayRule(length="N", taken="(SENSE='E' | SENSE='B' | SENSE='V') & !QUERY",
                                  copy_in=False, copy_back=True),
    ("STREVC", "SELECT"): ArrayRule(length="N", taken=_SELECTED, copy_in=True, copy_back=True),
    ("DTREVC", "SELECT"): ArrayRule(length="N", taken=_SELECTED, copy_in=True, copy_back=True),
    ("CTREVC", "SELECT"): _SELECT_BY_HOWMNY,
    ("ZTREVC", "SELECT"): _SELECT_BY_HOWMNY,
    ("TGEVC", "SELECT"): _SELECT_BY_HOWMNY,
    ("TRSNA", "SELECT"): _SELECT_BY_HOWMNY,
    ("TGSNA", "SELECT"): _SELECT_BY_HOWMNY,
    ("TRSEN", "SELECT"): _SELECT_READ,
    ("TGSEN", "SELECT"): _SELECT_READ,
    ("SHSEIN", "SELECT"): _SELECT_READ_WRITTEN,
    ("DHSEIN", "SELECT"): _SELECT_READ_WRITTEN,
    ("CHSEIN", "SELECT"): _SELECT_READ,
    ("ZHSEIN", "SELECT"): _SELECT_READ,
}

# Other arrays taken only when referenced, or whose direction differs from
# the documented one.
ARRAY_RULES = {
    ("HSEIN", "IFAILL"): ArrayRule(taken="SIDE='L' | SIDE='B'"),
    ("HSEIN", "IFAILR"): ArrayRule(taken="SIDE='R' | SIDE='B'"),
    ("GGEVX", "IWORK"): ArrayRule(length="N+6", taken="(SENSE='N' | SENSE='B' | SENSE='V') & !QUERY"),
    ("LAEBZ", "NVAL"): ArrayRule(taken="IJOB=3"),
    ("LASD6", "PERM"): ArrayRule(taken="ICOMPQ/=0"),
    ("LASD6", "GIVCOL"): ArrayRule(taken="ICOMPQ/=0"),
    ("LASD7", "PERM"): ArrayRule(taken="ICOMPQ/=0"),
    ("LASD7", "GIVCOL"): ArrayRule(taken="ICOMPQ/=0"),
    # The computational library reads INDX(N+1), one past the documented
    # end, without using it (a guard page after the scratch array shows it);
    # the reference caller's IWORK goes on there.
    ("LAED2", "INDX"): ArrayRule(length="N+1", back_length="N"),
}

def keyed(table: dict, name: str, array: str | None = None):
    """Entry of a table keyed by routine name or by precision-less family,
    with the array's name as second key part where given."""
    for routine in (name, name[1:]):
        key = (routine, array) if array else routine
        if key in table:
            return table[key]
    return None


# ---------------------------------------------------------------------------
# Where the layer departs on purpose from the data flow the Fortran compiler
# reads out of the reference sources (tools/catalogue/dataflow.py). Keyed by
# (routine or precision-less family, argument, what): "in" copy-in, "back"
# copy-back, "const" the header's const; the value says why.
# A routine key "*" covers every routine.
_RESTORED_A = ("written and restored: the unblocked kernel sets each reflector's leading element "
               "of A to one (the complex ones also conjugate its row with ?LACGV) and puts it back, "
               "so the caller's A comes back unchanged and stays const, as in lapack.h")
_READ_WHEN_FACTORED = ("read only with FACT = 'F': otherwise the routine factors first and writes "
                       "IPIV before reading it; the compiler's reading does not follow the option")
DATAFLOW_EXPLAINED: dict[tuple[str, str, str], str] = {
    **{(f, "A", "const"): _RESTORED_A for f in """ORMBR ORMHR ORMLQ ORMQL ORMQR ORMRQ ORMTR
        UNMBR UNMHR UNMLQ UNMQL UNMQR UNMRQ UNMRZ UNMTR""".split()},
    ("LARZB", "T", "const"): "written and restored: conjugated with ?LACGV around the ?TRMM and back",
    ("LARZB", "V", "const"): "written and restored: conjugated with ?LACGV around the ?GEMM and back",
    **{(f, "IPIV", "in"): _READ_WHEN_FACTORED for f in """GBSVX GBSVXX GESVX GESVXX GTSVX HESVX
        HESVXX HPSVX SPSVX SYSVX SYSVXX""".split()},
    ("GEJSV", "IWORK", "back"): "IWORK(1..3) carry results in the reference, but the layer leaves "
                                "IWORK as the caller had it (FIXED_WORKSPACE)",
    ("*", "IWORK", "back"): "pure workspace (WORKSPACE_ARRAYS): the library gets a scratch array, "
                            "the caller's IWORK is neither read nor written",
}


def explained_dataflow(name: str, arg: str, what: str):
    """The DATAFLOW_EXPLAINED key that explains a difference, or None."""
    for routine in (name, name[1:], "*"):
        if (routine, arg, what) in DATAFLOW_EXPLAINED:
            return (routine, arg, what)
    return None
