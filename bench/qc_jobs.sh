#!/usr/bin/env bash
# Times `kvaudio qc` on 20 files of 10 minutes (48 kHz stereo 16-bit) with -j 1 and -j 2, and the
# cost of --report, best of RUNS runs each; checks that -j 2 prints exactly what -j 1 prints.
# Usage: bench/qc_jobs.sh [BUILD_DIR] [RUNS]   (defaults: build, 3)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
runs=${2:-3}
kvaudio=$build/tools/kvaudio
[ -x "$kvaudio" ] || { echo "build the tool first: cmake --build $build --target kvaudio" >&2; exit 2; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for i in $(seq -w 1 20); do
  case $((10#$i % 4)) in
    0) "$kvaudio" gen pink "$work/p$i.wav" --duration 600 --level -$((18 + 10#$i % 7)) ;;
    1) "$kvaudio" gen noise "$work/p$i.wav" --duration 600 --level -$((20 + 10#$i % 5)) ;;
    2) "$kvaudio" gen sweep "$work/p$i.wav" --duration 600 --freq 100 --to 10000 --level -12 ;;
    3) "$kvaudio" gen tone "$work/p$i.wav" --duration 600 --level -20 ;;
  esac >/dev/null
done
cat "$work"/*.wav >/dev/null  # every run starts from the page cache
best() {  # best wall time in seconds of `kvaudio qc ARGS`, output kept in $work/out.txt
  local b=
  for _ in $(seq "$runs"); do
    local s e
    s=$(date +%s.%N)
    "$kvaudio" qc "$work"/p*.wav --standard 1 "$@" >"$work/out.txt" || [ $? -eq 1 ]
    e=$(date +%s.%N)
    b=$(echo "$e - $s" | bc -l | awk -v b="$b" '{ print (b == "" || $1 < b) ? $1 : b }')
  done
  printf '%.2f' "$b"
}
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"
j1=$(best -j 1); cp "$work/out.txt" "$work/j1.txt"
j2=$(best -j 2); cmp -s "$work/out.txt" "$work/j1.txt" && same=identical || same=DIFFERENT
r1=$(best -j 1 --report "$work/rep")
echo "load after:  $(cut -d' ' -f1-3 /proc/loadavg)"
echo "-j 1: $j1 s   -j 2: $j2 s   speed-up $(echo "$j1 / $j2" | bc -l | xargs printf '%.2f')x   output $same"
echo "-j 1 --report: $r1 s   report cost $(echo "($r1 - $j1) * 100 / $j1" | bc -l | xargs printf '%.1f') %"
