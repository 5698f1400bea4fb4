# Helpers the benchmark scripts share; source it after setting $work (a scratch folder).

# Runs a shell command; prints "seconds peak_MB user_seconds": wall time, the peak of the largest
# of the processes run under $t (GNU time writing PEAK=kB and USER=seconds to standard error),
# and the user-CPU time of those processes together.
t="/usr/bin/time -f PEAK=%M:USER=%U"
measure() {
  local log=$work/time.log start end
  : > "$log"
  start=$(date +%s.%N)
  bash -c "$1" 2>>"$log" >/dev/null
  end=$(date +%s.%N)
  echo "$start $end $(grep -o 'PEAK=[0-9]*' "$log" | cut -d= -f2 | sort -n | tail -1)" \
    "$(grep -o 'USER=[0-9.]*' "$log" | cut -d= -f2 | awk '{u += $1} END {print u + 0}')" |
    awk '{printf "%.3f %.1f %.2f\n", $2 - $1, $3 / 1024, $4}'
}

# The median of numbers, one a line or separated by blanks.
median() { tr ' ' '\n' | grep . | sort -n | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }

# a / b with two decimals (0 when b is 0).
ratio() { echo "$1 $2" | awk '{printf "%.2f", ($2 > 0 ? $1 / $2 : 0)}'; }

# Runs a shell command; prints "user wall peak_MB" (user-CPU and wall seconds, peak memory).
run_user() {
  /usr/bin/time -f "%U %e %M" -o "$work/time" bash -c "$1" >/dev/null 2>&1
  awk '{printf "%s %s %.0f\n", $1, $2, $3 / 1024}' "$work/time"
}
