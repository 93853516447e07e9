#!/usr/bin/env bash
# Every public header compiles on its own and all together as C99 and as C++20, warning-free.
set -euo pipefail
inc=$1 cc=$2 cxx=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
for h in "$inc"/kvaudio/*.h; do
  rel=${h#"$inc"/}
  echo "#include \"$rel\"" >>"$tmp/all.h"
  printf '#include "%s"\nint main(void) { return 0; }\n' "$rel" >"$tmp/one.c"
  "$cc" -std=c99 -Wall -Wextra -Wpedantic -Werror -I"$inc" -c "$tmp/one.c" -o "$tmp/one.o"
done
printf '#include "all.h"\nint main(void) { return 0; }\n' >"$tmp/all.c"
cp "$tmp/all.c" "$tmp/all.cpp"
"$cc" -std=c99 -Wall -Wextra -Werror -I"$inc" -I"$tmp" -c "$tmp/all.c" -o "$tmp/all_c.o"
"$cxx" -std=c++20 -Wall -Wextra -Werror -I"$inc" -I"$tmp" -c "$tmp/all.cpp" -o "$tmp/all_cpp.o"
echo "headers: $(wc -l <"$tmp/all.h") compile as C99 and C++20"
