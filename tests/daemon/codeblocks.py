"""The code blocks of the documents in docs/, by the words behind their fence: ```wire alive."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent

_FENCE = re.compile(r"^```(\w+)(?: (\S+))?\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def fenced(document: str, kind: str) -> dict:
    """The blocks of one kind by name. No name may stand twice."""
    text = (ROOT / document).read_text(encoding="utf-8")
    blocks = [(name, body) for found, name, body in _FENCE.findall(text) if found == kind]
    assert len(dict(blocks)) == len(blocks), f"a name stands twice in {document}"
    return dict(blocks)


def wire_bytes(block: str) -> bytes:
    """What a block of docs/wire.md stands for: only marked line ends and tabs are on the wire."""
    return block.replace("\n", "").replace("␍␊", "\r\n").replace("␉", "\t").encode()


def commands(document: str) -> list:
    """The indented "$ command" lines of a document, each with the output that stands directly below it."""
    found = []
    collecting = False
    for line in (ROOT / document).read_text(encoding="utf-8").splitlines():
        if line.startswith("    $ "):
            found.append((line[6:], ""))
            collecting = True
        elif collecting and line.startswith("    "):
            command, output = found[-1]
            found[-1] = (command, f"{output}{line[4:]}\n")
        else:
            collecting = False
    return found
