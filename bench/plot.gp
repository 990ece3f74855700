# What each workload costs in comparison with the JavaScript client. `data` names the file that table.js wrote.
set terminal pngcairo size 1100,420 font "sans,10" noenhanced
set title "CPU time and memory, JavaScript client = 1 (less is better)"
set style data histogram
set style histogram clustered gap 1
set style fill solid 0.9 border -1
set yrange [0:*]
set ytics 0.1
set grid ytics lc rgb "#dddddd"
set key top left
set boxwidth 0.9
set bmargin 4
plot data using 2:xtic(1) title columnheader(2) lc rgb "#4477aa", \
     '' using 3 title columnheader(3) lc rgb "#66ccee", \
     '' using 4 title columnheader(4) lc rgb "#ccbb44"
