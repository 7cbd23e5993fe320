"""QXNEGO_TRACE: a line for every record of both sides' logs, and a program that does not notice where they go."""
import fcntl
import json
import os
import re
import resource
import signal
import socket
import stat
import subprocess
import tempfile
import unittest

QXNEGO, LIBRARIES = os.environ["QXNEGO"], os.environ["QXNEGO_LIBRARIES"]
LINE = re.compile(r'[-0-9T:.]+Z pid=(\d+) context=1 role=(client|server) call=\d+ event="[^"]*"( [-a-z]+=("[^"]*"|\S+))*')


def demo(trace, *arguments, **options):
    environment = dict(os.environ, QXNEGO_TRACE=trace)
    return subprocess.run([QXNEGO, "demo", "policy", "--json", "--library-path", LIBRARIES, *arguments],
                          stdout=subprocess.PIPE, env=environment, text=True, timeout=60, **options)


class Trace(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def check_lines(self, text, saved):
        lines = [LINE.fullmatch(line) for line in text.splitlines()]
        self.assertRegex(text, r'role=client call=3 event="the call is complete" major=00000000 minor=230003E8 status="')
        roles = [line.group(2) for line in lines if 'event="the call ' not in line.group()]
        for role in "client", "server":
            with open(os.path.join(saved, "policy", role + ".log"), errors="replace") as log:
                self.assertEqual(roles.count(role), len(re.findall("^Record ", log.read(), re.M)), role)

    def test_lines(self):
        self.assertEqual(demo(self.path("trace"), "--save", self.folder).returncode, 0)
        with open(self.path("trace")) as file:
            self.check_lines(file.read(), self.folder)
        self.assertEqual(stat.S_IMODE(os.stat(self.path("trace")).st_mode), 0o600)
        again = demo("stderr", "--save", self.path("again"), stderr=subprocess.PIPE)
        self.check_lines(again.stderr, self.path("again"))

    def test_nobody_takes_them(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 24, 1 << 24))
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL)

        os.mkfifo(self.path("fifo"))
        os.symlink(self.path("new"), self.path("link"))
        with open(self.path("large"), "wb") as file:
            file.truncate(1 << 24)
        for trace, options in ((self.path("fifo"), {}), (self.path("link"), {}), (self.folder, {}), ("/dev/full", {}),
                               (self.path("none/x"), {}), ("x" * 5000, {}), (self.path("large"), {"preexec_fn": limit}),
                               ("stderr", {"preexec_fn": lambda: os.close(2)})):
            self.assertTrue(json.loads(demo(trace, **options).stdout)["scenarios"][0]["as_expected"], trace[:99])
        self.assertFalse(os.path.exists(self.path("new")))
        self.assertEqual(os.stat(self.path("large")).st_size, 1 << 24)

    def test_stderr_that_nobody_reads(self):
        reader, pipe = os.pipe()
        fcntl.fcntl(pipe, fcntl.F_SETPIPE_SZ, 4096)
        ours, theirs = socket.socketpair()
        theirs.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1)
        terminal, shown = os.openpty()
        fcntl.fcntl(pipe, fcntl.F_SETFL, 0)  # each would block
        with open("/dev/full", "wb") as full, ours, theirs:
            for stderr in pipe, theirs, shown, full:
                self.assertEqual(demo("stderr", stderr=stderr).returncode, 0)
            ours.close()
            os.close(reader)
            for stderr in pipe, theirs:
                self.assertEqual(demo("stderr", stderr=stderr, restore_signals=True).returncode, 0)
        for descriptor in pipe, terminal, shown:
            os.close(descriptor)


if __name__ == "__main__":
    unittest.main()
