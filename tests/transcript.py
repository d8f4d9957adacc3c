"""Commands with what they print, one after the other as in a terminal: in README.md and in tests/transcripts/."""

import re


def commands_of(text):
    """Each command with the status in front of its "$ ", if there is one, and what it is said to print. Lines that begin with
    "> " go on with the command."""
    for part in re.split(r"^(?=\d*\$ )", text, flags=re.MULTILINE)[1:]:
        [(status, command)] = re.findall(r"\A(\d*)\$ (.*(?:\n> .*)*)", part)
        yield command.replace("\n> ", "\n"), status, part[len(status) + 2 + len(command) + 1:]


def is_said(expected, found):
    """A line of "…" is any number of lines; elsewhere it is the rest of a word or line."""
    text = ""
    for line in expected.strip("\n").splitlines():
        text += r"(.*\n)*?" if line == "…" else ".*".join(map(re.escape, line.split("…"))) + r"\n"
    return re.fullmatch(text, found.strip("\n") + "\n" if found.strip("\n") else "") is not None
