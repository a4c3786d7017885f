# Completion of crctl for bash.

# The ids of the queued events.
_crctl_ids() { crctl queue list 2>/dev/null | awk '/^[^ ]+  /{print $1}'; }

_crctl_keys() { crctl stored list 2>/dev/null | awk '/^lastCrash_/{sub(/  .*/, ""); print}'; }

_crctl() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} verb='' words=''
  local word
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ $word == -* ]] || verb+="${verb:+ }$word"
  done

  # The second file of the two.
  [[ $COMP_CWORD -gt 2 && ${COMP_WORDS[COMP_CWORD - 2]} == --tls ]] && previous=--tls
  case $previous in
    --reporter | --events | --tls)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --pid)
      mapfile -t COMPREPLY < <(compgen -W "$(ps -u "$UID" -o pid=)" -- "$current")
      return
      ;;
    --type)
      mapfile -t COMPREPLY < <(compgen -W '0 1 2' -- "$current")
      return
      ;;
    --key)
      [[ $verb == stored* ]] && mapfile -t COMPREPLY < <(compgen -W "$(_crctl_keys)" -- "$current")
      return
      ;;
  esac

  case $verb in
    '') words='doctor queue convert stored notify log ingest --version' ;;
    doctor*) words='--app --pid --reporter' ;;
    queue) words='list show post expire' ;;
    'queue show' | 'queue post'*) words=$(_crctl_ids) ;;
    'queue expire') words='--dry-run' ;;
    convert)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      words='--type --app --version --reporter-version --session --user'
      ;;
    convert*) words='--type --app --version --reporter-version --session --user' ;;
    stored) words='list forget' ;;
    'stored forget'*) words='--app --version --build --key --all' ;;
    notify) words='appTerminatedNormally exceptionDeliveryCompleteion' ;;
    notify*) words='--pid --key' ;;
    log) words='on off show follow' ;;
    'log on') words='--append' ;;
    'log show') words='--pid' ;;
    ingest*) words='--port --tls --events --fail' ;;
  esac
  mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -W "$words --json --help" -- "$current")
}

complete -o filenames -F _crctl crctl
