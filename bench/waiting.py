"""What the waiting daemon costs, seen from outside, against a minimal watcher."""

import os
import pathlib
import re
import signal
import subprocess
import time

import world as worlds
from table import Row, median, number, ratios

SETTLING = 6  # seconds: buses connected, memory given back
# What the daemon may map. A library more is a decision, and this is where it is recorded.
LIBRARIES = {"ld-linux-x86-64.so.2", "libc.so.6", "libcap.so.2", "libgcrypt.so.20", "libgpg-error.so.0", "liblz4.so.1",
             "liblzma.so.5", "libm.so.6", "libplist-2.0.so.3", "libsystemd.so.0", "libzstd.so.1"}
CALL = re.compile(r"(\d+) +(\d+\.\d+) (?:<\.\.\. )?(\w+)(\(| resumed)(.*)")


class Sample:
    """One process at one moment."""

    def __init__(self, pid):
        folder = pathlib.Path(f"/proc/{pid}")
        self.moment = time.monotonic()
        statuses = [(task / "status").read_text() for task in (folder / "task").iterdir()]
        self.switches = sum(int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", text, re.M)[1]) for text in statuses)
        schedules = [(task / "schedstat").read_text().split() for task in (folder / "task").iterdir()]
        self.processor = sum(int(schedule[0]) for schedule in schedules) / 1000  # microseconds


def memory(pid):
    """Kilobytes: private dirty, resident."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return tuple(int(re.search(rf"^{name}:\s*(\d+)", text, re.M)[1]) for name in ("Private_Dirty", "Rss"))


def libraries(pid):
    paths = {line.split()[-1] for line in pathlib.Path(f"/proc/{pid}/maps").read_text().splitlines() if ".so" in line}
    return {re.sub(r"(\.so\.\d+).*", r"\1", os.path.basename(path)) for path in paths}


def shares(pid):
    """The kilobytes of private dirty memory by what they belong to, most first, where they are more than a page."""
    totals, name = {}, ""
    for line in pathlib.Path(f"/proc/{pid}/smaps").read_text().splitlines():
        if match := re.match(r"[0-9a-f]+-[0-9a-f]+(?: +\S+){4} *(.*)", line):
            name = re.sub(r"\.so.*", "", os.path.basename(match[1])) or "without a name"
        elif line.startswith("Private_Dirty:"):
            totals[name] = totals.get(name, 0) + int(line.split()[1])
    return ", ".join(f"{name} {size}" for name, size in sorted(totals.items(), key=lambda item: -item[1]) if size > 4)


def sockets(pid):
    """None while it closes what is being looked at."""
    try:
        links = [os.readlink(link) for link in pathlib.Path(f"/proc/{pid}/fd").iterdir()]
    except FileNotFoundError:
        return None
    return sum(link.startswith("socket:") for link in links)


def quiet(world, rounds, seconds):
    """Daemons and floors wait side by side, all at the same time: none disturbs another by waiting. One daemon of a round
    has a session bus alone, one the system bus too, which here is the same, and one a display.
    """
    host = world.start_host()
    display = world.start_display()
    sets = []
    for _ in range(rounds):
        home = world.home()
        sets.append((world.start_daemon(host, home), world.start([world.bin / "floor_waiter", host.pid], home),
                     world.start_daemon(host, world.home(), DBUS_SYSTEM_BUS_ADDRESS=world.bus),
                     world.start_daemon(host, world.home(), DISPLAY=display)))
    for one, _, both, _ in sets:
        worlds.eventually(lambda one=one, both=both: sockets(one.pid) == 1 and sockets(both.pid) == 2, "daemons on their buses")
    time.sleep(SETTLING)
    before = [[Sample(process.pid) for process in group] for group in sets]
    time.sleep(seconds)
    after = [[Sample(process.pid) for process in group] for group in sets]
    os.sync()
    own, least, both, shown = ([memory(process.pid) for process in processes] for processes in zip(*sets))
    parts = [shares(process.pid) for process in sets[0]]
    foreign = set().union(*(libraries(group[index].pid) for group in sets for index in (0, 3))) - LIBRARIES
    calls = [trace_wakeups(world, sets[0][index].pid) for index in (0, 1)]
    for group in sets:
        for process in group:
            worlds.end(process)
    worlds.end(host)

    def rate(index, of):
        return median([(of(b[index]) - of(a[index])) / (b[index].moment - a[index].moment) for a, b in zip(before, after)])

    def row(what, column, daemon, goal, bound=None):
        own, floor = ([figures[column] for figures in list] for list in (daemon, least))
        return Row(what, f"{median(floor):.0f} kB", f"{median(own):.0f} kB", ratios(own, floor), goal, bound=bound)

    switches = [rate(index, lambda sample: sample.switches) for index in (0, 1, 2, 3)]
    processor = [rate(index, lambda sample: sample.processor) for index in (0, 1)]
    return [
        row("private dirty memory while waiting, on the session bus", 0, own, 1.6),
        row("the same, on the system bus too", 0, both, 1.6, bound=1.65),
        row("private dirty memory while waiting, with a display", 0, shown, 1.6),
        row("resident memory while waiting", 1, own, 1.3),
        Row("voluntary context switches a second", f"{switches[1]:.2f}", f"{switches[0]:.2f}", switches[0], 1.05, ""),
        Row("the same, with a display", f"{switches[1]:.2f}", f"{switches[3]:.2f}", switches[3], 1.2, ""),
        Row("system calls a wake-up", number(calls[1]), number(calls[0]), calls[0], 4, ""),
        Row("libraries mapped and not foreseen", f"of {len(LIBRARIES)}", ", ".join(sorted(foreign)) or "none", len(foreign),
            0, ""),
    ], [
        f"Processor time of a waiting second: {processor[0]:.0f} µs, of the floor {processor[1]:.0f} µs.",
        f"Private dirty memory in kB: {parts[0]}.",
        f"That of the floor: {parts[1]}.",
    ]


def trace_wakeups(world, pid):
    """System calls from one sleep to the next, of all threads: the median of the passes."""
    output = world.folder / f"trace{pid}"
    tracer = world.start(["/usr/bin/strace", "-f", "-ttt", "-o", output, "-p", pid], world.folder,
                         stderr=subprocess.DEVNULL)
    time.sleep(9.5)
    tracer.send_signal(signal.SIGINT)
    tracer.wait()
    passes, calls = [], 0
    for _, _, name, how, _ in calls_in(output):
        if how == " resumed":
            continue
        calls += 1
        if name == "clock_nanosleep":
            passes.append(calls)
            calls = 0
    return median(passes[2:])  # the first begin midway


def calls_in(trace):
    """Of each line: thread, moment, call, whether it begins or resumes, and the rest."""
    for line in pathlib.Path(trace).read_text(errors="replace").splitlines():
        if match := CALL.match(line):
            thread, moment, name, how, rest = match.groups()
            yield int(thread), float(moment), name, how, rest


def traced(world, command, home, calls, environment=None):
    """Starts it under a tracer that stops it at these calls alone. Returns the tracer and its output."""
    world.homes += 1
    output = world.folder / f"trace-{world.homes}"
    tracer = ["/usr/bin/strace", "-f", "--seccomp-bpf", "-ttt", "-e", "signal=none", "-e", "trace=" + calls, "-o", output]
    return world.start(tracer + command, home, environment), output


def kill_all_of(trace, tracer):
    """Ends what is traced, whose first line bears its process id; the tracer ends with it."""
    os.kill(next(calls_in(trace))[0], signal.SIGKILL)
    tracer.wait()


def first(trace, name, begin=""):
    for _, moment, call, how, rest in calls_in(trace):
        if call == name and how == "(" and rest.startswith(begin):
            return moment
    return None


def starts(world, rounds):
    """From exec to main and to the first sleep. What main does first is a system call of its own."""
    watched = "execve,rt_sigaction,getpgid,clock_nanosleep"
    host = world.start_host()
    own, steps, least = [], [], []
    for _ in range(rounds):
        home = world.home()
        tracer, trace = traced(world, world.daemon_command(host), home, watched, world.environment(home))
        waits = worlds.eventually(lambda trace=trace: trace.exists() and first(trace, "clock_nanosleep"), "daemon that waits")
        begins = first(trace, "rt_sigaction", "SIGHUP, {sa_handler=SIG_IGN")
        own.append(begins - first(trace, "execve"))
        steps.append(waits - begins)
        kill_all_of(trace, tracer)
        tracer, trace = traced(world, [world.bin / "floor_waiter", host.pid], home, watched)
        begins = worlds.eventually(lambda trace=trace: trace.exists() and first(trace, "getpgid"), "floor that waits")
        least.append(begins - first(trace, "execve"))
        kill_all_of(trace, tracer)
    worlds.end(host)
    return [Row("exec to waiting, the logged start-up steps apart", f"{1000 * median(least):.1f} ms",
                f"{1000 * median(own):.1f} ms + {1000 * median(steps):.1f} ms of steps", ratios(own, least), 1.5)]


def crashes(world, rounds):
    """From the host's death to the exec of the reporter, less what the daemon has to sleep on the way."""
    beyond, prescribed = [], []
    for _ in range(rounds):
        home, host = world.home(), world.start_host()
        tracer, trace = traced(world, world.daemon_command(host, "/bin/true"), home, "execve,clock_nanosleep",
                               world.environment(home))
        worlds.eventually(lambda trace=trace: trace.exists() and first(trace, "clock_nanosleep"), "daemon that waits")
        world.put(home / "Library/Logs/DiagnosticReports/Photo-of-this-run.ips", worlds.report(host.pid))
        death = time.time()
        host.send_signal(signal.SIGSEGV)
        host.wait()
        launch = worlds.eventually(lambda trace=trace: first(trace, "execve", '"/bin/true"'), "reporter")
        tracer.wait()
        sleep = slept(trace, death, launch)
        prescribed.append(sleep)
        beyond.append(launch - death - sleep)
    return [Row("crash to launched reporter, beyond the sleeps", f"{median(prescribed):.2f} s of sleeps",
                f"{median(beyond) + median(prescribed):.2f} s", median(beyond), 0.2, "s")]


def slept(trace, begin, end):
    """Seconds that the thread of the wait loop was asked to sleep between the two moments."""
    total, loop = 0.0, None
    for thread, moment, name, how, rest in calls_in(trace):
        if name != "clock_nanosleep" or how != "(":
            continue
        loop = loop or thread
        seconds, nanoseconds = re.search(r"tv_sec=(\d+), tv_nsec=(\d+)", rest).groups()
        wakes = moment + int(seconds) + int(nanoseconds) / 1e9
        if thread == loop and moment < end and wakes > begin:
            total += wakes - max(moment, begin)
    return total
