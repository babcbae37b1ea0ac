#!/usr/bin/env bash
# soak.sh [--plot] [OPTION...]: builds the soak, optimised, and runs it: 100,000 hits in ten minutes
# over processes that are killed. The options are the program's; see docs/soak.md. With --plot what
# the process that lasts takes of the machine is drawn in docs/reliability/soak.svg.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

plot=
if [[ ${1:-} == --plot ]]; then
  plot=docs/reliability/soak.svg
  shift
fi
scripts/setup.sh build ${plot:+bench}
cmake --preset demo >/dev/null
cmake --build --preset demo --target soak -- --quiet
[[ -n $plot ]] || exec build/demo/tools/qv-soak "$@"

samples=build/demo/soak.tsv
status=0
build/demo/tools/qv-soak --samples $samples "$@" || status=$?
mkdir -p "$(dirname $plot)"
gnuplot <<EOF
set terminal svg size 900,380 font "sans,12" background "white"
set output "$plot"
set xlabel "minutes"
set ylabel "memory in MB"
set y2label "threads, descriptors"
set yrange [0:*]
set y2range [0:*]
set ytics nomirror
set y2tics
set grid
set key outside below
plot "$samples" every 6::1 using (\$1/60):(\$2/1024) with lines lw 2 lc "#3b6ea5" title "memory", \\
     "" every 6::1 using (\$1/60):3 axes x1y2 with lines lw 2 lc "#b5651d" title "threads", \\
     "" every 6::1 using (\$1/60):4 axes x1y2 with lines lw 2 lc "#5a8f3c" title "descriptors"
EOF
exit $status
