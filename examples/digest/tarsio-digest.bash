# bash completion for tarsio-digest                                -*- shell-script -*-

_tarsio_digest() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  case $previous in
    --files-from)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --jobs)
      return
      ;;
    --root)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return
      ;;
  esac
  if [[ $current == -* ]]; then
    local options='--check --files-from --help --jobs --null --progress --quiet --root --status
      --verbose --version'
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  else
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -F _tarsio_digest tarsio-digest
