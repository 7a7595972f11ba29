#!/usr/bin/env python3
"""Prints the table of scripts/bench.sh from the Google Benchmark JSON files
in the results directory it is given:

  quiet.json         every path; debug lines compiled in, not loggable
  null-logger.json   qor; every line loggable, handed to a logger that drops it
  compiled-out.json  qor; built with -DQOR_DEBUG_LOG=OFF
  pinned.json        the remoted paths again, every process on one CPU

Times are medians of the repetitions, microseconds per operation. CPU is
user + system time of the calling and the serving process together, from the
kernel's accounting of each over the timed loop.
"""
import json
import os
import re
import sys

OPS = ["GenerateRandom_32B", "Digest_SHA256_1KiB", "Digest_SHA256_1MiB",
       "FindObjects_triple", "Sign_RSA2048"]
# PKCS#11 calls per operation, to judge what the Java natives add per call.
CALLS = {"GenerateRandom_32B": 1, "Digest_SHA256_1KiB": 2, "Digest_SHA256_1MiB": 2,
         "FindObjects_triple": 3, "Sign_RSA2048": 2}


def load(directory, name):
    with open(os.path.join(directory, name + ".json")) as f:
        run = json.load(f)
    times = {}
    for b in run["benchmarks"]:
        if b.get("aggregate_name") == "median" and not b.get("error_occurred"):
            scale = 1000.0 if b.get("time_unit") == "ns" else 1.0
            name = b["run_name"].removesuffix("/real_time")
            times[name] = b["real_time"] / scale
            if "cpu_client" in b:
                times[name + "#cpu"] = b["cpu_client"] + b.get("cpu_server", 0.0)
                times[name + "#split"] = (b["cpu_client"], b.get("cpu_server", 0.0))
    return run.get("context", {}), times


def fmt(v):
    return "-" if v is None else (f"{v:.1f}" if v >= 10 else f"{v:.2f}")


def ratio(a, b):
    return "-" if a is None or b is None else f"{a / b:.2f}x"


def diff(a, b):
    return "-" if a is None or b is None else f"{a - b:+.2f}"


def pct(a, b):
    return "-" if a is None or b is None else f"{(a - b) / b * 100:+.1f}%"


def remoted_tables(times, title):
    """Wall and CPU per operation on the remoted paths, and the goals' ratios."""
    print(f"{title}: wall time and CPU time (calling + serving process), "
          "microseconds per operation")
    print()
    print("| operation | qor wall | qor CPU (client+server) | p11-kit wall | p11-kit CPU "
          "| floor wall | floor CPU | floor, one send: wall | CPU | qor/floor CPU "
          "| qor/floor one-send CPU | qor/p11-kit CPU | qor/p11-kit wall |")
    print("|---|---|---|---|---|---|---|---|---|---|---|---|---|")
    for op in OPS:
        w = {k: times.get(f"{op}/{k}") for k in ("qor", "p11kit", "floor", "floor1")}
        c = {k: times.get(f"{op}/{k}#cpu") for k in w}
        split = times.get(f"{op}/qor#split")
        qcpu = f"{fmt(c['qor'])} ({fmt(split[0])}+{fmt(split[1])})" if split else fmt(c["qor"])
        print(f"| {op} | {fmt(w['qor'])} | {qcpu} | {fmt(w['p11kit'])} | {fmt(c['p11kit'])} "
              f"| {fmt(w['floor'])} | {fmt(c['floor'])} | {fmt(w['floor1'])} | {fmt(c['floor1'])} "
              f"| {ratio(c['qor'], c['floor'])} | {ratio(c['qor'], c['floor1'])} "
              f"| {ratio(c['qor'], c['p11kit'])} | {ratio(w['qor'], w['p11kit'])} |")
    print()


# The goals, judged from one run: CPU of both processes per small call
# against the floor's (one send per frame, the least a framed exchange does)
# and p11-kit's, the 1 MiB digest's wall time against p11-kit's, and the CPU
# the Java natives add per PKCS#11 call over the bridge.
SMALL = ["GenerateRandom_32B", "Digest_SHA256_1KiB", "FindObjects_triple"]


def verdict(value, limit, other=None):
    """Met, or how far off: in microseconds of the path judged when the
    yardstick's figure is given (a ratio's distance rounds to nothing)."""
    if value is None:
        return "-"
    if value <= limit:
        return "met"
    if other is None:
        return f"not met ({value - limit:.2f}x over)"
    return f"not met ({(value - limit) * other:.2f} us over)"


def goals(times, title):
    print(f"Goals, {title}:")
    print()
    print("| goal | operation | measured | verdict |")
    print("|---|---|---|---|")
    for op in SMALL:
        q = times.get(f"{op}/qor#cpu")
        for other, name, limit in (("floor1", "floor (one send)", 1.2), ("p11kit", "p11-kit", 0.7)):
            o = times.get(f"{op}/{other}#cpu")
            r = None if q is None or o is None else q / o
            shown = "-" if r is None else f"{r:.2f}x ({fmt(q)} vs {fmt(o)} us)"
            print(f"| CPU <= {limit}x {name} | {op} | {shown} | {verdict(r, limit, o)} |")
    q, p = times.get("Digest_SHA256_1MiB/qor"), times.get("Digest_SHA256_1MiB/p11kit")
    r = None if q is None or p is None else q / p
    shown = "-" if r is None else f"{r:.2f}x ({fmt(q)} vs {fmt(p)} us)"
    print(f"| wall <= 0.85x p11-kit | Digest_SHA256_1MiB | {shown} | {verdict(r, 0.85, p)} |")
    print()


def java_goal(times):
    ccall = times.get("JavaCall/java#cpu") or 0.0
    print("| goal | operation | CPU the natives add per PKCS#11 call (over the bridge) | verdict |")
    print("|---|---|---|---|")
    for op in SMALL:
        cb, cjb = times.get(f"{op}/bridge#cpu"), times.get(f"{op}/java-bridge#cpu")
        add = None if cb is None or cjb is None else (cjb - ccall - cb) / CALLS[op]
        shown = "-" if add is None else f"{add:+.2f} us"
        ok = "-" if add is None else ("met" if add <= 1.0 else f"not met ({add - 1.0:+.2f} us over)")
        print(f"| natives add <= 1 us CPU per call | {op} | {shown} | {ok} |")
    print()


def main():
    directory = sys.argv[1]
    ctx, quiet = load(directory, "quiet")
    nctx, null = load(directory, "null-logger")
    _, off = load(directory, "compiled-out")
    print(f"{ctx.get('host_name', '?')}, {ctx.get('num_cpus', '?')} CPUs, load "
          f"{ctx.get('load_avg', '?')}, {ctx.get('date', '?')}")
    print("median of the repetitions, microseconds per operation (real time)")
    print()
    print("| operation | direct | qor | p11-kit | floor | qor/floor | qor/p11-kit |")
    print("|---|---|---|---|---|---|---|")
    for op in OPS:
        d, q, p, fl = (quiet.get(f"{op}/{k}") for k in ("direct", "qor", "p11kit", "floor"))
        print(f"| {op} | {fmt(d)} | {fmt(q)} | {fmt(p)} | {fmt(fl)} | {ratio(q, fl)} "
              f"| {ratio(q, p)} |")
    print()
    # What the Java natives add: twice, remoted (within the noise of the
    # round trip) and in process over the bridge (precise).
    call = quiet.get("JavaCall/java") or 0.0

    def per_call(java, native, op):
        return None if java is None or native is None else (java - call - native) / CALLS[op]

    print("| operation | qor | java | added per PKCS#11 call | bridge | java over bridge "
          "| added per PKCS#11 call | CPU added per call, over bridge |")
    print("|---|---|---|---|---|---|---|---|")
    ccall = quiet.get("JavaCall/java#cpu") or 0.0
    for op in OPS:
        q, j, b, jb = (quiet.get(f"{op}/{k}") for k in ("qor", "java", "bridge", "java-bridge"))
        cb, cjb = quiet.get(f"{op}/bridge#cpu"), quiet.get(f"{op}/java-bridge#cpu")
        cadd = None if cb is None or cjb is None else (cjb - ccall - cb) / CALLS[op]
        print(f"| {op} | {fmt(q)} | {fmt(j)} | {diff(per_call(j, q, op), 0.0)} | {fmt(b)} "
              f"| {fmt(jb)} | {diff(per_call(jb, b, op), 0.0)} | {diff(cadd, 0.0)} |")
    print()
    remoted_tables(quiet, "Unpinned")
    pinned = None
    if os.path.exists(os.path.join(directory, "pinned.json")):
        pctx, pinned = load(directory, "pinned")
        print(f"load at the start of the pinned run: {pctx.get('load_avg', '?')}")
        remoted_tables(pinned, "Every process pinned to one CPU")
    goals(quiet, "unpinned")
    if pinned is not None:
        goals(pinned, "pinned to one CPU")
    java_goal(quiet)
    print(f"java columns: the same operations from Java through the natives, over the same "
          f"function list; the benchmark's own call into Java ({call * 1000:.0f} ns, a Java "
          f"method that does nothing) is taken off before dividing by the calls")
    print()
    check = quiet.get("LogLine/qor")
    emit = null.get("LogLine/qor")
    print(f"one log statement: {check * 1000:.1f} ns not loggable, "
          f"{emit * 1000:.1f} ns loggable to a null logger" if check and emit else "")
    print()
    print("| operation | frames (request>reply bytes) | log statements (client+server) "
          "| their cost, not loggable | qor, lines compiled out | qor vs compiled out "
          "| qor, null logger | null logger vs not loggable |")
    print("|---|---|---|---|---|---|---|---|")
    for op in OPS:
        probe = nctx.get(f"probe {op}", "")
        m = re.search(r"lines (\d+)\+(\d+)", probe)
        lines = int(m.group(1)) + int(m.group(2)) if m else None
        q, o, n = quiet.get(f"{op}/qor"), off.get(f"{op}/qor"), null.get(f"{op}/qor")
        cost = "-"
        if lines is not None and check and q:
            cost = f"{lines * check:.2f} us = {lines * check / q * 100:.2f}%"
        frames = probe.split(" lines")[0] if probe else "-"
        print(f"| {op} | {frames} | {m.group(1) + '+' + m.group(2) if m else '-'} | {cost} "
              f"| {fmt(o)} | {pct(q, o)} | {fmt(n)} | {pct(n, q)} |")


if __name__ == "__main__":
    main()
