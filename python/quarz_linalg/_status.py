"""Status codes by name, from the kind table the build generates beside the library."""
from ._library import KIND_TABLE

STATUS_CODES = dict(KIND_TABLE["status"])
STATUS_NAMES = {code: name for name, code in STATUS_CODES.items()}


def status_name(code):
    return STATUS_NAMES.get(code, f"Status{code}")


class _StatusReport:
    """The status, its name and the export that returned it, shared by both kinds."""

    def __init__(self, status, export=None, index=None):
        self.status = int(status)
        self.name = status_name(self.status)
        self.export = export
        # In a stack: the matrix's index (an error), or the list of those that warned.
        self.index = index
        where = f"{export}: " if export else ""
        at = "" if index is None else f" at matrix {index}"
        super().__init__(f"{where}{self.name} ({self.status}){at}")


class QuarzError(_StatusReport, Exception):
    """A negative status from an export."""


class QuarzWarning(_StatusReport, UserWarning):
    """A positive status: the results are valid, but the input was degenerate."""
