#!/usr/bin/env bash
# exports_test.sh LIBRARY INCLUDE_FOLDER CC CXX PROVIDER SOURCE_FOLDER - the header and the library agree: what it declares is exported, what is
# exported it declares, and a program in C99, C11 or C++17 compiles it without a warning and links every call.
set -euo pipefail
library=$1 include=$2 cc=$3 cxx=$4 provider=$5 source=$6
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Declarations, whatever their line breaks: HBADISC_API leaves its mark in the preprocessed text.
"$cc" -std=c99 -E -P "$include/hbadiscovery.h" | tr '\n' ' ' | tr ';' '\n' |
  sed -n 's/.*visibility("default")[^(]*[ *]\([A-Za-z_][A-Za-z_0-9]*\) *(.*/\1/p' | sort >"$scratch/declared"
nm -D --defined-only "$library" | awk '$2 != "A" { print $3 }' | sort >"$scratch/symbols"
sed 's/@.*//' "$scratch/symbols" >"$scratch/exported"

if ! diff -u --label declared "$scratch/declared" --label exported "$scratch/exported"; then
  echo "the header and the exported symbols differ" >&2
  exit 1
fi
# Each header's calls are in the version node that it came with.
declare -A calls
for header in hbadiscovery hbadiscovery_follow; do
  calls[$header]=$(sed -nE 's/^HBADISC_API [^(]*[ *]([A-Za-z_][A-Za-z_0-9]*)\(.*/\1/p' "$include/$header.h" | sort)
done
diff -u <(sed -n 's/@@HBADISCOVERY_14$//p' "$scratch/symbols") <(echo "${calls[hbadiscovery]}") >&2
diff -u <(sed -n 's/@@HBADISCOVERY_14\.1$//p' "$scratch/symbols") <(echo "${calls[hbadiscovery_follow]}") >&2
readelf -d "$library" >"$scratch/dynamic"
# Never unmapped, for its threads may still run; every symbol resolved at load, into memory that is then read-only.
for entry in 'SONAME.*\[libhbadiscovery\.so\.14\]' 'FLAGS_1.* NODELETE' 'FLAGS_1.* NOW'; do
  grep -q "$entry" "$scratch/dynamic" || { echo "not so in the dynamic section: $entry" >&2; exit 1; }
done

# The open provider, whose headers declare each name on a line that begins with its type.
sed -nE '/^typedef/d; s/^[a-z][^([]*[ *]([A-Za-z_0-9]+)[([].*/\1/p' "$source"/rmapi/rmapi.h "$source"/provider/OpenProvider.h |
  sort >"$scratch/boundary"
nm -D --defined-only "$provider" | awk '$2 != "A" { print $3 }' | sort >"$scratch/provided"
diff -u --label declared "$scratch/boundary" --label provided "$scratch/provided" >&2
(($(wc -l <"$scratch/boundary") > 70))
readelf -d "$provider" | grep -q 'SONAME.*\[librmapi\.so\]'

{
  cat <<'END'
#include <hbadiscovery.h>
#include <stdio.h>
typedef void (*Call)(void);
static Call const kCalls[] = {
END
  sed 's/.*/(Call)&,/' "$scratch/declared"
  # One is called, too: linking alone would not show that the library can be loaded.
  cat <<'END'
};
int main(void) {
  printf("%u %d\n", (unsigned)(sizeof kCalls / sizeof *kCalls), HBADisc_InDiscoveryCycle());
  return 0;
}
END
} >"$scratch/all.c"
cp "$scratch/all.c" "$scratch/all.cpp"

# The library's own folder, for what it links to.
libs=("$library" "-Wl,-rpath,$(dirname "$library")")
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -Wno-cast-function-type)
count=$(wc -l <"$scratch/declared")
for standard in c99 c11 c++17; do
  case $standard in
    c++*) "$cxx" -std="$standard" "${warnings[@]}" -I"$include" "$scratch/all.cpp" "${libs[@]}" -o "$scratch/all" ;;
    *) "$cc" -std="$standard" "${warnings[@]}" -I"$include" "$scratch/all.c" "${libs[@]}" -o "$scratch/all" ;;
  esac
  answer=$("$scratch/all")
  [[ $answer == "$count 0" ]] || { echo "$standard: expected \"$count 0\", got \"$answer\"" >&2; exit 1; }
done
echo "$count calls"
