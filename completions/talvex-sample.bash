# Completion of talvex-sample in bash.

_talvex_sample() {
  local word=$2 previous=$3
  case $previous in
    --output) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
    --code-object) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    --reason) mapfile -t COMPREPLY < <(compgen -W 'queue-error vm-fault signal' -- "$word") ;;
    --format) mapfile -t COMPREPLY < <(compgen -W '0 1' -- "$word") ;;
    --agents | --queues | --waves | --vgprs | --faulting | --seed) COMPREPLY=() ;;
    *)
      mapfile -t COMPREPLY < <(compgen -W '--output --reason --format --agents --queues --waves
        --vgprs --faulting --code-object --seed --help' -- "$word")
      ;;
  esac
}

complete -o filenames -F _talvex_sample talvex-sample
