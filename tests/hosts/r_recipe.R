# R through the companion libraries with MKL on two threads: matrix
# product, solve and symmetric eigenproblem against plain R arithmetic,
# and the libraries R really mapped.
set.seed(1)
n <- 400
a <- matrix(rnorm(n * n), n)
b <- matrix(rnorm(n * n), n)
ref <- matrix(0, n, n)
for (j in 1:n) ref[, j] <- colSums(t(a) * b[, j])
stopifnot(max(abs(a %*% b - ref)) < 1e-10)
x <- solve(a, b)
stopifnot(max(abs(a %*% x - b)) < 1e-8)
s <- crossprod(a)
e <- eigen(s, symmetric = TRUE)
stopifnot(max(abs(s %*% e$vectors - e$vectors %*% diag(e$values))) < 1e-8)
mapped <- unique(sub(".* ", "", readLines("/proc/self/maps")))
cat(grep("blas|lapack|vorn", mapped, value = TRUE), sep = "\n")
