"""qxnego serve and connect over loopback: what they do with peers of every kind, and what someone in between can do."""
import contextlib
import os
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


class ScramCase(Case):
    options = ("--no-messages",)

    def setUp(self):
        super().setUp()
        policy = '[policy.users]\nbob = ["SCRAM-SHA-1"]\ncarol = ["SCRAM-SHA-256"]\n'
        self.client = configuration(self.folder, "client", [SCRAM])
        self.config = configuration(self.folder, "server", [SCRAM, SCRAM_1], policy)


class Scram(ScramCase):
    """Clients and servers that keep the rules, and those that speak something else."""

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


def init_token(*mechanisms, claim=b"alice"):
    """A client's first token: of each mechanism its OID and whatever else is given, as {tag: bytes}."""
    entries = [[0xA0, [[0x80, oid], *([0x80 + tag, value] for tag, value in sorted(more.items()))]]
               for oid, more in mechanisms]
    return encode([[0xA0, [[0xA0, entries], [0x81, b"\2"], [0x82, claim]]]])


SCRAM_OID = b"\x2b\x06\x01\x05\x05\x12"
FAILED = {1: b"\3", 2: b"\2", 3: b"\x0d\0\0", 4: b"\1"}  # rejected, GSSAPI error, two statuses


class Stranger(ScramCase):
    """What somebody can do who never logs on."""

    def refused(self, server, token):
        """What the server says of a client that sends only this."""
        with server.connection() as peer:
            peer.sendall(frame(TOKEN, token))
            self.assertEqual(read_frame(peer.makefile("rb")), (END, b"\1"))
        return server.next()

    def test_texts_of_every_kind(self):
        """Valid JSON comes out, and no text can look like the server's own verdict."""
        server = self.serve(self.config)
        forged = (b"x\n   IsCtxEstablished: FALSE\n   Mechanism:        Kerberos\n   MechState:        Selected\n"
                  b"Record 3: QXNEGO_accept_sec_context call 1\n   Mechanism:        SCRAM-SHA-1\n")
        for text in (b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\xe2\x80\xae", b"a\0b", forged, b'"; success: "'):
            report = self.refused(server, init_token((SCRAM_OID, {**FAILED, 5: text}), claim=text))
            verdicts = {row["mechanism"]: (row["server"], row["verdict"]) for row in report["verdicts"]}
            self.assertEqual(verdicts, {"SCRAM-SHA-256": ("Rejected", "rejected"),
                                        "SCRAM-SHA-1": ("Rejected", "rejected")})
            self.assertEqual((report["class"], report["refused"]), ("negotiation", ""))
            self.assertTrue(report["failure"].startswith('SCRAM-SHA-256: "'), report)
            self.assertTrue(all(ord(c) >= 32 and c != "\u202e" for c in report["failure"] + report["claimed"]))

    def test_claims_of_a_policy(self):
        """That the policy refused something is the server's to say."""
        server = self.serve(self.config)
        report = self.refused(server, init_token((SCRAM_OID, {1: b"\3", 2: b"\5"})))
        self.assertEqual((report["class"], report["refused"]), ("negotiation", ""))
        unknown = [(b"\x2b\x06\x01\x63" + bytes([i]), {1: b"\1"}) for i in range(100)]
        scram = (SCRAM_OID, {1: b"\1", 6: b"n,,n=bob,r=0123456789abcdef"})
        heard = []
        for claim in (b"bob", b"eve"):
            with server.connection() as peer:
                peer.sendall(frame(TOKEN, init_token(*unknown, scram, claim=claim)))
                kind, contents = read_frame(peer.makefile("rb"))
                heard.append((kind, len(contents)))
            report = server.next()
            self.assertEqual(report["refused"], "claimed" if claim == b"bob" else "")
            self.assertEqual(len(report["verdicts"]), 100)
            self.assertEqual(report["verdicts_left_out"], 2)
        self.assertEqual(heard, [(TOKEN, heard[0][1])] * 2)

    def test_an_output_that_nobody_reads(self):
        server = Server(self.config, "--max-failures", "10000", reads=False)
        for _ in range(60):
            with server.connection() as peer:
                peer.sendall(frame(TOKEN, init_token((SCRAM_OID, {**FAILED, 5: b"x" * 2000}))))
                peer.recv(100)
        begun = time.monotonic()
        self.assertEqual(server.stop(signal.SIGTERM), (1, "qxnego: the output cannot be written\n"))
        self.assertLess(time.monotonic() - begun, 4)
        server.process.stdout.close()

    def test_places_are_for_those_who_log_on(self):
        server = self.serve(self.config, "--max-address", "3", "--max-clients", "4")
        with contextlib.ExitStack() as stack:
            for _ in range(3):
                stack.enter_context(server.connection())
            time.sleep(0.2)
            self.talk(server.address, ALICE, expect=4)
        for _ in range(3):
            self.told(server, "network")
        begun = time.monotonic()
        self.refused(server, b"no token")  # no attempt to log on: nothing to wait for
        self.assertLess(time.monotonic() - begun, 0.25)
        self.talk(server.address, ALICE)
        self.told(server, "success")
        self.end(server)
        self.assertEqual(server.next()["by_address"], 1)

    def test_a_connection_whose_process_is_ended(self):
        server = self.serve(self.config)
        with server.connection():
            time.sleep(0.3)
            children = open("/proc/%d/task/%d/children" % ((server.process.pid,) * 2)).read().split()
            os.kill(int(children[0]), signal.SIGKILL)
            self.assertIn("ended by a signal", self.told(server, "failure")["failure"])
        self.talk(server.address, ALICE)


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
