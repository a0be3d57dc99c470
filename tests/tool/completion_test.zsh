#!/usr/bin/env zsh
# completion_test.zsh FOLDER_OF_HBADISC SOURCE_FOLDER - what zsh makes of a command line of hbadisc when Tab is pressed, in a
# terminal of its own. Whoever runs this sets the time limit: what is wrong is never completed.
zmodload zsh/zpty || exit
zpty shell "PATH=$1:\$PATH zsh -f -i"
zpty -w shell "fpath=($2/tools/completion \$fpath); autoload -Uz compinit; compinit -D -u"

expect() { # LINE COMPLETED
  zpty -w -n shell $'\C-u'"$1"$'\t'
  zpty -r shell answer "*$2*" || exit
  print -r -- "$2"
}

fabric=$2/examples/small-host.json
expect 'hbadisc ref' 'hbadisc refresh'
expect 'hbadisc hosts rem' 'hosts remove'
expect "hbadisc --fabric=$fabric show 0x1" 'show 0x1000025d4100000'
expect "hbadisc --fabric=$fabric targets 10:" 'targets 10:00:02:5d:41:00:00:0'
expect "hbadisc -o jsonl --fabric $fabric refresh 00" 'refresh 0000025d41000100'
zpty -d shell
