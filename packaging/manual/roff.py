"""Markdown, as the documents use it, in the language of manual pages."""

import re

# What a document is called as a manual page.
PAGES = {"configuration.md": "igmpsnoopd.toml(5)", "operation.md": "igmpsnoopd(8)",
         "igmpsnoopctl.md": "igmpsnoopctl(1)"}


def escaped(text):
    """Text that stands as it is."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.MULTILINE)


def _link(match):
    text, target = match.groups()
    return PAGES.get(target.split("#")[0], text) if text.endswith(".md") else text


def inline(text):
    """A line of prose: links become names, code and stress become bold."""
    text = re.sub(r"\[([^]]*)\]\(([^)]*)\)", _link, text)
    parts = re.split(r"(`[^`]*`|\*\*[^*]*\*\*|\*[^*]+\*)", text)
    marked = []
    for part in parts:
        if part.startswith(("`", "**")):
            marked.append(f"\\fB{escaped(part.strip('`' if part[0] == '`' else '*'))}\\fR")
        elif part.startswith("*") and len(part) > 2:
            marked.append(f"\\fI{escaped(part[1:-1])}\\fR")
        else:
            marked.append(escaped(part))
    line = "".join(marked)
    return "\\&" + line if line.startswith(("'", ".")) else line


def tagged(tag, *paragraphs):
    """An entry of a list."""
    first, *rest = [paragraph for paragraph in paragraphs if paragraph] or ["\\&"]
    return [".TP", tag, first, *(line for each in rest for line in (".IP", each))]


def example(lines):
    return [".PP", ".RS 4", ".EX", *(escaped(line) for line in lines), ".EE", ".RE"]


def _table(lines):
    rows = [[cell.strip().replace("\0", "|") for cell in
             line.replace("\\|", "\0").strip().strip("|").split("|")] for line in lines]
    heading, _, *entries = rows
    result = []
    for tag, *cells in entries:
        said = [f"{inline(title)}: {inline(cell)}."
                for title, cell in zip(heading[1:-1], cells[:-1]) if title and cell]
        result += tagged(f"\\fB{inline(tag)}\\fR" if tag else "\\&", inline(cells[-1]),
                         " ".join(said))
    return result


def _blocks(text):
    """(kind, lines) of each block."""
    lines = text.splitlines()
    while lines:
        line = lines.pop(0)
        if line.startswith("```"):
            code = []
            while not (line := lines.pop(0)).startswith("```"):
                code.append(line)
            yield "code", code
        elif line.startswith("|"):
            rows = [line]
            while lines and lines[0].startswith("|"):
                rows.append(lines.pop(0))
            yield "table", rows
        elif line.startswith("#"):
            yield "heading", [line]
        elif line.startswith("- "):
            yield "item", [line[2:]]
        elif line.strip() and not line.startswith("!["):
            yield "prose", [line]


def manual(text):
    """The lines of a document below its title."""
    result = []
    for kind, lines in _blocks(text):
        if kind == "code":
            result += example(lines)
        elif kind == "table":
            result += _table(lines)
        elif kind == "item":
            result += [".IP \\(bu 2", inline(lines[0])]
        elif kind == "prose":
            result += [".PP", inline(lines[0])]
        elif not lines[0].startswith("# "):
            title = inline(lines[0].lstrip("# ")).replace("\\fB", "").replace("\\fR", "")
            result += [f'.SH {title.upper()}' if lines[0].startswith("## ") else f".SS {title}"]
    return result


def section(text, title):
    """A section of a document, with its heading."""
    found = re.search(rf"^## {re.escape(title)}\n.*?(?=^## |\Z)", text, re.MULTILINE | re.DOTALL)
    return found.group(0)
