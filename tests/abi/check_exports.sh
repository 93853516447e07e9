#!/usr/bin/env bash
# The shared object exports exactly the listed C names (unmangled) and C++ patterns, no kernel.
set -euo pipefail
lib=$1 list=$2
fail=0
dynamic=$(nm -D --defined-only "$lib" | awk '{print $3}' | sed 's/@.*//' | grep -v '^KVAUDIO_1$' | sort -u)
wanted_c=$(grep -v '^c++: ' "$list" | sort -u || true)
patterns=$(grep '^c++: ' "$list" | sed 's/^c++: //' || true)

for name in $wanted_c; do
  grep -qx -- "$name" <<<"$dynamic" || { echo "missing export: $name"; fail=1; }
done
while read -r sym; do
  [ -z "$sym" ] && continue
  grep -qx -- "$sym" <<<"$wanted_c" && continue
  demangled=$(c++filt -- "$sym")
  ok=0
  while IFS= read -r pat; do
    [ -z "$pat" ] && continue
    # shellcheck disable=SC2053
    [[ "$demangled" == $pat ]] && { ok=1; break; }
  done <<<"$patterns"
  [ $ok = 1 ] || { echo "unexpected export: $sym ($demangled)"; fail=1; }
done <<<"$dynamic"
if grep -i 'avx2' <<<"$dynamic"; then echo "kernel exported"; fail=1; fi
[ $fail = 0 ] && echo "exports: $(wc -l <<<"$dynamic") symbols as listed"
exit $fail
