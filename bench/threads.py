"""Many small calls on a busy machine: scipy's LOBPCG on a small diagonal
problem (a few hundred BLAS/LAPACK calls of a few dozen rows each, per
solve) timed through the companion libraries, the reference pair and
OpenBLAS, on one and two threads, on an idle machine and beside one
spinning process per core. The companions run once more with OpenMP's
passive wait policy, the recipe the top README gives for shared machines.

  bench/threads.py --dropin <build>/dropin/lib [--repeats 3] [--out bench/results/threads.md]

The competing processes are this script's own children, each ending by
itself after half an hour at the latest, and ended after the measurements.
"""
import argparse
import os
import statistics
import subprocess
import time
from pathlib import Path

WORKLOAD = """import time, warnings
import numpy as np
from scipy.sparse import diags
from scipy.sparse.linalg import lobpcg
warnings.simplefilter("ignore")
n, m = 100, 4
a = diags([np.arange(1.0, n + 1)], [0], (n, n), format="csr")
rng = np.random.default_rng(0)
start = time.perf_counter()
for dtype in (np.float64, np.float32) * 15:
    x = rng.standard_normal((n, m)).astype(dtype)
    lobpcg(a.astype(dtype), x, largest=False, maxiter=40, tol=1e-5)
print(time.perf_counter() - start)
"""
# A competing process that ends by itself at the latest after half an hour.
SPIN = "import time\nend = time.time() + 1800\nwhile time.time() < end: pass"
REFERENCE = "/usr/lib/x86_64-linux-gnu/blas:/usr/lib/x86_64-linux-gnu/lapack"
OPENBLAS = "/usr/lib/x86_64-linux-gnu/openblas-pthread"


def timed(path, threads, extra):
    env = {**os.environ, "LD_LIBRARY_PATH": path, "MKL_NUM_THREADS": threads, "OMP_NUM_THREADS": threads,
           "OPENBLAS_NUM_THREADS": threads, **extra}
    out = subprocess.run(["/usr/bin/python3", "-c", WORKLOAD], env=env, capture_output=True, text=True,
                         check=True, timeout=900)
    return float(out.stdout.split()[-1])


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--dropin", required=True)
    p.add_argument("--repeats", type=int, default=3)
    p.add_argument("--out", default=str(Path(__file__).parent / "results" / "threads.md"))
    a = p.parse_args()
    rows = [("companions", a.dropin, {}), ("companions, OMP_WAIT_POLICY=passive", a.dropin,
            {"OMP_WAIT_POLICY": "passive"}), ("companions, GOMP_SPINCOUNT=10000", a.dropin, {"GOMP_SPINCOUNT": "10000"}),
            ("reference", REFERENCE, {}), ("OpenBLAS", OPENBLAS, {})]
    cores = os.cpu_count()
    table, before = {}, open("/proc/loadavg").read().split()[0]
    for busy in (False, True):
        load = [subprocess.Popen(["/usr/bin/python3", "-c", SPIN]) for _ in range(cores if busy else 0)]
        try:
            time.sleep(1 if busy else 0)
            for name, path, extra in rows:
                for threads in ("1", "2"):
                    t = statistics.median(timed(path, threads, extra) for _ in range(a.repeats))
                    table[name, threads, busy] = t
                    print(f"{name:38} threads {threads} {'busy' if busy else 'idle'}: {t:7.2f} s", flush=True)
        finally:
            for process in load:
                process.kill()
                process.wait()
    lines = [f"LOBPCG, 30 solves of n = 100, m = 4 (median of {a.repeats}, seconds); busy: {cores} spinning "
             f"processes beside it on {cores} cores. Load average before: {before}",
             "", "| libraries | 1 thread idle | 2 threads idle | 1 thread busy | 2 threads busy |", "|---|---:|---:|---:|---:|"]
    for name, _, _ in rows:
        lines.append(f"| {name} | " + " | ".join(f"{table[name, t, b]:.2f}" for b in (False, True) for t in ("1", "2"))
                     + " |")
    Path(a.out).parent.mkdir(parents=True, exist_ok=True)
    Path(a.out).write_text("\n".join(lines) + "\n")
    print("\n".join(lines))


if __name__ == "__main__":
    main()
