#!/usr/bin/env bash
# examples_test.sh BUILD_FOLDER SOURCE_FOLDER - does what README.md and the man pages show, word by word, with the installed
# programs where the pages say that they are. An example that is new to this test fails it.
set -euo pipefail
build=$1 source=$2
export LC_ALL=C

# A network of its own: examples listen on addresses, and on the port of everybody's agent.
if [[ ${3-} != --inside ]]; then exec unshare --net -- "$0" "$build" "$source" --inside; fi
ip link set lo up
ip address add 10.0.0.5/32 dev lo

scratch=$(mktemp -d)
agent=
trap 'if [[ $agent ]]; then kill "$agent"; fi; rm -rf "$scratch"' EXIT
prefix=$scratch/usr
cmake --install "$build" --prefix "$prefix" >/dev/null
# The mount namespace is this test's alone.
mount --bind "$prefix/share/doc" /usr/share/doc
mount -t tmpfs none /opt
mount -t tmpfs none /var/log
mkdir -p /opt/varnix/quorbench
PATH=$prefix/bin:$PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name hbadiscovery.pc)")
export PATH PKG_CONFIG_PATH
# For programs that were linked as if the library was where the loader looks.
libraries=$(pkg-config --variable=libdir hbadiscovery)

fail() { printf '%s: %s\n' "$example" "$1" >&2; exit 1; }

# A block in a file of its own, blocks/PAGE.N. In the source of a man page a backslash escapes.
mkdir "$scratch/blocks"
for page in "$source"/docs/man/*.scd; do
  sed 's/\\\(.\)/\1/g' "$page" | awk -v out="$scratch/blocks/$(basename "$page" .scd)" '
    /^```/ { inside = !inside; count += inside; next } inside { print > (out "." count) }'
done
awk -v out="$scratch/blocks/README" '
  /^```/ { fenced = !fenced; next } fenced { next }
  /^    / { if (!inside) ++count; inside = 1; print substr($0, 5) > (out "." count); next } { inside = 0 }' "$source/README.md"

# A user who runs this test is root in a user namespace, where the agent finds nobody else to become.
as_user=
if (($(awk '{ print $3 }' /proc/self/uid_map) == 1)); then as_user=' --user root'; fi

# Line by line, as at a prompt; what stays in the foreground or is sent away from it is awaited until it listens.
type_in() {
  local line
  while IFS= read -r line <&3; do
    if [[ $line != hbadisc-agent* ]]; then
      eval "$line" >"$scratch/out" 2>&1 || { cat "$scratch/out" >&2; fail "failed: $line"; }
      cat "$scratch/out" >>"$scratch/answers"
      continue
    fi
    eval "${line%&}$as_user &" 2>"$scratch/agent"
    agent=$!
    for ((tries = 0; tries < 200; ++tries)); do
      if grep -q 'listening on' "$scratch/agent"; then break; fi
      sleep 0.05
    done
    grep -q 'listening on' "$scratch/agent" || { cat "$scratch/agent" >&2; fail "does not listen: $line"; }
  done 3<"$1"
}
expect() { # TEXT...
  local text
  for text in "$@"; do
    grep -qF -- "$text" "$scratch/answers" || { cat "$scratch/answers" >&2; fail "expected: $text"; }
  done
}

run() { # BLOCK
  example=$(basename "$1")
  : >"$scratch/answers"
  rm -f /etc/varnix/quorbench/* /opt/varnix/quorbench/hbahosts.lst
  case $example in
    hbadisc.1.*) ;; # one after the other, where the first one leads
    *) cd "$scratch" ;;
  esac
  case $example in
    hbadisc.1.1) type_in "$1" ;;
    hbadisc.1.2) type_in "$1"; expect harbour-01 0x1000025d41000002 ;;
    hbadisc.1.3) type_in "$1"; expect VX20410001 0x5025d0aa00000010 ;;
    hbadisc.1.4) type_in "$1"; expect false ;;
    hbadisc.1.5) type_in "$1"; expect 'first look' 'no change' ;;
    hbadisc-agent.8.1) type_in "$1"; ask_agent http://10.0.0.5:23333/; stop_agent ;;
    hbadisc-agent.8.2) type_in "$1"; expect 0x1000025d81000001 ;;
    hbadisc-agent.8.3) type_in "$1"; expect '127.0.10.1 is added'; stop_agent ;;
    hbadiscovery.3.1) compile_page_line "$1" ;;
    hbadiscovery.3.2) diff -u "$source/examples/list_ports.c" "$1" ;;
    hbadiscovery-fabric.5.1) refuse_file "$1" ;;
    hbadiscovery-fabric.5.2) look --fabric "$1"; expect 10:00:02:5d:41:00:00:01 ;;
    hbadiscovery-settings.5.1)
      cp "$1" /etc/varnix/quorbench/varnixDiscConfig
      look
      cp /var/log/hbadiscovery.log "$scratch/answers"
      expect In-Band
      ;;
    hbadiscovery-settings.5.2)
      cp "$1" /etc/varnix/quorbench/rm.conf
      look
      expect harbour-01
      ;;
    hbahosts.lst.5.1)
      cp "$1" /opt/varnix/quorbench/hbahosts.lst
      hbadisc hosts list --no-ask -o jsonl | jq -r '.host + " " + .name' >"$scratch/answers"
      expect '10.1.2.3 server7' '10.1.2.4:23334 server8' fe80::1 '[fe80::2]:23334'
      ;;
    README.1) know_commands "$1" ;;
    README.2) type_in "$1"; list_ports ;;
    # Installing packages is their own test.
    README.3)
      sed '/^sudo apt-get install /d' "$1" >"$scratch/rest"
      type_in "$scratch/rest"
      LD_LIBRARY_PATH=$libraries list_ports
      ;;
    *) fail "no test knows this example: $(head -n 1 "$1")" ;;
  esac
  echo "$example"
}

look() { hbadisc "$@" list >"$scratch/answers" 2>&1 || { cat "$scratch/answers" >&2; fail "nothing is listed"; }; }

ask_agent() { curl -sf "$1" >/dev/null || fail "no answer from $1"; }

stop_agent() {
  kill "$agent"
  wait "$agent" || fail "the agent does not end well"
  agent=
}

# What the synopsis says of a program, with the one of the page in its place.
compile_page_line() { # BLOCK
  cp "$source/examples/list_ports.c" program.c
  grep -v '^#include' "$1" >"$scratch/compile"
  type_in "$scratch/compile"
  mv a.out list_ports
  LD_LIBRARY_PATH=$libraries list_ports
}

list_ports() {
  echo "FabricFile:$source/examples/small-host.json" >/etc/varnix/quorbench/rm.conf
  ./list_ports >"$scratch/answers"
  expect 10:00:02:5d:41:00:00:02
}

know_commands() { # BLOCK
  local script command rest
  while read -r script command rest; do
    "$source/$script" help | grep -q "^  $command " || fail "$script has no command $command $rest"
  done <"$1"
}

# The message is what such a file gives, with the place where it is wrong.
refuse_file() { # MESSAGE
  {
    printf '{ "local": { "name": "a", "boards": [\n'
    printf '{ "kind": "fc", "wwpn": "10:00:02:5d:00:00:00:0%d" },\n' 1 2
    printf '{ "kind": "fc", "wwpn": "10:00:02:5d:00:00:00:03", "targets": [\n\n\n\n\n\n\n\n\n\n{ "wwpn": "12" }\n] } ] } }\n'
  } >fabric.json
  if hbadisc --fabric fabric.json list >"$scratch/answers" 2>&1; then fail "the file is taken"; fi
  expect "$(<"$1")"
}

cd "$scratch"
ln -s "$source/include" "$source/examples" .
ln -s "$build" build
for block in "$scratch"/blocks/*; do run "$block"; done
