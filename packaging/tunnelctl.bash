# Completion of tunnelctl for bash.
_tunnelctl() {
  local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} before=${COMP_WORDS[COMP_CWORD - 1]}
  local -A options=(
    [check]="--json"
    [plan]="--from --offline --printlvl --show-secrets --json"
    [status]="--wait --watch --json --format"
  )
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W "${!options[*]} --help --version" -- "$word")
  elif [[ $before == --from || ($command == check && $word != -*) ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  elif [[ $before == --format ]]; then
    mapfile -t COMPREPLY < <(compgen -W "prometheus" -- "$word")
  elif [[ $before == --printlvl ]]; then
    mapfile -t COMPREPLY < <(compgen -W "0 25 50 75 100" -- "$word")
  else
    mapfile -t COMPREPLY < <(compgen -W "${options[$command]-}" -- "$word")
  fi
}
complete -F _tunnelctl tunnelctl
