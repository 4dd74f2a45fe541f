% Octave's own tests of its linear-algebra builtins, each file's passed
% and total counts, then the libraries Octave really mapped.
dir = argv(){1};
names = {"chol", "det", "dot", "eig", "hess", "inv", "kron", "lu", "mgorth", "ordqz", ...
         "ordschur", "pinv", "qr", "qz", "rcond", "schur", "sqrtm", "svd", "sylvester"};
for k = 1:numel(names)
  [passed, total] = test(fullfile(dir, [names{k} ".cc-tst"]), "quiet");
  printf("tests %s %d %d\n", names{k}, passed, total);
end
maps = strsplit(fileread("/proc/self/maps"), "\n");
for k = 1:numel(maps)
  f = regexp(maps{k}, "/\\S*(blas|lapack|vorn)\\S*", "match", "once");
  if (! isempty(f)) printf("mapped %s\n", f); end
end
