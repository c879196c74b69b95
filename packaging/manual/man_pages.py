"""The manual pages: what the help texts say of commands, and what the documents say of the rest."""

import roff


def _heading(name, section, version, summary):
    return [f'.TH {name} {section} "" "{version}"', ".ad l", ".nh",
            ".SH NAME", f"{roff.escaped(name)} \\- {roff.escaped(summary)}"]


def _see_also(name):
    return [".SH SEE ALSO", ", ".join(f"\\fB{roff.escaped(page)}\\fR".replace("(", "\\fR(")
                                      for page in sorted(roff.PAGES.values())
                                      if not page.startswith(name + "("))]


def _synopsis(program):
    lines = [".SH SYNOPSIS"]
    for command in program.all():
        if not command.commands:
            lines += [f"\\fB{roff.escaped(' '.join(command.words))}\\fR "
                      + roff.escaped(command.usage.removeprefix(" ".join(command.words)).strip()),
                      ".br"]
    return lines


def _option(option):
    said = option.description + ("; required" if option.is_required and option.description else "")
    return roff.tagged(f"\\fB{roff.escaped(option.form())}\\fR",
                       roff.escaped(said or ("required" if option.is_required else "")))


def _commands(program):
    lines = [".SH COMMANDS"]
    for command in program.all():
        if command is program:
            continue
        lines += [f".SS {roff.escaped(command.path())}", roff.escaped(command.description) + "."]
        for option in command.positionals + command.options:
            if "--help" not in option.names:
                lines += _option(option)
        if command.example:
            lines += roff.example([command.example])
    lines.append(".SH OPTIONS")
    for option in program.options:
        lines += _option(option)
    return lines


def of_program(program, section, version, introduction, body):
    """Markdown before its commands, and after them."""
    name = program.words[0]
    return "\n".join([*_heading(name, section, version, program.description), *_synopsis(program),
                      ".SH DESCRIPTION", *roff.manual(introduction), *_commands(program),
                      *roff.manual(body), *_see_also(name)]) + "\n"


def of_document(name, section, version, summary, text):
    return "\n".join([*_heading(name, section, version, summary),
                      ".SH DESCRIPTION", *roff.manual(text), *_see_also(name)]) + "\n"
