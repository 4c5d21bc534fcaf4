# How long a process waits for its mount. Needs the variables data and drawing: two file names.
set terminal svg size 720,420 dynamic background rgb "white"
set output drawing
set xtics (1, 4, 8, 16, 32, 64)
set yrange [0:*]
set key top left
set xlabel "processes that mount and unmount at the same time"
set ylabel "wait, in seconds"
set grid
plot data using 1:2 with linespoints title "libixfs, median", \
     data using 1:3 with linespoints title "libixfs, longest", \
     data using 1:4 with linespoints title "floor, median", \
     data using 1:5 with linespoints title "floor, longest"
