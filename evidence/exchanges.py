"""The exchanges that are carried out under faults, and what is to be said of them afterwards."""

import contextlib
import dataclasses
import pathlib
import re
import shutil
import signal
import sqlite3
from collections.abc import Callable, Iterable
from typing import Any

import lab
from mix import MAC, REGISTRATION


@dataclasses.dataclass(frozen=True)
class Exchange:
    command: int
    info: bytes = b""
    clock: tuple[int, int] = (0, 0)  # where the answer tells the time
    part: tuple[int, bytes] | None = None  # a request that does the first part of this one alone


def text(sub_command: int, value: str) -> bytes:
    return bytes([sub_command]) + value.encode() + b"\0"


EXCHANGES = {
    "status": Exchange(0),
    "block-1": Exchange(1, b"\x01"),
    "block-2": Exchange(1, b"\x02", clock=(168, 183)),
    "number": Exchange(3, bytes([63, 60])),
    "text": Exchange(3, text(31, "Canal Sur")),
    "country": Exchange(3, text(71, "Australia")),
    # Looking the slave up makes its row.
    "slave": Exchange(3, bytes([110]) + REGISTRATION, part=(3, bytes([105]) + MAC + b"\0")),
}
START = "start"  # no exchange: the daemon's start, up to its first accept

# ------------------------------------------------------------------------------- the databases

PRISTINE = pathlib.Path("/tmp/pristine")
DATABASES = (lab.CONFIGURATION, lab.STATE)


def prepare_world() -> None:
    """Keeps the databases, and shortens the pause of a board's network in the daemon's start. Without
    any, one start in thousands misses its signal on a busy machine, and ends."""
    pathlib.Path("/quelt/script/g_ether_reload.sh").write_text("#!/bin/sh\nsleep 0.05\n")
    PRISTINE.mkdir()
    for path in DATABASES:
        shutil.copy(path, PRISTINE)


def restore_databases() -> None:
    """In such a way that a running daemon finds all pages changed: so each exchange makes the same
    calls."""
    for path in DATABASES:
        with contextlib.closing(sqlite3.connect(PRISTINE / path.name)) as source:
            with contextlib.closing(sqlite3.connect(path, timeout=30)) as target:
                source.backup(target)


def one_row(cells: dict[str, Any]) -> dict[str, Any]:
    """The slaves' rows are one, the first. A commit whose unlocking fails counts as failed, so it is
    made again, and a slave that could not be looked up is a new one: it may have several."""
    return {re.sub(r"^(EsclavosModulo) \d+ ", r"\1 1 ", name): value
            for name, value in sorted(cells.items(), reverse=True)
            if not name.endswith(" IdEsclavosModulo")}  # fmt: skip


# ---------------------------------------------------------------------------------- the daemon


def start(
    prepare: Callable[[], None] = lambda: None, options: Iterable[str] = ()
) -> lab.Daemon | None:
    """A daemon that has answered a status and goes to accept for the next request."""
    lab.new_network()
    daemon = lab.Daemon(options, prepare=prepare)
    if daemon.serves() and answers_status() is None:
        lab.end_of_empty_connection()
        return daemon
    daemon.stop(signal.SIGKILL)
    return None


def answers_status() -> str | None:
    """What is wrong when it does not."""
    try:
        lab.ask(0)
        return None
    except (OSError, ValueError) as problem:
        return f"afterwards: {problem}"


def exchange(command: int, info: bytes, patience: float = lab.PATIENCE) -> bytes:
    """The answer, empty when there is none."""
    try:
        lab.send(lab.frame(command, info))
        return lab.end_of_empty_connection(patience)
    except OSError:
        return b""


def comparable(name: str, answer: bytes) -> bytes:
    info = bytearray(lab.info_of(answer, EXCHANGES[name].command))
    clock = slice(*EXCHANGES[name].clock)
    info[clock] = bytes(len(info[clock]))
    return bytes(info)


# ---------------------------------------------------------------------------------- the verdict


@dataclasses.dataclass
class Reference:
    """An exchange without a fault."""

    name: str
    answer: bytes = b""
    cells: dict[str, list[Any]] = dataclasses.field(default_factory=dict)
    """Each cell it writes: its values on the way, the last one last."""

    def judge_answer(self, answer: bytes) -> str:
        """ "right", "fields missing", of an earlier request ("stale"), "none" or "garbled"."""
        if not answer:
            return "none"
        try:
            info = comparable(self.name, answer)
        except ValueError:
            return "stale" if len(answer) > 6 and sum(answer[1:]) & 0xFF == 0 else "garbled"
        if info == self.answer:
            return "right"
        return "fields missing" if len(info) == len(self.answer) else "garbled"

    def judge_cells(self, before: dict[str, Any]) -> tuple[str, list[str]]:
        """ "old", "new" or "some new", and what is neither."""
        changed = one_row(lab.changes(before, lab.contents()))
        problems = [f"{cell}: {old!r} became {new!r}" for cell, (old, new) in changed.items()
                    if new not in self.cells.get(cell, [])]  # fmt: skip
        done = all(cell in changed and changed[cell][1] == values[-1]
                   for cell, values in self.cells.items())  # fmt: skip
        return "old" if not changed else "new" if done else "some new", problems


def reference(
    name: str,
    watch: Callable[[lab.Daemon], contextlib.AbstractContextManager[Any]] = contextlib.nullcontext,
) -> Reference:
    """Carries the exchange out, within what `watch` gives, in a prepared world."""
    spec = EXCHANGES[name]
    before = lab.contents()
    daemon = start()
    assert daemon is not None
    parts = []
    for command, info in filter(None, (spec.part, (spec.command, spec.info))):
        restore_databases()
        with watch(daemon):
            answer = exchange(command, info)
        parts.append(one_row(lab.changes(before, lab.contents())))
    daemon.stop()
    cells = {cell: [part[cell][1] for part in parts if cell in part] for cell in parts[-1]}
    return Reference(name, comparable(name, answer), cells)
