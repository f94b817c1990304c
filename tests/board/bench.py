"""The test bench of tests/board: tables of cases, each on a whole emulated board of its own, which goes on
from a saved state or is switched on for it."""

import concurrent.futures
import os
import pathlib
import sys
import time
import traceback
from collections.abc import Callable, Sequence
from dataclasses import dataclass, field
from typing import Any

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "board/emulation"))
from machine import Failed, Machine, own_network, saved_state  # noqa: E402

WORKERS = 2


@dataclass(frozen=True)
class Case:
    """`spoil`: a shell command that takes away on the board what the case is about, so that it must
    fail. `switched_on`: the board is switched on for it, with these options of Machine; otherwise it
    goes on from the saved state of its userland."""

    name: str
    userland: str
    play: Callable[[Machine], None]
    spoil: str
    switched_on: dict[str, Any] | None = field(default=None, hash=False)


def expect(condition: bool, problem: object) -> None:
    if not condition:
        raise Failed(problem)


def equal(found: Any, expected: Any) -> None:
    expect(found == expected, f"{found!r} instead of {expected!r}")


def until(what: Callable[[], Any], problem: str, seconds: float = 60) -> Any:
    """What `what` returns as soon as that is something."""
    end = time.monotonic() + seconds
    while not (found := what()):
        expect(time.monotonic() < end, problem)
        time.sleep(0.2)
    return found


def one(case: Case, spoiled: bool) -> str:
    """What is wrong, or nothing."""
    board = None
    try:
        if case.switched_on is None:
            board = Machine(state=saved_state(case.userland))
        else:
            board = Machine(case.userland, **case.switched_on)
        with board:
            if spoiled:
                status, output = board.attempt(case.spoil, 200)
                if status != 0:
                    sys.exit(f"{case.name}: cannot be spoiled: {output}")
            case.play(board)
    except Exception:  # noqa: BLE001  whatever it is, the next case is played
        return traceback.format_exc()
    return ""


def play(cases: Sequence[Case], spoiled: bool) -> int:
    """How many failed; of spoiled ones, how many passed."""
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(WORKERS, initializer=own_network) as workers:

        def timed(case: Case) -> tuple[str, float]:
            began = time.monotonic()
            return one(case, spoiled), time.monotonic() - began

        for case, (problem, seconds) in zip(cases, workers.map(timed, cases)):
            failed += bool(problem) != spoiled
            print(f"{'FAILED' if problem else 'passed'}  {case.name} ({seconds:.0f} s)", flush=True)
            if problem:
                print(problem.splitlines()[-1] if spoiled else problem, flush=True)
    return failed


def zondar(board: Machine, *words: str) -> str:
    """What `zondarctl` prints of this board; it must succeed."""
    done = board.tool(*words)
    expect(done.returncode == 0, f"zondarctl {words}: {done.returncode}: {done.stderr}")
    return done.stdout


os.environ["TZ"] = "UTC"
