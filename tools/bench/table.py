#!/usr/bin/env python3
"""Prints the table of scripts/bench.sh from the Google Benchmark JSON files
in the results directory it is given:

  quiet.json         every path; debug lines compiled in, not loggable
  null-logger.json   qor; every line loggable, handed to a logger that drops it
  compiled-out.json  qor; built with -DQOR_DEBUG_LOG=OFF

Times are medians of the repetitions, microseconds per operation.
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
            times[b["run_name"].removesuffix("/real_time")] = b["real_time"] / scale
    return run.get("context", {}), times


def fmt(v):
    return "-" if v is None else (f"{v:.1f}" if v >= 10 else f"{v:.2f}")


def ratio(a, b):
    return "-" if a is None or b is None else f"{a / b:.2f}x"


def diff(a, b):
    return "-" if a is None or b is None else f"{a - b:+.2f}"


def pct(a, b):
    return "-" if a is None or b is None else f"{(a - b) / b * 100:+.1f}%"


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
          "| added per PKCS#11 call |")
    print("|---|---|---|---|---|---|---|")
    for op in OPS:
        q, j, b, jb = (quiet.get(f"{op}/{k}") for k in ("qor", "java", "bridge", "java-bridge"))
        print(f"| {op} | {fmt(q)} | {fmt(j)} | {diff(per_call(j, q, op), 0.0)} | {fmt(b)} "
              f"| {fmt(jb)} | {diff(per_call(jb, b, op), 0.0)} |")
    print()
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
