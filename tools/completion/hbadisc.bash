# shellcheck shell=bash
# Completion of hbadisc for bash: commands, options and their values, and the ports and remote hosts that hbadisc itself
# lists, with the options that have been typed so far and say where to look.

# Splits a line into _hbadisc_words as the shell does, quotes taken away: bash's own words end at every colon too.
_hbadisc_split() { # LINE
  local line=$1 word='' quote='' open='' character i
  _hbadisc_words=()
  for ((i = 0; i < ${#line}; ++i)); do
    character=${line:i:1}
    if [[ $quote ]]; then
      if [[ $character == "$quote" ]]; then quote=''; else word+=$character; fi
    elif [[ $character == [\'\"] ]]; then
      quote=$character open=1
    elif [[ $character == \\ ]]; then
      ((++i))
      word+=${line:i:1} open=1
    elif [[ $character == [[:blank:]] ]]; then
      if [[ $open ]]; then _hbadisc_words+=("$word"); fi
      word='' open=''
    else
      word+=$character open=1
    fi
  done
  _hbadisc_words+=("$word") # the one at the cursor, maybe empty
}

# One key of the lines that a command writes. Nobody wants to wait long for a completion: what there is in time will do.
_hbadisc_ask() { # KEY COMMAND...
  "${_hbadisc_words[0]/#\~\//$HOME/}" "${look[@]}" --timeout 5 "${@:2}" -o jsonl 2>/dev/null </dev/null |
    sed -n "s/.*\"$1\":\"\\([^\"]*\\)\".*/\\1/p"
}

# Port names in the form that has been begun: 0x1000..., 1000..., or 10:00:... .
_hbadisc_ports() { # BEGINNING
  case $1 in
    *:*) _hbadisc_ask wwpn list | sed 's/^0x//; s/../&:/g; s/:$//' ;;
    '' | 0 | 0x*) _hbadisc_ask wwpn list ;;
    *) _hbadisc_ask wwpn list | sed 's/^0x//' ;;
  esac
}

# Offers what begins as the word at the cursor. Where colons end words, bash replaces only what stands behind the last.
_hbadisc_offer() { # CANDIDATE...
  local candidate drop=''
  if [[ $COMP_WORDBREAKS == *:* && $current == *:* ]]; then drop=${current%"${current##*:}"}; fi
  for candidate; do
    if [[ $candidate == "$current"* ]]; then COMPREPLY+=("${candidate#"$drop"}"); fi
  done
}

_hbadisc_value() { # OPTION
  local part taken
  case $1 in
    --fabric)
      compopt -o filenames 2>/dev/null || : # not while a test asks
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      ;;
    --sysfsroot | --hosts-dir)
      compopt -o filenames 2>/dev/null || : # not while a test asks
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      ;;
    -o | --output) _hbadisc_offer table json jsonl ;;
    --what)
      taken=${current%"${current##*,}"}
      for part in attributes targets vports; do
        if [[ ,$taken != *,$part,* ]]; then _hbadisc_offer "$taken$part"; fi
      done
      ;;
  esac
}

_hbadisc() {
  local _hbadisc_words look=() arguments=() with_value current option='' word i list
  COMPREPLY=()
  with_value=' --fabric --sysfsroot --hosts-dir -o --output --timeout --what --interval --count '
  _hbadisc_split "${COMP_LINE:0:COMP_POINT}"
  current=${_hbadisc_words[-1]}
  for ((i = 1; i < ${#_hbadisc_words[@]} - 1; ++i)); do
    word=${_hbadisc_words[i]}
    option=''
    case $word in
      --fabric=* | --sysfsroot=* | --hosts-dir=*) look+=("${word%%=*}" "${word#*=}") ;;
      --local-only | --oob) look+=("$word") ;;
      -*)
        if [[ $with_value != *" $word "* ]]; then continue; fi
        option=$word
        if ((++i == ${#_hbadisc_words[@]} - 1)); then break; fi # its value is at the cursor
        case $word in --fabric | --sysfsroot | --hosts-dir) look+=("$word" "${_hbadisc_words[i]/#\~\//$HOME/}") ;; esac
        option=''
        ;;
      *) arguments+=("$word") ;;
    esac
  done
  if [[ ! $option && $current == --*=* ]]; then
    option=${current%%=*} current=${current#*=}
  fi
  if [[ $option ]]; then
    _hbadisc_value "$option"
    return
  fi
  if [[ $current == -* ]]; then
    _hbadisc_offer --fabric --sysfsroot --hosts-dir --local-only --oob --output --json --timeout --cycle --verbose --version --help
    case ${arguments[0]-} in
      refresh) _hbadisc_offer --what ;;
      watch) _hbadisc_offer --interval --count --changes-only ;;
      hosts) if [[ ${arguments[1]-} == list ]]; then _hbadisc_offer --no-ask; fi ;;
    esac
    return
  fi
  case "${arguments[*]:0:2}" in
    '') _hbadisc_offer list show targets refresh watch hosts ;;
    show | targets | refresh)
      mapfile -t list < <(_hbadisc_ports "$current")
      _hbadisc_offer "${list[@]}"
      ;;
    hosts) _hbadisc_offer list add remove ;;
    'hosts add')
      mapfile -t list < <(compgen -A hostname -- "$current")
      _hbadisc_offer "${list[@]}"
      ;;
    'hosts remove')
      mapfile -t list < <(_hbadisc_ask host hosts list --no-ask)
      for word in "${list[@]}"; do
        if [[ " ${arguments[*]:2} " != *" $word "* ]]; then _hbadisc_offer "$word"; fi
      done
      ;;
  esac
}

complete -F _hbadisc hbadisc
