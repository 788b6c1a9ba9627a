"""What a fleet of gateways uses, for scripts/fleet: processes, CPU, memory, and what passes the broker."""

import os
import subprocess
import time
from collections import defaultdict
from pathlib import Path

HEARTBEAT = 9  # seconds
# The broker counts anew only that often.
BROKER_PAUSE = 3
SIZES = (10000, 1000000)


def programs(roots):
    """(name, program) -> process ids, of the processes `roots` (name -> process id) and of all below them."""
    children, found = defaultdict(list), defaultdict(list)
    for entry in Path("/proc").glob("[0-9]*/stat"):
        try:
            children[int(entry.read_text().rpartition(")")[2].split()[1])].append(int(entry.parent.name))
        except OSError:
            continue  # it has ended meanwhile
    for name, pid in roots.items():
        line = [pid]
        for one in line:
            line += children[one]
            try:
                found[name, os.path.basename(os.readlink(f"/proc/{one}/exe"))].append(one)
            except OSError:
                continue
    return found


def cpu_seconds(pids):
    tasks = (t for pid in pids for t in Path(f"/proc/{pid}/task").glob("*/schedstat"))
    return sum(int(task.read_text().split()[0]) for task in tasks) / 1e9


def memory_kib(pid, kind):
    """`kind` is a line of smaps_rollup, "Pss" for the proportional memory, "Anonymous" for what is its own."""
    lines = Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()
    return next(int(line.split()[1]) for line in lines if line.startswith(f"{kind}:"))


def broker_counts(port):
    topics = ("publish/messages/received", "bytes/received", "bytes/sent", "clients/connected")
    command = ["mosquitto_sub", "-p", str(port), "-C", str(len(topics)), "-W", "10", "-F", "%t %p"]
    for topic in topics:
        command += ["-t", f"$SYS/broker/{topic}"]
    lines = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()
    return {topic: float(next(x.split()[1] for x in lines if x.startswith(f"$SYS/broker/{topic}")))
            for topic in topics}


def by_program(found):
    """Program -> process ids, whatever gateway they belong to."""
    grouped = defaultdict(list)
    for (_, program), pids in found.items():
        grouped[program] += pids
    return grouped


def measure_idle(roots, port, size, beats, broker_base):
    """Prints what the fleet uses while it is left alone for so many heartbeats. `broker_base` is what the broker had,
    in KiB, before the first gateway came."""
    found = by_program(programs(roots))
    time.sleep(BROKER_PAUSE)
    counts, begin = broker_counts(port), time.monotonic()
    before = {program: cpu_seconds(pids) for program, pids in found.items()}
    time.sleep(beats * HEARTBEAT)
    seconds = time.monotonic() - begin
    cpu = {program: (cpu_seconds(pids) - before[program]) / seconds for program, pids in found.items()}
    after = broker_counts(port)
    rates = {key: (after[key] - counts[key]) / seconds for key in counts}
    pss = {program: sum(memory_kib(pid, "Pss") for pid in pids) for program, pids in found.items()}
    print_programs(found, cpu, pss, size)
    print_outlook(size, after["clients/connected"], rates, cpu,
                  memory_kib(found["mosquitto"][0], "Anonymous") - broker_base)


def print_programs(found, cpu, pss, size):
    print(f"\n  {'program':<20}{'processes':>10}{'CPU, % of a core':>18}{'PSS a gateway, KiB':>20}")
    for program in sorted(found, key=lambda p: -pss[p]):
        print(f"  {program:<20}{len(found[program]):>10}{cpu[program] * 100:>18.3f}{pss[program] / size:>20,.0f}")
    print(f"  {'all':<20}{sum(map(len, found.values())):>10}{sum(cpu.values()) * 100:>18.3f}"
          f"{sum(pss.values()) / size:>20,.0f}\n")


def print_outlook(size, clients, rates, cpu, broker_growth):
    messages, received, sent = (rates[k] / size for k in
                                ("publish/messages/received", "bytes/received", "bytes/sent"))
    connections = (clients - 2) / size  # without the scheduler and the listener of scripts/fleet
    print(f"  messages a second to the broker: {messages * size:.1f} "
          f"({messages:.3f} a gateway; a heartbeat every {HEARTBEAT} s and its answer are {2 / HEARTBEAT:.3f})")
    print(f"\n  {'a fleet of':<40}" + "".join(f"{n:>14,}" for n in (size, *SIZES)))
    for what, each in (("connections at the broker", connections), ("messages a second to the broker", messages),
                       ("heartbeats a second at the scheduler", 1 / HEARTBEAT),
                       ("KiB a second to the broker", received / 1024),
                       ("KiB a second from the broker", sent / 1024),
                       ("cores for the broker", cpu["mosquitto"] / size),
                       ("cores for the scheduler", cpu["gateway-scheduler"] / size),
                       ("MiB more memory for the broker", broker_growth / 1024 / size)):
        row = (each * n for n in (size, *SIZES))
        print(f"  {what:<40}" + "".join(f"{x:>14,.0f}" if x >= 100 else f"{x:>14.3g}" for x in row))
    print()
