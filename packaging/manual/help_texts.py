"""What the programs' own help texts say of their commands and options."""

import dataclasses
import re
import subprocess

COLUMN = 30  # where descriptions begin


@dataclasses.dataclass
class Option:
    names: list[str]  # as in ["-j", "--json"]
    value: str  # what it takes, as in "FILE"; empty if nothing
    is_required: bool
    description: str

    def form(self):
        """As it is typed."""
        return f"{', '.join(self.names)} {self.value}".strip()


@dataclasses.dataclass
class Command:
    words: list[str]  # the program first
    description: str
    usage: str
    options: list[Option]
    positionals: list[Option]
    example: str
    commands: list["Command"]

    def all(self):
        """It and the commands below it, in the order of the help texts."""
        yield self
        for command in self.commands:
            yield from command.all()

    def path(self):
        return " ".join(self.words[1:])


def _entries(text, heading):
    """(left column, right column) of each entry below a heading."""
    section = re.search(rf"^{heading}:\n((?:  .*\n)*)", text, re.MULTILINE)
    entries = []
    lines = section.group(1).splitlines() if section else []
    for line, following in zip(lines, [*lines[1:], ""]):
        if line.startswith(" " * 10):  # the right column of the entry above, which left no room
            entries[-1][1] = line.strip()
        elif following.startswith(" " * 10):
            entries.append([line.strip(), ""])
        else:
            entries.append([line[:COLUMN].strip(), line[COLUMN:].strip()])
    return entries


def _option(left, right):
    left = re.sub(r" Excludes: .*", "", left)
    form = left.removesuffix(" REQUIRED")
    names, _, value = form.partition(" ")
    if default := re.search(r"=([/a-z].*)", value):
        value = value[:default.start()]
        right += f"; {default.group(1)} if it is not given"
    return Option(names.split(","), value, form != left, right)


def read(program, words):
    """The command that the words are, program.name first, and all below it."""
    text = subprocess.run([program, *words[1:], "--help"], check=True, text=True,
                          stdout=subprocess.PIPE).stdout
    description, usage, *_ = text.splitlines()
    example = re.search(r"^Example: (.*)$", text, re.MULTILINE)
    below = [read(program, [*words, name]) for name, _ in _entries(text, "Subcommands")]
    return Command(words, description, usage.removeprefix("Usage: "),
                   [_option(*entry) for entry in _entries(text, "Options")],
                   [_option(*entry) for entry in _entries(text, "Positionals")],
                   example.group(1) if example else "", below)
