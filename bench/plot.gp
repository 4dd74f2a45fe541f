# Overhead and throughput of the layer against problem size, from the data
# vorn_bench_report writes. Called by bench/run.sh as
#   gnuplot -e "datafile='...'; flopsfile='...'; outfile='...'" bench/plot.gp
# One block per routine and entry, titled in its first line. datafile:
# size (N = 0 drawn at 0.5), overhead ns, direct/layer; flopsfile: size,
# GFLOP/s through the layer.
set terminal svg size 1000,1300 dynamic font "sans,11" background rgb "white"
set output outfile
set key outside right top
set logscale x
set grid
set xtics ("0" 0.5, 4, 16, 64, 256, 1024, 4096, 16384, 65536, 262144)
set multiplot layout 3,1

# At large sizes the noise of a shared machine is far above the overhead;
# the ratio panel shows those sizes.
set title "Overhead per call: layer − direct MKL entry (ns; clipped, see the ratio below for large sizes)"
set ylabel "ns"
set yrange [-10:60]
plot for [i=0:*] datafile index i using 1:2 with linespoints title columnheader(1)

set title "Throughput of the layer relative to the direct call (direct time / layer time)"
set ylabel "ratio"
set yrange [0:1.2]
plot for [i=0:*] datafile index i using 1:3 with linespoints title columnheader(1), \
     0.99 with lines dashtype 2 lc rgb "black" title "0.99"
set autoscale y

set title "Throughput through the layer"
set ylabel "GFLOP/s"
set logscale y
plot for [i=0:*] flopsfile index i using 1:2 with linespoints title columnheader(1)
unset multiplot
