#!/usr/bin/env bash
# Measures the cost of the bridge and writes bench/results/RESULTS.md with
# bench/results/bridge.svg:
#   1. builds the benchmarks (Release, -DVORN_BENCH=ON),
#   2. times every routine through the layer, directly through MKL's internal
#      entry, through OpenBLAS and through the reference BLAS/LAPACK,
#   3. counts the layer's scratch allocations (preloaded counter),
#   4. counts instructions per call under callgrind,
#   5. writes the report (with a per-function profile of the layer at N = 0)
#      and the plot, and prints one line per target: met or short.
#
#   bench/run.sh [--no-build] [build-dir]      (default: ${VORN_BUILD_DIR:-build}/bench)
#
# Environment: BENCH_MIN_TIME (seconds of timed blocks per routine and size,
# default 0.5; more gives more rounds), BENCH_CALLS (calls per counted phase,
# default 1000), BENCH_FILTER (Google Benchmark regex, default all).
# MKL and OpenBLAS run on one thread, except in the threaded rows.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build_it=1
if [[ ${1:-} == --no-build ]]; then
  build_it=0
  shift
fi
build=${1:-${VORN_BUILD_DIR:-$here/build}/bench}
results=$here/bench/results
min_time=${BENCH_MIN_TIME:-0.5}
calls=${BENCH_CALLS:-1000}

if ((build_it)); then
  cmake -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=Release -DVORN_BENCH=ON -DVORN_TESTS=OFF
  cmake --build "$build" -j2 --target vorn_bench vorn_overhead_driver vorn_alloc_counter vorn_bench_report
fi

export MKL_NUM_THREADS=1 OPENBLAS_NUM_THREADS=1 OMP_NUM_THREADS=1
mkdir -p "$results"
rm -rf "$results/callgrind"
mkdir -p "$results/callgrind"
started=$(date -u +%Y-%m-%dT%H:%M:%SZ)
load_before=$(cut -d' ' -f1-3 /proc/loadavg)

echo "== timing (${min_time}s of blocks per routine and size)"
"$build/bench/vorn_bench" --benchmark_min_time="$min_time" \
  --benchmark_color=false ${BENCH_FILTER:+--benchmark_filter="$BENCH_FILTER"} \
  --vorn_tsv="$results/timings.tsv" | tee "$results/timings.log"

echo "== allocations made by the layer"
LD_PRELOAD="$build/bench/libvorn_alloc_counter.so" "$build/bench/vorn_overhead_driver" \
  --calls="$calls" --allocations="$results/allocations.tsv"

echo "== instructions per call (callgrind)"
if ! valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$results/callgrind/callgrind.out" \
  "$build/bench/vorn_overhead_driver" --calls="$calls" >"$results/callgrind.log" 2>&1; then
  tail -20 "$results/callgrind.log" >&2
  exit 1
fi

# Where the layer's instructions go at the quick-return size: exclusive
# instructions per call by function, for every layer phase of size 0.
: >"$results/profile.tsv"
for ((i = 1; ; i++)); do
  dump=$results/callgrind/callgrind.out.$i
  [[ -e $dump ]] || break
  label=$(sed -n 's/^desc: Trigger: Client Request: //p' "$dump")
  read -r routine impl size <<<"$label"
  [[ $impl == layer && $size == 0 ]] || continue
  callgrind_annotate --threshold=100 --inclusive=no "$dump" | awk -v routine="$routine" -v calls="$calls" '
    /^ *[0-9,]+ \(/ && !/PROGRAM TOTALS|below main|libc_start|ld-linux|vorn_overhead_driver\]/ {
      ir = $1; gsub(",", "", ir)
      line = $0; sub(/^ *[0-9,]+ \([^)]*\) +/, "", line)
      obj = line; sub(/.*\[/, "", obj); sub(/\]$/, "", obj); n = split(obj, parts, "/"); obj = parts[n]
      fn = line; sub(/ \[[^]]*\]$/, "", fn); sub(/^[^:]*:/, "", fn)
      gsub(/\(anonymous namespace\)/, "{anonymous}", fn); sub(/\(.*/, "", fn)
      printf "%s\t%s\t%s\t%.1f\n", routine, fn, obj, ir / calls
    }' >>"$results/profile.tsv"
done

# Instructions inside the service calls the layer must make, per phase
# (inclusive: the allocator's own callees count as the allocation).
: >"$results/services.tsv"
for ((i = 1; ; i++)); do
  dump=$results/callgrind/callgrind.out.$i
  [[ -e $dump ]] || break
  label=$(sed -n 's/^desc: Trigger: Client Request: //p' "$dump")
  read -r routine impl size <<<"$label"
  callgrind_annotate --inclusive=yes --threshold=100 "$dump" | awk -v label="$routine	$impl	$size" -v calls="$calls" '
    / \?\?\?:mkl_serv_(lsame|set_xerbla_interface|set_progress_interface|allocate|deallocate) \[/ {
      ir = $1; gsub(",", "", ir); sum += ir
    }
    END { printf "%s\t%.1f\n", label, sum / calls }' >>"$results/services.tsv"
done

echo "== report"
"$build/bench/vorn_bench_report" --timings "$results/timings.tsv" --callgrind "$results/callgrind" \
  --allocations "$results/allocations.tsv" --profile "$results/profile.tsv" --services "$results/services.tsv" \
  --calls "$calls" --out "$results" \
  --note "run started $started on $(getconf _NPROCESSORS_ONLN) cores ($(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//')); load average before: $load_before, after: $(cut -d' ' -f1-3 /proc/loadavg)" \
  --note "Google Benchmark: --benchmark_min_time=$min_time; MKL_NUM_THREADS=1, OPENBLAS_NUM_THREADS=1 (threaded rows: MKL's count for the calling thread)"
echo "== targets"
cat "$results/targets.txt"
# A filtered run may leave a panel without data; the report stands anyway.
if gnuplot -e "datafile='$results/bridge.dat'; flopsfile='$results/bridge_gflops.dat'; outfile='$results/bridge.svg'" \
  "$here/bench/plot.gp"; then
  echo "written: $results/RESULTS.md, $results/bridge.svg"
else
  echo "written: $results/RESULTS.md (no plot: gnuplot failed)" >&2
fi
