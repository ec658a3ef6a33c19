#!/usr/bin/env python3
"""One table from the benchmark programs' JSON output (--benchmark_out, one file each).

Every figure is ours against a baseline measured in the same run: a ratio of median times,
a fitted growth exponent, or (footprint) a size against its budget. Usage:

    report.py RESULTS_DIR BUILD_DIR [--markdown]

RESULTS_DIR holds bench_*.json; BUILD_DIR is the build whose libraries are measured.
"""
import glob
import json
import math
import os
import re
import subprocess
import sys
import tempfile

UNIT_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
SUFFIX = re.compile(r"/(repeats|iterations|min_time|min_warmup_time|threads):[^/]*|/real_time")


def load_runs(results_dir):
    """Runs by plain name (suffixes such as /real_time and /iterations:N dropped)."""
    runs = {}
    for path in sorted(glob.glob(os.path.join(results_dir, "bench_*.json"))):
        try:
            with open(path) as f:
                data = json.load(f)
        except (OSError, ValueError) as e:
            print(f"report: skipping {path}: {e}", file=sys.stderr)
            continue
        for b in data.get("benchmarks", []):
            if b.get("error_occurred"):
                continue
            name = SUFFIX.sub("", b.get("run_name", b["name"]))
            runs.setdefault(name, []).append(b)
    return runs


class Figures:
    def __init__(self, runs):
        self.runs = runs

    def _pick(self, name):
        rs = self.runs.get(name, [])
        med = [r for r in rs if r.get("run_type") == "aggregate" and r.get("aggregate_name") == "median"]
        if med:
            return med[0], med
        its = [r for r in rs if r.get("run_type", "iteration") == "iteration"]
        return (its[0] if its else None), its

    def time_ns(self, name):
        """Median time per call: wall time where the benchmark asked for it, else CPU time."""
        first, chosen = self._pick(name)
        if first is None:
            return None
        key = "real_time" if "/real_time" in first.get("run_name", first["name"]) else "cpu_time"
        vals = sorted(r[key] * UNIT_NS[r.get("time_unit", "ns")] for r in chosen)
        return vals[len(vals) // 2]

    def counter(self, name, key):
        first, chosen = self._pick(name)
        vals = sorted(r[key] for r in chosen if key in r) if first else []
        return vals[len(vals) // 2] if vals else None


    def most(self, name, key):
        vals = [r[key] for r in self.runs.get(name, []) if key in r]
        return max(vals) if vals else None


def fmt_time(ns):
    if ns is None:
        return "n/a"
    for unit, div in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= div:
            return f"{ns / div:.3g} {unit}"
    return f"{ns:.3g} ns"


class Table:
    def __init__(self):
        self.rows = []  # (section, what, figure text, goal text, result, detail)

    def add(self, section, what, value, goal, limit, detail, fmt="{:.2f}"):
        if value is None:
            self.rows.append((section, what, "n/a", goal, "n/a", detail))
            return
        result = "info" if limit is None else ("pass" if value <= limit else "MISS")
        self.rows.append((section, what, fmt.format(value), goal, result, detail))

    def ratio(self, fig, section, what, ours, base, limit, base_text):
        o, b = fig.time_ns(ours), fig.time_ns(base)
        value = o / b if o is not None and b else None
        detail = f"{fmt_time(o)} vs {fmt_time(b)} {base_text}"
        goal = "-" if limit is None else f"<= {limit:g}"
        self.add(section, what, value, goal, limit, detail)

    def print_text(self):
        head = ("Area", "What", "Figure", "Goal", "Result", "Ours vs baseline")
        widths = [max(len(str(r[i])) for r in self.rows + [head]) for i in range(5)]
        line = "  ".join(h.ljust(w) for h, w in zip(head[:5], widths)) + "  " + head[5]
        print(line)
        print("-" * min(len(line) + 40, 150))
        last = None
        for r in self.rows:
            cells = list(r)
            if cells[0] == last:
                cells[0] = ""
            else:
                last = cells[0]
            print("  ".join(str(c).ljust(w) for c, w in zip(cells[:5], widths)) + "  " + cells[5])

    def print_markdown(self):
        print("| Area | What | Figure | Goal | Result | Ours vs baseline |")
        print("|---|---|---|---|---|---|")
        for r in self.rows:
            print("| " + " | ".join(str(c).replace("|", "\\|") for c in r) + " |")


def step_exponent(a, b):
    """Growth exponent between two (size, time) points: 1 is linear, 2 quadratic."""
    (na, ta), (nb, tb) = a, b
    if not ta or not tb:
        return None
    return math.log(tb / ta) / math.log(nb / na)


def scale_row(table, fig, what, series, base_series, sizes, unit, limit=1.15):
    """The largest growth exponent over one size step (10 to 100, 100 to 1000): a quadratic
    step shows there even when a fixed cost hides it over the whole range. Where the bare
    calls themselves grow faster than linearly at that step, ours may grow as fast."""
    ours = [(n, fig.time_ns(f"scale/{series}/{n}")) for n in sizes]
    base = [(n, fig.time_ns(f"scale/{base_series}/{n}/base")) for n in sizes]
    steps = [i for i in range(1, len(sizes)) if sizes[i - 1] >= 10]
    worst, worst_limit, worst_base = None, limit, None
    for i in steps:
        e = step_exponent(ours[i - 1], ours[i])
        eb = step_exponent(base[i - 1], base[i])
        lim = max(limit, eb + 0.15) if eb is not None else limit
        if e is not None and (worst is None or e - lim > worst - worst_limit):
            worst, worst_limit, worst_base = e, lim, eb
    lo, hi = dict(ours).get(10), dict(ours).get(1000)
    per_item = (hi / 1000) / (lo / 10) if lo and hi else None
    times = ", ".join(f"{n}: {fmt_time(t)}" for n, t in ours)
    detail = (f"{times}; per {unit} 1000 vs 10: "
              f"{'n/a' if per_item is None else f'{per_item:.2f}'}; "
              f"bare calls at that step: {'n/a' if worst_base is None else f'{worst_base:.2f}'}")
    goal = f"<= {worst_limit:.2f}" if worst_limit != limit else f"<= {limit:g}"
    table.add("Scale (step exponent)", what, worst, goal, worst_limit, detail)


def library(build_dir, rel):
    path = os.path.join(build_dir, rel)
    return os.path.realpath(path) if os.path.exists(path) else None


def stripped_kib(path):
    with tempfile.TemporaryDirectory() as d:
        out = os.path.join(d, "stripped.so")
        subprocess.run(["strip", "-o", out, path], check=True)
        return os.path.getsize(out) / 1024.0


def needed(path):
    out = subprocess.run(["readelf", "-d", path], capture_output=True, text=True).stdout
    return re.findall(r"\(NEEDED\).*\[(.*)\]", out)


def footprint_rows(table, fig, build_dir):
    net = library(build_dir, "src/libnetwork.so")
    uci = library(build_dir, "uci/libuci.so")
    if net:
        table.add("Footprint", "libnetwork.so stripped (x86-64)", stripped_kib(net), "<= 150 KiB",
                  150, f"{os.path.getsize(net) / 1024:.1f} KiB unstripped", "{:.1f} KiB")
        libs = needed(net)
        std = [n for n in libs if "stdc++" in n]
        table.rows.append(("Footprint", "libnetwork.so needs no libstdc++", "yes" if not std else "no",
                           "no libstdc++", "pass" if not std else "MISS",
                           "NEEDED: " + ", ".join(libs)))
    if uci:
        table.add("Footprint", "libuci.so stripped (x86-64)", stripped_kib(uci), "-", None,
                  "NEEDED: " + ", ".join(needed(uci)), "{:.1f} KiB")
    o = fig.counter("footprint/monitor_rss", "rss_kib")
    b = fig.counter("footprint/monitor_rss/base", "rss_kib")
    po = fig.counter("footprint/monitor_rss", "private_kib")
    pb = fig.counter("footprint/monitor_rss/base", "private_kib")
    value = o / b if o and b else None
    detail = (f"RSS {o:.0f} vs {b:.0f} KiB of a bare thread in select on an ARP socket; "
              f"private dirty {po:.0f} vs {pb:.0f} KiB") if value else "n/a"
    table.add("Footprint", "RSS with one MAC monitor thread", value, "<= 1.2", 1.2, detail)


def build_table(fig, build_dir):
    t = Table()
    live = "Live reads (CPU time)"
    ioctl = "socket+ioctl+close"
    t.ratio(fig, live, "NET_GetIpv4Addr", "live/NET_GetIpv4Addr", "live/NET_GetIpv4Addr/base", 1.2,
            f"({ioctl} SIOCGIFADDR)")
    t.ratio(fig, live, "NET_GetMacAddr", "live/NET_GetMacAddr", "live/NET_GetMacAddr/base", 1.2,
            f"({ioctl} SIOCGIFHWADDR)")
    t.ratio(fig, live, "NET_GetMtu", "live/NET_GetMtu", "live/NET_GetMtu/base", 1.2,
            f"({ioctl} SIOCGIFMTU)")
    t.ratio(fig, live, "NET_GetIpv4Gateway", "live/NET_GetIpv4Gateway",
            "live/NET_GetIpv4Gateway/base", 1.2, "(open+read+close /proc/net/route)")
    t.ratio(fig, live, "NET_GetIpv6AddrList", "live/NET_GetIpv6AddrList",
            "live/NET_GetIpv6AddrList/base", 1.2,
            "(SIOCGIFINDEX, /proc/net/if_inet6, /proc/net/ipv6_route per listed address)")
    t.ratio(fig, live, "NET_GetInterfaces", "live/NET_GetInterfaces", "live/NET_GetInterfaces/base",
            1.2, "(getifaddrs+freeifaddrs)")

    cfg = "Stored configuration"
    t.ratio(fig, cfg, "NET_GetEtherCfg", "cfg/NET_GetEtherCfg", "cfg/read/base", 3,
            "(open+read+close of the package, CPU time)")
    t.ratio(fig, cfg, "NET_GetPortCfg", "cfg/NET_GetPortCfg", "cfg/read/base", 3,
            "(open+read+close of the package, CPU time)")
    t.ratio(fig, cfg, "NET_SetEtherCfg", "cfg/NET_SetEtherCfg", "cfg/write/base", 1.5,
            "(write+fsync+rename of the same bytes, wall time)")
    t.ratio(fig, cfg, "libuci load (40 sections)", "Load_Uci", "Load_Plain", None,
            "(open+read+close)")
    t.ratio(fig, cfg, "libuci commit (40 sections)", "Commit_Uci", "Commit_Plain", None,
            "(write+fsync+rename)")

    conv = "Converters (CPU time)"
    for what, ours, base in (
            ("Inet_PtoN IPv4", "Parse4_Ours", "Parse4_Libc"),
            ("Inet_PtoN IPv6", "Parse6_Ours", "Parse6_Libc"),
            ("Inet_NtoP IPv4", "Format4_Ours", "Format4_Libc"),
            ("Inet_NtoP IPv6", "Format6_Ours", "Format6_Libc"),
            ("INET_Ipv4StrToNum", "StrToNum4_Ours", "Parse4_Libc"),
            ("INET_Ipv6StrToNum", "StrToNum6_Ours", "Parse6_Libc"),
            ("INET_IsIpv4AddrValid", "Valid4_Ours", "Parse4_Libc"),
            ("INET_IsIpv6AddrValid", "Valid6_Ours", "Parse6_Libc")):
        libc = "inet_pton" if "Parse" in base else "inet_ntop"
        if fig.time_ns(ours) is not None:
            t.ratio(fig, conv, what, ours, base, 1.0, f"({libc})")

    det = "Detection (wall time)"
    t.ratio(fig, det, "NET_DetectIpv4Collision answered", "BM_ProbeCollision_Library",
            "BM_ProbeCollision_Arping", 1.0, "(arping -D -c 1)")
    t.ratio(fig, det, "NET_ProbeIpv4 conflict found", "BM_RfcProbeConflict_Library",
            "BM_ProbeCollision_Arping", 1.0, "(arping -D -c 1)")
    for fam, name in (("Ipv4", "BM_RfcProbeFree_Library"), ("Ipv6", "BM_RfcProbe6Free_Library")):
        probes = sum(r.get("iterations", 0) for r in fig.runs.get(name, [])
                     if r.get("run_type") == "iteration")
        over, worst = fig.counter(name, "over_us"), fig.most(name, "worst_over_us")
        t.add(det, f"NET_Probe{fam} free, beyond the least (ms)",
              None if worst is None else worst / 1e3, "<= 10 ms", 10.0,
              "n/a" if over is None else f"worst of {probes} probes; median {over / 1e3:.2f} ms "
              "over the 200 ms its options allow", fmt="{:.2f}")
    lib, ipu = fig.time_ns("BM_Ping_Library"), fig.time_ns("BM_Ping_Iputils")
    lr, ir = fig.counter("BM_Ping_Library", "rtt_us"), fig.counter("BM_Ping_Iputils", "rtt_us")
    if None not in (lib, ipu, lr, ir):
        over_l, over_i = lib - lr * 1e3, ipu - ir * 1e3
        t.add(det, "NET_Ping over its round trip", over_l / over_i if over_i > 0 else None,
              "<= 1", 1.0, f"{fmt_time(over_l)} vs {fmt_time(over_i)} (ping -c 1, process start included)")
    else:
        t.add(det, "NET_Ping over its round trip", None, "<= 1", 1.0, "n/a")

    ev = "Kernel events (wall time)"
    lat = "BM_EventLatency"
    for q in ("p50", "p99"):
        ours, ip = fig.counter(lat, f"{q}_us"), fig.counter(lat, f"ip_{q}_us")
        ratio = ours / ip if ours is not None and ip else None
        detail = "n/a" if ratio is None else \
            f"{fmt_time(ours * 1e3)} vs {fmt_time(ip * 1e3)} (ip monitor link, a process)"
        t.add(ev, f"change to NET_EventRead, {q}", ratio, "<= 1", 1.0, detail)
    p99 = fig.counter(lat, "p99_us")
    t.add(ev, "change to NET_EventRead, p99 (ms)", None if p99 is None else p99 / 1e3, "<= 1 ms",
          1.0, "SIOCSIFMTU on lan1 to the event read", fmt="{:.3f}")
    wake = fig.counter("BM_EventIdleWakeups", "wakeups")
    t.add(ev, "idle descriptor wake-ups in 10 s", wake, "0", 0, "poll on NET_EVENT_ALL, no changes",
          fmt="{:.0f}")

    counts, sections = [1, 10, 100, 1000], [10, 100, 1000]
    scale_row(t, fig, "NET_GetInterfaces, 1-1000 interfaces", "NET_GetInterfaces",
              "NET_GetInterfaces", counts, "interface")
    scale_row(t, fig, "NET_GetIpv6AddrList, 1-1000 addresses", "NET_GetIpv6AddrList",
              "NET_GetIpv6AddrList", counts, "address")
    scale_row(t, fig, "NET_GetEtherCfg, 10-1000 sections", "NET_GetEtherCfg", "read", sections,
              "section")
    scale_row(t, fig, "NET_GetPortCfg, 10-1000 sections", "NET_GetPortCfg", "read", sections,
              "section")
    scale_row(t, fig, "NET_SetEtherCfg, 10-1000 sections", "NET_SetEtherCfg", "write", sections,
              "section")

    ck = "Checkpoints (wall time)"
    t.ratio(fig, ck, "NET_CheckpointRollback, no DHCP", "ckpt/rollback", "ckpt/rollback/base", 1.0,
            "(the same undone by ip addr, ip route, ip link and cp in one shell)")
    rb = fig.time_ns("ckpt/rollback")
    t.add(ck, "NET_CheckpointRollback, no DHCP (ms)", None if rb is None else rb / 1e6, "<= 100 ms",
          100.0, "two ports: addresses, gateway, static route, MTU, resolver and package files")
    size = fig.counter("ckpt/create", "file_bytes")
    t.add(ck, "checkpoint file (bytes)", size, "-", None,
          f"NET_CheckpointCreate {fmt_time(fig.time_ns('ckpt/create'))}, both files included",
          fmt="{:.0f}")

    footprint_rows(t, fig, build_dir)
    return t


def main(argv):
    args = [a for a in argv[1:] if not a.startswith("--")]
    if len(args) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    table = build_table(Figures(load_runs(args[0])), args[1])
    if "--markdown" in argv:
        table.print_markdown()
    else:
        table.print_text()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
