"""The board with systemd and the packages as they are installed."""

import pathlib
import socket
import subprocess
import tempfile
import time

from bench import ROOT, Case, answers, equal, expect, idle, until, zondar
from machine import HERE, Machine

UNIT = "zondar-net-receiver"
DROP_INS = f"/etc/systemd/system/{UNIT}.service.d"
EXAMPLES = f"/usr/share/doc/{UNIT}/examples"
NETWORK_SCRIPT = "/quelt/script/set_interfaces_db.sh"
# The most that a daemon lives whom nobody asks, a start on a slow board included.
SILENT = 40
START_SCRIPT = "/quelt/script/g_ether_reload.sh"
TIME, DATE, GATEWAY, REGISTER = "48", "49", "46", "6E"

# --------------------------------------------------------------------------------------- the board


def write(board: Machine, subcommand: str, text: str) -> str:
    """A sub-command with a text, by the tool, and what came over the wire."""
    info = [f"{byte:02X}" for byte in text.encode()]
    done = board.tool("--yes", "-v", "raw", "3", subcommand, *info)
    equal(done.returncode, 0)
    return done.stderr


def restart(board: Machine) -> None:
    board.run(f"systemctl restart {UNIT}")
    answers(board)


def drop_in(board: Machine, *lines: str) -> None:
    board.put(f"{DROP_INS}/test.conf", "\n".join(("[Service]", *lines, "")).encode())
    board.run("systemctl daemon-reload")


def strict(board: Machine) -> None:
    """As the profile's head says."""
    board.run(f"""
        echo 'u zondar - "Remote-control endpoint"' | systemd-sysusers -
        chgrp -R zondar /quelt/db && chmod -R g+rwX /quelt/db && chmod g+s /quelt/db
        install -D -m 644 /usr/share/{UNIT}/strict.conf {DROP_INS}/strict.conf
        systemctl daemon-reload""")
    restart(board)
    equal(board.run("ps -o user= -C zondar_net_receiver"), "zondar\n")


def log_all(board: Machine) -> None:
    board.run(f"""echo 'OPTIONS="-s 5 -l 112"' >> /etc/default/{UNIT}""")


def journal(board: Machine) -> str:
    return board.run(f"journalctl -o cat -u {UNIT}")


def shows(board: Machine, what: str) -> str:
    return board.run(f"systemctl show -P {what} {UNIT}").strip()


def ended(board: Machine, seconds: float = 60) -> float:
    """The seconds that the daemon has lived when it ends next of its own, and not by a signal."""
    until(lambda: shows(board, "SubState") == "auto-restart", "it did not end", seconds)
    # At once, since it is started again soon.
    names = ("Code", "Status", "StartTimestampMonotonic", "ExitTimestampMonotonic")
    shown = dict(line.split("=") for line in board.run(
        f"systemctl show {' '.join('-p ExecMain' + name for name in names)} {UNIT}").splitlines())  # fmt: skip
    code, status, start, end = (int(shown[f"ExecMain{name}"]) for name in names)
    equal((code, status), (1, 1))
    return (end - start) / 1e6


def lasts(seconds: float, least: float, most: float) -> None:
    expect(least <= seconds <= most, f"{seconds:.1f} s")


def jump(board: Machine, seconds: int) -> None:
    board.run(f"date -s @$(($(date +%s) + {seconds}))")


def index_of_usb0(board: Machine) -> int:
    return int(board.run("cat /sys/class/net/usb0/ifindex"))


# ------------------------------------------------------------------------------------- the clock


def clock_cases(board: Machine) -> None:
    board.run("date -s '2026-03-04 05:06:37'")
    write(board, TIME, "10.20")
    equal(board.run("date '+%F %H:%M'"), "2026-03-04 10:20\n")
    expect(int(board.run("date +%S")) < 30, "the seconds are kept")
    board.run("date -s '2026-03-04 05:06:30'")
    write(board, DATE, "29.12.2027")
    equal(board.run("date '+%F %H:%M'"), "2027-12-29 05:06\n")
    expect(int(board.run("date +%S")) >= 30, "the seconds are gone")
    write(board, TIME, "25.99")
    equal(board.run("date '+%F %H:%M'"), "2027-12-30 02:39\n")


def strict_sets_the_clock(board: Machine) -> None:
    strict(board)
    clock_cases(board)


def is_told_local_time(board: Machine) -> None:
    board.run("ln -sf /usr/share/zoneinfo/Europe/Madrid /etc/localtime")
    restart(board)
    board.run("date -u -s '2026-01-10 10:00:00'")
    write(board, TIME, "12.34")
    equal(board.run("date -u '+%F %H:%M'"), "2026-01-10 11:34\n")
    write(board, DATE, "10.07.2026")  # an hour of summer time more
    equal(board.run("date -u '+%F %H:%M'"), "2026-07-10 10:34\n")


def tells_that_it_may_not(board: Machine) -> None:
    log_all(board)
    drop_in(board, "CapabilityBoundingSet=~CAP_SYS_TIME")
    restart(board)
    board.run("date -s '2026-03-04 05:06:07'")
    write(board, TIME, "10.20")
    write(board, DATE, "29.12.2027")
    equal(board.run("date +%F-%H"), "2026-03-04-05\n")
    lines = journal(board)
    expect("ERROR: Al escribir la nueva hora. root?\n" in lines, lines)
    expect("ERROR: Al escribir la nueva fecha. root? trn\n" in lines, lines)


def lives_through_jumps_of_the_clock(board: Machine) -> None:
    process = shows(board, "MainPID")
    # Beyond 2038 this systemd itself, which counts seconds in four bytes, ends.
    for moment in ("2037-12-31 23:00:00", "1970-01-02 00:00:00", "2026-11-22 12:00:00"):
        board.run(f"date -s '{moment}'")
        equal(zondar(board, "get", "-q", "RFOut.Canal_Salida").strip(), "21")
        zondar(board, "set", f"IPOut.SAP_Time={int(moment[:4]) % 100 + 1}")
    equal(shows(board, "MainPID"), process)


# -------------------------------------------------------------------------------- start and end


def loads_the_network_anew(board: Machine) -> None:
    before = index_of_usb0(board)
    restart(board)
    expect(index_of_usb0(board) > before, "usb0 is the one of before")
    expect("192.168.1.50/24" in board.run("ip -4 address show dev usb0"), "usb0 has no address")


def ends_when_the_network_hangs(board: Machine) -> None:
    board.run(f"mv {START_SCRIPT} /root/reload")
    board.put(START_SCRIPT, b"#!/bin/sh\nexec sleep 1000\n", 0o755)
    board.run(f"systemctl restart {UNIT}")
    lasts(ended(board), 10, 13)
    board.run(f"mv /root/reload {START_SCRIPT}")
    answers(board)
    # What hung has ended with it.
    equal(board.run("pgrep -cx sleep || true"), "0\n")


def jumps_of_the_clock_at_the_start(board: Machine) -> None:
    """The start is measured by the clock that jumps, the silence behind it is not."""
    board.run(f"mv {START_SCRIPT} /root/reload")
    board.put(START_SCRIPT, b"#!/bin/sh\nsleep 8\n", 0o755)
    board.run(f"systemctl restart {UNIT}; sleep 1")
    jump(board, 3600)
    lasts(ended(board), 0.5, 7)
    board.run(f"mv /root/reload {START_SCRIPT}")
    until(lambda: "8001" in board.run("ss -Hltn sport = :8001"), "it does not start")
    for seconds in (3600, -3600):
        board.run("sleep 4")
        jump(board, seconds)
    lasts(ended(board), 30, SILENT)


def is_started_again_when_nobody_asks(board: Machine) -> None:
    board.run(f"systemctl restart {UNIT}")
    lasts(ended(board), 30, SILENT)
    told = lambda: journal(board).count("No message received from client, restarting server")  # noqa: E731
    until(lambda: told() == 2, "it did not end for silence again", 90)
    answers(board)
    process = shows(board, "MainPID")
    board.run("sleep 36")
    equal(shows(board, "MainPID"), process)
    answers(board)


def port_is_free_behind_a_minute(board: Machine) -> None:
    # A master that closes in order leaves the daemon's end waiting.
    for _ in range(3):
        with socket.create_connection(("127.0.0.1", board.port), 15) as request:
            request.sendall(bytes.fromhex("A50400000000FC"))
            request.shutdown(socket.SHUT_WR)
            with socket.create_connection(("127.0.0.1", board.port), 15) as peer:
                while peer.recv(4096):
                    pass
    left = board.run("ss -Htan state time-wait sport = :8001")
    expect(left.strip() != "", "nobody waits")
    board.run(f"systemctl restart {UNIT}")
    answers(board)
    lines = journal(board)
    expect(lines.count("bind error") >= 3, "the port was free at once")
    expect("code=exited, status=255" in lines, "it ended otherwise")


def shutdown_ends_it_in_order(board: Machine) -> None:
    board.run(f"""mkdir -p /var/log/journal && systemctl restart systemd-journald
        echo 'OPTIONS="-l 32"' >> /etc/default/{UNIT}""")
    restart(board)
    zondar(board, "set", "IPOut.SAP_Time=33")
    board.run("systemctl reboot --no-block")
    until(lambda: "reboot: Restarting system" in board.console(), "it did not go down", 120)
    began = time.monotonic()
    answers(board)
    print(f"        from the reboot to the first answer: {time.monotonic() - began:.1f} s")
    equal(zondar(board, "get", "-q", "IPOut.SAP_Time").strip(), "33")
    lines = board.run("journalctl -b -1 -o cat")
    expect("Exiting due to signal Terminated." in lines, lines[-2000:])
    expect("Se cierra quelt_listener por recepcion señal LINUX" in lines, lines[-2000:])


def comes_back_behind_a_power_cut(board: Machine) -> None:
    # A file system that writes seldom keeps what the daemon itself has brought to the disk, and no more.
    board.run("mount -o remount,commit=100 /quelt && sync")
    zondar(board, "set", "IPOut.SAP_Time=44")
    equal(zondar(board, "get", "-q", "IPOut.SAP_Time").strip(), "44")
    board.cut()
    board.start()
    seconds = board.wait_for_answer()
    print(f"        from power-on to the first answer: {seconds:.1f} s")
    equal(zondar(board, "get", "-q", "IPOut.SAP_Time").strip(), "44")


def pid_file_over_a_reboot(board: Machine) -> None:
    daemon = ("zondar_net_receiver -d -p /var/lib/z.pid"
              " /quelt/db/config_local.sqlite /quelt/db/temp_local.sqlite")  # fmt: skip
    board.run(f"systemctl disable --now {UNIT}")
    # Behind a master's questions the port is taken for a minute.
    board.run("while ss -Htan state time-wait sport = :8001 | grep -q .; do sleep 1; done", timeout=90)
    board.run(f"cd /var/log; setsid {daemon}")
    answers(board)
    first = board.run("cat /var/lib/z.pid")
    equal(board.run(f"cd /proc/{first.strip()}; readlink fd/0 fd/1 fd/2 cwd"),
          "/dev/null\n/dev/null\n/dev/null\n/var/log\n")  # fmt: skip
    expect(board.attempt(f"setsid {daemon}; sleep 1; cat /var/lib/z.pid")[1] == first,
           "a second one took the file")  # fmt: skip
    board.run("sync")
    board.cut()
    board.start()
    board.run("true", timeout=150)
    equal(board.run("cat /var/lib/z.pid"), first)
    # Another process has the number by now: it takes that for itself.
    board.run("echo 1 > /var/lib/z.pid")
    board.run(f"setsid {daemon}; sleep 1")
    equal(board.run("pgrep -cx zondar_net_rece || true"), "0\n")
    expect("Program already running, exiting..." in board.run("journalctl -b -o cat"), "not told")
    board.run("echo 30000 > /var/lib/z.pid")
    board.run(f"setsid {daemon}")
    answers(board)
    equal(board.run("cat /var/lib/z.pid"), board.run("pgrep -x zondar_net_rece"))


def takes_the_pid_file_of_another_user(board: Machine) -> None:
    """Of a process that it may not signal it does not learn that it runs."""
    board.run("echo 1 > /quelt/db/z.pid")
    strict(board)
    board.run(f"""echo 'OPTIONS="-p /quelt/db/z.pid"' >> /etc/default/{UNIT}
        systemctl restart {UNIT}""")
    until(lambda: board.run("cat /quelt/db/z.pid").strip() == shows(board, "MainPID"),
          "the process is taken for another daemon", 30)  # fmt: skip
    answers(board)
    expect("Program already running" not in journal(board), "it ended once")


# ------------------------------------------------------------------------- scripts and the facts


def resets_the_network(board: Machine) -> None:
    board.run("sqlite3 /quelt/db/config_local.sqlite "
              "\"UPDATE ConfiguracionGen SET Ip_Address = '10.9.8.7', Ip_Mask = '255.255.0.0'\"")
    write(board, GATEWAY, "10.9.0.1\0")
    until(lambda: "10.9.8.7/16" in board.run("ip -4 address show dev usb0"), "the old address")
    equal(board.run("ip -4 -o address show dev usb0 | wc -l"), "1\n")


def resets_to_the_factory(board: Machine) -> None:
    zondar(board, "set", "RFOut.Canal_Salida=30", "ServiciosSalida.0.Nombre=Otro")
    zondar(board, "--yes", "reset-factory")
    equal(zondar(board, "get", "-q", "RFOut.Canal_Salida").strip(), "21")
    both = "sqlite3 /quelt/{}/config_local.sqlite .dump | sha256sum"
    equal(board.run(both.format("db")), board.run(both.format("factory")))


def registration(board: Machine) -> bytes:
    """What a slave is told, without the frame around it."""
    shown = write(board, REGISTER, "00112233445\0" + "\0" * 60 + "\1\2\3")
    answer = shown.split("Rx: ")[1].split("\n")[0]
    return bytes.fromhex(answer)[6:-1]


def facts(mac: bytes, hostname: bytes, serial: bytes, model: bytes, address: bytes, version: bytes,
          failed: int = 0) -> bytes:  # fmt: skip
    """The answer to a registration."""
    return (b"n" + mac + b"\0" + hostname.ljust(18, b"\0") + serial.ljust(13, b"\0")
            + model.ljust(10, b"\0") + address.ljust(16, b"\0") + version + bytes((failed,)))  # fmt: skip


def tells_its_facts(board: Machine) -> None:
    equal(registration(board), facts(b"001a2b3c4d5e", b"cabecera-1", b"ZN2024000123", b"ZND2AV-T",
                                     b"192.168.1.50\n", b"\2\4\1"))  # fmt: skip
    identity = zondar(board, "identify")
    board.run("""hostname otra
        ip link set usb0 down && ip address flush dev usb0
        ip link set eth0 down && ip link set eth0 address 02:1a:2b:3c:4d:5f up
        ip -batch /etc/board-network
        busybox ping -c 1 10.0.2.2
        echo ZN2026000456 > /quelt/conf/quelt_numserie
        echo OTRO > /quelt/conf/quelt_modelo
        sed -i s/2.4.1/3.5.7/ /quelt/script/get_board_versions.sh
        sqlite3 /quelt/db/config_local.sqlite 'UPDATE EsclavosModulo SET IdEsclavosModulo = 5'""")
    # A table with rows, and none for the slave: it cannot be registered.
    equal(registration(board), facts(b"021a2b3c4d5f", b"otra", b"ZN2026000456", b"OTRO", b"",
                                     b"\3\5\7", failed=1))  # fmt: skip
    # What it identifies itself with is of its start.
    equal(zondar(board, "identify"), identity)
    restart(board)
    identity = zondar(board, "identify")
    for fact in ("OTRO", "ZN2026000456", "3.5", "021a2b3c4d5f"):
        expect(fact in identity, identity)


# ------------------------------------------------------------------------------------------- log


def logs_by_rsyslog(board: Machine) -> None:
    board.run(f"""cp {EXAMPLES}/rsyslog/zondar.conf /etc/rsyslog.d/zondar.conf
        systemctl restart rsyslog""")
    log_all(board)
    restart(board)
    read = lambda: board.attempt("cat /var/log/zondar.log")[1]  # noqa: E731
    until(lambda: "ZONDAR_NET_RECEIVER: ready..." in read(), "no line of the start")
    board.run("systemctl stop rsyslog syslog.socket")
    answers(board)
    board.run("systemctl start rsyslog")
    before = read().count("\n")
    answers(board)
    until(lambda: read().count("\n") > before, "no line behind the restart of rsyslog")
    board.run(f"systemctl stop {UNIT}")
    until(lambda: "Exiting due to signal Terminated." in read(), "no line of the end")
    expect("signal" not in board.attempt("cat /var/log/zondar-alarms.log")[1], "an alarm for a stop")


# --------------------------------------------------------------------------------- who is let in


def firewall(board: Machine) -> None:
    board.run(f"nft -f {EXAMPLES}/zondar-masters.nft")
    expect(not board.answers(), "somebody outside of the set is let in")
    board.run(f"nft add element ip zondar masters '{{ {HERE} }}'")
    answers(board)
    board.run(f"nft delete element ip zondar masters '{{ {HERE} }}'")
    expect(not board.answers(), "who was taken out is still let in")
    board.run("nft delete table ip zondar")
    answers(board)


def public_addresses(board: Machine) -> None:
    strict(board)
    board.run("ip address add 203.0.113.5/32 dev lo")
    ask = "zondarctl --host 203.0.113.5 --timeout 6 status"
    expect(board.attempt(ask)[0] != 0, "a public address is let in")
    drop_in(board, "IPAddressAllow=203.0.113.0/24")
    until(lambda: board.attempt(ask)[0] == 0, "it is kept out still")
    answers(board)


def idle_peer_is_freed(board: Machine) -> None:
    board.run(f"echo IDLE_SECONDS=3 >> /etc/default/{UNIT}")
    board.run(f"systemctl start {UNIT}-idle.timer")
    for peer in (1, 2):  # behind the timer's start, and behind its first turn
        with socket.create_connection(("127.0.0.1", board.port), 15):
            freed = f"journalctl -o cat -u {UNIT}-idle.service | grep -c 'freed the endpoint from {HERE}:'"
            until(lambda: int(board.attempt(freed)[1]) >= peer, f"peer {peer} keeps the endpoint", 50)
            answers(board)


# ----------------------------------------------------------------------------------- the profiles

PROBE = rb"""#!/bin/sh
try() { if sh -c "$1" > /dev/null 2>&1; then echo "$2 yes"; else echo "$2 no"; fi; }
call() { try "perl -e 'exit(($1) ? 0 : 1)'" "$2"; }
exec > /quelt/db/probe
try 'modprobe softdog' module
try 'touch /etc/probe' etc
try 'mount -t tmpfs t /mnt' mount
try 'ip link set usb0 mtu 1400' network
try 'test -e /tmp/marker' tmp
try 'test -e /proc/1/status' others
try 'test -e /dev/vda' disk
try 'echo 1 > /proc/sys/kernel/panic' kernel
try 'swapon /swap' swap
# Everybody may do these, were it not for the unit.
try 'touch /var/open/probe' var
try 'touch /run/open/probe' run
try 'test -e /home/marker' home
try 'test -r /dev/kmsg' kmsg
try 'test -e /proc/uptime' uptime
try 'grep " /sys rw" /proc/self/mountinfo' sys
try 'grep " /sys/fs/cgroup rw" /proc/self/mountinfo' cgroups
try 'ls /usr/lib/modules/*' modules
try 'touch /quelt/db/own && chmod u+s /quelt/db/own' setuid
try 'touch /quelt/db/new && test $(stat -c %a /quelt/db/new) = 644' mode
try 'unshare -U true' namespace
try 'setarch linux32 true' personality
try 'chrt -b 0 true' scheduler
try 'grep "NoNewPrivs:.0" /proc/self/status' privileges
call 'syscall(26, 0, 0, 0, 0) == 0' trace
call 'syscall(192, 0, 4096, 6, 0x22, -1, 0) != -1' executable
call 'socket(A, 10, 2, 0)' inet6
call 'socket(A, 16, 3, 0)' netlink
# And root these.
try 'chrt -f 1 true' realtime
call 'socket(A, 44, 3, 0)' xdp
call 'open(A, q(/tmp/marker)) && fcntl(A, 1024, 0)' lease
"""


def may(board: Machine, *what: str) -> None:
    """The board's scripts may do this, and nothing else of what they try."""
    board.run("""mkdir -m 777 /var/open /run/open && touch /home/marker
        touch /tmp/marker && chown nobody /tmp/marker
        dd if=/dev/zero of=/swap bs=1k count=64; mkswap /swap; sync""")
    board.put(NETWORK_SCRIPT, PROBE, 0o755)
    write(board, GATEWAY, "10.9.0.1\0")
    tried = [line.split() for line in board.run("cat /quelt/db/probe").splitlines()]
    equal(len(tried), PROBE.count(b"\ntry ") + PROBE.count(b"\ncall "))
    wrong = {word for word, done in tried if done == "yes"} ^ set(what)
    expect(not wrong, f"otherwise than it should be: {', '.join(sorted(wrong))}")


def base_profile(board: Machine) -> None:
    """The board's scripts keep the board; what none of them needs is gone."""
    may(board, "module", "etc", "mount", "network", "tmp", "others", "disk", "kernel", "var", "run", "home",
        "kmsg", "uptime", "sys", "cgroups", "modules", "setuid", "mode", "scheduler", "executable", "inet6",
        "netlink")  # fmt: skip
    board.run("mountpoint -q /mnt && lsmod | grep -q softdog")


def strict_profile(board: Machine) -> None:
    strict(board)
    may(board, "tmp")


def strict_delegates(board: Machine) -> None:
    strict(board)
    board.run(f"""
        cp {EXAMPLES}/delegate/zondar-delegate@.* /etc/systemd/system
        mkdir -p /quelt/script/real && mv {NETWORK_SCRIPT} /quelt/script/real
        install -m 755 {EXAMPLES}/delegate/delegate {NETWORK_SCRIPT}
        systemctl daemon-reload
        systemctl enable --now zondar-delegate@set_interfaces_db.sh.path
        ip address flush dev usb0""")
    write(board, GATEWAY, "192.168.1.1\0")
    until(lambda: "192.168.1.50/24" in board.run("ip -4 address show dev usb0"), "nobody did it")


# ---------------------------------------------------------------------------------- the packages


def next_version() -> bytes:
    """The package with a higher number."""
    package = next((ROOT / "build/packages/armhf").glob(f"{UNIT}_*_armhf.deb"))
    with tempfile.TemporaryDirectory() as folder:
        new = pathlib.Path(folder) / "new"
        subprocess.run(["dpkg-deb", "-R", package, new], check=True)
        control = new / "DEBIAN/control"
        control.write_text(control.read_text().replace("Version: 1.0-1", "Version: 1.0-2"))
        subprocess.run(["dpkg-deb", "--root-owner-group", "-b", new, f"{folder}/new.deb"],
                       check=True, capture_output=True)  # fmt: skip
        return pathlib.Path(f"{folder}/new.deb").read_bytes()


def packages_come_and_go(board: Machine) -> None:
    board.run(f"echo 'OPTIONS=\"-s 3\"' >> /etc/default/{UNIT}")
    zondar(board, "set", "IPOut.SAP_Time=55")
    before = shows(board, "MainPID")
    board.put("/root/new.deb", next_version())
    board.run("dpkg -i /root/new.deb", timeout=300)
    expect(shows(board, "MainPID") != before, "the old one runs on")
    answers(board)
    equal(zondar(board, "get", "-q", "IPOut.SAP_Time").strip(), "55")
    equal(board.run(f"dpkg-query -W -f '${{Version}}' {UNIT}"), "1.0-2")
    equal(board.run(f"tail -n 1 /etc/default/{UNIT}"), 'OPTIONS="-s 3"\n')
    board.run(f"dpkg -r {UNIT}", timeout=300)
    equal(board.run("pgrep -cx zondar_net_rece || true"), "0\n")
    expect(not board.answers(), "the endpoint is still there")
    board.run(f"dpkg -P {UNIT}", timeout=300)
    expect(board.attempt(f"test -e /etc/default/{UNIT}")[0] != 0, "a file is left")
    equal(board.run("sqlite3 /quelt/db/config_local.sqlite 'SELECT SAP_Time FROM IPOut'"), "55\n")
    board.run("dpkg -i /root/new.deb", timeout=300)
    answers(board)


RESTART = f"systemctl restart {UNIT}; until ss -Hltn sport = :8001 | grep -q .; do sleep 1; done"


def _unit(*lines: str) -> str:
    """Spoils by what the unit says besides."""
    text = "\\n".join(("[Service]", *lines, ""))
    return f"mkdir -p {DROP_INS}; printf '{text}' > {DROP_INS}/zz.conf; systemctl daemon-reload; {RESTART}"


def _case(name: str, play, spoil: str) -> Case:
    return Case(f"systemd: {name}", "systemd", play, spoil)


NO_CLOCK = _unit("CapabilityBoundingSet=~CAP_SYS_TIME")

# fmt: off
SERVICE_CASES = (
    _case("sets the clock", clock_cases, NO_CLOCK),
    _case("sets the clock, strict", strict_sets_the_clock, NO_CLOCK),
    _case("is told local time", is_told_local_time, "rm /usr/share/zoneinfo/Europe/Madrid"),
    _case("tells that it may not set the clock", tells_that_it_may_not,
          _unit("CapabilityBoundingSet=CAP_SYS_TIME")),
    _case("lives through jumps of the clock", lives_through_jumps_of_the_clock, _unit("RuntimeMaxSec=3")),
    _case("loads the network anew", loads_the_network_anew, idle(START_SCRIPT)),
    _case("ends when the network hangs", ends_when_the_network_hangs, _unit("Restart=no")),
    _case("jumps of the clock at the start", jumps_of_the_clock_at_the_start, idle("/usr/bin/date")),
    _case("is started again when nobody asks", is_started_again_when_nobody_asks, _unit("Restart=no")),
    _case("has its port back behind a minute", port_is_free_behind_a_minute, _unit("Restart=no")),
    _case("a shutdown ends it in order", shutdown_ends_it_in_order, _unit("KillSignal=SIGKILL")),
    _case("comes back behind a power cut", comes_back_behind_a_power_cut,
          f"sed -i 's/synchronous=EXTRA/synchronous=FULL /' /usr/sbin/zondar_net_receiver; {RESTART}"),
    _case("pid file over a reboot, daemon mode", pid_file_over_a_reboot,
          "cd /usr/sbin; mv zondar_net_receiver real;"
          " printf '#!/bin/sh\\nshift 3; exec real -d -p \"\" $@\\n' > zondar_net_receiver;"
          " chmod +x zondar_net_receiver"),
    _case("pid file of another user's process, strict", takes_the_pid_file_of_another_user,
          _unit("CapabilityBoundingSet=CAP_KILL", "AmbientCapabilities=CAP_KILL")),
    _case("resets the network", resets_the_network, idle(NETWORK_SCRIPT)),
    _case("resets to the factory", resets_to_the_factory,
          idle("/quelt/script/reset_factory_default.sh")),
    _case("tells its facts", tells_its_facts, idle("/quelt/script/get_slave_ip.sh")),
    _case("logs by rsyslog", logs_by_rsyslog, f"echo > {EXAMPLES}/rsyslog/zondar.conf"),
    _case("firewall", firewall, f"sed -i s/drop/accept/ {EXAMPLES}/zondar-masters.nft"),
    _case("public addresses, strict", public_addresses,
          f"sed -i /^IPAddress/d /usr/share/{UNIT}/strict.conf"),
    _case("idle peer", idle_peer_is_freed,
          f"sed -i /^OnUnitInactiveSec/d $(systemctl show -P FragmentPath {UNIT}-idle.timer);"
          " systemctl daemon-reload"),
    _case("base profile", base_profile,
          _unit("NoNewPrivileges=no", "LockPersonality=no", "RestrictRealtime=no", "RestrictNamespaces=no",
                "RestrictAddressFamilies=", "SystemCallFilter=", "CapabilityBoundingSet=~")),
    _case("strict profile", strict_profile,
          _unit("UMask=0022", "ProtectSystem=no", "ReadOnlyPaths=", "ProtectHome=no", "PrivateDevices=no",
                "ProtectProc=default", "ProcSubset=all", "ProtectControlGroups=no", "ProtectKernelLogs=no",
                "ProtectKernelModules=no", "ProtectKernelTunables=no", "MemoryDenyWriteExecute=no",
                "RestrictSUIDSGID=no", "RestrictNamespaces=no", "LockPersonality=no", "NoNewPrivileges=no",
                "RestrictAddressFamilies=", "SystemCallFilter=")),
    _case("strict profile delegates", strict_delegates, idle(f"{EXAMPLES}/delegate/delegate")),
    _case("packages come and go", packages_come_and_go, idle("/usr/bin/deb-systemd-invoke")),
)
# fmt: on
