"""Every shared object installed on this machine that needs libblas.so.3 or
liblapack.so.3, opened privately with every symbol bound at once, once over
each pair of libraries on LD_LIBRARY_PATH. Each object that loads over the
first pair (the reference) must load over the others too, compute a DDOT
through them and take that DDOT from their libblas.so.3. Python's extension
modules are opened from Python (ctypes, RTLD_LOCAL), the rest from a loader
that lacks libm, as a plain C program does.

  closure.py --loader L --python P --pair reference=DIR:DIR --pair companions=DIR[:DIR]...
"""
import argparse
import mmap
import os
import struct
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

CONSUMED = {b"libblas.so.3", b"liblapack.so.3"}
PYTHON_LOADER = """import ctypes, sys
class Info(ctypes.Structure):
    _fields_ = [("fname", ctypes.c_char_p), ("fbase", ctypes.c_void_p), ("sname", ctypes.c_char_p), ("saddr", ctypes.c_void_p)]
ddot = ctypes.CDLL(sys.argv[1]).ddot_
ddot.restype, one, n, info = ctypes.c_double, ctypes.c_int(1), ctypes.c_int(3), Info()
x, y = (ctypes.c_double * 3)(1, 2, 3), (ctypes.c_double * 3)(4, -5, 6)
ctypes.CDLL(None).dladdr(ctypes.cast(ddot, ctypes.c_void_p), ctypes.byref(info))
print(info.fname.decode(), "%g" % ddot(ctypes.byref(n), x, ctypes.byref(one), y, ctypes.byref(one)))
"""


def needed(path):
    """DT_NEEDED names of a 64-bit little-endian ELF shared object."""
    with open(path, "rb") as f:
        try:
            data = mmap.mmap(f.fileno(), 0, access=mmap.ACCESS_READ)
        except ValueError:  # empty
            return set()
    if data[:5] != b"\x7fELF\x02" or struct.unpack_from("<H", data, 16)[0] != 3:
        return set()
    phoff, = struct.unpack_from("<Q", data, 32)
    phentsize, phnum = struct.unpack_from("<HH", data, 54)
    loads, dynamic = [], None
    for i in range(phnum):
        kind, _, offset, vaddr, _, filesz = struct.unpack_from("<IIQQQQ", data, phoff + i * phentsize)
        if kind == 1:
            loads.append((vaddr, offset, filesz))
        elif kind == 2:
            dynamic = (offset, filesz)
    if dynamic is None:
        return set()
    entries = [struct.unpack_from("<qQ", data, dynamic[0] + i) for i in range(0, dynamic[1], 16)]
    strtab = next(v for t, v in entries if t == 5)
    base = next(o + strtab - v for v, o, s in loads if v <= strtab < v + s)
    return {data[base + v:data.find(b"\0", base + v)] for t, v in entries if t == 1}


def consumers(roots):
    found = set()
    for root in roots:
        for dirpath, _, files in os.walk(root):
            for name in files:
                path = os.path.join(dirpath, name)
                if ".so" in name and not os.path.islink(path) and needed(path) & CONSUMED:
                    found.add(os.path.realpath(path))
    return sorted(found)


def load(args, path, libpath):
    python = "/python3" in path or ".cpython-" in path
    cmd = [args.python, "-c", PYTHON_LOADER, path] if python else [args.loader, path]
    env = {**os.environ, "LD_LIBRARY_PATH": libpath, "LD_BIND_NOW": "1", "MKL_NUM_THREADS": "1"}
    done = subprocess.run(cmd, env=env, capture_output=True, text=True, timeout=120)
    last = (done.stdout.strip().splitlines() or done.stderr.strip().splitlines() or [""])[-1]
    return done.returncode == 0, last or f"exit code {done.returncode}"


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--loader", required=True)
    p.add_argument("--python", default="/usr/bin/python3")
    p.add_argument("--pair", action="append", required=True, help="NAME=LD_LIBRARY_PATH, the reference first")
    p.add_argument("--roots", default="/usr/lib:/usr/local/lib")
    args = p.parse_args()
    objects = consumers(args.roots.split(":"))
    pairs = [pair.split("=", 1) for pair in args.pair]
    failures, loaded = [], None
    with ThreadPoolExecutor(2) as pool:
        for name, libpath in pairs:
            blas = next(os.path.realpath(f"{d}/libblas.so.3") for d in libpath.split(":") if os.path.exists(f"{d}/libblas.so.3"))
            targets = objects if loaded is None else loaded
            results = dict(zip(targets, pool.map(lambda o: load(args, o, libpath), targets)))
            good = [o for o, (ok, out) in results.items()
                    if ok and [os.path.realpath(w) for w in out.split()[:1]] + out.split()[1:] == [blas, "12"]]
            print(f"{name}: {len(good)} of {len(results)} objects load, compute and take ddot_ from {blas}")
            if loaded is None:
                loaded = good
                continue
            failures += [f"{name}: {o}: {results[o][1]}" for o in loaded if o not in good]
    print(f"{len(objects)} objects need libblas.so.3 or liblapack.so.3")
    if not loaded or failures:
        sys.exit("\n".join(failures) or "no object loads over the reference")


if __name__ == "__main__":
    main()
