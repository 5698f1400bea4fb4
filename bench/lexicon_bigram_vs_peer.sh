#!/usr/bin/env bash
# A phone-to-word lexicon of CMU dictionary words composed with a bigram back-off model over
# them (bench/lexicon_bigram.py: the shape of a decoding graph's L o G), ours (the lazy
# composition copied, bench/t2sfst_formats_probe) against the peer's fstcompose on binary files,
# operands sorted beforehand (not timed). Rounds interleave ours and the peer's; medians of
# user-CPU and wall seconds, peak memory, and the result's states and arcs.
#   bench/lexicon_bigram_vs_peer.sh [BUILD_DIR [WORDS... [ROUNDS]]]
set -euo pipefail
build=${1:-build} sizes=${2:-"10000 30000 100000"} rounds=${3:-5}
command -v fstcompose >/dev/null || { echo "install libfst-tools for the peer's tools"; exit 1; }
here=$(cd "$(dirname "$0")" && pwd)
tool=$build/tools/t2sfst probe=$build/bench/t2sfst_formats_probe
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source "$(dirname "$0")/common.sh"
run() { run_user "$1"; }
printf '%-7s %8s %8s %8s %8s %6s %7s %7s %9s %9s %9s %9s\n' words ours_usr peer_usr ours_s \
  peer_s ratio ours_MB peer_MB ours_st peer_st ours_arcs peer_arcs
for n in $sizes; do
  python3 "$here/lexicon_bigram.py" "$n" "$work"
  "$tool" ngram-compile "$work/model.arpa" "$work/g.ngram"
  "$tool" print "$work/g.ngram" > "$work/g.txt"
  "$tool" convert --from att "$work/lexicon.att" "$work/l.txt"
  # One label numbering for both operands, so that the peer's tables agree.
  (cut -f1 "$work/phones.syms" | tail -n +2
   awk '/\\1-grams:/{f=1;next} /^$/{f=0} f{print $2}' "$work/model.arpa") > "$work/labels"
  for m in l g; do
    FST_LABELS_FILE=$work/labels "$tool" convert --to binary "$work/$m.txt" "$work/$m.bin" 2>/dev/null
    FST_LABELS_FILE=$work/labels "$tool" convert --to att --symbols "$work/$m.syms" \
      "$work/$m.txt" "$work/$m.att" 2>/dev/null
    fstcompile --isymbols="$work/$m.syms" --osymbols="$work/$m.syms" "$work/$m.att" "$work/$m.ofst"
  done
  fstarcsort --sort_type=olabel "$work/l.ofst" "$work/l.s.ofst"
  fstarcsort --sort_type=ilabel "$work/g.ofst" "$work/g.s.ofst"
  : > "$work/ours" ; : > "$work/peer"
  for r in $(seq "$rounds"); do
    run "FST_LABELS_FILE=$work/labels $probe compose $work/o.bin $work/l.bin $work/g.bin" >> "$work/ours"
    run "fstcompose $work/l.s.ofst $work/g.s.ofst $work/p.ofst" >> "$work/peer"
  done
  ours_states=$(FST_LABELS_FILE=$work/labels "$tool" info "$work/o.bin" 2>/dev/null | awk '$1=="states"{print $2}')
  ours_arcs=$(FST_LABELS_FILE=$work/labels "$tool" info "$work/o.bin" 2>/dev/null | awk '$1=="arcs"{print $2}')
  peer_states=$(fstinfo "$work/p.ofst" | awk '/^# of states/{print $NF}')
  peer_arcs=$(fstinfo "$work/p.ofst" | awk '/^# of arcs/{print $NF}')
  ou=$(cut -d' ' -f1 "$work/ours" | median) pu=$(cut -d' ' -f1 "$work/peer" | median)
  ow=$(cut -d' ' -f2 "$work/ours" | median) pw=$(cut -d' ' -f2 "$work/peer" | median)
  om=$(cut -d' ' -f3 "$work/ours" | median) pm=$(cut -d' ' -f3 "$work/peer" | median)
  printf '%-7s %8s %8s %8s %8s %6s %7s %7s %9s %9s %9s %9s\n' "$n" "$ou" "$pu" "$ow" "$pw" \
    "$(echo "$ou $pu" | awk '{printf "%.2f", ($2 > 0 ? $1 / $2 : 0)}')" "$om" "$pm" \
    "$ours_states" "$peer_states" "$ours_arcs" "$peer_arcs"
done
