# shellcheck shell=bash
# bash offered.bash MANUAL WORD...: what bash offers for the last word.
manual=$1 program=$2
shift
# shellcheck source=/dev/null
. "$manual/$program.bash"
read -r _ _ function _ < <(complete -p "$program")
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
"$function"
printf '%s\n' "${COMPREPLY[@]}"
