"""Per-routine exceptions to the regular frame, each a named table.

Everything the generator does differently for a routine is decided here and
nowhere else, so that the irregular cases can be reviewed in one place."""

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
}

# Export entries that bypass the interface function: the upper XERBLA
# spelling jumps to its own function rather than through the lower one.
UPPER_ENTRY_TARGET = {"XERBLA": "vorn_if_XERBLA"}


# Groups whose interface functions are not built yet; their names are not
# exported until they are.
GROUPS_NOT_YET_BUILT = frozenset({"B3", "B4"})


def hand_written() -> frozenset[str]:
    return frozenset().union(*HAND_WRITTEN.values())
