"""Every shared object under /usr/lib that needs libblas.so.3 or
liblapack.so.3, opened with every symbol bound at once (LD_BIND_NOW=1,
RTLD_LOCAL) over each NAME=LD_LIBRARY_PATH pair, the reference first: each
that loads over the reference must load over the others, compute a DDOT and
take ddot_ from their libblas.so.3. Python's modules are opened from Python,
the rest from a loader without libm.  closure.py LOADER NAME=PATH NAME=PATH...
"""
import os
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

PYTHON = """import ctypes as c, sys
class Info(c.Structure): _fields_ = [("name", c.c_char_p)] + [(f, c.c_void_p) for f in "bsa"]
ddot, info, n, one = c.CDLL(sys.argv[1]).ddot_, Info(), c.c_int(3), c.c_int(1)
ddot.restype, x, y = c.c_double, (c.c_double * 3)(1, 2, 3), (c.c_double * 3)(4, -5, 6)
c.CDLL(None).dladdr(c.cast(ddot, c.c_void_p), c.byref(info))
print(info.name.decode(), "%g" % ddot(c.byref(n), x, c.byref(one), y, c.byref(one)))"""


def consumers():
    """Shared objects whose DT_NEEDED names libblas.so.3 or liblapack.so.3."""
    files = [os.path.join(d, f) for d, _, names in os.walk("/usr/lib") for f in names if ".so" in f]
    dumps = subprocess.run(["xargs", "-0", "objdump", "-p"], input="\0".join(f for f in files if not os.path.islink(f)),
                           capture_output=True, text=True).stdout
    blocks = re.split(r"\n(?=/\S+:\s+file format)", dumps)
    return sorted({os.path.realpath(block.split(":")[0].strip()) for block in blocks
                   if re.search(r"NEEDED\s+lib(blas|lapack)\.so\.3$", block, re.M)})


def load(loader, path, libpath):
    python = "/python3" in path or ".cpython-" in path
    done = subprocess.run(["/usr/bin/python3", "-c", PYTHON, path] if python else [loader, path],
                          env={**os.environ, "LD_LIBRARY_PATH": libpath, "LD_BIND_NOW": "1", "MKL_NUM_THREADS": "1"},
                          capture_output=True, text=True, timeout=120)
    out = (done.stdout.split("\n")[0].split() + [""])[:2]
    blas = next(f"{d}/libblas.so.3" for d in libpath.split(":") if os.path.exists(f"{d}/libblas.so.3"))
    if done.returncode == 0 and out[1] == "12" and os.path.realpath(out[0]) == os.path.realpath(blas):
        return None
    return ((done.stdout + done.stderr).strip().splitlines() or [f"exit code {done.returncode}"])[-1]


def main(loader, reference, *others):
    objects = consumers()
    with ThreadPoolExecutor(2) as pool:
        def failed(libpath, targets):
            return {o: e for o, e in zip(targets, pool.map(lambda o: load(loader, o, libpath), targets)) if e}
        name, libpath = reference.split("=", 1)
        errors = failed(libpath, objects)
        loaded = [o for o in objects if o not in errors]
        print(f"{name}: {len(loaded)} of the {len(objects)} objects that need libblas.so.3 or liblapack.so.3 load")
        failures = []
        for name, libpath in (pair.split("=", 1) for pair in others):
            errors = failed(libpath, loaded)
            print(f"{name}: {len(loaded) - len(errors)} of those {len(loaded)} load")
            failures += [f"{name}: {o}: {e}" for o, e in errors.items()]
    if not loaded or failures:
        sys.exit("\n".join(failures) or "nothing loads over the reference")


if __name__ == "__main__":
    main(*sys.argv[1:])
