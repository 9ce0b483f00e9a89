#!/usr/bin/env python3
"""Runs every benchmark, pairs our figures with the peers measured in the
same run, and writes the ratios into bench/README.md (between the markers)
and a bar chart bench/ratios.png (gnuplot).

    bench/summarize.py <folder with the vxu_bench_* programs>

A ratio is ours / peer for the metric named: below 1 means we take less
time (or are less late) than the peer.
"""
import datetime
import json
import os
import platform
import re
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))

# (benchmark program, what, our run, peer run, metric)
PAIRS = [
    ("loop", "loop pass, 20 fds, 1 ready", "BM_vxutil_loop_run", "BM_libevent_select", "real_time"),
    ("loop", "loop pass, 20 fds, 1 ready", "BM_vxutil_loop_run", "BM_libuv_poll", "real_time"),
    ("cmdq", "hand-off throughput, 1 CPU", "Throughput/vxu_cmdq+loop/cpus:1", "Throughput/by_hand/cpus:1", "real_time"),
    ("cmdq", "hand-off throughput, 2 CPUs", "Throughput/vxu_cmdq+loop/cpus:2", "Throughput/by_hand/cpus:2", "real_time"),
    ("cmdq", "hand-off ping-pong, 1 CPU", "PingPong/vxu_cmdq+loop/cpus:1", "PingPong/by_hand/cpus:1", "real_time"),
    ("cmdq", "hand-off ping-pong, 2 CPUs", "PingPong/vxu_cmdq+loop/cpus:2", "PingPong/by_hand/cpus:2", "real_time"),
    ("cmdq", "hand-off throughput, 2 CPUs", "Throughput/vxu_cmdq+loop/cpus:2", "Throughput/uv_async/cpus:2", "real_time"),
    ("timers", "list timer p99 lateness, 1 timer", "Lateness/vxu_list_timers/timers:1", "Lateness/bare_timerfd_select/timers:1", "p99_us"),
    ("timers", "list timer p99 lateness, 1 timer", "Lateness/vxu_list_timers/timers:1", "Lateness/libuv_timers/timers:1", "p99_us"),
    ("timers", "list timers p99 lateness, 50 timers", "Lateness/vxu_list_timers/timers:50", "Lateness/bare_timerfd_select/timers:50", "p99_us"),
    ("timers", "list timers p99 lateness, 50 timers", "Lateness/vxu_list_timers/timers:50", "Lateness/libuv_timers/timers:50", "p99_us"),
    ("timers", "descriptor timer p99 lateness, 1 timer", "Lateness/vxu_descriptor_timers/timers:1", "Lateness/bare_timerfd_select/timers:1", "p99_us"),
    ("timers", "descriptor timers p99 lateness, 50 timers", "Lateness/vxu_descriptor_timers/timers:50", "Lateness/bare_timerfd_select/timers:50", "p99_us"),
    ("net", "IPC round trip", "BM_IpcRoundTrip_Library", "BM_IpcRoundTrip_PlainWithExistenceTest", "real_time"),
    ("net", "IPv4 to text", "BM_Ipv4ToText_Library", "BM_Ipv4ToText_Plain", "real_time"),
    ("net", "IPv6 to text", "BM_Ipv6ToText_Library", "BM_Ipv6ToText_Plain", "real_time"),
    ("net", "text to IPv4", "BM_TextToIpv4_Library", "BM_TextToIpv4_Plain", "real_time"),
    ("net", "dotted-quad check", "BM_DottedQuadCheck_Library", "BM_DottedQuadCheck_Plain", "real_time"),
    ("net", "MAC to text", "BM_MacToText_Library", "BM_MacToText_Plain", "real_time"),
    ("net", "text to MAC", "BM_TextToMac_StrMac", "BM_TextToMac_Plain", "real_time"),
]
# Benchmarks with pairs of their own list them in bench_<name>.pairs
# (one "what | ours | peer | metric" per line).


def extra_pairs():
    for entry in sorted(os.listdir(HERE)):
        m = re.match(r"bench_(\w+)\.pairs$", entry)
        if not m:
            continue
        with open(os.path.join(HERE, entry)) as f:
            for line in f:
                line = line.strip()
                if line and not line.startswith("#"):
                    what, ours, peer, metric = (p.strip() for p in line.split("|"))
                    yield (m.group(1), what, ours, peer, metric)


def run(program):
    out = subprocess.run([program, "--benchmark_format=json"], check=True,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    return json.loads(out)["benchmarks"]


def find(results, prefix, metric):
    for b in results:
        if b["name"] == prefix or b["name"].startswith(prefix + "/") or \
                b["name"].split("/real_time")[0] == prefix:
            if metric in b:
                value = b[metric]
                # Times may come in different units; bring them to ns.
                if metric in ("real_time", "cpu_time"):
                    value *= {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[b.get("time_unit", "ns")]
                return value
    return None


def short(run):
    """Peer name for the chart: the variant of a family run, else the run."""
    parts = run.split("/")
    if parts[0] in ("Throughput", "PingPong", "Lateness") and len(parts) > 1:
        return parts[1]
    return run.replace("BM_", "")


def fmt(value, metric):
    if value is None:
        return "n/a"
    if metric.endswith("_us"):
        return f"{value:.0f} µs"
    if value >= 1e6:
        return f"{value / 1e6:.2f} ms"
    if value >= 1e3:
        return f"{value / 1e3:.2f} µs"
    return f"{value:.0f} ns"


def main():
    folder = sys.argv[1]
    results = {}
    rows = []
    for prog, what, ours, peer, metric in PAIRS + list(extra_pairs()):
        path = os.path.join(folder, "vxu_bench_" + prog)
        if prog not in results:
            if not os.path.exists(path):
                print(f"missing {path}; skipped", file=sys.stderr)
                results[prog] = []
            else:
                print(f"running {path}", file=sys.stderr)
                results[prog] = run(path)
        a = find(results[prog], ours, metric)
        b = find(results[prog], peer, metric)
        ratio = a / b if a is not None and b else None
        rows.append((what, peer, metric, a, b, ratio))

    stamp = datetime.date.today().isoformat()
    machine = f"{platform.machine()}, {os.cpu_count()} CPUs, {platform.platform()}"
    lines = [f"Measured {stamp} on {machine}; ratio = ours / peer (below 1: ours is faster or less late).",
             "", "| what | metric | ours | peer | peer run | ratio |", "|---|---|---|---|---|---|"]
    for what, peer, metric, a, b, ratio in rows:
        r = "n/a" if ratio is None else f"{ratio:.2g}" if ratio < 0.1 else f"{ratio:.2f}"
        lines.append(f"| {what} | {metric} | {fmt(a, metric)} | {fmt(b, metric)} | `{peer}` | {r} |")
    table = "\n".join(lines)

    readme = os.path.join(HERE, "README.md")
    with open(readme) as f:
        text = f.read()
    begin, end = "<!-- results:begin -->", "<!-- results:end -->"
    text = re.sub(re.escape(begin) + ".*" + re.escape(end), begin + "\n" + table + "\n" + end,
                  text, flags=re.S)
    with open(readme, "w") as f:
        f.write(text)

    data = os.path.join(folder, "ratios.dat")
    with open(data, "w") as f:
        for i, (what, peer, _, _, _, ratio) in enumerate(rows):
            if ratio is not None:
                label = f"{what} vs {short(peer)}".replace('"', "'")
                f.write(f'{i} {ratio:.4f} "{label}"\n')
    script = f"""
set terminal pngcairo size 1200,{200 + 28 * len(rows)} font ",9"
set output "{os.path.join(HERE, 'ratios.png')}"
set termoption noenhanced
set title "vxutil / peer ({stamp}); below 1 is better (log scale)"
set logscale x
set style fill solid 0.6
set boxwidth 0.7
set xrange [0.001:50]
set yrange [-1:{len(rows)}]
set ytics scale 0
set grid x
set arrow from 1, graph 0 to 1, graph 1 nohead lw 2 dt 2
plot "{data}" using 2:1:(0.001):2:($1-0.35):($1+0.35):ytic(3) with boxxyerror notitle
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
    print(table)


if __name__ == "__main__":
    main()
