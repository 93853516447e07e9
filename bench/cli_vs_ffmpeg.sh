#!/usr/bin/env bash
# Times `kvaudio loudness` and `kvaudio qc` against `ffmpeg -af ebur128=peak=true` (the same
# readings: integrated, range, true peak) and plain `ebur128` on the same 1-hour 48 kHz stereo WAV,
# in one run. Installs ffmpeg (as root) only when it is missing.
# Usage: bench/cli_vs_ffmpeg.sh [BUILD_DIR] [SECONDS]   (defaults: build, 3600)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
seconds=${2:-3600}
kvaudio=$build/tools/kvaudio
[ -x "$kvaudio" ] || { echo "build the tool first: cmake --build $build --target kvaudio" >&2; exit 2; }
if ! command -v ffmpeg >/dev/null; then
  [ "$(id -u)" -eq 0 ] || { echo "ffmpeg is missing (install it or run as root)" >&2; exit 2; }
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends ffmpeg >/dev/null
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
wav=$work/programme.wav
"$kvaudio" gen pink "$wav" --duration "$seconds" --level -20 --rate 48000 --channels 2
# Read the file once so that every contender starts from the page cache.
cat "$wav" >/dev/null

# Best wall time of two runs, with the CPU time (user + system) of that run.
timed() {
  local label=$1; shift
  local best="" line
  for _ in 1 2; do
    line=$( { TIMEFORMAT='%R %U %S'; time "$@" >/dev/null 2>&1 || [ $? -eq 1 ]; } 2>&1 )
    # exit 1 means findings, not failure
    if [ -z "$best" ] || awk -v a="$line" -v b="$best" 'BEGIN { split(a, x); split(b, y); exit !(x[1] < y[1]) }'; then
      best=$line
    fi
  done
  awk -v l="$label" -v t="$best" -v d="$seconds" \
    'BEGIN { split(t, x); printf "%-30s %7.2f s wall %7.0fx real time, %6.2f s CPU\n", l, x[1], d / x[1], x[2] + x[3] }'
  wall=${best%% *}
}

echo "$(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //')"
echo "input: ${seconds} s, 48000 Hz, 2 channels, 16-bit WAV ($(du -h "$wav" | cut -f1))"
timed "kvaudio loudness" "$kvaudio" loudness "$wav"
loudness_wall=$wall
timed "kvaudio qc --fps 25" "$kvaudio" qc "$wav" --fps 25
timed "ffmpeg -af ebur128=peak=true" ffmpeg -nostdin -hide_banner -i "$wav" -af ebur128=peak=true -f null -
ffmpeg_wall=$wall
timed "ffmpeg -af ebur128" ffmpeg -nostdin -hide_banner -i "$wav" -af ebur128 -f null -
awk -v a="$ffmpeg_wall" -v b="$loudness_wall" 'BEGIN { printf "kvaudio loudness is %.1fx faster than ffmpeg -af ebur128=peak=true (wall)\n", a / b }'
echo "load average after the runs: $(cut -d' ' -f1-3 /proc/loadavg)"
