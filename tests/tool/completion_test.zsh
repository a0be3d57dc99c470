#!/usr/bin/env zsh
# completion_test.zsh FOLDER_OF_HBADISC SOURCE_FOLDER - what zsh makes of a command line of hbadisc when Tab is pressed, in a
# terminal of its own.
zmodload zsh/zpty || exit
zpty shell "TERM=vt100 PATH=${(q)1}:\$PATH zsh -f -i"
zpty -w shell "cd ${(q)2}; fpath=(tools/completion \$fpath); autoload -Uz compinit; compinit -D -u"
# A line that is wrapped is drawn in pieces, in which its end can't be recognised.
zpty -w shell 'COLUMNS=500'

# Tab is pressed again after a while: on a busy machine hbadisc may not tell its ports within the time that a completion waits.
expect() { # LINE COMPLETED
  local answer part tries end
  for tries in {1..4}; do
    zpty -w -n shell $'\C-u'"$1"$'\t'
    for ((end = SECONDS + 10; SECONDS < end;)); do
      if zpty -r -t shell part; then answer+=$part; else sleep 0.05; fi
      if [[ $answer == *"$2"* ]]; then
        print -r -- "$2"
        return
      fi
    done
  done
  print -r -- "not completed to '$2': $1, but: ${(V)answer}" >&2
  exit 1
}

fabric=examples/small-host.json
expect 'hbadisc ref' 'hbadisc refresh'
expect 'hbadisc hosts rem' 'hosts remove'
expect "hbadisc --fabric=$fabric show 0x1" 'show 0x1000025d4100000'
expect "hbadisc --fabric=$fabric targets 10:" 'targets 10:00:02:5d:41:00:00:0'
expect "hbadisc -o jsonl --fabric $fabric refresh 00" 'refresh 0000025d41000100'
zpty -d shell
