"""The unit in its base profile and in the strict one, each directive in its effect."""

import contextlib
import os
import pathlib
import re
from collections.abc import Callable

import lab
from bench import (
    NETWORK_SCRIPT, OPTIONS, REPLAY_ENDED, SCRIPTS, SYSTEMD, UNIT, UNITS, Case, Spoiled, ask_for_network,
    bad_frame, clear, delivered, drop_in, equal, expect, hang, identified, ignores_sigpipe, journal,
    logged, lose_an_accept, main_pid, make_strict, probe, property_of, restarts, run, run_in_service, runs, script,
    serves, start, unit_file, write,
)  # fmt: skip

ERROR = "ENOANO"  # that filtered calls fail with in these tests, since nothing else does
FILTERED = f"SystemCallErrorNumber={ERROR}"
FILTER = "SystemCallFilter=~@cpu-emulation @debug @obsolete @raw-io @swap"
CLOCK = "SystemCallFilter=clock_settime clock_settime64"


DAEMON = "/usr/sbin/zondar_net_receiver -p '' $OPTIONS ${CONFIG_DB} ${STATE_DB}"
GUARDED = f"ExecStart=/usr/libexec/zondar-net-receiver/guard-replay {DAEMON}"
UNGUARDED = f"ExecStart={DAEMON}"


def gone(line: str) -> Spoiled:
    return Spoiled(line)


def added(line: str) -> Spoiled:
    return Spoiled(by=line)


def changed(line: str, by: str) -> Spoiled:
    return Spoiled(line, by)


def base() -> None:
    clear()
    start()


def strict() -> None:
    clear()
    make_strict()
    start()


def stream(number: int) -> str:
    return os.readlink(f"/proc/{main_pid()}/fd/{number}")


# ------------------------------------------------------------------------------ start, end, restart


def starts_and_serves() -> None:
    base()
    identified()
    equal(property_of("ActiveState"), "active")


def takes_its_options() -> None:
    clear()
    pathlib.Path("/quelt/db/temp_local.sqlite").rename("/quelt/db/other.sqlite")
    write(OPTIONS, '# a comment\nOPTIONS="-s 5 -l 112"\nSTATE_DB=/quelt/db/other.sqlite\n')
    start()
    arguments = pathlib.Path(f"/proc/{main_pid()}/cmdline").read_text().split("\0")
    equal(arguments[1:-1], ["-p", "", "-s", "5", "-l", "112",
                            "/quelt/db/config_local.sqlite",
                            "/quelt/db/other.sqlite"])  # fmt: skip


def takes_the_file_as_delivered() -> None:
    clear()
    text = (lab.ROOT / f"packaging/default/{UNIT}").read_text()
    # With every line that is behind a '#' and says what holds without it.
    write(OPTIONS, re.sub(r"^#(?=[A-Z_]+=)", "", text, flags=re.MULTILINE))
    start()
    arguments = pathlib.Path(f"/proc/{main_pid()}/cmdline").read_text().split("\0")
    equal(arguments[1:-1], ["-p", "", "-s", "4", "-l", "0",
                            "/quelt/db/config_local.sqlite",
                            "/quelt/db/temp_local.sqlite"])  # fmt: skip


def writes_no_pid_file() -> None:
    base()
    expect(not pathlib.Path("/tmp/zondar_net_receiver.pid").exists(), "there is a pid file")


def comes_back(how: Callable[[], None], quietly: bool) -> None:
    """After an end, behind a pause; an ordinary end does not make the unit a failed one."""
    base()
    before = main_pid()
    how()
    expect(lab.wait_for(lambda: main_pid() not in (0, before)), "is not started again")
    equal(restarts(), 1)
    times = [int(entry["__MONOTONIC_TIMESTAMP"]) for entry in journal() if re.search(
        "Deactivated|Failed with result|Scheduled restart", entry["MESSAGE"])]  # fmt: skip
    expect(times[1] - times[0] >= 4_990_000, "is started again without a pause")
    serves()
    identified()
    equal(any("Failed with result" in entry["MESSAGE"] for entry in journal()), not quietly)


def kill(name: str) -> Callable[[], None]:
    return lambda: run("systemctl", "kill", "--kill-who=main", f"--signal={name}", UNIT) and None


def ends_unasked() -> None:
    """As it does when no master comes: nobody else does anything here."""
    ended = lab.wait_for(lambda: property_of("ActiveState") == "activating", 60.0)
    expect(ended, "goes on for ever")
    expect(logged("No message received from client, restarting server"), "not for want of a master")


def is_restarted_without_limit() -> None:
    base()
    for _ in range(7):
        run("systemctl", "restart", UNIT)
        serves()


def follows_the_clock() -> None:
    clear()
    with unit_file("clock.service", "[Unit]", "Wants=time-sync.target", "Before=time-sync.target",
                   "[Service]", "Type=oneshot", "RemainAfterExit=yes",
                   "ExecStart=/bin/sleep 1"):  # fmt: skip
        run("systemctl", "start", "clock.service", UNIT)
        serves()
        set_at = property_of("ActiveEnterTimestampMonotonic", "clock.service")
        expect(int(property_of("ExecMainStartTimestampMonotonic")) >= int(set_at), "starts before")
    run("systemctl", "stop", "time-sync.target")


def follows_the_mount() -> None:
    clear()
    with unit_file(
        "slow.service", "[Service]", "Type=oneshot", "ExecStart=/bin/sleep 1"
    ), unit_file(
        "quelt.mount", "[Unit]", "Requires=slow.service", "After=slow.service",
        "[Mount]", "What=/root/board", "Where=/quelt", "Type=none", "Options=bind"
    ):  # fmt: skip
        run("systemctl", "start", "quelt.mount", UNIT)
        serves()
        equal(restarts(), 0)
        mounted = property_of("ActiveEnterTimestampMonotonic", "quelt.mount")
        started = property_of("ExecMainStartTimestampMonotonic")
        run("systemctl", "stop", UNIT)
    expect(int(started) >= int(mounted), "starts before /quelt is mounted")


def stays_away_without_a_board() -> None:
    clear()
    # A mount point in the machine would not go; the condition is the same with any other folder.
    unit = UNITS / f"{UNIT}.service"
    unit.write_text(unit.read_text().replace("IsDirectory=/quelt\n", "IsDirectory=/nowhere\n"))
    run("systemctl", "daemon-reload")
    run("systemctl", "start", UNIT)
    equal((property_of("ActiveState"), property_of("NRestarts")), ("inactive", "0"))


def waits_for_its_databases() -> None:
    clear()
    path = pathlib.Path("/quelt/db/config_local.sqlite")
    path.rename("/quelt/config_local.sqlite")
    run("systemctl", "start", UNIT, check=False)
    expect(lab.wait_for(lambda: restarts() >= 1), "is not started again")
    pathlib.Path("/quelt/config_local.sqlite").rename(path)
    serves()
    identified()


# ----------------------------------------------------------------------------------------- the stop

def hanging() -> int:
    base()
    return hang()


def stop_ends_a_hanging_script() -> None:
    pid = hanging()
    run("systemctl", "stop", UNIT, timeout=60)
    expect(not runs(pid), "the script goes on")
    equal(property_of("ActiveState"), "failed")  # by SIGKILL, which is noted


def its_end_ends_its_scripts() -> None:
    pid = hanging()
    kill("KILL")()
    expect(lab.wait_for(lambda: restarts() >= 1), "is not started again")
    expect(not runs(pid), "the script goes on")


def stop_is_quick() -> None:
    base()
    run("systemctl", "stop", UNIT)
    equal(property_of("Result"), "success")
    expect(logged("Exiting due to signal Terminated."), "was not asked to end")


# ------------------------------------------------------------------------------ streams and the log


def sigpipe_is_ignored() -> None:
    base()
    expect(ignores_sigpipe(main_pid()), "is not ignored")


def prints_to_nobody() -> None:
    base()
    equal((stream(0), stream(1)), ("/dev/null", "/dev/null"))


def errors_are_in_the_journal() -> None:
    base()
    bad_frame()
    expect(logged("[ERROR]", PRIORITY="4"), f"not there: {journal()}")


def errors_bear_its_name() -> None:
    base()
    bad_frame()
    named = logged("[ERROR]", SYSLOG_IDENTIFIER="zondar_net_receiver")
    expect(named, f"not there: {journal()}")


def returns_from_a_replay(before: int) -> None:
    lose_an_accept(before)
    expect(lab.wait_for(lambda: main_pid() not in (0, before)), "is not started again")
    serves()
    identified()


def comes_back_from_a_replay() -> None:
    base()
    identified()
    returns_from_a_replay(main_pid())
    expect(logged(REPLAY_ENDED, PRIORITY="4"), journal())


def comes_back_from_an_unlogged_replay() -> None:
    """In the strict profile, and behind a flood of other errors."""
    strict()
    before = main_pid()
    try:
        script(NETWORK_SCRIPT, "yes flood | head -n 20000 >&2")
        ask_for_network()
        returns_from_a_replay(before)
        expect(not logged("accept error"), "the flood was too small")
    finally:
        run("systemctl", "restart", "systemd-journald")


def has_room_for_descriptors() -> None:
    """Also where the board's services have little."""
    with unit_file("../system.conf.d/room.conf", "[Manager]", "DefaultLimitNOFILE=8:8"):
        base()
        limits = pathlib.Path(f"/proc/{main_pid()}/limits").read_text()
    expect(re.search(r"^Max open files +1024 ", limits, re.MULTILINE) is not None, limits)


def log_keeps_its_priorities() -> None:
    base()
    run("systemctl", "stop", UNIT)
    for text, facility, priority in (
        ("Program started by User 0", "3", "5"),
        ("ZONDAR_NET_RECEIVER: ready...", "3", "6"),
        ("Exiting due to signal Terminated.", "16", "2"),
    ):
        expect(logged(text, SYSLOG_FACILITY=facility, PRIORITY=priority), f"{text}: {journal()}")


def a_flood_is_cut() -> None:
    """The journal takes up to six times the limit where it has much room; no line of another
    priority is lost."""
    base()
    try:
        script(NETWORK_SCRIPT, "yes flood | head -n 20000 >&2")
        ask_for_network()
        run("systemctl", "stop", UNIT)
        expect(logged("Exiting due to signal Terminated."), "the last line is lost")
        lines = len(journal(PRIORITY="4"))
        expect(0 < lines <= 6100, f"{lines} lines")
    finally:  # so that the next cases' lines are not cut as well
        run("systemctl", "restart", "systemd-journald")


# ------------------------------------------------------------------------ what a script may in base


def may(*lines: str) -> Callable[[], None]:
    """A script may do this, each line with success."""

    def play() -> None:
        base()
        equal(run_in_service("set -e", *lines, "echo done").splitlines()[-1:], ["done"])

    return play


def mounts_for_all() -> None:
    base()
    os.makedirs("/mnt/here", exist_ok=True)
    equal(run_in_service("mount -t tmpfs here /mnt/here && echo done"), "done\n")
    mounted = os.path.ismount("/mnt/here")
    run("umount", "/mnt/here", check=False)
    expect(mounted, "only for itself")


def reaches_the_manager() -> None:
    """With the right that a reboot needs, too."""
    base()
    with unit_file("wanted.service", "[Service]", "Type=oneshot", "RemainAfterExit=yes",
                   "ExecStart=/bin/true"):  # fmt: skip
        equal(run_in_service("systemctl start wanted.service && echo done"), "done\n")
        equal(property_of("ActiveState", "wanted.service"), "active")


def keeps_the_rights_of_root() -> None:
    base()
    facts = probe()
    own = int(open("/proc/self/status").read().split("CapBnd:\t")[1].split()[0], 16)
    lost = {n for n in range(64) if own & ~int(facts["status"]["CapEff"], 16) & 1 << n}
    # BLOCK_SUSPEND, BPF, LEASE, MAC_ADMIN, MAC_OVERRIDE, SYS_PACCT, SYS_TTY_CONFIG, WAKE_ALARM
    equal(lost, {36, 39, 28, 33, 32, 20, 26, 35})


# ---------------------------------------------------------------------------------- what is refused


def fact(
    profile: Callable[[], None], name: str, expected: object, *lines: str
) -> Callable[[], None]:
    """What a script finds when it tries `name`."""

    def play() -> None:
        clear()
        if profile is strict:
            make_strict()
        for folder in ("/etc", "/usr", "/var", "/run", "/quelt", "/home"):
            os.makedirs(f"{folder}/open", exist_ok=True)
            os.chmod(f"{folder}/open", 0o777)
        os.makedirs("/usr/lib/modules", exist_ok=True)
        write("/dev/extra", "")
        drop_in(*lines)
        start()
        facts = probe()
        found = facts[name] if name in facts else facts["status"][name]
        equal(found, expected)

    return play


def base_refuses(name: str, error: str, spoiled: Spoiled) -> Case:
    return Case(f"base refuses: {name}", fact(base, name, error, FILTERED), spoiled)


def strict_finds(name: str, expected: object, spoiled: Spoiled | None) -> Case:
    return Case(f"strict: {name}: {expected}", fact(strict, name, expected, FILTERED), spoiled)


def filtered_calls_only_fail() -> None:
    """And do not end the script that makes them."""
    fact(base, "perf_event_open", "EPERM")()


# -------------------------------------------------------------------------------- the strict daemon


def strict_serves_every_kind_of_request() -> None:
    strict()
    tool = lab.ROOT / "build/release/zondarctl/zondarctl"
    for words in ("identify", "status", "dump", "set IPOut.SAP_Time 61", "country Spain",
                  "set ServiciosSalida.0.Nombre Sur"):  # fmt: skip
        run(tool, *words.split())
    equal(lab.rows(lab.CONFIGURATION, "SELECT SAP_Time FROM IPOut"), [(61,)])
    equal(len(lab.ask(3, b"\x6e001122334455\0".ljust(75, b"\0"))), 75)  # registers a slave
    equal(restarts(), 0)


def strict_sets_the_clock() -> None:
    """Its call is made and reaches the kernel, which refuses it in this machine."""
    clear()
    write(OPTIONS, 'OPTIONS="-s 5 -l 112"\n')
    make_strict()
    drop_in(FILTERED)
    start()
    facts = probe()
    equal((facts["clock_settime"], int(facts["status"]["CapEff"], 16)), ("EINVAL", 1 << 25))
    lab.ask(3, b"\x4812.34")
    expect(logged("ERROR: Al escribir la nueva hora"), "no word of the clock")


def tells_of_the_video() -> None:
    """Put there after the start, as the board's player does."""
    strict()
    run("sqlite3", lab.STATE, "UPDATE alarmasEstado SET valor = '1' WHERE nombre = 'estado_player'")
    one_stream = "UPDATE ConfiguracionGen SET Modo_Salida = 1, Modo_Entrada = 10"
    run("sqlite3", lab.CONFIGURATION, one_stream)
    before = lab.ask(0)
    write("/tmp/to_play/video-final_HD.ts", "")
    expect(lab.ask(0) != before, "the same answer")


def journal_files_suit_the_others() -> None:
    """What the daemon leaves beside the databases root, and who is in their group, can clean up."""
    strict()
    lab.ask(3, b"\x3f\x3d")
    script(NETWORK_SCRIPT, "sqlite3 /quelt/db/config_local.sqlite",
           "'BEGIN; UPDATE IPOut SET SAP_Time = 62;' '.shell stat -c %a:%G",
           "/quelt/db/config_local.sqlite-journal > /quelt/db/printed'")  # fmt: skip
    text = " ".join(NETWORK_SCRIPT.read_text().splitlines()[1:])
    script(NETWORK_SCRIPT, text)
    ask_for_network()
    equal(pathlib.Path("/quelt/db/printed").read_text(), "664:zondar\n")


def shares_its_databases() -> None:
    strict()
    lab.ask(3, b"\x3f\x3d")
    equal(lab.rows(lab.CONFIGURATION, "SELECT SAP_Time FROM IPOut"), [(61,)])
    run("sqlite3", lab.CONFIGURATION, "UPDATE IPOut SET SAP_Time = 17")
    lab.ask(3, b"\x3f\x3e")
    equal(lab.rows(lab.CONFIGURATION, "SELECT SAP_Time FROM IPOut"), [(62,)])


def sees_a_new_host_name() -> None:
    strict()
    run("hostname", "other")
    try:
        equal(probe()["hostname"], "other")
    finally:
        run("hostname", "cabecera-1")


def leaves_nothing_shared() -> None:
    strict()
    equal(probe()["see /dev/shm"], "ok")
    left = pathlib.Path("/dev/shm/left")
    expect(left.exists(), "wrote nothing there")
    run("systemctl", "stop", UNIT)
    gone_by_itself = not left.exists()
    left.unlink(missing_ok=True)
    expect(gone_by_itself, "leaves shared memory")


def log_arrives_in_strict() -> None:
    strict()
    uid = run("id", "-u", "zondar").strip()
    bad_frame()
    run("systemctl", "kill", "--kill-who=main", "--signal=TERM", UNIT)
    for text, facility, priority in (
        (f"Program started by User {uid}", "3", "5"),
        ("[ERROR]", "3", "4"),
        ("Exiting due to signal Terminated.", "16", "2"),
    ):
        expect(logged(text, SYSLOG_FACILITY=facility, PRIORITY=priority), f"{text}: {journal()}")


# --------------------------------------------------------------------------------------- delegation

DELEGATE = SYSTEMD / "delegate"


@contextlib.contextmanager
def delegated(*lines: str):
    """The network script's work done by the board's own rights, on the daemon's request."""
    clear()
    make_strict()
    for name in ("zondar-delegate@.path", "zondar-delegate@.service"):
        write(UNITS / name, delivered(DELEGATE / name))
    script(SCRIPTS / "real" / NETWORK_SCRIPT.name, *lines)
    write(NETWORK_SCRIPT, delivered(DELEGATE / "delegate"), 0o755)
    run("systemctl", "daemon-reload")
    unit = f"zondar-delegate@{NETWORK_SCRIPT.name}"
    run("systemctl", "start", f"{unit}.path")
    try:
        start()
        yield unit
    finally:
        run("systemctl", "stop", f"{unit}.path")


def read(path: str) -> str:
    with contextlib.suppress(OSError):
        return pathlib.Path(path).read_text()
    return ""


def delegates() -> None:
    pathlib.Path("/etc/delegated").unlink(missing_ok=True)
    with delegated("set -e", "id -u >> /etc/delegated", "ip link add left type veth peer right",
                   "ip link del left", "echo done >> /etc/delegated"):  # fmt: skip
        ask_for_network()
        expect(lab.wait_for(lambda: read("/etc/delegated") == "0\ndone\n", 20.0), "is not done")


def delegates_again_after_failures() -> None:
    """And however often: ten requests, each of which fails."""
    pathlib.Path("/etc/delegated").unlink(missing_ok=True)
    with delegated("echo x >> /etc/delegated", "exit 1") as unit:
        for count in range(1, 11):
            ask_for_network()
            expect(lab.wait_for(lambda: len(read("/etc/delegated")) >= 2 * count, 20.0),
                   f"{count}: {run('systemctl', 'status', unit, check=False)}")  # fmt: skip


# ------------------------------------------------------------------------------------------- tables

BASE = [
    Case("starts, and serves", starts_and_serves, changed("Type=exec", "Type=forking")),
    Case("takes its options from a file", takes_its_options,
         gone(f"EnvironmentFile=-/etc/default/{UNIT}")),
    Case("needs no such file", starts_and_serves,
         changed(f"EnvironmentFile=-/etc/default/{UNIT}", f"EnvironmentFile=/etc/default/{UNIT}")),
    Case("takes the file as it is delivered", takes_the_file_as_delivered,
         gone(f"EnvironmentFile=-/etc/default/{UNIT}")),
    Case("writes no pid file", writes_no_pid_file,
         changed(GUARDED, GUARDED.replace("-p '' ", ""))),
    Case("comes back when it carries out old requests again", comes_back_from_a_replay,
         changed(GUARDED, UNGUARDED)),
    Case("has room for descriptors", has_room_for_descriptors,
         gone("LimitNOFILE=1024:524288")),
    Case("its errors bear its name", errors_bear_its_name,
         gone("SyslogIdentifier=zondar_net_receiver")),
    Case("comes back after SIGTERM, which is no failure",
         lambda: comes_back(kill("TERM"), True), gone("SuccessExitStatus=1")),
    Case("comes back after a fault, which is none either",
         lambda: comes_back(kill("SEGV"), True), gone("Restart=always")),
    Case("comes back after SIGKILL", lambda: comes_back(kill("KILL"), False),
         gone("Restart=always")),
    Case("comes back after 30 s without a master", lambda: comes_back(ends_unasked, True),
         gone("RestartSec=5")),
    Case("is restarted without a limit", is_restarted_without_limit,
         gone("StartLimitIntervalSec=0")),
    Case("starts when the clock is set", follows_the_clock,
         changed("After=network.target time-set.target time-sync.target quelt.mount quelt-db.mount",
                 "After=network.target quelt.mount quelt-db.mount")),
    Case("starts when /quelt is mounted", follows_the_mount,
         changed("After=network.target time-set.target time-sync.target quelt.mount quelt-db.mount",
                 "After=network.target time-set.target time-sync.target")),
    Case("stays away from a machine without a board", stays_away_without_a_board,
         gone("ConditionPathIsDirectory=/quelt")),
    Case("waits for its databases", waits_for_its_databases, gone("Restart=always")),
    Case("a stop ends a hanging script", stop_ends_a_hanging_script, gone("TimeoutStopSec=6")),
    Case("a stop ends all of the group", stop_ends_a_hanging_script,
         changed("KillMode=control-group", "KillMode=process")),
    Case("its end ends its scripts", its_end_ends_its_scripts,
         changed("KillMode=control-group", "KillMode=process")),
    Case("a stop is an ordinary end", stop_is_quick, gone("SuccessExitStatus=1")),
    Case("ignores SIGPIPE", sigpipe_is_ignored, changed("IgnoreSIGPIPE=yes", "IgnoreSIGPIPE=no")),
    Case("prints to nobody", prints_to_nobody, gone("StandardOutput=null")),
    Case("its errors are in the journal", errors_are_in_the_journal,
         changed("StandardError=journal", "StandardError=null")),
    Case("as warnings", errors_are_in_the_journal, gone("SyslogLevel=warning")),
    Case("its log keeps facilities and priorities", log_keeps_its_priorities,
         added("LogLevelMax=warning")),
    Case("a flood of errors is cut", a_flood_is_cut, gone("LogRateLimitBurst=1000")),
    Case("a script may set interfaces", may("ip link add left type veth peer right",
         "ip address add 10.7.7.7/24 dev left", "ip link del left"),
         added("CapabilityBoundingSet=~CAP_NET_ADMIN")),
    Case("a script may ask the network card", may(
         "python3 -c 'import socket; socket.socket(socket.AF_PACKET, socket.SOCK_RAW)'"),
         changed("RestrictAddressFamilies=AF_UNIX AF_INET AF_INET6 AF_NETLINK AF_PACKET",
                 "RestrictAddressFamilies=AF_UNIX AF_INET AF_INET6 AF_NETLINK")),
    Case("a script may mount, for all of the board", mounts_for_all, added("PrivateMounts=yes")),
    Case("a script may write anywhere", may(
         "for d in /etc /usr /var /tmp /root /quelt/conf; do echo x > $d/new; rm $d/new; done"),
         added("ProtectSystem=full")),
    Case("a script may write kernel settings", may("echo 1 > /proc/sys/net/ipv4/ip_forward"),
         added("ProtectKernelTunables=yes")),
    Case("a script may make a program setuid", may(
         "cp /bin/true /usr/new", "chmod u+s /usr/new", "rm /usr/new"),
         added("RestrictSUIDSGID=yes")),
    Case("a script may become another user", may("su -s /bin/sh -c 'id -u' nobody"),
         added("CapabilityBoundingSet=~CAP_SETUID")),
    Case("a script may name the board anew", may("hostname other", "hostname cabecera-1"),
         added("ProtectHostname=yes")),
    Case("a script may look at all processes", may("readlink /proc/1/exe"),
         added("CapabilityBoundingSet=~CAP_SYS_PTRACE")),
    Case("a script may change root", may("chroot / true"),
         added("CapabilityBoundingSet=~CAP_SYS_CHROOT")),
    Case("a script reaches systemd", reaches_the_manager,
         changed("RestrictAddressFamilies=AF_UNIX AF_INET AF_INET6 AF_NETLINK AF_PACKET",
                 "RestrictAddressFamilies=AF_INET AF_INET6 AF_NETLINK AF_PACKET")),
    Case("a script keeps the rights of root but eight", keeps_the_rights_of_root,
         gone("CapabilityBoundingSet=~CAP_BLOCK_SUSPEND CAP_BPF CAP_LEASE CAP_MAC_ADMIN "
              "CAP_MAC_OVERRIDE CAP_SYS_PACCT CAP_SYS_TTY_CONFIG CAP_WAKE_ALARM")),
    Case("base: no new privileges", fact(base, "NoNewPrivs", "1"), gone("NoNewPrivileges=yes")),
    base_refuses("personality", "EPERM", gone("LockPersonality=yes")),
    base_refuses("realtime", "EPERM", gone("RestrictRealtime=yes")),
    base_refuses("new user namespace", "EPERM", gone("RestrictNamespaces=yes")),
    base_refuses("AF_VSOCK", "EAFNOSUPPORT",
                 gone("RestrictAddressFamilies=AF_UNIX AF_INET AF_INET6 AF_NETLINK AF_PACKET")),
    *(base_refuses(name, ERROR, gone(FILTER))
      for name in ("modify_ldt", "perf_event_open", "sysfs", "ioperm", "swapon")),
    Case("a filtered call only fails", filtered_calls_only_fail,
         gone("SystemCallErrorNumber=EPERM")),
]  # fmt: skip

STRICT = [
    Case("strict: serves every kind of request", strict_serves_every_kind_of_request,
         changed("ReadWritePaths=-/quelt/db", "ReadWritePaths=-/quelt/conf")),
    Case("strict: sets the clock: the right", strict_sets_the_clock,
         gone("AmbientCapabilities=CAP_SYS_TIME")),
    Case("strict: sets the clock: the call", strict_sets_the_clock,
         gone(CLOCK)),
    Case("strict: shares its databases", shares_its_databases,
         changed("User=zondar", "User=nobody")),
    Case("strict: its journals suit the others", journal_files_suit_the_others, None),
    Case("strict: comes back when it carries out old requests again, and the log is full",
         comes_back_from_an_unlogged_replay, changed(GUARDED, UNGUARDED)),
    Case("strict: its log arrives", log_arrives_in_strict,
         changed("RestrictAddressFamilies=AF_UNIX AF_INET", "RestrictAddressFamilies=AF_INET")),
    Case("strict: tells of a video", tells_of_the_video, added("PrivateTmp=yes")),
    Case("strict: sees a new host name", sees_a_new_host_name, added("ProtectHostname=yes")),
    Case("strict: leaves no shared memory", leaves_nothing_shared, gone("RemoveIPC=yes")),
    Case("strict: delegates", delegates, gone("RuntimeDirectory=zondar-net-receiver")),
    Case("strict: delegates once", delegates,
         gone("ExecStartPre=/bin/rm -f /run/zondar-net-receiver/%i")),
    Case("strict: delegates after failures", delegates_again_after_failures,
         gone("StartLimitIntervalSec=0")),
    strict_finds("CapBnd", f"{1 << 25:016x}", gone("CapabilityBoundingSet=CAP_SYS_TIME")),
    strict_finds("uid", 900, changed("User=zondar", "User=root")),
    *(strict_finds(f"create in {folder}", "EROFS", gone("ProtectSystem=strict"))
      for folder in ("/etc/open", "/usr/open", "/var/open", "/tmp", "/quelt/open")),
    strict_finds("create in /run/open", "EROFS", gone("ReadOnlyPaths=/run")),
    strict_finds("create in /quelt/db", "ok", gone("ReadWritePaths=-/quelt/db")),
    strict_finds("create in /run/zondar-net-receiver", "ok",
                 gone("RuntimeDirectory=zondar-net-receiver")),
    strict_finds("see /home/open", "EACCES", gone("ProtectHome=yes")),
    strict_finds("see /dev/extra", "ENOENT", gone("PrivateDevices=yes")),
    strict_finds("see /proc/1", "ENOENT", gone("ProtectProc=invisible")),
    strict_finds("see /proc/uptime", "ENOENT", gone("ProcSubset=pid")),
    strict_finds("list modules", "EACCES", gone("ProtectKernelModules=yes")),
    strict_finds("read-only /sys", True, gone("ProtectKernelTunables=yes")),
    strict_finds("read-only /sys/fs/cgroup", True, gone("ProtectControlGroups=yes")),
    strict_finds("write and execute", "EPERM", gone("MemoryDenyWriteExecute=yes")),
    strict_finds("setuid", "EPERM", gone("RestrictSUIDSGID=yes")),
    strict_finds("mode of a new file", "0o600", gone("UMask=0077")),
    *(strict_finds(name, "EAFNOSUPPORT",
                   changed("RestrictAddressFamilies=AF_UNIX AF_INET",
                           "RestrictAddressFamilies=AF_UNIX AF_INET AF_INET6 AF_VSOCK AF_NETLINK"))
      for name in ("AF_INET6", "AF_VSOCK", "AF_NETLINK")),
    *(strict_finds(name, ERROR, changed(CLOCK, f"{CLOCK} {name}"))
      for name in ("mount", "swapon", "adjtimex", "sethostname", "chroot")),
    strict_finds("nice", ERROR, gone("SystemCallFilter=~@privileged @resources")),
]  # fmt: skip

