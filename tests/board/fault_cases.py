"""What a board may have to bear: a disk without room, or one that fails, no memory, a clock that nobody
believes, a week."""

from bench import NAME, Case, another, answers, equal, expect, pid, until, zondar
from machine import Machine


def sound(board: Machine) -> None:
    """Both databases, and what a master reads and writes."""
    for name in ("config_local", "temp_local"):
        equal(board.run(f"sqlite3 -readonly /quelt/db/{name}.sqlite 'PRAGMA integrity_check'"), "ok\n")
    zondar(board, "set", NAME, "Otra vez")
    equal(zondar(board, "get", NAME).split(None, 1)[1].strip(), "Otra vez")


def fill(board: Machine, folder: str) -> None:
    """To the last block, of which a file that is being written has some more than it needs yet."""
    board.run(f"cd {folder}; dd if=/dev/zero of=fill bs=64k; sync; dd if=/dev/zero of=fill2 bs=1k; sync",
              check=False)  # fmt: skip
    status, _ = board.attempt(f"cd {folder}; sleep 1; dd if=/dev/zero of=more bs=4k count=1")
    expect(status != 0, "is not full")


def a_full_disk(board: Machine) -> None:
    before = pid(board)
    zondar(board, "set", NAME, "Antes")
    fill(board, "/quelt")
    refused = board.tool("set", NAME, "Despues")
    expect(refused.returncode != 0, "is stored")
    equal(zondar(board, "get", NAME).split(), [NAME, "Antes"])
    board.run("cd /quelt; rm fill fill2 more")
    sound(board)
    equal(pid(board), before)


def a_full_system(board: Machine) -> None:
    """Where the logs are, too; the daemon starts all the same."""
    fill(board, "/")
    before = pid(board)
    board.tool("--timeout", "2", "raw", "9")
    board.run(f"kill -9 {before}")
    another(board, before)
    answers(board)
    sound(board)
    board.run("cd /; rm fill fill2 more")


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
    before = pid(board)
    becomes(board, FAILS)
    expect(board.tool("set", NAME, "Despues").returncode != 0, "is stored")
    expect("Despues" not in board.tool("get", NAME).stdout, "is read")
    for words in (("config",), ("status",)):
        board.tool(*words)
    equal(pid(board), before)
    is_mended(board)


def writes_are_lost(board: Machine) -> None:
    """Behind the back of all: what was read back is the memory's."""
    with_a_failing_disk(board)
    becomes(board, FAILS, "drop_writes")
    zondar(board, "set", NAME, "Perdido")
    is_mended(board)


def no_memory(board: Machine) -> None:
    """Who takes it is ended for it, the daemon is not."""
    zondar(board, "set", NAME, "Antes")
    before = pid(board)
    board.run("for _ in 1 2; do (exec tail -c 150000000 /dev/zero > /dev/null 2>&1 < /dev/null &); done")
    killed = until(lambda: board.run("dmesg | grep 'Out of memory: Killed process'", check=False),
                   "nobody is ended", 120)  # fmt: skip
    expect("(tail)" in killed, killed)
    answers(board)
    equal(zondar(board, "get", NAME).split(), [NAME, "Antes"])
    sound(board)
    board.run("kill -9 $(pidof tail)", check=False)
    equal(pid(board), before)


END_OF_TIME_32 = 1 << 31  # the first second that four bytes cannot count


def passes_2038(board: Machine) -> None:
    """The daemon's time has eight bytes, that of the board's SQLite has four: it opens no file that was
    changed later, until somebody touches that at another time."""
    before = pid(board)
    board.run("date -s '2038-01-19 03:14:00'")
    # Those who print the date have four bytes, too.
    now = ("awk '/btime/ { started = $2 } NF == 2 && $1 ~ /[.]/ { up = $1 } END { print int(started + up) }'"
           " /proc/stat /proc/uptime")  # fmt: skip

    def passed() -> bool:
        zondar(board, "status")
        zondar(board, "set", NAME, "Futuro")
        return int(board.run(now)) >= END_OF_TIME_32 + 16

    until(passed, "the clock stands", 120)
    zondar(board, "config")
    zondar(board, "--yes", "date", "23.11.2026")
    equal(board.run("date +%F"), "2026-11-23\n")
    zondar(board, "--yes", "date", "01.02.2040")
    expect(int(board.run(now)) > END_OF_TIME_32, "the date is not set")
    equal(board.tool("set", NAME, "Mas tarde").returncode, 4)
    board.run("date -s '2026-11-23 10:00:00'; touch /quelt/db /quelt/db/*")
    answers(board)
    sound(board)
    equal(pid(board), before)


# A request and its answer from inside: the emulated time runs ahead of everybody outside.
ASK = r"""
ask() { printf "$1" | nc 127.0.0.1 8001 & sleep 1; nc 127.0.0.1 8001 < /dev/null | xxd -p -c 99; wait; }
"""
STATUS = r"\245\0\0\0\0\0\0"
# The sample board's alarms, states and bitrates; `zondarctl decode` tells which.
STATUS_ANSWER = "a5000000001c05020000000001222121220303010085a010b200100000000000000058"
# Descriptors, memory of its own and the touched part of it, in KiB; what `status` says of pages lags by up to 64.
TAKEN = ("cd /proc/$(pidof zondar_net_receiver); ls fd | wc -l;"
         "awk '/^(VmData|Anonymous):/ { print $2 }' status smaps_rollup")
DAY = ASK + r"""
hour=0
while [ $hour -lt 24 ]; do
    sleep 3600
    step=3600
    [ $hour -lt 23 ] || step=86400
    [ $((hour % 2)) = 0 ] || step=-$step
    date -s @$(($(date +%s) + step)) > /dev/null
    ask '{status}'
    hour=$((hour + 1))
done"""


def a_week(board: Machine) -> None:
    """Of the board's own time, in which the clock is put forth and back every hour."""
    board.run("until pidof zondar_net_receiver; do sleep 1; done; sleep 5", timeout=200)
    # Nobody is woken for what changes nothing here.
    board.run("echo 3600 > /proc/sys/vm/stat_interval; echo 0 > /proc/sys/vm/dirty_writeback_centisecs;"
              "echo 0 > /proc/sys/vm/compaction_proactiveness")  # fmt: skip
    board.run(f"{ASK} ask '{STATUS}'")
    before = pid(board)
    taken = []
    for _ in range(7):
        equal(board.run(DAY.replace("{status}", STATUS), timeout=600).split(), 24 * [STATUS_ANSWER])
        taken.append(board.run(TAKEN).split())
    own = [(files, data) for files, data, _ in taken]
    equal(own, 7 * [own[0]])
    # The heap has come to its level on the fourth day, the one it has behind 1000 requests of all kinds.
    touched = [pages for _, _, pages in taken]
    equal(touched[4:], 3 * [touched[4]])
    equal(pid(board), before)
    expect(float(board.run("cut -d ' ' -f 1 /proc/uptime")) > 7 * 86_400, "was started anew")


# Spoils by a device that is never told to fail.
NEVER_FAILS = r"""cd /sbin
mv dmsetup real
printf '#!/bin/sh\n[ $1 = load ] && exec cat > /dev/null\nexec real "$@"\n' > dmsetup
chmod +x dmsetup"""


def _emptied(folder: str) -> str:
    """Spoils by somebody who makes room."""
    return (f"(while sleep 0.2; do rm -f {folder}/fill*; done)"
            " > /dev/null 2>&1 < /dev/null &")  # fmt: skip


def _killed(seconds: int) -> str:
    """Spoils by an end of the daemon at a later time."""
    return (f"(sleep {seconds}; kill -9 $(pidof zondar_net_receiver))"
            " > /dev/null 2>&1 < /dev/null &")  # fmt: skip


FAULT_CASES = (
    Case("faults: a full disk", "busybox", a_full_disk, _emptied("/quelt")),
    Case("faults: a full root", "busybox", a_full_system, _emptied("")),
    Case("faults: a disk that takes no writes", "systemd", lambda board: writes_fail(board, "continue"),
         NEVER_FAILS),
    Case("faults: a disk that takes no writes, errors=remount-ro", "systemd",
         lambda board: writes_fail(board, "remount-ro"), NEVER_FAILS),
    Case("faults: a disk that fails", "systemd", everything_fails, NEVER_FAILS),
    Case("faults: a disk that loses writes", "systemd", writes_are_lost, NEVER_FAILS),
    Case("faults: no memory", "busybox", no_memory,
         "echo 1000 > /proc/$(pidof zondar_net_receiver)/oom_score_adj"),
    Case("faults: a clock behind 2038", "busybox", passes_2038, _killed(5)),
    Case("faults: a week", "busybox", a_week, _killed(100_000),
         {"icount": True, "words": "psi=0 nowatchdog"}),
)  # fmt: skip
