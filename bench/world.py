"""The world that daemon and floors are measured in: a folder with homes, a private bus, programs copied where an ordinary
user may run them. All of it, the processes included, is gone when the `with` statement ends.
"""

import contextlib
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import tempfile
import time

NOBODY = 65534
PROGRAMS = ("CRDaemon", "CRDaemon-http", "floor_waiter", "floor_pass", "floor_parse", "floor_post", "floor_post_queue",
            "bench_pass", "bench_convert", "bench_calls", "bench_service")
BUS = """<busconfig><type>session</type><listen>unix:path={}</listen><auth>EXTERNAL</auth><policy context="default">
<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>
"""
REPORT = """{{"app_name":"Photo","app_version":"4.2","bug_type":"309","os_version":"macOS 12.6.1 (21G217)"}}
{{
  "procLaunch" : "2026-03-04 05:06:07.1234 +0000",
  "modelCode" : "MacBookPro18,3",
  "captureTime" : "2026-03-04 05:06:19.5678 +0000",
  "pid" : {pid},
  "exception" : {{"type":"EXC_BAD_ACCESS", "signal":"SIGSEGV", "subtype":"KERN_INVALID_ADDRESS"}},
  "threads" : [
  {{"triggered":true,"id":77231,"queue":"com.apple.main-thread","frames":[{frames}{{"imageOffset":512,"imageIndex":0}}]}}
  ],
  "usedImages" : [
  {{
    "base" : 4368400384,
    "name" : "Photo"
  }}
]
}}
"""
FRAME = '{"imageOffset":18412,"symbol":"Filters::Apply(Image const&)","symbolLocation":512,"imageIndex":%d},'


def report(pid=4711, size=0):
    """A system report about the process, of at least `size` bytes."""
    frames = "".join(FRAME % (index % 300) for index in range(size // (len(FRAME) - 1) + 1)) if size else ""
    return REPORT.format(pid=pid, frames=frames)


def eventually(holds, what, seconds=60, pause=0.005):
    """Returns the first true answer of `holds`."""
    end = time.monotonic() + seconds
    while not (answer := holds()):
        if time.monotonic() > end:
            raise RuntimeError("not in time: " + what)
        time.sleep(pause)
    return answer


class World:
    """The account is the caller's own, or that of an unprivileged user when the caller is root, as in the tests."""

    def __init__(self, programs, stack):
        self.stack = stack
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="crdaemon-bench-"))
        stack.callback(shutil.rmtree, self.folder, ignore_errors=True)
        self.account = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.getuid() == 0 else {}
        self.own(self.folder)
        self.bin = self.folder / "bin"
        self.bin.mkdir()
        for name in PROGRAMS:
            shutil.copy2(programs / name, self.bin / name)
        os.sync()  # pages of a file not yet on the disk count as dirty in every process that maps it
        self.bus = self.start_bus()
        self.homes = 0
        # Memory, where there is any to be had: how long a disk takes to be certain is not what is measured.
        self.fast = self.folder
        if os.access("/dev/shm", os.W_OK):
            self.fast = pathlib.Path(tempfile.mkdtemp(prefix="crdaemon-bench-", dir="/dev/shm"))
            stack.callback(shutil.rmtree, self.fast, ignore_errors=True)
            self.own(self.fast)

    def own(self, path):
        if self.account:
            os.chown(path, NOBODY, NOBODY)

    def put(self, path, content):
        path = pathlib.Path(path)
        self.make(path.parent)
        path.write_text(content, encoding="utf-8")
        self.own(path)

    def make(self, folder):
        if not folder.exists():
            self.make(folder.parent)
            folder.mkdir(mode=0o700)
            self.own(folder)

    def home(self, fast=False):
        self.homes += 1
        home = (self.fast if fast else self.folder) / f"home{self.homes}"
        self.make(home / "Library/Logs/DiagnosticReports")
        return home

    def start_bus(self):
        configuration = self.folder / "bus.conf"
        self.put(configuration, BUS.format(self.folder / "bus"))
        self.start(["/usr/bin/dbus-daemon", "--nofork", f"--config-file={configuration}"], self.folder)
        eventually((self.folder / "bus").exists, "session bus")
        return f"unix:path={self.folder / 'bus'}"

    def start_display(self):
        """An X server for everybody; returns its display's name."""
        server = self.start(["/usr/bin/Xvfb", "-displayfd", "1", "-nolisten", "tcp", "-ac"], self.folder,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        return ":" + server.stdout.readline().decode().strip()

    def environment(self, home, **more):
        # No display, and no system bus that it would have to look for now and then.
        return {"HOME": str(home), "PATH": "/usr/bin:/bin", "TZ": "UTC", "DBUS_SESSION_BUS_ADDRESS": self.bus,
                "DBUS_SYSTEM_BUS_ADDRESS": "none:", "CRDAEMON_INGEST_URL": "https://127.0.0.1:1/none", **more}

    def start(self, command, home, environment=None, **options):
        """A process that ends with the world. In a folder of its own: system reports are looked for below it."""
        process = subprocess.Popen([str(word) for word in command], cwd=home, env=environment or {"PATH": "/usr/bin:/bin"},
                                   preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)),
                                   **self.account, **options)
        self.stack.callback(end, process)
        return process

    def run(self, command, home, environment=None):
        """What it prints."""
        return subprocess.run([str(word) for word in command], cwd=home, check=True, stdout=subprocess.PIPE, text=True,
                              env=environment or self.environment(home), **self.account).stdout

    def start_host(self):
        return self.start(["/bin/sleep", "100000"], self.folder, start_new_session=True)

    def daemon_command(self, host, reporter="/bin/true"):
        return [self.bin / "CRDaemon", host.pid, "Photo", "4.2", "/icon.png", reporter, "0", "", "", "", "",
                "Photo quit unexpectedly.", "4.2.0", "b7", "Photo", "PhotoDesktop", "Photo", "0", "1.0", "0", "", "", "2.1",
                "1", "20", "0", "6F1C3D60-95A1-4E0C-9B7E-0A3F0C9D5B11", "X86-64", "0", "subscription", "1"]

    def start_daemon(self, host, home, **variables):
        """Returns once it watches: then this run's stored crash is in the preferences."""
        daemon = self.start(self.daemon_command(host), home, self.environment(home, **variables))
        preferences = home / "Library/Preferences/com.malvex.crashreporter.plist"
        eventually(preferences.exists, "daemon that watches")
        return daemon


def end(process):
    if process.poll() is None:
        process.send_signal(signal.SIGKILL)
    process.wait()


@contextlib.contextmanager
def new(programs):
    with contextlib.ExitStack() as stack:
        yield World(pathlib.Path(programs), stack)
