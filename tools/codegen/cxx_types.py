"""C++ spellings of catalogue kinds, on the caller's side (32-bit integers)
and on the computational library's side (64-bit integers)."""
from catalogue import Arg

# Complex data travels as pairs of its real component, as in the typed family.
_ELEMENT = {"i": "int", "l": "int", "ch": "char", "str": "char", "s": "float",
            "d": "double", "c": "float", "z": "double", "hc": "float", "hz": "double"}

CXX_KEYWORDS = {"and", "or", "not", "xor", "int", "char", "float", "double", "do",
                "if", "for", "case", "new", "delete", "this", "small", "near", "far"}


def param_name(arg: Arg) -> str:
    n = arg.name.lower()
    return n + "_" if n in CXX_KEYWORDS else n


def local_name(arg: Arg) -> str:
    return arg.name.lower() + "64"


def _const(arg: Arg) -> str:
    return "const " if arg.intent == "in" and arg.base not in ("hc", "hz") else ""


def caller_type(arg: Arg) -> str:
    if arg.base == "fn":
        return "void*"
    return f"{_const(arg)}{_ELEMENT[arg.base]}*"


def library_type(arg: Arg) -> str:
    if arg.base in ("i", "l"):
        return f"{_const(arg)}vorn::i64*"
    return caller_type(arg)


CALLER_RESULT = {"sub": "void", "i": "int", "l": "int", "s": "float", "d": "double",
                 "c": "void", "z": "void"}
LIBRARY_RESULT = {"sub": "void", "i": "vorn::i64", "l": "vorn::i64", "s": "float",
                  "d": "double", "c": "void", "z": "void"}
