#!/bin/sh
# Runs the example daemon's scripted session and checks its transcript.
set -u
session=$1
bin=$2
out=$(mktemp)
trap 'rm -f "$out"' EXIT
if ! timeout 60 "$session" "$bin" > "$out" 2>&1; then
    cat "$out"; echo "the session failed"; exit 1
fi
cat "$out"
status=0
expect() {
    grep -qF -- "$1" "$out" || { echo "MISSING: $1"; status=1; }
}
expect "[daemon] started as pid"
expect "not starting"
expect "[session] second instance exited with status 1"
expect "[session] pid file says"
expect "flag file: /tmp/vx_flags/vxu_daemon.flag"
expect "[daemon] worker: work item 3"
expect "[daemon] message queue: \"hello from process"
expect "[peer]   got reply: welcome, from vxu_daemon"
expect "[client] < pid "
expect "timer-queue deliveries"
expect "[client] < bye"
expect "[session] vxu_daemon exited with status 0"
expect "[session] left behind: nothing"
if grep -q "dnsmasq (pid" "$out"; then
    expect "[client] < demo.vxu is 192.0.2.7"
else
    expect "[client] < demo.vxu: no address"
fi
# The counters the daemon reported must show the work arrived through the
# command queue from every producer.
grep -Eq '\[client\] < pid [0-9]+, work items 3, ticks [1-9][0-9]*, alarms [0-9]+, timer-queue deliveries [1-9]' "$out" \
    || { echo "status counters look wrong"; status=1; }
[ -e /tmp/vx_flags/vxu_daemon.flag ] && { echo "flag file left behind"; status=1; }
exit $status
