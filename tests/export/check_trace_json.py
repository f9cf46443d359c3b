#!/usr/bin/env python3
"""Prints the events of a Trace Event Format file from kelvo-export in a
canonical form, one line each. Fails unless the file is strict UTF-8 JSON
with traceEvents and displayTimeUnit "ns", every event names its pid and tid,
every thread and process is named by metadata, and the slices of each
thread nest."""
import decimal
import json
import sys


def fail(why):
    print("check_trace_json: " + why, file=sys.stderr)
    sys.exit(1)


def ns(value):
    if not isinstance(value, decimal.Decimal):
        fail("time is not a decimal number: %r" % (value,))
    return int(value * 1000)


def main():
    with open(sys.argv[1], "rb") as f:
        raw = f.read()
    try:
        data = json.loads(raw.decode("utf-8", errors="strict"), parse_float=decimal.Decimal)
    except (UnicodeDecodeError, json.JSONDecodeError) as e:
        fail("not JSON: %s" % e)
    if not isinstance(data, dict) or data.get("displayTimeUnit") != "ns" or not isinstance(data.get("traceEvents"), list):
        fail("not an object with displayTimeUnit ns and a traceEvents list")
    events = data["traceEvents"]
    processes, threads, slices, lines = set(), set(), {}, []
    for e in events:
        ph, pid, tid = e.get("ph"), e.get("pid"), e.get("tid")
        if not isinstance(pid, int) or not isinstance(tid, int):
            fail("event without pid and tid: %r" % (e,))
        where = "%d.%d" % (pid, tid)
        args = json.dumps(e.get("args", {}), sort_keys=True, ensure_ascii=True, default=str)
        if ph == "M":
            if e["name"] == "process_name":
                processes.add(pid)
            elif e["name"] == "thread_name":
                threads.add((pid, tid))
            lines.append("M %s %s %s" % (where, e["name"], json.dumps(e["args"]["name"])))
        elif ph == "X":
            start, dur = ns(e["ts"]), ns(e["dur"])
            if dur < 0:
                fail("negative duration: %r" % (e,))
            slices.setdefault((pid, tid), []).append((start, start + dur, e["name"]))
            lines.append("X %s %d +%d %s %s %s" % (where, start, dur, e["cat"], json.dumps(e["name"]), args))
        elif ph == "i":
            if e.get("s") != "t":
                fail("instant not on its thread: %r" % (e,))
            lines.append("i %s %d %s %s %s" % (where, ns(e["ts"]), e["cat"], json.dumps(e["name"]), args))
        else:
            fail("unexpected phase %r" % (ph,))
    for e in events:
        if e["ph"] != "M" and ((e["pid"], e["tid"]) not in threads or e["pid"] not in processes):
            fail("thread %d.%d has no name" % (e["pid"], e["tid"]))
    for thread, spans in slices.items():
        stack = []
        for start, end, name in sorted(spans, key=lambda s: (s[0], -s[1])):
            while stack and stack[-1][1] <= start:
                stack.pop()
            if stack and end > stack[-1][1]:
                fail("slice %s overlaps %s on thread %d.%d" % (name, stack[-1][2], thread[0], thread[1]))
            stack.append((start, end, name))
    for line in lines:
        print(line)


main()
