"""What docs/json.md says of --json is what every subcommand prints, field by field; the man page has every option."""
import json
import os
import re
import signal
import subprocess
import tempfile
import unittest

from network_harness import QXNEGO, SCRAM, SCRAM_1, Server, configuration

DOCS = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "docs")
WORDS = {"true", "false", "null", "serve", "connect", "log", "properties"}  # values and subcommands
LOGON = "authcid=alice password=wonderland"


def output(*arguments, **options):
    return subprocess.run([QXNEGO, *arguments], capture_output=True, text=True, **options).stdout


def keys(value):
    """Of all objects in it."""
    if isinstance(value, list):
        return set().union(*map(keys, value))
    return set(value).union(*map(keys, value.values())) if isinstance(value, dict) else set()


def rows(kind):
    """Of remedies.def, field by field."""
    with open(os.path.join(os.path.dirname(DOCS), "tools", "show", "remedies.def")) as file:
        lines = re.findall(r"^%s\((.*)\)$" % kind, file.read(), re.M)
    return [[(text or number).replace('\\"', '"') for text, number in re.findall(r'"((?:[^"\\]|\\.)*)"|(\w+)', line)]
            for line in lines]


def codes_in_use():
    """Statuses that the framework and the mechanism name in their sources, but for successes."""
    codes, names, root = {}, set(), os.path.dirname(DOCS)
    for folder, _, files in (step for room in ("qxgss", "qxat", "gssp2qxnego") for step in os.walk(os.path.join(root, room))):
        for name in files:
            with open(os.path.join(folder, name)) as file:
                text = file.read()
            codes.update((prefix + "_E_" + code, value) for prefix, value, code
                         in re.findall(r"^(QX\w+)_CODE\((0x[EA]\w+)U, (\w+)", text, re.M))
            names.update(re.findall(r"\bQX(?:NEGO|GSS)_E_\w+", text) if name.endswith(".cpp") else ())
    return {codes[name] for name in names if name in codes}


def documented(section):
    with open(os.path.join(DOCS, "json.md")) as file:
        text = re.search(r"^## %s\n(.*?)(?=^##|\Z)" % section, file.read(), re.M | re.S).group(1)
    return set(re.findall(r"`([a-z_]+)`", text)) | set(re.findall(r'"([a-z_]+)":', text))


class Docs(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.config = configuration(self.folder, "qxgss.conf", SCRAM, SCRAM_1)

    def check(self, section, *printed):
        known, seen = documented(section), set().union(*map(keys, printed))
        self.assertEqual(seen - known, set(), section + ": not documented")
        self.assertEqual(known - seen - WORDS, set(), section + ": documented, and not printed")

    def run_json(self, *arguments, **options):
        return json.loads(output(*arguments, "--json", **options))

    def test_data(self):
        demo = self.run_json("demo", "wrong-password", "--save", self.folder)
        self.check("demo", demo)
        saved = os.path.join(self.folder, "wrong-password", "")
        cut = self.run_json("dump", "-", input="a005")
        self.check("dump, log, properties", cut, self.run_json("dump", "-", input="TlRMTVNTUAABAAAAAgIAAA=="),
                   self.run_json("dump", "--inner", saved + "token-1-client"),
                   *(self.run_json(name, saved + "server.properties") for name in ("dump", "log", "properties")))
        self.check("mechs", self.run_json("mechs", "--config", self.config))
        self.check("status", self.run_json("status", "0x020D0000", "E3000406"),
                   self.run_json("status", "1", "--mechanism", "SCRAM-SHA-1", "--config", self.config))
        self.check("try", self.run_json("try", "--user", "bob", "--offer", SCRAM, "--config", self.config))

    def test_remedies(self):
        """The page has the rows that the command has, in their order, and the command finds each."""
        reasons = [row[1:] for row in rows("REASON")]
        remedies = [(whose, ["%08X" % int(code, 16) for code in dict.fromkeys(codes)], texts)
                    for whose, *codes, meaning, cause, remedy in rows("REMEDY") for texts in [[meaning, cause, remedy]]]
        with open(os.path.join(DOCS, "reading-a-log.md")) as file:
            page = [line.strip("| \n").split(" | ") for line in file if line.startswith("| ")]
        self.assertEqual([row for row in page if len(row) == 4 and row[0] not in ("reason", "status")],
                         reasons + [[whose + " " + " to ".join(codes), *texts] for whose, codes, texts in remedies])
        known = [row for row in remedies if row[0] in ("major", "minor")]
        for (_, _, texts), told in zip(known, self.run_json("status", *(codes[-1] for _, codes, _ in known))):
            self.assertEqual([told["meaning"], told["cause"], told["remedy"]], texts)
        for told in self.run_json("status", *codes_in_use()):
            self.assertTrue(told["remedy"], told)
        told = self.run_json("status", "0x1F", "--mechanism", "SCRAM-SHA-1", "--config", self.config)[0]
        self.assertEqual(told["meaning"], "the password is not this user's")

    def test_connections(self):
        server = Server(self.config, "--max-address", "1")
        options = "--config", self.config, "--logon", LOGON, "--no-messages"
        client = self.run_json("connect", server.address, *options)
        lines = [server.next()]  # and its place is free again
        with server.connection() as first, server.connection() as refused:
            refused.recv(1)
            first.close()
        lines.append(server.next())
        self.assertEqual(server.stop(signal.SIGTERM), (0, ""))
        lines.append(server.next())
        self.assertIn("refused", [line["event"] for line in lines])
        seldom = {"event": "notice", "text": "", "address": "", "connections": 0, "verdicts_left_out": 0}
        self.check("serve, connect", client, seldom, *lines)

    def test_options(self):
        with open(os.path.join(DOCS, "man", "qxnego.1")) as file:
            page = set(re.findall(r"Fl -([a-z-]+)", file.read()))
        for command in "demo", "serve", "connect", "dump", "mechs", "status", "try":
            options = set(re.findall(r"^ +(?:-h,)?--([a-z-]+)", output(command, "--help"), re.M))
            self.assertEqual(options - page, set(), command)


if __name__ == "__main__":
    unittest.main(warnings="ignore")
