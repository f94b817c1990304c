"""What a board may have to bear: no room on a disk."""

from bench import Case, equal, expect, zondar
from machine import Machine
from small_cases import NAME, another, answers, pid


def sound(board: Machine) -> None:
    """Both databases, and what a master reads and writes."""
    for name in ("config_local", "temp_local"):
        equal(board.run(f"sqlite3 -readonly /quelt/db/{name}.sqlite 'PRAGMA integrity_check'"), "ok\n")
    zondar(board, "set", NAME, "Otra vez")
    equal(zondar(board, "get", NAME).split(None, 1)[1].strip(), "Otra vez")


def a_full_disk(board: Machine) -> None:
    before = pid(board)
    zondar(board, "set", NAME, "Antes")
    board.run("dd if=/dev/zero of=/quelt/fill bs=4k; sync; for i in 1 2 3 4 5 6 7 8; do echo x >> /quelt/more; done",
              check=False)  # fmt: skip
    refused = board.tool("set", NAME, "Despues")
    expect(refused.returncode != 0, "is stored")
    equal(zondar(board, "get", NAME).split(), [NAME, "Antes"])
    board.run("rm /quelt/fill /quelt/more")
    sound(board)
    equal(pid(board), before)


def a_full_system(board: Machine) -> None:
    """Where the logs are, too; the daemon starts all the same."""
    board.run("dd if=/dev/zero of=/fill bs=64k; dd if=/dev/zero of=/fill2 bs=1k; sync", check=False)
    before = pid(board)
    board.tool("--timeout", "2", "raw", "9")
    board.run(f"kill -9 {before}")
    another(board, before)
    answers(board)
    sound(board)
    board.run("rm /fill /fill2")


FAULT_CASES = (
    Case("faults: a full disk", "busybox", a_full_disk),
    Case("faults: a full root", "busybox", a_full_system),
)
