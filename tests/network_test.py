"""qxnego serve and connect over loopback: what they do with peers of every kind, and what someone in between can do."""
import contextlib
import signal
import socket
import subprocess
import tempfile
import time
import unittest

from network_harness import *

ALICE, BOB = "authcid=alice password=wonderland", "authcid=bob password=builder"


class Case(unittest.TestCase):
    """A server of its own for each test; it must still serve at the end, and end cleanly."""

    options, messages = (), b""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def serve(self, config, *options, **more):
        server = Server(config, *options, **more)
        self.addCleanup(self.end, server)
        return server

    def end(self, server, number=signal.SIGTERM):
        self.assertEqual(server.stop(number), (0, ""))

    def start(self, address, logon=None, *options, config=None):
        logon = ["--logon", logon] if logon else []
        command = [QXNEGO, "connect", address, "--config", config or self.client, *logon, *self.options, *options]
        return subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def finish(self, client, *expected, messages=b""):
        """Its exit status must be expected, it must echo what it sent, and a failure is told last; its error lines."""
        out, err = client.communicate(messages, PATIENCE)
        self.assertIn(client.returncode, expected, err)
        self.assertEqual(out, b"" if client.returncode else messages)
        if client.returncode:
            self.assertTrue(err.splitlines()[-1].startswith(b"qxnego: "), err)
        return err.decode()

    def talk(self, address, logon=None, *options, expect=0, config=None, messages=None):
        client = self.start(address, logon, *options, config=config)
        return self.finish(client, expect, messages=self.messages if messages is None else messages)

    def told(self, server, outcome, **expected):
        """The server's next report, which must be of that class and hold what is expected."""
        report = server.next()
        self.assertEqual((report["class"], {name: report[name] for name in expected}), (outcome, expected))
        return report


class Scram(Case):
    options = ("--no-messages",)

    def setUp(self):
        super().setUp()
        policy = '[policy.users]\nbob = ["SCRAM-SHA-1"]\ncarol = ["SCRAM-SHA-256"]\n'
        self.client = configuration(self.folder, "client", [SCRAM])
        self.config = configuration(self.folder, "server", [SCRAM, SCRAM_1], policy)

    def test_both_families(self):
        server = self.serve(self.config, address="localhost")
        self.talk(server.address, ALICE)
        self.told(server, "success", user="alice", mechanism="SCRAM-SHA-256", confirmation="unconfirmed", rounds=2)
        for address in server.addresses:
            self.talk(address, ALICE)
            self.told(server, "success")
        port = int(server.address.rsplit(":", 1)[1])
        with contextlib.suppress(OSError), socket.create_connection(("::1", port)):
            self.assertIn("[::1]:%d" % port, server.addresses)

    def test_no_protection_and_no_confirmation(self):
        server = self.serve(self.config)
        self.options = ()
        err = self.talk(server.address, ALICE, messages=b"secret", expect=9)
        self.assertIn("SCRAM-SHA-256 has no protection for messages", err)
        self.talk(server.address, ALICE, "--require-confirmation", expect=7)
        strict = self.serve(self.config, "--require-confirmation")
        self.talk(strict.address, ALICE, expect=7)
        self.told(strict, "confirmation")

    def test_the_proved_name_decides(self):
        server = self.serve(self.config)
        err = self.talk(server.address, BOB + " user=alice", expect=8)
        self.assertNotIn("bob", err)
        self.told(server, "policy", refused="proved", claimed="alice", user="bob")
        for logon in (BOB, ALICE + " user=bob"):
            self.talk(server.address, logon, expect=8)
            self.told(server, "policy", refused="claimed")
        self.talk(server.address, ALICE + " user=carol")
        self.told(server, "success", claimed="carol", user="alice")

    def test_a_stranger_learns_nothing(self):
        server = self.serve(self.config)
        heard = []
        for logon, outcome, refused, failure in (
                ("authcid=bob password=x", "policy", "claimed", "the policy lets the claimed name"),
                ("authcid=eve password=x", "negotiation", "", "SCRAM-SHA-256: "),
                ("authcid=alice password=x", "negotiation", "", "SCRAM-SHA-256: ")):
            proxy = Proxy(server)
            heard.append((self.talk(proxy.address, logon, expect=6), proxy.seen))
            self.assertIn("the peer refuses the logon", heard[-1][0])
            self.assertGreaterEqual(proxy.times[-1] - proxy.times[0], 0.3)
            self.assertTrue(self.told(server, outcome, refused=refused)["failure"].startswith(failure))
            self.assertEqual(proxy.last, frame(END, b"\1"))
        self.assertEqual(heard, heard[:1] * 3)

    def test_peers_that_speak_something_else(self):
        server = self.serve(self.config, "--logon-time", "3", "--max-frame", "2048")
        for sent, expected in ((b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", "protocol"),
                               (frame(TOKEN, b"x" * 2048), "protocol"), (frame(TOKEN, b"x" * 99)[:50], "network"),
                               (frame(TOKEN, b"")[:3], "network"), (frame(MESSAGE, b"x"), "protocol"),
                               (frame(9, b""), "protocol"), (frame(TOKEN, b"\0garbage"), "negotiation"),
                               (frame(TOKEN, b""), "negotiation"), (b"", "network"), (None, "network")):
            with self.subTest(sent=sent), server.connection() as peer:
                send_all(peer, sent)
                self.told(server, expected, established=False)
        self.talk(server.address, ALICE)

    def test_servers_that_speak_something_else(self):
        self.options = ("--no-messages", "--logon-time", "3", "--max-frame", "1024")
        for answer, expected in ((b"HTTP/1.1 400 Bad Request\r\n\r\n", 5), (frame(TOKEN, b"x")[:4], 4), (b"", 4),
                                 (None, 4), (frame(TOKEN, b"\0garbage"), 6), (frame(END, b"\1"), 6),
                                 (frame(END, b"\x63"), 5), (frame(TOKEN, b"x" * 1024)[:99], 5)):
            with self.subTest(answer=answer), socket.create_server(("127.0.0.1", 0)) as listener:
                client = self.start("127.0.0.1:%d" % listener.getsockname()[1], ALICE)
                with listener.accept()[0] as peer:
                    read_frame(peer.makefile("rb"))
                    send_all(peer, answer)
                    self.assertEqual(self.finish(client, expected).count("\n"), 1)

    def test_a_full_server(self):
        server = self.serve(self.config, "--max-clients", "1")
        with server.connection():
            self.talk(server.address, ALICE, expect=4)
        server.next()
        self.talk(server.address, ALICE)

    def test_ends_in_the_middle(self):
        server = Server(self.config)
        with server.connection() as peer:
            peer.sendall(b"\0")
            time.sleep(0.2)
            self.end(server, signal.SIGINT)
        self.told(server, "interrupted")
        with socket.create_server(("127.0.0.1", 0)) as silent:
            client = self.start("127.0.0.1:%d" % silent.getsockname()[1], ALICE)
            with silent.accept()[0] as peer:
                peer.recv(1)
                client.terminate()
                self.assertIn("interrupted", self.finish(client, 130))


class Realm(Case):
    """Kerberos, NTLM and SCRAM in the realm in which this program runs."""

    options, messages = ("--target", "host@localhost"), b"one\ntwo\n"

    def setUp(self):
        super().setUp()
        every = [KERBEROS, NTLM, SCRAM]
        self.client = configuration(self.folder, "client", every)
        self.config = configuration(self.folder, "server", every)

    def take_ticket(self):
        subprocess.run(["kinit", "alice"], input=b"Alice1\n", check=True, capture_output=True)
        self.addCleanup(subprocess.run, ["kdestroy"], check=True)

    def test_single_sign_on(self):
        server = self.serve(self.config, "--require-confirmation")
        self.take_ticket()
        err = self.talk(server.address, None, "--require-confirmation", messages=b"x" * 100_000)
        self.assertIn("Kerberos  flags", err)
        self.told(server, "success", user="alice@QXNEGO.TEST", confirmation="confirmed", message_bytes=100_000,
                  delegated="")
        self.talk(server.address, None, "--delegate")
        self.told(server, "success", delegated="alice@QXNEGO.TEST")
        self.assertIn("50 messages of 1024 bytes", self.talk(server.address, None, "--bench", "50", messages=b""))

    def test_passwords(self):
        server = self.serve(self.config)
        self.talk(server.address, "authcid=alice password=Alice1")
        self.told(server, "success", mechanism="Kerberos")
        # No such principal in the realm, but a user of the NTLM domain: the reason is shown on both sides.
        err = self.talk(server.address, "authcid=alice realm=QXTEST password=Alice1", "--why")
        self.assertRegex(err, r"Kerberos +Rejected +Rejected +rejected")
        kerberos = self.told(server, "success", mechanism="NTLMSSP", confirmation="confirmed")["verdicts"][0]
        self.assertEqual((kerberos["mechanism"], kerberos["verdict"]), ("Kerberos", "rejected"))
        self.assertNotEqual(kerberos["status_text"], "")
        without_ntlm = configuration(self.folder, "without_ntlm", [KERBEROS, SCRAM])
        self.talk(server.address, ALICE, "--no-messages", config=without_ntlm, messages=b"")
        kerberos = self.told(server, "success", mechanism="SCRAM-SHA-256")["verdicts"][0]
        self.assertEqual(kerberos["reason"], "GSSAPI Error")

    def test_twenty_at_once(self):
        server = self.serve(self.config, "--max-address", "20")
        self.take_ticket()
        self.options += ("--bench", "5")
        clients = [self.start(server.address, "authcid=alice password=wrong" if i % 2 else None) for i in range(20)]
        for i, client in enumerate(clients):
            err = self.finish(client, 6 if i % 2 else 0)
            self.assertIn("qxnego: Kerberos: " if i % 2 else "Kerberos  flags", err)
        self.assertEqual(sorted((report["class"], report["mechanism"], report["confirmation"], report["messages"])
                                for report in (server.next() for _ in clients)),
                         [("negotiation", "", "none", 0)] * 10 + [("success", "Kerberos", "confirmed", 5)] * 10)

    def test_someone_in_between(self):
        """Whatever is changed in the offer or in the answer: both sides refuse, and nobody sends a message."""
        unknown = [0xA0, [[0x80, b"\x2b\x06\x01\x04\x01\x63"], [0x81, b"\x01"]]]
        changes = {
            "nothing": lambda entries: None,
            "strike": lambda entries: entries.pop(0),
            "add": lambda entries: entries.append(unknown),
            "swap": lambda entries: entries.insert(0, entries.pop()),
            "alter": lambda entries: entries[0][1][0].__setitem__(1, b"\x2b\x06\x01\x04\x01\x63"),
            "double": lambda entries: entries.append(entries[0]),
        }
        server = self.serve(self.config)
        for name, change in changes.items():
            for from_client in (True, False):
                with self.subTest(from_client=from_client, change=name):
                    def alter(is_client, number, contents):
                        return change_entries(contents, change) if (is_client, number) == (from_client, 1) else contents

                    proxy = Proxy(server, alter)
                    client = self.start(proxy.address, "authcid=alice password=Alice1")
                    if name == "nothing":
                        self.finish(client, 0, messages=b"x")
                        self.told(server, "success", confirmation="confirmed", messages=1)
                        continue
                    self.finish(client, 4, 6, 7, messages=b"x")
                    report = server.next()
                    self.assertIn(report["class"], ("network", "negotiation", "confirmation"), report)
                    self.assertEqual(report["messages"], 0)


if __name__ == "__main__":
    unittest.main(warnings="ignore")
