"""The public C header: one prototype per exported spelling, usable from C
and C++."""
from catalogue import Routine
from cxx_types import CALLER_RESULT, caller_type, param_name
import exports
import overrides

# Routines whose callers supply character lengths or whose result travels
# through a buffer: their prototypes are not derivable from the argument list.
HAND_PROTOTYPES = {
    "XERBLA": "void {n}(const char* srname, const int* info, int srname_len)",
    "LSAME": "int {n}(const char* ca, const char* cb)",
    "LSAMEN": "int {n}(const int* n, const char* ca, const char* cb, int ca_len, int cb_len)",
    "SECOND": "float {n}(void)",
    "DSECND": "double {n}(void)",
    "ILAENV": "int {n}(const int* ispec, const char* name, const char* opts, const int* n1, "
              "const int* n2, const int* n3, const int* n4, int name_len, int opts_len)",
    "IPARMQ": "int {n}(const int* ispec, const char* name, const char* opts, const int* n, "
              "const int* ilo, const int* ihi, const int* lwork, int name_len, int opts_len)",
    "ILAPREC": "int {n}(const char* prec, int prec_len)",
    "ILATRANS": "int {n}(const char* trans, int trans_len)",
    "ILAUPLO": "int {n}(const char* uplo, int uplo_len)",
    "ILADIAG": "int {n}(const char* diag, int diag_len)",
    "CHLA_TRANSTYPE": "void {n}(char* result, int result_len, const int* trans)",
    "XERBLA_ARRAY": "void {n}(const char* srname_array, const int* srname_len, const int* info, "
                    "int element_len)",
}
assert set(HAND_PROTOTYPES) <= overrides.hand_written()


# Printed before the prototypes of the routines that take a selection
# callback: the layer hands the function pointer on as it is, and the
# computational library's 64-bit LOGICAL makes a difference to the caller.
CALLBACK_NOTE = """\
/* SELECT / SELCTG is handed to the computational library unchanged. The
 * library calls it as a LOGICAL function of its own, 64 bits wide, and reads
 * the whole result register: a callback returning a 32-bit int (or a
 * gfortran LOGICAL) whose code leaves the upper half of that register set
 * is read as true, whatever its 32-bit value. Return a 64-bit integer
 * (long long), 0 or 1, to be read as intended. */"""
CALLBACK_ROUTINES = frozenset(p + f for p in "SDCZ" for f in ("GEES", "GEESX", "GGES", "GGESX"))


def prototype(r: Routine, name: str) -> str:
    if r.name in HAND_PROTOTYPES:
        return HAND_PROTOTYPES[r.name].format(n=name) + ";"
    params = ", ".join(f"{caller_type(a)} {param_name(a)}" for a in r.args) or "void"
    return f"{CALLER_RESULT[r.result]} {name}({params});"


def c_header(routines: list[Routine]) -> str:
    out = ["/* Generated from catalogue/routines.cat: the plain family, one prototype",
           " * per exported spelling. Integers and logicals are 32-bit; complex data",
           " * are pairs of their real component; complex-valued functions take the",
           " * address of their result first. */",
           "#ifndef VORN_INSTABLE_H", "#define VORN_INSTABLE_H", "",
           "#ifdef __cplusplus", 'extern "C" {', "#endif", ""]
    for r in routines:
        if r.name in CALLBACK_ROUTINES:
            out.append(CALLBACK_NOTE)
        for names, _ in exports.entries(r):
            out += [prototype(r, n) for n in names]
    out += ["", "#ifdef __cplusplus", "}", "#endif", "#endif", ""]
    return "\n".join(out)
