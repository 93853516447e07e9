#!/usr/bin/env bash
# Only the AVX2 kernel objects may use ymm registers; they must not define weak or unique
# symbols that the linker could hand to plain callers.
set -uo pipefail
core=() avx2=() mode=core fail=0
for a in "$@"; do
  case $a in
    *_avx2.cpp.o) avx2+=("$a") ;;
    *) core+=("$a") ;;
  esac
done
for o in "${core[@]}"; do
  if objdump -d --no-show-raw-insn "$o" | grep -q '%ymm'; then
    echo "ymm register used outside a kernel file: $o"; fail=1
  fi
done
for o in "${avx2[@]}"; do
  if nm --defined-only "$o" | awk '$2 ~ /^[WVu]$/' | grep -q .; then
    echo "weak or unique symbol in kernel object: $o"; nm --defined-only "$o" | awk '$2 ~ /^[WVu]$/'; fail=1
  fi
done
echo "checked ${#core[@]} plain objects and ${#avx2[@]} kernel objects"
exit $fail
