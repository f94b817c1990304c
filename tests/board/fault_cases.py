"""What a board may have to bear: a disk without room, or one that fails."""

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


# The board's disk behind a device that can be told to fail.
FAILING = """set -e
systemctl stop zondar-net-receiver
device=$(findmnt -no SOURCE /quelt)
umount /quelt
modprobe dm-flakey
echo "0 $(blockdev --getsz $device) flakey $device 0 1 0" | dmsetup create quelt
mount -o noatime,errors={errors} /dev/dm-0 /quelt
systemctl start zondar-net-receiver"""

FAILS, RECOVERS = "0 1", "1 0"

# As docs/operation.md has it.
MENDED = """set -e
systemctl stop zondar-net-receiver
umount /quelt
e2fsck -p /dev/dm-0 || [ $? = 1 ]
mount -o noatime /dev/dm-0 /quelt
systemctl start zondar-net-receiver"""


def becomes(board: Machine, times: str, fault: str = "") -> None:
    words = f"1 {fault}" if fault else ""
    board.run(f"""set -e -- $(dmsetup table quelt)
        echo "0 $2 flakey $4 0 {times} {words}" | dmsetup load quelt
        dmsetup suspend --nolockfs --noflush quelt
        dmsetup resume quelt
        echo 3 > /proc/sys/vm/drop_caches""")


def with_a_failing_disk(board: Machine, errors: str = "continue") -> None:
    board.run(FAILING.format(errors=errors))
    answers(board)
    zondar(board, "set", NAME, "Antes")
    board.run("sync")


def is_mended(board: Machine, value: str = "Antes") -> None:
    becomes(board, RECOVERS)
    board.run(MENDED)
    answers(board)
    equal(zondar(board, "get", NAME).split(), [NAME, value])
    sound(board)


def writes_fail(board: Machine, errors: str) -> None:
    with_a_failing_disk(board, errors)
    before = pid(board)
    becomes(board, FAILS, "error_writes")
    refused = board.tool("set", NAME, "Despues")
    expect(refused.returncode != 0, "is stored")
    equal(zondar(board, "get", NAME).split(), [NAME, "Antes"])
    becomes(board, RECOVERS)
    refused = board.tool("set", NAME, "Despues")
    expect(refused.returncode != 0, "the file system takes writes again of its own")
    equal(zondar(board, "get", NAME).split(), [NAME, "Antes"])
    equal(pid(board), before)
    is_mended(board)


def everything_fails(board: Machine) -> None:
    with_a_failing_disk(board)
    becomes(board, FAILS)
    for words in (("get", NAME), ("set", NAME, "Despues"), ("config",), ("status",)):
        board.tool(*words)
    is_mended(board)


def writes_are_lost(board: Machine) -> None:
    """Behind the back of all: what was read back is the memory's."""
    with_a_failing_disk(board)
    becomes(board, FAILS, "drop_writes")
    zondar(board, "set", NAME, "Perdido")
    is_mended(board)


FAULT_CASES = (
    Case("faults: a full disk", "busybox", a_full_disk),
    Case("faults: a full root", "busybox", a_full_system),
    Case("faults: a disk that takes no writes", "systemd", lambda board: writes_fail(board, "continue")),
    Case("faults: a disk that takes no writes, errors=remount-ro", "systemd",
         lambda board: writes_fail(board, "remount-ro")),
    Case("faults: a disk that fails", "systemd", everything_fails),
    Case("faults: a disk that loses writes", "systemd", writes_are_lost),
)  # fmt: skip
