#!/usr/bin/env bash
# Scale and speed, one table per question; `make bench` runs it.
# 1. `t2sfst optimize --pipeline A` against the peer toolkit's fstrmepsilon | fstdeterminize |
#    fstminimize (Debian package libfst-tools; skipped when not installed), both on binary files,
#    on three input families at each size (see t2sfst_bench_inputs): lexicon (Zipf costs, no
#    epsilon), closure (a lexicon closure with epsilon arcs in and out of every word), cyclic (a
#    random nondeterministic cyclic acceptor with epsilon arcs). Rounds interleave ours and the
#    peer's; medians of user-CPU time (the peer's three processes together), wall time and peak
#    resident memory (the peer's: its largest process). Ratios above 1 favour us: user time
#    peer/ours, memory peer/ours.
# (The model builder and the runtime are measured on realistic shapes by
# realistic_model_bench.sh.)
# Each table ends with growth exponents: log(t2/t1) / log(n2/n1) between consecutive sizes
# (1: linear).
# Usage: bench/scale_bench.sh [BUILD_DIR [SIZES [ROUNDS]]]
set -euo pipefail
build=${1:-build} sizes=${2:-"10000 100000 1000000"} rounds=${3:-3}
tool=$build/tools/t2sfst inputs=$build/bench/t2sfst_bench_inputs
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
peer=yes
command -v fstrmepsilon >/dev/null && command -v fstcompile >/dev/null || peer=""

source "$(dirname "$0")/common.sh"
growth() {  # "n1 v1 n2 v2" -> exponent
  echo "$1 $2 $3 $4" | awk '{ if ($2 > 0 && $4 > 0) printf "%.2f", log($4 / $2) / log($3 / $1); else printf "-" }'
}

echo "== optimize --pipeline A (ours) against fstrmepsilon | fstdeterminize | fstminimize (peer)"
[ -n "$peer" ] || echo "(the peer's tools are not installed: ours only)"
printf '%-8s %8s %7s %7s %7s %7s %6s %8s %8s %6s %9s %9s\n' family size ours_u peer_u ours_s \
  peer_s user ours_MB peer_MB mem states_o states_p
for family in lexicon closure cyclic; do
  growth_lines=()
  prev=""
  for n in $sizes; do
    "$inputs" "$work" "$family" "$n"
    "$tool" convert --to binary "$work/$family.fst" "$work/in.bin"
    [ -z "$peer" ] || fstcompile "$work/$family.att" "$work/in.ofst"
    rm -f "$work/$family.fst" "$work/$family.att"
    os="" om="" ou="" ps="" pm="" pu=""
    for ((r = 0; r < rounds; r++)); do
      read -r s mb u < <(measure "$t $tool optimize --pipeline A --binary $work/in.bin $work/o.bin")
      os+="$s " om+="$mb " ou+="$u "
      if [ -n "$peer" ]; then
        read -r s mb u < <(measure "$t fstrmepsilon $work/in.ofst | $t fstdeterminize | \
          $t fstminimize > $work/p.ofst")
        ps+="$s " pm+="$mb " pu+="$u "
      fi
    done
    o_s=$(median <<<"$os") o_m=$(median <<<"$om") p_s=$(median <<<"${ps:-0}") p_m=$(median <<<"${pm:-0}")
    o_u=$(median <<<"$ou") p_u=$(median <<<"${pu:-0}")
    states_o=$("$tool" info "$work/o.bin" | awk '/^states/ {print $2}')
    states_p=-
    [ -z "$peer" ] || states_p=$(fstinfo "$work/p.ofst" | awk '/^# of states/ {print $4}')
    printf '%-8s %8s %7s %7s %7s %7s %6s %8s %8s %6s %9s %9s\n' "$family" "$n" "$o_u" "$p_u" \
      "$o_s" "$p_s" "$(ratio "$p_u" "$o_u")" "$o_m" "$p_m" "$(ratio "$p_m" "$o_m")" "$states_o" \
      "$states_p"
    if [ -n "$prev" ]; then
      read -r pn po_s po_m pp_s pp_m <<<"$prev"
      growth_lines+=("$(printf '  growth %s->%s: time ours %s peer %s, memory ours %s peer %s' \
        "$pn" "$n" "$(growth "$pn" "$po_s" "$n" "$o_s")" "$(growth "$pn" "$pp_s" "$n" "$p_s")" \
        "$(growth "$pn" "$po_m" "$n" "$o_m")" "$(growth "$pn" "$pp_m" "$n" "$p_m")")")
    fi
    prev="$n $o_s $o_m $p_s $p_m"
    rm -f "$work"/in.* "$work"/o.bin "$work"/p.ofst
  done
  for line in "${growth_lines[@]}"; do echo "$line"; done
done

