# shellcheck shell=bash
# Sourced by the scripts of this project: how they name, time and silence their steps. Everything
# goes to standard error, so that standard output belongs to the program a script runs.

# say TEXT...: a line of progress.
say() { echo "$*" >&2; }

# die TEXT...: the script's one line on why it gives up.
die() {
  say "$(basename "$0"): $*"
  exit 1
}

# quietly TITLE COMMAND...: one line for the step; the command's output only when it fails.
quietly() {
  local title=$1 log seconds=$SECONDS status=0
  shift
  log=$(mktemp)
  printf '%s ...' "$title" >&2
  "$@" </dev/null >"$log" 2>&1 || status=$?
  if ((status == 0)); then
    say " done, $((SECONDS - seconds)) s"
  else
    say " failed"
    cat "$log" >&2
  fi
  rm -f "$log"
  return "$status"
}

# sources SUFFIX...: the project's own files that end so, uncommitted ones included.
sources() {
  git ls-files --cached --others --exclude-standard -- "${@/#/*}" | while IFS= read -r file; do
    if [[ -e $file ]]; then echo "$file"; fi
  done
}
