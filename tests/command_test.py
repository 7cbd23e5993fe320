"""The command from outside: the demo ends as it should and leaves nothing behind; what dump, mechs, status, try and
the others say; wrong input gives one line and its exit status. What all of that prints with --json is what docs/json.md
says, field by field; the man page has every option and the page on logs every remedy. And QXNEGO_TRACE."""
import base64
import collections
import fcntl
import json
import os
import pathlib
import re
import resource
import shlex
import signal
import socket
import stat
import subprocess
import tempfile
import time
import unittest

from network_harness import ENTRY, QXNEGO, SCRAM, SCRAM_1, Server, configuration, write

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
LIBRARIES, VERIFIERS = os.environ["QXNEGO_LIBRARIES"], os.environ["QXNEGO_VERIFIERS"]
LISTED = '"%s" }, { oid = "1.2.3.5" }, { oid = "1.2.3.6" }, { oid = "1.2.3.7", enabled = false }' % SCRAM_1
MORE = ("UNLISTED", "scram", "1.2.3.4"), ("GONE", "gone", "1.2.3.5"), ("OFF", "scram", "1.2.3.7")
POLICY = '[policy.users]\nalice = ["SCRAM-SHA-1"]\ncarol = ["UNLISTED"]\n'
OFFER = SCRAM + ",SCRAM-SHA-1,NTLMSSP"
LINE = re.compile(r'[-0-9T:.]+Z pid=\d+ context=1 role=(client|server) call=\d+ event="[^"]*"( [-a-z]+=("[^"]*"|\S+))*')
WORDS = {"true", "false", "null", "serve", "connect", "log", "properties"}  # values and subcommands
SELDOM = {"text", "address", "connections", "verdicts_left_out"}  # of serve


def source(*path):
    with open(os.path.join(ROOT, *path)) as file:
        return file.read()


def content(*path):
    with open(os.path.join(*path), "rb") as file:
        return file.read()


def keys(value):
    """Of all objects in it."""
    if isinstance(value, list):
        return set().union(*map(keys, value))
    return set(value).union(*map(keys, value.values())) if isinstance(value, dict) else set()


def rows(kind):
    """Of remedies.def, field by field."""
    lines = re.findall(r"^%s\((.*)\)$" % kind, source("tools", "show", "remedies.def"), re.M)
    return [[(text or number).replace('\\"', '"') for text, number in re.findall(r'"((?:[^"\\]|\\.)*)"|(\w+)', line)]
            for line in lines]


def codes_in_use():
    """Statuses that the framework and the mechanism name in their sources, but for successes."""
    codes, names = {}, set()
    for room in "qxgss", "qxat", "gssp2qxnego":
        for path in pathlib.Path(ROOT, room).rglob("*.*"):
            text = path.read_text()
            codes.update((prefix + "_E_" + code, value) for prefix, value, code
                         in re.findall(r"^(QX\w+)_CODE\((0x[EA]\w+)U, (\w+)", text, re.M))
            names.update(re.findall(r"\bQX(?:NEGO|GSS)_E_\w+", text) if path.suffix == ".cpp" else ())
    return {codes[name] for name in names if name in codes}


class Command(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        os.chdir(folder.name)
        os.mkdir("tmp")
        os.environ.update(QXGSS_CONF="qxgss.conf", TMPDIR="tmp")
        with open(configuration("", "sound", SCRAM, SCRAM_1)) as file:
            text = file.read().replace('"%s" }' % SCRAM_1, LISTED, 1)
        text = text.replace("authorization = true", "authorization = false", 1)
        for name, library, oid in MORE:
            text += ENTRY % (name, library, "SCRAM_SHA_1", "false", 3, VERIFIERS, oid)
        write("", "qxgss.conf", text + POLICY)
        write("", "typo", text.replace("libscram", "libscarm"))
        write("", "unverified", text.replace(VERIFIERS, "missing"))
        write("", "state", "a0:0d:a0:08:a0:06:80:01:01:81:01:01:81:01:09")
        cls.printed = collections.defaultdict(set, serve=SELDOM)

    @classmethod
    def tearDownClass(cls):
        assert os.listdir("tmp") == [], "temporary folders are left"
        sections = re.findall(r"^## ([^\n]*)\n(.*?)(?=^##|\Z)", source("docs", "json.md"), re.M | re.S)
        for commands, text in sections:
            known = {name for pair in re.findall(r'`([a-z_]+)`|"([a-z_]+)":', text) for name in pair} - {""}
            seen = set().union(*(cls.printed[name] for name in commands.split(", ")))
            assert seen <= known <= seen | WORDS, (commands, seen - known, known - seen - WORDS)

    def expect(self, status, command, *patterns, text=""):
        """The exit status, and patterns that the output and the error lines must contain. An error is one line."""
        words = shlex.split(command)
        done = subprocess.run([QXNEGO, *words], input=text, capture_output=True, text=True, errors="replace")
        if "--json" in words and done.stdout:
            self.printed[words[0]] |= keys(json.loads(done.stdout))
        with self.subTest(command=command):
            self.assertEqual((done.returncode, done.stderr.count("\n")), (status, int(status != 0)), done)
            for pattern in patterns:
                self.assertRegex(done.stdout + done.stderr, re.compile(pattern, re.M))
        return done.stdout

    def expect_all(self, *table):
        for row in table:
            self.expect(*row)

    def test_demo(self):
        out = self.expect(0, "demo --full --save saved", "nothing-in-common  - +as expected",
                          "accept_sec_context  GSS_S_COMPLETE", r"^  \| *Mechanism: ")
        self.assertEqual([line for line in out.splitlines() if len(line) > 100 and not line.startswith("  |")], [])
        self.assertEqual(len(re.findall("^  [a-z-]+ +[S-].*as expected$", out, re.M)), 7)
        for form in "", "--brief":
            out = self.expect(0, "demo policy " + form, "^  SCRAM-SHA-256  Rejected +Rejected +rejected +Due to Policy",
                              "^Next: demo policy --full")
            self.assertEqual((len(re.findall(".*expected", out)), out.count("sec_context")), (2, 0))
        os.mkdir("lib")
        os.symlink(os.path.join(LIBRARIES, "libgssp2qxnego.so"), "lib/libgssp2qxnego.so")  # and not libscram.so
        self.expect_all((1, "demo both --library-path lib", "libscram.so"),
                        (2, "demo --library-path .", "has no libgssp2qxnego.so"), (2, "demo nope", "nope"))
        for delay in 0.05, 0.1, 0.2, 0.4:  # before it has begun, while it works, or too late to matter
            with subprocess.Popen([QXNEGO, "demo"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as demo:
                time.sleep(delay)
                demo.terminate()
            self.assertIn(demo.returncode, (-signal.SIGTERM, 128 + signal.SIGTERM, 130, 0))

    def test_what_it_saves(self):
        self.expect(0, "demo wrong-password --json --save saves")
        properties, token = "saves/wrong-password/server.properties", "saves/wrong-password/token-1-client"
        # What dump shows of user properties is what the older names show: the records, then the log.
        whole = self.expect(0, "properties " + properties, "  20  qxnegolog .*negotiation log")
        whole += self.expect(0, "log " + properties, "SCRAM-SHA-256  Rejected  GSSAPI Error")
        for file, shown in (properties, whole), (token, self.expect(0, "dump " + token)):
            bytes_of_it = content(file)
            for form in base64.encodebytes(bytes_of_it).decode(), bytes_of_it.hex("\n", 16):
                self.assertEqual(self.expect(0, "dump", text=form), shown)
            self.assertEqual(self.expect(0, "dump " + file), shown)
        inner = content(token)
        with open("cut", "wb") as cut, open("cut-token", "wb") as cut_token:
            cut.write(content(properties)[:200])
            cut_token.write(inner[:60])
        self.assertNotIn(inner[22:30].hex(), self.expect(0, "dump --json " + token, '"name": "authentication ID"'))
        self.expect_all(
            (0, "dump " + token, "^INIT token of", r"^ *20 .*\[6\] inner token .*SCRAM client-first$"),
            (0, "dump --inner " + token, "^ *22  6e 2c 2c .* n,,n=alice,r="), (0, "dump --json --inner " + token),
            (0, "dump saves/wrong-password/client.log", "SCRAM-SHA-256  Available  Available"),
            (0, "dump --json " + properties, '"name": "qxnegolog"'), (0, "properties --json " + properties),
            (0, "log --json " + properties), (2, "properties " + token, "token-1-client: holds no user properties"),
            (2, "log " + token, "holds no negotiation log"), (2, "dump cut", "no record begins at byte 16"),
            (2, "properties cut", "no record begins at byte 16"),
            (1, "dump cut-token", "Byte 1 is wrong: the length is .* and only 58 bytes follow"),
            (1, "dump --json cut-token", '"valid": false'), (1, "dump state", r"81 01 \[09\]$"))
        self.expect(0, "dump", "^NTLMSSP NEGOTIATE of 16 bytes", text="TlRMTVNTUAABAAAAAgIAAA==\n")
        self.expect(0, "dump --json -", "NEGOTIATE", text="WWW-Authenticate: Negotiate TlRMTVNTUAABAAAAAgIAAA==\n")
        self.expect(2, "dump", "odd number", text="a00")

    def test_configurations(self):
        out = self.expect(1, "mechs", r"^  SCRAM-SHA-1 +1.3.6.1.5.5.14 +2 +yes +yes +authentication, authorization$",
                          "not loaded: .*gone.so", "not negotiable: it is not loaded", "it is not listed",
                          "it is disabled in", "1.2.3.6 is listed .* does not define it", "^  QXNEGO .*  yes +-  ",
                          "verifiers.* can be read by everybody")
        self.assertEqual(out.count("not negotiable"), 3)  # QXNEGO does not negotiate itself
        again = self.expect(0, f"try --user bob --offer SCRAM-SHA-256,{SCRAM}")
        self.assertEqual(len(re.findall("^  SCRAM-SHA-256", again, re.M)), 1)
        self.expect_all(
            (1, "mechs --json --client", '"negotiable": true'),
            (0, "mechs --json --config sound", '"credential": true'),
            (0, "status 0x020D0000 458752 E3000406 0xE1000065", r"GSS_S_CALL_INACCESSIBLE_WRITE \| GSS_S_FAILURE$",
             "routine error GSS_S_NO_CRED: No credentials", "of QXNEGO, NO_MECHANISM",
             "severity error, component 1, message 101$"),
            (0, "status --mechanism SCRAM-SHA-1 0x10B", "The peer sent no token."),
            (0, f"try --user bob --offer {OFFER}", "SCRAM-SHA-256  *Selected .* the first that is left,",
             "NTLMSSP .* Not Available at Server", "SCRAM-SHA-1 +Rejected .* SCRAM-SHA-256 comes before"),
            (0, f"try --user alice --offer {OFFER}", "SCRAM-SHA-256 +Rejected .* Due to Policy "),
            (0, f"try --user bob --as bob --offer {OFFER}", "SCRAM-SHA-256 +Rejected .* Authorization Required "),
            (0, f"try --user bob --as alice --offer {OFFER}", "the policy allows alice only"),
            (6, f"try --json --user carol --offer {OFFER}", "no mechanism is selected"),
            (6, "try --user alice --offer SCRAM-SHA-256", "SCRAM-SHA-1 .* Not Available at Client +it is not in"),
            (3, f"try --config unverified --user bob --offer {OFFER}", "QXNEGO is not in use"),
            (3, "mechs --config unverified", "not loaded: .*missing: No such file"))

    def test_wrong_input(self):
        """With --json nobody tells what is not loaded; of a wrong item neither text nor value is shown."""
        write("", "long", "0" * 70_000)
        self.expect_all(
            (2, "", "subcommand is required"), (2, "log", "FILE is required"), (2, "connect", "ADDRESS is required"),
            (2, "mehcs", r'no subcommand or option "mehcs" \(see qxnego --help\)'),
            (2, "mechs --nope", r"-.nope \(see qxnego mechs --help\)"), (2, "try --user bob", "--offer is required"),
            (2, "dump qxgss.conf", "neither a token nor"), (2, "dump missing", "No such file"),
            (2, "status 0x100000000", "is no status"),
            (2, "try --user bob --offer NONE", "neither a mechanism"),
            *((2, "connect --json " + address, address + '": should be HOST:PORT')
              for address in ("localhost", "localhost:99999", "::1:80")),
            (2, "connect localhost:1 --file /nonexistent", "/nonexistent: No such file"),
            (2, "connect --json localhost:1 --logon-file long", "long: its first line is too long"),
            *((2, "connect localhost:1 --logon " + shlex.quote(logon), f"string: item {wrong}$") for logon, wrong in (
                ("authcid=alice pasword=secret", '2 is unknown; "password=" is meant.'),
                ("authcid=a password=two words", "3 is not KEYWORD=VALUE .*"),
                ("authcid='a''b' password=\"it's", "2 has a quotation mark that is not closed"),
                ("authcid=a password=", "2 has no value"))),
            (2, "connect localhost:1 --bench 0", "bench: Value 0 not in range"),
            (2, "serve --json --listen x.invalid:1", "x.invalid:1: "), (2, "serve --max-clients none", "max-clients"),
            *((3, command + file, said) for command in ("connect localhost:1 --config ", "serve --config ")
              for file, said in (("state", "state:1: "), ("typo", "not in use; SCRAM-SHA-256: .*libscarm.so: cannot"))),
            (4, "connect --json 127.0.0.1:1 --logon 'cn=x@R@@p USER=\"u v\",x y'", "127.0.0.1:1: Connection refused"),
            (4, "connect --json x.invalid:1", "x.invalid:1: "))

    def test_remedies(self):
        """The page has the rows that the command has, in their order, and the command finds each."""
        remedies = [(whose, ["%08X" % int(code, 16) for code in dict.fromkeys(codes)], texts)
                    for whose, *codes, meaning, cause, remedy in rows("REMEDY") for texts in [[meaning, cause, remedy]]]
        page = [line.split(" | ") for line in re.findall(r"^\| (.*) \|$", source("docs", "reading-a-log.md"), re.M)]
        self.assertEqual([row for row in page if len(row) == 4 and row[0] not in ("reason", "status")],
                         [row[1:] for row in rows("REASON")] +
                         [[whose + " " + " to ".join(codes), *texts] for whose, codes, texts in remedies])
        known = {codes[-1]: texts for whose, codes, texts in remedies if whose in ("major", "minor")}
        told = json.loads(self.expect(0, "status --json " + " ".join(known)))
        self.assertEqual([[one["meaning"], one["cause"], one["remedy"]] for one in told], list(known.values()))
        for told in json.loads(self.expect(0, "status --json " + " ".join(codes_in_use()))):
            self.assertTrue(told["remedy"], told)
        self.expect(0, "status --json 0x1F --mechanism SCRAM-SHA-1", "the password is not this user's")

    def test_connections(self):
        server = Server("sound", "--max-address", "1")
        options = "--json --config sound --no-messages --logon 'authcid=alice password=wonderland'"
        self.expect(0, f"connect {server.address} {options}")
        lines = [server.next()]  # and its place is free again
        with server.connection() as first, server.connection() as refused:
            refused.recv(1)
            first.close()
        lines.append(server.next())
        self.assertEqual(server.stop(signal.SIGTERM), (0, ""))
        lines.append(server.next())
        self.assertIn("refused", [line["event"] for line in lines])
        self.printed["serve"] |= keys(lines)

    def trace(self, trace, *arguments, **options):
        """A demo of which a line for every record goes there: it does not notice what becomes of them."""
        return subprocess.run([QXNEGO, "demo", "policy", "--json", *arguments], stdout=subprocess.PIPE, text=True,
                              env=dict(os.environ, QXNEGO_TRACE=trace), timeout=60, **options)

    def test_a_trace_is_both_logs(self):
        self.assertEqual(self.trace("trace", "--save", "traced").returncode, 0)
        self.assertEqual(stat.S_IMODE(os.stat("trace").st_mode), 0o600)
        for text in content("trace").decode(), self.trace("stderr", "--save", "traced", stderr=subprocess.PIPE).stderr:
            lines = [LINE.fullmatch(line) for line in text.splitlines()]
            self.assertRegex(text, r'role=client call=3 event="the call is complete" major=00000000 minor=230003E8 status="')
            roles = [line.group(1) for line in lines if 'event="the call ' not in line.group()]
            for role in "client", "server":
                records = re.findall(b"^Record ", content("traced/policy", role + ".log"), re.M)
                self.assertEqual(roles.count(role), len(records), role)

    def test_a_trace_that_nobody_takes(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 24, 1 << 24))
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL)

        os.mkfifo("fifo")
        os.symlink("new", "link")
        with open("large", "wb") as file:
            file.truncate(1 << 24)
        for trace, options in (("fifo", {}), ("link", {}), ("tmp", {}), ("/dev/full", {}), ("none/x", {}), ("x" * 5000, {}),
                               ("large", {"preexec_fn": limit}), ("stderr", {"preexec_fn": lambda: os.close(2)})):
            self.assertTrue(json.loads(self.trace(trace, **options).stdout)["scenarios"][0]["as_expected"], trace[:99])
        self.assertFalse(os.path.exists("new"))
        self.assertEqual(os.stat("large").st_size, 1 << 24)

    def test_a_trace_on_a_stderr_that_nobody_reads(self):
        reader, pipe = os.pipe()
        fcntl.fcntl(pipe, fcntl.F_SETPIPE_SZ, 4096)
        ours, theirs = socket.socketpair()
        theirs.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1)
        terminal, shown = os.openpty()
        with open("/dev/full", "wb") as full, ours, theirs:
            for stderr in pipe, theirs, shown, full:  # each would block
                self.assertEqual(self.trace("stderr", stderr=stderr).returncode, 0)
            ours.close()
            os.close(reader)
            for stderr in pipe, theirs:
                self.assertEqual(self.trace("stderr", stderr=stderr, restore_signals=True).returncode, 0)
        for descriptor in pipe, terminal, shown:
            os.close(descriptor)

    def test_options(self):
        page = set(re.findall(r"Fl -([a-z-]+)", source("docs", "man", "qxnego.1")))
        self.assertNotRegex(self.expect(0, "--help"), "(?m)^  log")  # an older name
        for command in "demo", "serve", "connect", "dump", "mechs", "status", "try":
            options = set(re.findall(r"^ +(?:-h,)?--([a-z-]+)", self.expect(0, command + " --help"), re.M))
            self.assertEqual(options - page, set(), command)


if __name__ == "__main__":
    unittest.main(warnings="ignore")
