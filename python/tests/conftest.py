import sys
from pathlib import Path

import numpy as np
import pytest

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
sys.path.insert(0, str(Path(__file__).resolve().parent))

import quarz_linalg as ql  # noqa: E402


def pytest_report_header(config):
    return [f"libquarz_linalg: {ql.LIB_PATH}", f"libkort: {ql.KORT_PATH}",
            f"kind table: {ql.KIND_TABLE_PATH}",
            f"calls through: {ql.BRIDGE_PATH or 'ctypes'}",
            f"exports in the table but not in the library: {ql.MISSING or 'none'}"]


@pytest.fixture
def rng(request):
    # A fixed seed per test: a failure reproduces exactly.
    return np.random.default_rng(sum(map(ord, request.node.nodeid)))


@pytest.fixture(autouse=True)
def no_host_leak():
    """Every test leaves the host runtime's live handles and bytes where they were."""
    ql.fail_resize_at(0)
    before = ql.live_handles(), ql.live_bytes()
    yield
    ql.fail_resize_at(0)
    assert (ql.live_handles(), ql.live_bytes()) == before, "host handles or bytes left behind"
