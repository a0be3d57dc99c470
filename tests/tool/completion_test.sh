#!/usr/bin/env bash
# completion_test.sh HBADISC SOURCE_FOLDER - what bash offers while a command line of hbadisc is typed, and that both
# shells know every command and option of its help.
set -uo pipefail
hbadisc=$1
printf -v typed %q "$hbadisc"
cd "$2" || exit
# shellcheck source=/dev/null
source tools/completion/hbadisc.bash
failed=0

expect() { # LINE OFFERS: hbadisc stands for the program
  local line=${1/#hbadisc/"$typed"}
  # What bash sets, and what _hbadisc leaves for it.
  # shellcheck disable=SC2034
  COMP_LINE=$line COMP_POINT=${#line} COMP_WORDBREAKS=$' \t\n"\'><=;|&(:'
  COMPREPLY=()
  _hbadisc
  if [[ ${COMPREPLY[*]-} != "$2" ]]; then
    printf 'for:      %s|\nexpected: %s\noffered:  %s\n\n' "$1" "$2" "${COMPREPLY[*]-}"
    failed=1
  fi
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/two words"
printf '10.1.2.3  # a\n[fe80::2]:23334\nfe80::1  # b\n' >"$scratch/two words/hbahosts.lst"
fabric=examples/small-host.json

expect 'hbadisc re' 'refresh'
expect 'hbadisc --timeout 3 -v hosts ' 'list add remove'
expect 'hbadisc watch --int' '--interval'
expect 'hbadisc list --int' ''
expect 'hbadisc list --fabric examples/small' "$fabric"
expect 'hbadisc --fabric=examples/small' "$fabric"
expect 'hbadisc -o js' 'json jsonl'
expect 'hbadisc refresh --what targets,' 'targets,attributes targets,vports'
# Port names, in the form that was begun; of one with colons bash replaces what stands behind the last.
expect "hbadisc show --fabric $fabric " '0x0000025d41000100 0x1000025d41000001 0x1000025d41000002'
expect "hbadisc --fabric=$fabric targets 0x1" '0x1000025d41000001 0x1000025d41000002'
expect "hbadisc --fabric '$fabric' refresh --what targets 1" '1000025d41000001 1000025d41000002'
expect "hbadisc --fabric $fabric show 10:00:02:5d:4" '41:00:00:01 41:00:00:02'
expect "hbadisc --fabric $fabric show 0x1000025d41000001 " ''
# Hosts, without those that stand there already.
expect "hbadisc --hosts-dir $scratch/two\\ words hosts remove " '10.1.2.3 [fe80::2]:23334 fe80::1'
expect "hbadisc --hosts-dir '$scratch/two words' hosts remove 10.1.2.3 " '[fe80::2]:23334 fe80::1'
expect "hbadisc --hosts-dir '$scratch/two words' hosts remove fe80:" ':1'

words=0
while IFS= read -r word; do
  words=$((words + 1))
  for file in hbadisc.bash _hbadisc; do
    grep -qE -e "(^|[^a-z-])$word([^a-z-]|\$)" "tools/completion/$file" || {
      echo "tools/completion/$file does not know $word"
      failed=1
    }
  done
done < <({
  "$hbadisc" --help
  "$hbadisc" refresh --help
  "$hbadisc" watch --help
  "$hbadisc" hosts --help
} | sed -nE 's/^  (-[a-zA-Z],)?(--[a-z-]+).*/\2/p; s/^  ([a-z]+)  +[A-Z].*/\1/p' | sort -u)
((words >= 20)) || { echo "only $words words in the help"; failed=1; }
exit "$failed"
