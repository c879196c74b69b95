"""Completion for bash and zsh: both walk the words to the command, then offer what it takes."""

# What to offer for a value: a shell function of both files.
ASKED = {"NUMBER": "vlans 1", "NAME": "interfaces 1", "ADDRESS": "groups 2"}
FILES = ("FILE", "PATH", "NAME|PATH", "DIR", "FILE.html", "PORT=CAPTURE")

HEADER = """# Made from the help texts of {name}: completion for {shell}.
"""

# A column of a table that a running agent shows, the one whose socket the line names, which is
# waited for no longer than a second.
# What a shell might take for more than a word is left out.
ASK = """
_{name}_ask() {{
  local what=$1 column=$2 word previous=""
  local -a socket=()
  shift 2
  for word in "$@"; do
    case "$previous:$word" in
      --socket:=) continue ;;
      --socket:?*) socket=(--socket "$word") ;;
      *:--socket=?*) socket=("$word") ;;
    esac
    previous=$word
  done
  timeout 1 igmpsnoopctl "${{socket[@]}}" show "$what" 2>/dev/null | awk -v column="$column" '
    NR == 1 {{ next }}
    NF == 0 {{ exit }}
    $column ~ /^[[:alnum:]._:@-]+$/ && !seen[$column]++ {{ print $column }}'
}}
"""

BASH = """
_{name}() {{
  local word=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}} command="" i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case "$command ${{COMP_WORDS[i]}}" in
      {steps}) command+=" ${{COMP_WORDS[i]}}" ;;
    esac
  done
  COMPREPLY=()
  case "$command:$previous" in
{values}
    *:=) _{name}_files "$word"; return ;;
  esac
  if [[ $word == "=" ]]; then _{name}_files ""; return; fi
  case "$command" in
{commands}
  esac
}}

_{name}_words() {{ mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2"); }}

_{name}_files() {{
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -f -- "$1")
}}

complete -F _{name} {name}
"""

ZSH = """
_{name}() {{
  local command="" previous=$words[CURRENT-1] i
  local -a offered
  for ((i = 2; i < CURRENT; ++i)); do
    case "$command $words[i]" in
      ({steps}) command+=" $words[i]" ;;
    esac
  done
  case "$command:$previous" in
{values}
  esac
  case "$command" in
{commands}
  esac
  if [[ $words[CURRENT] == *=* ]]; then
    compset -P "*="
    _files
  fi
}}

_{name} "$@"
"""


def _steps(program):
    return "|".join(f'" {command.path()}"' for command in program.all() if command.path())


def _place(command):
    """As the walk names it: a space before each word."""
    return "".join(f" {word}" for word in command.words[1:])


def _valued(program):
    """(place and option, as a pattern; what it takes) of each option that takes a value."""
    for command in program.all():
        for option in command.options:
            if option.value:
                yield "|".join(f'"{_place(command)}:{name}"' for name in option.names), option.value


def bash(program):
    name = program.words[0]

    def value(takes):
        if takes in ASKED and name == "igmpsnoopctl":
            return f'_{name}_words "$(_{name}_ask {ASKED[takes]} "${{COMP_WORDS[@]}}")" "$word"; '
        if takes in FILES:
            return f'_{name}_files "$word"; '
        if "|" in takes and takes.islower():
            return f'_{name}_words "{takes.replace("|", " ")}" "$word"; '
        return ""

    def offered(command):
        words = [below.words[-1] for below in command.commands]
        words += [word for option in command.options for word in option.names]
        line = f'_{name}_words "{" ".join(words)}" "$word"'
        if any(each.value in FILES or each.names[0] in FILES for each in command.positionals):
            line = f'if [[ $word == -* ]]; then {line}; else _{name}_files "$word"; fi'
        return line

    return (HEADER + (ASK if name == "igmpsnoopctl" else "") + BASH).format(
        name=name, shell="bash", steps=_steps(program),
        values="\n".join(f"    {pattern}) {value(takes)}return ;;"
                         for pattern, takes in _valued(program)),
        commands="\n".join(f'    "{_place(command)}") {offered(command)} ;;'
                           for command in program.all()))


def zsh(program):
    name = program.words[0]

    def value(takes):
        if takes in ASKED and name == "igmpsnoopctl":
            return f'offered=(${{(f)"$(_{name}_ask {ASKED[takes]} $words)"}}); compadd -a offered; '
        if takes in FILES:
            return "_files; "
        if "|" in takes and takes.islower():
            return f"compadd {takes.replace('|', ' ')}; "
        return ""

    def described(word, description):
        return "'" + f"{word}:{description}".replace("'", "'\\''") + "'"

    def offered(command):
        lines = []
        if command.commands:
            lines += ["offered=(" + " ".join(described(below.words[-1], below.description)
                                             for below in command.commands) + ")",
                      "_describe command offered"]
        lines += ["offered=(" + " ".join(described(word, option.description)
                                         for option in command.options for word in option.names)
                  + ")", "_describe -o option offered"]
        if any(each.value in FILES or each.names[0] in FILES for each in command.positionals):
            lines.append("_files")
        return "; ".join(lines)

    return (f"#compdef {name}\n" + HEADER + (ASK if name == "igmpsnoopctl" else "") + ZSH).format(
        name=name, shell="zsh", steps=_steps(program),
        values="\n".join(f"    ({pattern}) {value(takes)}return ;;"
                         for pattern, takes in _valued(program)),
        commands="\n".join(f'    ("{_place(command)}") {offered(command)} ;;'
                           for command in program.all()))
