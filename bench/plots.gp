# SPDX-License-Identifier: MIT
# Columns of pairs.dat: tags, ratio of processor time, ns per value of the floor, of the daemon
set terminal svg size 640,400 font "sans-serif,13" background "white"
set logscale x
set xlabel "tags"
set grid
set key top right

set output folder."/ratio.svg"
set ylabel "processor time per pull, daemon / floor"
set yrange [0:*]
plot folder."/pairs.dat" using 1:2 with linespoints pointtype 7 notitle

set output folder."/per-value.svg"
set ylabel "processor time per value in ns"
set logscale y
set yrange [*:*]
plot folder."/pairs.dat" using 1:3 with linespoints pointtype 7 title "bare Read", \
     folder."/pairs.dat" using 1:4 with linespoints pointtype 5 title "daemon"
