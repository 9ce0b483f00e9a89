#!/bin/sh
# Runs the example daemon's scripted session and checks its transcript.
#   session_test.sh <examples/session.sh> <folder with the example programs>
out=$(mktemp) status=0
trap 'rm -f "$out"' EXIT
timeout 60 "$1" "$2" > "$out" 2>&1 || { cat "$out"; echo "the session failed"; exit 1; }
cat "$out"
# Each line below must appear. With its DNS server (dnsmasq) the session
# resolves the demo name; without one it reports no address. The counters
# the daemon reports show the work arrived through the command queue from
# every producer.
while IFS= read -r line; do
    grep -qE -- "$line" "$out" || { echo "MISSING: $line"; status=1; }
done <<END
\[daemon\] started as pid
not starting
\[session\] second instance exited with status 1
\[session\] pid file says
flag file: /tmp/vx_flags/vxu_daemon\.flag
\[daemon\] worker: work item 3
\[daemon\] message queue: "hello from process
\[peer\]   got reply: welcome, from vxu_daemon
\[client\] < pid [0-9]+, work items 3, ticks [1-9][0-9]*, alarms [0-9]+, timer-queue deliveries [1-9]
\[client\] < bye
\[session\] vxu_daemon exited with status 0
\[session\] left behind: nothing
\[client\] < demo\.vxu$(grep -q "dnsmasq (pid" "$out" && echo ' is 192\.0\.2\.7' || echo ': no address')
END
[ -e /tmp/vx_flags/vxu_daemon.flag ] && { echo "flag file left behind"; status=1; }
exit $status
