"""scipy through the companions (its _flapack links liblapack.so.3 alone):
decompositions held to their identities, an ARPACK eigenproblem, then the
files the process mapped."""
import numpy as np
import scipy.linalg as la
from scipy.sparse import diags
from scipy.sparse.linalg import eigsh

n = 300
rng = np.random.default_rng(24)
a, z = rng.standard_normal((n, n)), rng.standard_normal((n, n)) + 1j * rng.standard_normal((n, n))
s = a.T @ a
w, v = la.eigh(s)
u, sv, vt = la.svd(z)
q, r = la.qr(z)
t, zs = la.schur(z)
lu = la.lu_factor(a)
tri = np.sort(eigsh(diags([-1.0, 2.0, -1.0], [-1, 0, 1], (n, n)), k=3, return_eigenvectors=False))
for residual in (s @ v - v * w, (u * sv) @ vt - z, q @ r - z, zs @ t @ zs.conj().T - z, a @ la.lu_solve(lu, a) - a,
                 tri - 2 + 2 * np.cos(np.pi * np.arange(n - 2, n + 1) / (n + 1))):
    assert np.abs(residual).max() < 1e-11 * n, np.abs(residual).max()
print("\n".join(sorted({line.split()[-1] for line in open("/proc/self/maps") if "/" in line})))
