"""What docs/json.md says of --json is what every subcommand prints, field by field; the man page has every option."""
import json
import os
import re
import signal
import stat
import subprocess
import tempfile
import unittest

from network_harness import QXNEGO, SCRAM, SCRAM_1, Server, configuration

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DOCS = os.path.join(SOURCE, "docs")
WORDS = {"true", "false", "null", "serve", "connect", "log", "properties"}  # values and subcommands
LOGON = "authcid=alice password=wonderland"


def output(*arguments, **options):
    return subprocess.run([QXNEGO, *arguments], capture_output=True, text=True, **options).stdout


def keys(value):
    """Of all objects in it."""
    if isinstance(value, list):
        return set().union(*map(keys, value))
    return set(value).union(*map(keys, value.values())) if isinstance(value, dict) else set()


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

    def test_connections(self):
        pages = os.path.join(self.folder, "pages")
        os.mkdir(pages)
        os.symlink(os.path.join(self.folder, "elsewhere"), os.path.join(pages, "connection-0000.html"))
        server = Server(self.config, "--max-address", "1", "--story", pages)
        options = "--config", self.config, "--logon", LOGON, "--no-messages"
        client = self.run_json("connect", server.address, *options)
        lines = [server.next()]  # and its place is free again
        with server.connection() as first, server.connection() as refused:
            refused.recv(1)
            first.close()
        lines.append(server.next())
        self.assertEqual(server.stop(signal.SIGTERM), (0, ""))
        lines.append(server.next())
        page = os.lstat(os.path.join(pages, lines[0]["story"]))
        self.assertTrue(stat.S_ISREG(page.st_mode) and stat.S_IMODE(page.st_mode) == 0o600 and page.st_size > 1000)
        self.assertEqual(os.listdir(pages), ["connection-0000.html"])
        self.assertFalse(os.path.exists(os.path.join(self.folder, "elsewhere")))
        self.assertIn("refused", [line["event"] for line in lines])
        seldom = {"event": "notice", "text": "", "address": "", "connections": 0, "verdicts_left_out": 0}
        self.check("serve, connect", client, seldom, *lines)

    def test_remedies(self):
        with open(os.path.join(SOURCE, "tools", "show", "remedies.def")) as file:
            rows = re.findall(r'^REMEDY\((.*), 0x(\w+), 0x(\w+), "(.*)", "(.*)", "(.*)"\)$', file.read(), re.M)
        with open(os.path.join(DOCS, "reading-a-log.md")) as file:
            table = re.findall(r"^\| (?:(SCRAM) )?((?:0x)?[0-9A-F]+)(?: to (\S+))? \| (.*) \| (.*) \| (.*) \|$", file.read(), re.M)
        self.assertEqual([("SCRAM" * (owner == "SCRAM"), int(first, 16), int(last, 16), *texts)
                          for owner, first, last, *texts in rows],
                         [(owner, int(first, 16), int(last or first, 16), *texts) for owner, first, last, *texts in table])
        for status in self.run_json("status", *sorted(self.codes_in_use())):
            self.assertTrue(status["remedy"], status)

    @staticmethod
    def codes_in_use():
        """Those that the framework and the mechanism name in their sources, but for successes."""
        rows, used = {}, set()
        for folder, _, names in os.walk(SOURCE):
            if not re.match(r"(qxgss|qxat|gssp2qxnego)(/|$)", os.path.relpath(folder, SOURCE)):
                continue
            for name in names:
                with open(os.path.join(folder, name)) as file:
                    text = file.read()
                rows.update((prefix + "_E_" + code, value) for prefix, value, code
                            in re.findall(r"^(QX\w+)_CODE\((0x[EA]\w+)U, (\w+)", text, re.M))
                used.update(re.findall(r"\bQX(?:NEGO|GSS)_E_\w+" if name.endswith(".cpp") else r"$^", text))
        return {rows[name] for name in used if name in rows}

    def test_options(self):
        with open(os.path.join(DOCS, "man", "qxnego.1")) as file:
            page = set(re.findall(r"Fl -([a-z-]+)", file.read()))
        for command in "demo", "serve", "connect", "dump", "mechs", "status", "try":
            options = set(re.findall(r"^ +(?:-h,)?--([a-z-]+)", output(command, "--help"), re.M))
            self.assertEqual(options - page, set(), command)


if __name__ == "__main__":
    unittest.main(warnings="ignore")
