"""Finds code blocks and inline commands in the project's documents."""

import re
import subprocess
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
# A block without a language holds shell commands; `text` marks what is no code.
# js is run by tests/web.
LANGUAGES = {"": "sh"} | {name: name for name in ("sh", "c", "cpp", "cmake", "python", "js", "text")}
PROGRAMS = ("orvel", "make", "scripts/", "bench/", ".ci/", "python", "cmake", "ctest", "cc", "c++", "arecord", "sudo")


@dataclass
class Block:
    """One fenced block, or one inline command: `inline` is true and `text` is the command."""

    document: str
    line: int
    language: str
    text: str
    inline: bool = False

    def __str__(self) -> str:
        return f"{self.document}:{self.line}"


def documents() -> list[str]:
    """Every Markdown file that git knows or would take in."""
    command = ["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.md"]
    listed = subprocess.run(command, cwd=ROOT, check=True, text=True, capture_output=True).stdout.split()
    return sorted(name for name in set(listed) if (ROOT / name).exists())


def is_command(text: str) -> bool:
    first, _, rest = text.partition(" ")
    if "/" in first:
        if Path(first).suffix not in ("", ".py"):
            return False
        return any(first.startswith(p) for p in PROGRAMS if p.endswith("/")) and (ROOT / first).is_file()
    return first in PROGRAMS and bool(rest)


def blocks_of(document: str) -> list[Block]:
    found, opened = [], None
    for number, line in enumerate((ROOT / document).read_text().splitlines(), 1):
        fence = re.match(r"\s*```\s*(\S*)\s*$", line)
        if fence and opened is None:
            if fence[1] not in LANGUAGES:
                raise ValueError(f"{document}:{number}: unknown language {fence[1]!r} of a code block")
            opened = Block(document, number + 1, LANGUAGES[fence[1]], "")
        elif fence:
            found.append(opened)
            opened = None
        elif opened is not None:
            opened.text += line + "\n"
        else:
            spans = re.findall(r"(?<!`)`([^`]+)`(?!`)", line)
            found += [Block(document, number, "sh", span, True) for span in spans if is_command(span)]
    if opened is not None:
        raise ValueError(f"{document}:{opened.line}: the code block has no end")
    return found


def commands_of(text: str) -> list[str]:
    """The commands of a shell block, or of a transcript in which they begin with `$ `."""
    lines = text.replace("\\\n", " ").splitlines()
    if any(line.startswith("$ ") for line in lines):
        lines = [line[2:] for line in lines if line.startswith("$ ")]
    return [line.strip() for line in lines if line.strip() and not line.lstrip().startswith("#")]
