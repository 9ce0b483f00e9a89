#!/bin/sh
# A scripted session with vxu_daemon and vxu_client, printed as a transcript.
#   examples/session.sh <folder with vxu_daemon and vxu_client>
# Leaves nothing running and no files behind. As root it runs inside a
# private network namespace with a small DNS server (dnsmasq) on
# 127.0.0.1:53 answering for demo.vxu; elsewhere "resolve" finds no server.
set -eu
bin=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)

if [ "${VXU_SESSION_INNER:-}" = "" ] && [ "$(id -u)" -eq 0 ] && command -v dnsmasq >/dev/null &&
   unshare --net true 2>/dev/null; then
    VXU_SESSION_INNER=1 exec unshare --net sh "$here/session.sh" "$bin"
fi

run=$(mktemp -d /tmp/vxu_session.XXXXXX)
dns_pid=
daemon_pid=
cleanup() {
    [ -n "$daemon_pid" ] && kill "$daemon_pid" 2>/dev/null || true
    [ -n "$dns_pid" ] && kill "$dns_pid" 2>/dev/null || true
    rm -rf "$run"
}
trap cleanup EXIT

note() { echo "[session] $*"; }

if [ "${VXU_SESSION_INNER:-}" = 1 ]; then
    ip link set lo up
    dnsmasq --no-resolv --no-hosts --bind-interfaces --listen-address=127.0.0.1 --port=53 \
        --address=/demo.vxu/192.0.2.7 --pid-file="$run/dnsmasq.pid" --user=root
    dns_pid=$(cat "$run/dnsmasq.pid")
    note "private network namespace; dnsmasq (pid $dns_pid) answers for demo.vxu on 127.0.0.1:53"
fi

note "starting vxu_daemon in $run"
"$bin/vxu_daemon" "$run" "nameserver 127.0.0.1" &
daemon_pid=$!
i=0
while [ ! -S "$run/vxu_daemon.sock" ] && [ $i -lt 50 ]; do sleep 0.1; i=$((i + 1)); done

note "a second instance must refuse to start:"
"$bin/vxu_daemon" "$run" || note "second instance exited with status $?"

note "pid file says $(cat "$run/vxu_daemon.pid"); flag file: $(ls /tmp/vx_flags/vxu_daemon.flag)"
sleep 1.5
"$bin/vxu_client" "$run/vxu_daemon.sock" status
"$bin/vxu_client" "$run/vxu_daemon.sock" resolve demo.vxu
"$bin/vxu_client" "$run/vxu_daemon.sock" stop
wait "$daemon_pid" && note "vxu_daemon exited with status 0"
daemon_pid=

left=$(ls "$run" | grep -v dnsmasq.pid || true)
[ -e /tmp/vx_flags/vxu_daemon.flag ] && left="$left flag file"
note "left behind: ${left:-nothing}"
