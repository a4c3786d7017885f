"""What the daemon's work costs, against programs that do the least that the same work takes."""

import json
import os
import pathlib
import plistlib
import re
import subprocess
import sys
import uuid

import world as worlds
from table import Row, median, ratios

ATTRIBUTES = {"stat", "lstat", "fstat", "newfstatat", "statx", "access", "faccessat", "faccessat2"}
MATCHES = 5
GROWTH = 12  # of the cost of ten times the work
# By how much Python is slower at the least, by megabytes. The page says what holds the first.
PYTHON = {1: 8, 10: 10}
POSTING = 0.35  # of the floor's events a second, at the least
HERE = pathlib.Path(__file__).parent


def milliseconds(nanoseconds):
    return f"{nanoseconds / 1e6:.1f} ms"


def microseconds(nanoseconds):
    return f"{nanoseconds / 1e3:.1f} µs"


def report_folder(world, files):
    """Reports of other applications, and a few of ours from earlier runs. Some names begin alike."""
    folder = world.folder / f"reports{files}"
    world.make(folder)
    names = [f"{('Painter', 'Mail', 'Player', 'Sync')[number % 4]}-2026-03-04-{number:06}.ips"
             for number in range(files - MATCHES)]
    for name in names + [f"Photo-2026-03-0{day}-050607.ips" for day in range(1, MATCHES + 1)]:
        os.close(os.open(folder / name, os.O_CREAT | os.O_WRONLY, 0o644))
    return folder


def attribute_calls(world, folder):
    """Of one pass, by what two take more than one."""
    counts = []
    for passes in (1, 2):
        output = world.folder / "calls"
        world.run(["/usr/bin/strace", "-f", "-o", output, world.bin / "bench_pass", folder, "Photo", passes], world.folder)
        names = re.findall(r"^\d+ +(\w+)\(", output.read_text(errors="replace"), re.M)
        counts.append(sum(name in ATTRIBUTES for name in names))
    return counts[1] - counts[0]


def attributes(world):
    calls = attribute_calls(world, report_folder(world, 1000))
    return [Row("attribute calls of a pass with 5 matches", str(MATCHES), str(calls), calls, MATCHES + 1, "")]


def passes(world, rounds):
    home, times = world.home(), {}
    folders = {files: report_folder(world, files) for files in (10_000, 100_000)}
    for _ in range(rounds):
        for files, folder in folders.items():
            for program in ("floor_pass", "bench_pass"):
                printed = world.run([world.bin / program, folder, "Photo", 3], home).split()
                if program == "floor_pass" and int(printed[0]) != MATCHES:
                    raise RuntimeError("the floor does not see the matches")
                times.setdefault((program, files), []).append(int(printed[-1]))
    least, own = times["floor_pass", 100_000], times["bench_pass", 100_000]
    return [
        Row("pass over 100,000 files with 5 matches", milliseconds(median(least)), milliseconds(median(own)),
            ratios(own, least), 1.15),
        growth("files", times["bench_pass", 10_000], own),
    ]


def growth(what, small, large):
    return Row(f"cost of ten times the {what}", milliseconds(median(small)), milliseconds(median(large)),
               ratios(large, small), GROWTH)


def conversions(world, rounds):
    rows, own = [], {}
    for size in (1, 10):
        path = world.fast / f"report{size}.ips"
        world.put(path, worlds.report(size=size << 20))
        own[size], least, script, peaks = [], [], [], []
        for _ in range(rounds):
            home = world.home(fast=True)
            least.append(int(world.run([world.bin / "floor_parse", path], home).split()[0]))
            nanoseconds, peak = map(int, world.run([world.bin / "bench_convert", path], home).split())
            if not list((home / "Library/Logs/CrashReporter/Ingest").glob("crMacLog_*.log")):
                raise RuntimeError("no event came of the report")
            own[size].append(nanoseconds)
            peaks.append(peak * 1024 / path.stat().st_size)
            script.append(int(subprocess.check_output([sys.executable, HERE / "floors/convert.py", path,
                                                       world.fast / "event.plist"])))
        rows += [
            Row(f"JSON report of {size} MB to event, first call", milliseconds(median(least)),
                milliseconds(median(own[size])), ratios(own[size], least), 2),
            Row(f"the same against Python, {size} MB", milliseconds(median(script)), milliseconds(median(own[size])),
                ratios(script, own[size]), 10, "× faster", atLeast=True, bound=PYTHON[size]),
            Row(f"peak memory of it, {size} MB", "the file", f"{median(peaks):.2f} files", median(peaks), 3),
        ]
    return rows + [growth("report", own[1], own[10])]


def calls(world, rounds):
    """What Google Benchmark calls over and over, the display included."""
    read, write = os.pipe()
    world.start(["/usr/bin/Xvfb", "-displayfd", write, "-screen", "0", "640x480x24"], world.folder, pass_fds=[write])
    with os.fdopen(read) as display:
        os.close(write)
        number = display.readline().strip()
    home = world.home()
    printed = world.run([world.bin / "bench_calls", "--benchmark_format=json", f"--benchmark_repetitions={rounds}",
                         "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.05"], home,
                        world.environment(home, DISPLAY=f":{number}"))
    times = {}
    for run in json.loads(printed)["benchmarks"]:
        if run.get("error_occurred"):
            raise RuntimeError(run["error_message"])
        if run["run_type"] == "iteration":
            times.setdefault(run["name"].removesuffix("/real_time"), []).append(run["real_time"])
    least, own = times["FloorLines/1048576"], times["TextConversion/1048576"]
    return [
        Row("text report of 1 MB", milliseconds(median(least)), milliseconds(median(own)), ratios(own, least), 3),
        growth("text report", own, times["TextConversion/10485760"]),
        Row("an event, from its file's bytes to a request's body", microseconds(median(times["FloorEvent"])),
            microseconds(median(times["EventToBody"])), ratios(times["EventToBody"], times["FloorEvent"]), 3),
        growth("windows", times["Windows/10"], times["Windows/100"]),
    ]


class Service:
    """The service that counts, on the last processor."""

    def __init__(self, world):
        certificate, key = world.folder / "service.crt", world.folder / "service.key"
        world.run(["/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                   "-days", "2", "-subj", "/CN=service", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out",
                   certificate], world.folder)
        last = max(os.sched_getaffinity(0))
        self.process = world.start(["/usr/bin/taskset", "-c", last, world.bin / "bench_service", certificate, key],
                                   world.folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.url = f"https://127.0.0.1:{self.process.stdout.readline().split()[1]}/ingest"
        self.variables = {"CRDAEMON_INGEST_URL": self.url, "SSL_CERT_FILE": str(certificate)}
        self.certificate = certificate

    def count(self, record=""):
        """Requests, handshakes and nanoseconds since the last call."""
        self.process.stdin.write(f"{record}\n")
        self.process.stdin.flush()
        return map(int, self.process.stdout.readline().split())


def queue_events(world, home, events):
    folder = home / "Library/Logs/CrashReporter/Ingest"
    world.make(folder)
    for number in range(events):
        event = {"source.name": "Photo", "source.version": "4.2", "env.fw.version": "2.1", "event.session_guid": "F0F0",
                 "event.user_guid": "6F1C3D60-95A1-4E0C-9B7E-0A3F0C9D5B11", "event.guid": str(uuid.uuid4()),
                 "event.value": "abnormal:crash", "event.error_type": "EXC_BAD_ACCESS", "event.error_code": "SIGSEGV",
                 "event.error_desc": f"KERN_INVALID_ADDRESS at {number}", "source.device": "MacBookPro18,3",
                 "source.os_version": "12.6.1", "event.dts_start": "2026-03-04T05:06:07Z",
                 "event.dts_end": "2026-03-04T05:06:19Z", "event.count": "12.000000"}
        world.put(folder / f"crMacLog_{uuid.uuid4()}.log", plistlib.dumps(event).decode())
    return folder


def on_first(command):
    return ["/usr/bin/taskset", "-c", min(os.sched_getaffinity(0)), *command]


def post_queue(world, service, events, record="", fast=False):
    """A daemon empties its queue, pinned to the first processor. Requests, handshakes and nanoseconds."""
    home, host = world.home(fast), world.start_host()
    folder = queue_events(world, home, events)
    daemon = world.start(on_first(world.daemon_command(host)), home, world.environment(home, **service.variables))
    # A look at the folder keeps the daemon out of it.
    worlds.eventually(lambda: not any(folder.iterdir()), "empty queue", pause=0.1)
    worlds.end(daemon)
    worlds.end(host)
    return service.count(record)


def handshakes(world):
    requests, shakes, _ = post_queue(world, Service(world), 50)
    if requests != 50:
        raise RuntimeError(f"50 events made {requests} requests")
    return [Row("TLS handshakes of a worker run", "1", str(shakes), shakes, 1, "")]


def posting(world, rounds):
    service = Service(world)
    bodies = world.folder / "bodies"
    times = {}
    for turn in range(rounds + 1):
        record = bodies if turn == 0 else ""  # the first one records the bodies, and does not count
        taken = {"disk": post_queue(world, service, 1000, record), "memory": post_queue(world, service, 1000, fast=True),
                 "few": post_queue(world, service, 100)}
        world.run(on_first([world.bin / "floor_post", service.url, service.certificate, bodies]), world.folder)
        taken["floor"] = service.count()
        home = world.home(fast=True)
        queue = queue_events(world, home, 1000)
        world.run(on_first([world.bin / "floor_post_queue", queue, bodies]), home,
                  world.environment(home, **service.variables))
        taken["helper"] = service.count()
        for name, (requests, _, nanoseconds) in taken.items():
            if requests != (100 if name == "few" else 1000):
                raise RuntimeError(f"not every event was posted once: {requests}, {name}")
            if turn > 0:
                times.setdefault(name, []).append(nanoseconds)

    def row(what, own):
        rate = [999e9 / median(times[name]) for name in ("floor", own)]
        return Row(what, f"{rate[0]:.0f}/s", f"{rate[1]:.0f}/s", ratios(times["floor"], times[own]), 0.6, atLeast=True,
                   bound=POSTING)

    each = {name: median(values) / 1e6 for name, values in times.items()}
    note = (f"A post takes the floor {each['floor']:.0f} µs, the helper process and the bare calls of a queue "
            f"{each['helper']:.0f} µs, the daemon {each['memory']:.0f} µs.")
    return [
        row("posting 1,000 queued events", "memory"),
        row("the same from a queue on the disk", "disk"),
        growth("events", times["few"], times["disk"]),
    ], note
