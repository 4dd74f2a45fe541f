"""scipy through the companion libraries (Debian's scipy links liblapack.so.3
alone in scipy.linalg's _flapack, and libblas.so.3 elsewhere): a few
decompositions, each held to its defining identity, one ARPACK
eigenproblem, then the libraries the process mapped, one per line."""
import numpy as np
import scipy.linalg as la
import scipy.sparse
import scipy.sparse.linalg

rng = np.random.default_rng(24)
n = 300
a = rng.standard_normal((n, n))
z = a + 1j * rng.standard_normal((n, n))
b = rng.standard_normal((n, 3))
s = a.T @ a + n * np.eye(n)


def small(x, scale=1.0):
    assert np.max(np.abs(x)) < 1e-9 * scale, np.max(np.abs(x))


lu, piv = la.lu_factor(a)
small(a @ la.lu_solve((lu, piv), b) - b, n)
q, r = la.qr(z)
small(q @ r - z, n)
small(la.cholesky(s, lower=True) @ la.cholesky(s, lower=True).T - s, n * n)
w, v = la.eigh(s)
small(s @ v - v * w, n * n)
u, sv, vt = la.svd(z)
small((u * sv) @ vt - z, n)
t, zs = la.schur(z)
small(zs @ t @ zs.conj().T - z, n)
lap = scipy.sparse.diags([-1.0, 2.0, -1.0], [-1, 0, 1], shape=(n, n), format="csr")
vals = scipy.sparse.linalg.eigsh(lap, k=3, which="LA", return_eigenvectors=False)
small(np.sort(vals) - 2 + 2 * np.cos(np.pi * np.arange(n - 2, n + 1) / (n + 1)))
print("scipy", scipy.__version__, "computes")
with open("/proc/self/maps") as maps:
    print("\n".join(sorted({line.split()[-1] for line in maps if "/" in line})))
