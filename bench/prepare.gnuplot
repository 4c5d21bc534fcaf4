# What one disk of a preparation costs. Needs the variables data and drawing: two file names.
set terminal svg size 720,420 dynamic background rgb "white"
set output drawing
set logscale x 2
set xtics (1, 8, 64, 512, 4096, 32768)
set xrange [0.8:42000]
set logscale y 2
set yrange [4:1024]
set xlabel "disks of the image"
set ylabel "processor time for each disk, in microseconds"
set grid
plot data using 1:2 with linespoints title "libixfs, with mount and unmount", \
     data using 1:3 with linespoints title "floor: the calls that every disk needs"
