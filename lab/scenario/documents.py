"""Every command and every configuration of README and docs works as it stands there."""

import os
import pathlib
import re
import shutil
import subprocess

from rig.lab import Skip

CI = True
ROOT = pathlib.Path(__file__).parents[2]
DOCUMENTS = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
# What needs a service manager or an installation is typed by scripts/try-service, benchmarks by
# scripts/try-benchmarks; a whole build or a measurement of minutes is no business of a scenario.
ELSEWHERE = re.compile(r"(systemctl|systemd-\S+|journalctl|cmake|apt|apt-get|dpkg|scripts/\S+"
                       r"|build/\S+|lab/\S+|bench/\S+|mkdir -p /etc/systemd/.*)( |$)|\./run$")
BLOCK = re.compile(r"^```(\w*)\n(.*?)^```", re.DOTALL | re.MULTILINE)


def blocks(document):
    """(where it begins, its language, its text) of each fenced block."""
    text = document.read_text(encoding="utf-8")
    for block in BLOCK.finditer(text):
        yield (f"{document.name}:{text[:block.start()].count(chr(10)) + 1}", *block.groups())


def commands(text):
    """(command, the first line of what it is said to print) of each prompt."""
    lines = text.replace("\\\n", "").splitlines()
    for number, line in enumerate(lines):
        if prompt := re.match(r"[$#] (?=\S)", line):
            shown = lines[number + 1] if number + 1 < len(lines) else ""
            yield line[prompt.end():], "" if re.match(r"[$#] ", shown) else shown


class Reader:
    """Somebody who types what the documents say, at a switch with four ports."""

    def __init__(self, lab, switch):
        self._switch = switch
        self._home = pathlib.Path("/run/reader")
        self._home.mkdir()
        for folder in ("/etc", "/var/lib"):  # what is written there goes with the scenario
            upper, work = self._home / f"upper{folder}", self._home / f"work{folder}"
            upper.mkdir(parents=True)
            work.mkdir(parents=True)
            options = f"lowerdir={folder},upperdir={upper},workdir={work}"
            if subprocess.run(["mount", "-t", "overlay", "overlay", "-o", options, folder],
                              stderr=subprocess.DEVNULL, check=False).returncode != 0:
                raise Skip(f"no overlay can be laid over {folder}")
        for program in ("igmpsnoopd", "igmpsnoopctl"):
            (self._home / program).symlink_to(lab.programs / program)
        (self._home / "run").symlink_to(lab.programs / "igmpsnoopd")
        for capture in ("port1.pcap", "port2.pcapng"):
            shutil.copy(ROOT / "captures" / "swp1.pcap", self._home / capture)

    def writes(self, path, text):
        path = self._home / path
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def types(self, command, seconds=20):
        """Returns the status and what was printed; a command that goes on is interrupted."""
        done = subprocess.run(
            ["ip", "netns", "exec", self._switch.namespace.name, "timeout", "--signal=INT",
             str(seconds), "bash", "-o", "pipefail", "-c", command],
            cwd=self._home, env=self._environment(), text=True, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return done.returncode, done.stdout

    def starts(self, command):
        return self._switch.namespace.start(
            ["bash", "-c", command], cwd=self._home, env=self._environment(),
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def _environment(self):
        return {**os.environ, "PATH": f"{self._home}:{os.environ['PATH']}"}


def check_configurations(lab, reader):
    for where, language, text in (block for document in DOCUMENTS for block in blocks(document)):
        if language == "toml":
            reader.writes("block.toml", text)
            status, printed = reader.types("igmpsnoopd check --config block.toml")
            lab.check(status == 0, f"{where}: {printed}")


def headings(line):
    """What stays the same of a line, whatever is found: no number does."""
    return re.sub(r"[\d.]+", "", line).split()


def check_command(lab, reader, where, command, shown):
    endless = command.startswith("igmpsnoopctl monitor") or " --watch " in command
    status, printed = reader.types(command, 1 if endless else 20)
    lab.check(status == (124 if endless else 0), f"{where}: {command}: {status}: {printed}")
    if "show" in command and shown:  # a table, whose headings are the same whatever it holds
        lab.check(headings(printed.split("\n")[0]) == headings(shown),
                  f"{where}: {command} prints {printed}, and not {shown}")


def run(lab):
    for program in ("curl", "socat"):
        if not shutil.which(program):
            raise Skip(f"'{program}' is missing: apt-get install {program}")
    switch = lab.switch(ports=4)
    listener, *_ = [lab.listener(f"tv{port}", switch, port) for port in switch.ports[:3]]
    router = lab.bridge_router("router", switch, "swp4")
    reader = Reader(lab, switch)
    check_configurations(lab, reader)
    configuration = next(text for _, language, text in blocks(ROOT / "README.md")
                         if language == "toml")
    reader.writes("switch.toml", configuration)
    reader.writes("/etc/igmpsnoopd/igmpsnoopd.toml", configuration)
    reader.writes("/var/lib/prometheus/node-exporter/other.prom", "")
    os.mkdir("/run/igmpsnoopd")

    typed = [(where, *command) for document in DOCUMENTS
             for where, language, text in blocks(document)
             if language == "console" or text.startswith("$ ") for command in commands(text)]
    live = next(command for _, command, _ in typed if command.startswith("igmpsnoopd live"))
    agent = reader.starts(f"exec {live} --metrics /run/igmpsnoopd/metrics")
    lab.until(lambda: reader.types("igmpsnoopctl show vlans")[0], 0, within=20)
    listener.do("join 239.1.1.1")
    router.query()
    for what, name in (("groups", "239.1.1.1"), ("mrouters", "swp4")):
        lab.until(lambda: name in reader.types(f"igmpsnoopctl show {what}")[1], True, within=20)
    tried = 0
    for where, command, shown in typed:
        if ELSEWHERE.match(command) or command.startswith("igmpsnoopd live"):
            continue
        check_command(lab, reader, where, command, shown)
        tried += 1
    lab.check(agent.poll() is None, "the agent has ended")
    agent.terminate()
    lab.check(agent.wait(20) == 0, "the agent ended badly")
    lab.note(f"{tried} commands of {len(typed)} tried")
