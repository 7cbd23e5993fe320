"""qxnego serve and connect over loopback: what they do with peers of every kind."""
import contextlib
import os
import select
import signal
import socket
import subprocess
import tempfile
import time
import unittest

from network_harness import *

ALICE, BOB = "authcid=alice password=wonderland", "authcid=bob password=builder"
MOST_STORIES = 40


class Case(unittest.TestCase):
    """One server for all tests of a class; it must still serve after them, and end cleanly."""

    mechanisms, offer, policy, server_options, options = (), (), "", (), ()

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        cls.config = configuration(cls.folder, "server", *cls.mechanisms, policy=cls.policy)
        cls.client = configuration(cls.folder, "client", *cls.offer)
        cls.stories = os.path.join(cls.folder, "stories")
        os.mkdir(cls.stories)
        stories = "--story", cls.stories, "--story-files", str(MOST_STORIES)
        cls.server = Server(cls.config, *cls.server_options, *stories, address="localhost")

    @classmethod
    def tearDownClass(cls):
        ended = cls.server.stop(signal.SIGTERM)
        assert ended == (0, ""), ended
        assert 0 < len(os.listdir(cls.stories)) <= MOST_STORIES

    def start(self, address, logon, *options, config=None):
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

    def talk(self, address, logon, *options, expect=0, config=None, messages=b""):
        return self.finish(self.start(address, logon, *options, config=config), expect, messages=messages)

    def told(self, outcome, server=None, **expected):
        """The server's next report, which must be of that class and hold what is expected."""
        report = (server or self.server).next()
        self.assertEqual((report["class"], {name: report[name] for name in expected}), (outcome, expected), report)
        return report


SCRAM_OID = b"\x2b\x06\x01\x05\x05\x12"
FAILED = {1: b"\3", 2: b"\2", 3: b"\x0d\0\0", 4: b"\1"}  # rejected, GSSAPI error, two statuses
FORGED = (b"x\n   IsCtxEstablished: FALSE\n   Mechanism:        Kerberos\n   MechState:        Selected\n"
          b"Record 3: QXNEGO_accept_sec_context call 1\n   Mechanism:        SCRAM-SHA-1\n")


def claim(name):
    """Of a client that knows many mechanisms, and SCRAM last."""
    unknown = [(b"\x2b\x06\x01\x63" + bytes([i]), {1: b"\1"}) for i in range(100)]
    return init_token(*unknown, (SCRAM_OID, {1: b"\1", 6: b"n,,n=%s,r=0123456789abcdef" % name}), claim=name)


class Scram(Case):
    """Mechanisms without protection: honest peers, peers that speak something else, and strangers."""

    mechanisms, offer = (SCRAM, SCRAM_1), (SCRAM,)
    policy = '[policy.users]\nbob = ["SCRAM-SHA-1"]\n'
    server_options = "--logon-time", "3", "--max-frame", "4096", "--max-failures", "10000", "--max-address", "100"
    options = ("--no-messages",)

    def test_logons(self):
        """What a client hears and a server reports, at every address of the server."""
        for address in self.server.addresses:
            self.talk(address, ALICE + " user=carol")
            self.told("success", user="alice", claimed="carol", mechanism="SCRAM-SHA-256", confirmation="unconfirmed",
                      rounds=2)
        port = int(self.server.address.rsplit(":", 1)[1])
        with contextlib.suppress(OSError), socket.create_connection(("::1", port)):
            self.assertIn("[::1]:%d" % port, self.server.addresses)
            self.told("network")
        self.assertNotIn("bob", self.talk(self.server.address, BOB + " user=alice", expect=8))
        self.told("policy", refused="proved", claimed="alice", user="bob")
        self.talk(self.server.address, ALICE, "--require-confirmation", expect=7)
        self.told("peer")
        self.options = ()
        self.assertIn("SCRAM-SHA-256 has no protection for messages",
                      self.talk(self.server.address, ALICE, messages=b"secret", expect=9))
        self.told("network", messages=0)

    def test_required_mechanisms(self):
        self.talk(self.server.address, ALICE, "--require", "Kerberos,1.3.6.1.5.5.14", expect=2)
        both = configuration(self.folder, "both", SCRAM, SCRAM_1)
        self.talk(self.server.address, ALICE, "--require", "SCRAM-SHA-1,SCRAM-SHA-256", config=both)
        self.told("success")
        self.assertIn("SCRAM-SHA-256 is not a mechanism that --require allows",
                      self.talk(self.server.address, ALICE, "--require", SCRAM_1, config=both, expect=6))
        self.told("network", confirmation="none")  # the session never opened
        server = Server(self.config, "--require", "SCRAM-SHA-1")
        self.talk(server.address, ALICE, config=both, expect=4)
        self.told("policy", server, messages=0)
        self.assertEqual(server.stop(signal.SIGTERM), (0, ""))

    def test_a_refusal_comes_late_and_says_nothing(self):
        for logon, outcome, failure in ((ALICE + "x", "negotiation", "SCRAM-SHA-256: "),
                                        (BOB, "policy", "the policy lets the claimed name")):
            begun = time.monotonic()
            self.assertEqual(self.talk(self.server.address, logon + "x", expect=6).splitlines()[-1],
                             "qxnego: the server refuses the logon")
            self.assertGreaterEqual(time.monotonic() - begun, 0.3)
            self.assertTrue(self.told(outcome)["failure"].startswith(failure))

    def test_strangers(self):
        """Clients that never log on, all at once: what each sends, what becomes of it, and what else is reported."""
        rows = [(b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", "protocol"), (frame(TOKEN, b"x" * 4096), "protocol"),
                (frame(TOKEN, b"x" * 99)[:50], "network"), (frame(TOKEN, b"")[:3], "network"),
                (frame(MESSAGE, b"x"), "protocol"), (frame(9, b""), "protocol"), (b"", "network"), (None, "network"),
                (frame(TOKEN, b"\0garbage"), "negotiation"), (frame(TOKEN, b""), "negotiation"),
                # That the policy refused something is the server's to say.
                (init_token((SCRAM_OID, {1: b"\3", 2: b"\5"})), "negotiation"),
                (claim(b"bob"), "network", "claimed"), (claim(b"eve"), "network")]
        rows += [(init_token((SCRAM_OID, {**FAILED, 5: text}), claim=text), "negotiation")
                 for text in (b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\xe2\x80\xae", b"a\0b", FORGED, b'"; success: "', b"\0" * 1500,
                              b"</div><script>alert(1)</script><img src='https://x.invalid/'>")]
        with contextlib.ExitStack() as stack:
            peers = [stack.enter_context(self.server.connection()) for _ in rows]
            for peer, (sent, *_) in zip(peers, rows):
                send_all(peer, sent)
            reports = {report["peer"]: report for report in (self.server.next() for _ in rows)}
            ports = ["%s:%d" % (("[%s]" if ":" in peer.getsockname()[0] else "%s") % peer.getsockname()[0],
                                peer.getsockname()[1]) for peer in peers]
            heard = [read_frame(peer.makefile("rb")) for peer in peers]
        for port, (sent, outcome, *refused), answer in zip(ports, rows, heard):
            with self.subTest(sent=sent):
                report = reports[port]
                self.assertEqual((report["class"], report["established"], report["refused"]),
                                 (outcome, False, *(refused or [""])))
                self.assertTrue(all(ord(c) >= 32 and c != "\u202e" for c in report["failure"] + report["claimed"]))
                self.assertLess(len(report["failure"]), 1030)
                for text in (report["claimed"], *(row["status_text"] for row in report["verdicts"])):
                    self.assertLess(len(text), 260)
                if sent in (claim(b"bob"), claim(b"eve")):  # who hear the same
                    self.assertEqual((answer[0], len(report["verdicts"]), report["verdicts_left_out"]), (TOKEN, 100, 2))
                if report["failure"].startswith('SCRAM-SHA-256: "'):  # no text can look like the server's own verdict
                    self.assertEqual([(row["mechanism"], row["server"], row["verdict"]) for row in report["verdicts"]],
                                     [(name, "Rejected", "rejected") for name in ("SCRAM-SHA-256", "SCRAM-SHA-1")])
        self.assertEqual(len({(answer[0], len(answer[1])) for answer in heard[11:13]}), 1)

    def test_servers_that_speak_something_else(self):
        rows = ((b"HTTP/1.1 400 Bad Request\r\n\r\n", 5), (frame(TOKEN, b"x")[:4], 4), (b"", 4), (None, 4),
                (frame(TOKEN, b"\0garbage"), 6), (frame(END, b"\1"), 6), (frame(END, b"\x63"), 5),
                (frame(TOKEN, b"x" * 1024)[:99], 5), (None, 130))  # the last one is interrupted
        with contextlib.ExitStack() as stack:
            clients = []
            for answer, expected in rows:
                listener = stack.enter_context(socket.create_server(("127.0.0.1", 0)))
                clients.append(self.start("127.0.0.1:%d" % listener.getsockname()[1], ALICE, "--logon-time", "3",
                                          "--max-frame", "1024"))
                peer = stack.enter_context(listener.accept()[0])
                read_frame(peer.makefile("rb"))
                send_all(peer, answer)
            clients[-1].terminate()
            for client, (answer, expected) in zip(clients, rows):
                with self.subTest(answer=answer):
                    self.assertEqual(self.finish(client, expected).count("\n"), 1)

    def test_processes(self):
        """What ends one is told of its connection, and all end with the server."""
        server = Server(self.config)
        with server.connection(), server.connection():
            time.sleep(0.3)
            ended, child = server.children()
            os.kill(ended, signal.SIGKILL)
            self.assertIn("ended by a signal", self.told("failure", server)["failure"])
            child = os.pidfd_open(child)
            server.stop(signal.SIGKILL)
            self.assertTrue(select.select([child], [], [], 5)[0])
        os.close(child)

    def test_an_output_that_cannot_be_written(self):
        for output in (">/dev/full", ">&-"):
            command = 'exec "$0" serve --listen localhost:0 --json --config "$1" ' + output
            with subprocess.Popen(["sh", "-c", command, QXNEGO, self.config], stderr=subprocess.PIPE) as server:
                is_told = select.select([server.stderr], [], [], 10)[0]  # while it serves
                server.terminate()
                said = server.stderr.read()
            self.assertTrue(is_told)
            self.assertEqual((server.returncode, said.count(b"cannot be written")), (1, 2), said)

    def test_an_output_that_nobody_reads(self):
        server = Server(self.config, "--max-failures", "10000", reads=False)
        for _ in range(60):
            with server.connection() as peer:
                peer.sendall(init_token((SCRAM_OID, {**FAILED, 5: b"x" * 2000})))
                peer.recv(100)
        begun = time.monotonic()
        self.assertEqual(server.stop(signal.SIGTERM), (1, "qxnego: the output cannot be written\n"))
        self.assertLess(time.monotonic() - begun, 4)
        server.process.stdout.close()

    def test_who_has_logged_on_is_not_slowed(self):
        server, self.options = Server(self.config, "--max-failures", "1"), ()
        begun = time.monotonic()
        for _ in range(3):  # there is no protection, and so no message
            self.talk(server.address, ALICE, messages=b"x", expect=9)
        self.assertLess(time.monotonic() - begun, 8)
        self.assertEqual(server.stop(signal.SIGTERM), (0, ""))

    def test_places_are_for_those_who_log_on(self):
        server = Server(self.config, "--max-address", "3", "--max-clients", "4")
        with contextlib.ExitStack() as stack:
            for _ in range(3):
                stack.enter_context(server.connection())
            time.sleep(0.2)
            self.talk(server.address, ALICE, expect=4)
        for _ in range(3):
            self.told("network", server)
        self.talk(server.address, ALICE)
        self.told("success", server)
        with server.connection() as peer:
            peer.sendall(b"\0")
            time.sleep(0.2)
            os.kill(server.children()[0], signal.SIGTERM)  # as when both are a shell's
            self.assertEqual(server.stop(signal.SIGTERM), (0, ""))
        self.told("interrupted", server)
        self.assertEqual(server.next()["by_address"], 1)


class Realm(Case):
    """Kerberos, NTLM and SCRAM in the realm in which this program runs."""

    mechanisms = offer = KERBEROS, NTLM, SCRAM
    server_options = "--max-address", "20", "--max-failures", "10000"
    options = "--target", "host@localhost"
    password = "authcid=alice password=Alice1"

    def setUp(self):
        subprocess.run(["kinit", "alice"], input=b"Alice1\n", check=True, capture_output=True)
        self.addCleanup(subprocess.run, ["kdestroy"], check=True)

    def test_single_sign_on(self):
        address = self.server.address
        err = self.talk(address, None, "--require-confirmation", messages=b"x" * 100_000)
        self.assertIn("Kerberos  flags", err)
        self.told("success", user="alice@QXNEGO.TEST", confirmation="confirmed", message_bytes=100_000, delegated="")
        self.assertIn("50 messages of 1024 bytes", self.talk(address, None, "--delegate", "--bench", "50"))
        self.told("success", delegated="alice@QXNEGO.TEST", messages=50)

    def test_passwords(self):
        # No such principal in the realm, but a user of the NTLM domain: the reason is shown on both sides.
        logon = "authcid=alice realm=QXTEST password=Alice1"
        err = self.talk(self.server.address, logon, "--why", messages=b"one\ntwo\n")
        self.assertRegex(err, r"Kerberos +Rejected +Rejected +rejected")
        kerberos = self.told("success", mechanism="NTLMSSP", confirmation="confirmed")["verdicts"][0]
        self.assertEqual((kerberos["mechanism"], kerberos["verdict"]), ("Kerberos", "rejected"))
        self.assertNotEqual(kerberos["status_text"], "")
        without_ntlm = configuration(self.folder, "without_ntlm", KERBEROS, SCRAM)
        self.talk(self.server.address, ALICE, "--no-messages", config=without_ntlm)
        kerberos = self.told("success", mechanism="SCRAM-SHA-256")["verdicts"][0]
        self.assertEqual(kerberos["reason"], "GSSAPI Error")


if __name__ == "__main__":
    unittest.main(warnings="ignore")
