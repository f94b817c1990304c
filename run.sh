#!/usr/bin/env bash
# ./run.sh: builds the daemon and runs it on the sample board until Ctrl-C. The board's files stand
# at /quelt for the daemon alone; port 8001 is this machine's. When the daemon ends it is started
# again after a pause, as a board's supervision does.
# ./run.sh --board [WORD...]: a whole board instead, emulated; the words are those of board/emulated.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"

case ${1-} in
    '') ;;
    --board) exec board/emulated "${@:2}" ;;
    *) echo 'usage: ./run.sh [--board [WORD...]]' >&2; exit 2 ;;
esac

readonly board=build/board tool=build/release/zondarctl/zondarctl pause=5

# One at a time: another one would replace the databases under the running daemon. The lock is on the
# tree itself and ends with the last process that has its descriptor, however that ends; these are
# this script and the daemon in its sandbox, no other child. An end takes a moment.
exec 9< .
if ! flock --timeout 1 9; then
    echo 'run.sh is running in this tree already; Ctrl-C in its terminal ends it.' >&2
    exit 1
fi

{
    tools/install-dependencies run
    cmake --preset release > /dev/null
    cmake --build --preset release --target zondar_net_receiver zondarctl
    board/make "$board"
} 9<&-

# A user namespace of its own leaves it no right to set this machine's clock. A closed answer
# connection must not end the daemon: supervisors start it with SIGPIPE ignored.
start_daemon() {
    trap '' PIPE
    exec bwrap --unshare-user --unshare-pid --die-with-parent \
        --ro-bind /usr /usr --symlink usr/bin /bin --symlink usr/sbin /sbin \
        --symlink usr/lib /lib --symlink usr/lib64 /lib64 --ro-bind /etc /etc \
        --dev /dev --proc /proc --tmpfs /tmp --bind "$board" /quelt \
        --ro-bind build/release/app/zondar_net_receiver /zondar_net_receiver \
        /zondar_net_receiver -t -s 5 -l 112 \
        /quelt/db/config_local.sqlite /quelt/db/temp_local.sqlite
}

show_status() {
    cat << END

The daemon answers on port 8001. From any terminal:

    $ $tool status
$("$tool" status 2>&1 | sed 's/^/    /')

$tool help has more. The board's databases are in $board/db. Ctrl-C ends the daemon.

END
}

shown=
daemon=
trap '[ -z "$daemon" ] || kill "$daemon" 2> /dev/null || true' EXIT
trap 'echo; exit 130' INT
trap 'exit 143' TERM HUP

while true; do
    exec {lines}< <(start_daemon 2>&1)
    daemon=$!
    while IFS= read -r line <&"$lines"; do
        printf 'daemon | %s\n' "$line"
        if [[ -z $shown && $line == *': ready...' ]]; then
            shown=yes
            show_status 9<&- &
        fi
    done
    exec {lines}<&-
    status=0
    wait "$daemon" || status=$?
    daemon=
    echo "The daemon ended with status $status; starting it again in $pause s."
    sleep "$pause" 9<&-
done
