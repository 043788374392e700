"""Status codes, read from the QuarzStatus enum of the public header."""
import re

from ._library import HEADER_PATH


def parse_status_enum(text):
    """{code: name} from the body of `enum QuarzStatus { ... }` in C source text."""
    m = re.search(r"enum\s+QuarzStatus\s*\{(.*?)\}", text, re.S)
    if not m:
        raise ValueError("no 'enum QuarzStatus' in the header")
    body = re.sub(r"/\*.*?\*/|//[^\n]*", "", m.group(1), flags=re.S)
    names = {}
    for item in body.split(","):
        item = item.strip()
        if not item:
            continue
        name, eq, value = item.partition("=")
        if not eq:
            raise ValueError(f"enumerator without a value: {item!r}")
        names[int(value.strip(), 0)] = name.strip()
    return names


STATUS_NAMES = parse_status_enum(HEADER_PATH.read_text())
STATUS_CODES = {name: code for code, name in STATUS_NAMES.items()}


def status_name(code):
    return STATUS_NAMES.get(code, f"Status{code}")


class _StatusReport:
    """The status, its name and the export that returned it, shared by both kinds."""

    def __init__(self, status, export=None):
        self.status = int(status)
        self.name = status_name(self.status)
        self.export = export
        where = f"{export}: " if export else ""
        super().__init__(f"{where}{self.name} ({self.status})")


class QuarzError(_StatusReport, Exception):
    """A negative status from an export."""


class QuarzWarning(_StatusReport, UserWarning):
    """A positive status: the results are valid, but the input was degenerate."""
