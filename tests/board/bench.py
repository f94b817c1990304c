"""The test bench of tests/board: tables of cases, each on a whole emulated board of its own, which goes on
from a saved state or is switched on for it."""

import concurrent.futures
import os
import pathlib
import sys
import time
import traceback
from collections.abc import Callable, Sequence
from dataclasses import dataclass
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
    switched_on: dict[str, Any] | None = None


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


def board_for(case: Case) -> Machine:
    if case.switched_on is None:
        return Machine(state=saved_state(case.userland))
    return Machine(case.userland, **case.switched_on)


def noticed(case: Case, board: Machine) -> str:
    """By what the case notices that its board is spoiled."""
    board.run(case.spoil, timeout=200)
    try:
        case.play(board)
    except Failed as problem:
        return f"        {problem}"
    raise Failed("is not noticed")


def result(case: Case, spoiled: bool) -> tuple[bool, str]:
    """Whether it is as it should be, and what there is to tell."""
    try:
        with board_for(case) as board:
            if spoiled:
                return True, noticed(case, board)
            case.play(board)
    except Exception:  # noqa: BLE001  whatever it is, the next case is played
        return False, traceback.format_exc()
    return True, ""


def play(cases: Sequence[Case], spoiled: bool) -> int:
    """How many failed; of spoiled ones, how many did not notice."""
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(WORKERS, initializer=own_network) as workers:

        def timed(case: Case) -> tuple[bool, str, float]:
            began = time.monotonic()
            return *result(case, spoiled), time.monotonic() - began

        for case, (good, told, seconds) in zip(cases, workers.map(timed, cases)):
            failed += not good
            word = "FAILED" if not good else "noticed" if spoiled else "passed"
            print(f"{word}  {case.name} ({seconds:.0f} s)", *filter(None, (told,)), sep="\n", flush=True)
    return failed


def zondar(board: Machine, *words: str) -> str:
    """What `zondarctl` prints of this board; it must succeed."""
    done = board.tool(*words)
    expect(done.returncode == 0, f"zondarctl {words}: {done.returncode}: {done.stderr}")
    return done.stdout


NAME = "ServiciosSalida.0.Nombre"  # what cases write


def answers(board: Machine, seconds: float = 120) -> None:
    until(board.answers, "does not answer", seconds)


def pid(board: Machine) -> str:
    return board.run("pidof zondar_net_receiver", check=False).strip()


def another(board: Machine, before: str) -> str:
    """The number of the daemon that is started behind one."""
    return until(lambda: (now := pid(board)) not in ("", before) and now, "is not started again")


def idle(program: str) -> str:
    """Spoils by a program that does nothing."""
    return f"printf '#!/bin/sh\\n' > {program}"


# What the tool and Python print of times is the board's, which has no zone.
os.environ["TZ"] = "UTC"
