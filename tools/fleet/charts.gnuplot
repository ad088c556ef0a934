# Draws the charts of a run, as SVG beside its intervals.csv; those of another run as dashed lines:
#
#     gnuplot -e "directory='build/fleet'" charts.gnuplot
#     gnuplot -e "directory='build/fleet'; beside='build/before'" charts.gnuplot
run = directory . "/intervals.csv"
runs = exists("beside") ? 2 : 1
csv(i) = i == 1 ? run : beside . "/intervals.csv"
of(i) = i == 1 ? "" : ", beside"
set datafile separator comma
stats run using "in_outage" name "outage" nooutput
stats run using "delivered" name "delivered" nooutput
stats run using (column("dropped_by_trimming") + column("dropped_as_refused") + column("lost")) \
      name "dropped" nooutput
set terminal svg size 860,380 font "Helvetica,12" background "white"
set key above left Left reverse samplen 2
set title font ",15"
set border 3
set tics nomirror
set grid ytics linecolor "#dddddd" linetype 1
set yrange [0:*]
set y2range [0:1]
set xdata time
set timefmt "%s"
set format x "%tH:%tM"
set xlabel "time since the start, hours:minutes"
set style data lines
set style fill solid noborder
set style line 1 linecolor "#0072b2" linewidth 1.5
set style line 2 linecolor "#d55e00" linewidth 1.5
set style line 3 linecolor "#009e73" linewidth 1.5
set style line 4 linecolor "#aaaaaa"

shade = "run using (middle(0)):(column('in_outage') > 0 ? 1 : NaN):(column('length_s')) " . \
        "axes x1y2 with boxes linecolor '#fbe3d6' " . \
        (outage_max > 0 ? "title 'outage'" : "notitle")
middle(unused) = column("start_s") + column("length_s") / 2
delay(name) = strlen(stringcolumn(name)) > 0 ? column(name) : NaN  # a gap
rate(name) = column(name) / column("length_s")

# A line for each run.
every = "for [i = 1:runs] csv(i) using (middle(0))"
set macros
set output directory . "/requests.svg"
set title "Requests a second at the collection server"
plot @shade, run using (middle(0)):"most_requests_in_a_second" linestyle 4 title "busiest second", \
     @every:(rate("track_requests")) linestyle 1 dashtype i title "/track" . of(i), \
     @every:(rate("heartbeat_requests")) linestyle 2 dashtype i title "/heartbeat" . of(i)

set output directory . "/connections.svg"
set title "Connections at the collection server"
plot @shade, @every:"connections_open" linestyle 1 dashtype i title "open" . of(i), \
     @every:(60 * rate("connections_opened")) linestyle 2 dashtype i \
     title "opened a minute" . of(i)

set output directory . "/waiting.svg"
set title "Events that wait, of all applications"
plot @shade, @every:"waiting" linestyle 1 dashtype i title "waiting" . of(i), \
     @every:"in_flight" linestyle 2 dashtype i title "in flight" . of(i)

set output directory . "/dropped.svg"
set title "Events dropped until then"
if (dropped_max == 0) set yrange [0:1]  # an empty range is complained of
plot @shade, @every:"dropped_by_trimming" linestyle 1 dashtype i title "too many waited" . of(i), \
     @every:"lost" linestyle 2 dashtype i title "lost with their process" . of(i), \
     @every:(column("dropped_as_refused") + column("dropped_as_not_encodable") + \
             column("dropped_for_memory")) linestyle 3 dashtype i title "otherwise" . of(i)

set output directory . "/bytes.svg"
set yrange [0:*]
set format y "%.1s %cB"
set title "Bytes a second, of the requests' bodies"
plot @shade, @every:(rate("track_bytes")) linestyle 1 dashtype i title "/track" . of(i), \
     @every:(rate("heartbeat_bytes")) linestyle 2 dashtype i title "/heartbeat" . of(i), \
     @every:(rate("head_bytes") + rate("track_bytes") + rate("heartbeat_bytes")) linestyle 3 \
     dashtype i title "all, with heads" . of(i)

if (delivered_max == 0) exit
set output directory . "/delay.svg"
set title "Delay from event to delivery, by the time of delivery"
set logscale y
set yrange [*:*]
set ytics ("1 ms" 0.001, "10 ms" 0.01, "0.1 s" 0.1, "1 s" 1, "10 s" 10, "1 min" 60, \
           "10 min" 600, "1 h" 3600, "10 h" 36000, "1 d" 86400, "10 d" 864000)
plot @shade, run using (middle(0)):(delay("delay_longest_s")) linestyle 4 title "longest", \
     @every:(delay("delay_99_s")) linestyle 2 dashtype i title "99 %" . of(i), \
     @every:(delay("delay_90_s")) linestyle 3 dashtype i title "90 %" . of(i), \
     @every:(delay("delay_median_s")) linestyle 1 dashtype i title "median" . of(i)
