# Completion of talvex in bash.

_talvex() {
  local word=$2 previous=$3
  case $previous in
    --input | -i) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    --output | -o | --mem_dir | -m | --rocm_dir | -r)
      mapfile -t COMPREPLY < <(compgen -d -- "$word")
      ;;
    --log_level | -l) mapfile -t COMPREPLY < <(compgen -W 'error info debug' -- "$word") ;;
    *)
      mapfile -t COMPREPLY < <(compgen -W '--input -i --output -o --mem_dir -m --rocm_dir -r
        --log_level -l --dis_all --version -v --help -h' -- "$word")
      ;;
  esac
}

complete -o filenames -F _talvex talvex
