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

ALICE = "authcid=alice password=wonderland"
BOB = "authcid=bob password=builder"


class Case(unittest.TestCase):
    """A server of its own for each test; it must still serve at the end, and end cleanly."""

    env = None

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def enterContext(self, manager):  # unittest has it from Python 3.11
        value = manager.__enter__()
        self.addCleanup(manager.__exit__, None, None, None)
        return value

    def serve(self, config, *options, **more):
        server = Server(config, *options, env=self.env, **more)
        self.addCleanup(self.end, server)
        return server

    def end(self, server):
        status, errors = server.stop()
        server.process.stdout.close()
        self.assertEqual((status, errors), (0, ""))

    def connect(self, address, logon, *options, expect=0, **more):
        status, out, err = run_client(address, *options, logon=logon, env=self.env, **more)
        self.assertEqual(status, expect, err)
        if status:
            self.assertTrue(err.splitlines()[-1].startswith("qxnego: "), err)
        return out, err


class Scram(Case):
    def setUp(self):
        super().setUp()
        policy = '[policy.users]\nbob = ["SCRAM-SHA-1"]\n'
        self.client = configuration(self.folder, "client", [SCRAM])
        self.config = configuration(self.folder, "server", [SCRAM], policy, registered=[SCRAM_1])

    def log_on(self, server, logon=ALICE, *options, address=None, expect=0):
        return self.connect(address or server.address, logon, "--config", self.client, "--no-messages", *options,
                            expect=expect)

    def test_both_families(self):
        server = self.serve(self.config, address="localhost")
        self.log_on(server)
        self.assertEqual(server.next()["user"], "alice")
        for address in server.addresses:
            self.log_on(server, address=address)
            report = server.next()
            self.assertEqual((report["status"], report["mechanism"], report["confirmation"], report["rounds"]),
                             (0, "SCRAM-SHA-256", "unconfirmed", 2))
        port = int(server.address.rsplit(":", 1)[1])
        with contextlib.suppress(OSError), socket.create_connection(("::1", port)):
            self.assertIn("[::1]:%d" % port, [server.address, *server.addresses])

    def test_no_protection_and_no_confirmation(self):
        server = self.serve(self.config)
        _, err = self.connect(server.address, ALICE, "--config", self.client, messages=b"secret", expect=9)
        self.assertIn("SCRAM-SHA-256 has no protection for messages", err)
        self.log_on(server, ALICE, "--require-confirmation", expect=7)
        strict = self.serve(self.config, "--require-confirmation")
        self.log_on(strict, expect=7)
        self.assertEqual(strict.next()["class"], "confirmation")

    def test_wrong_password(self):
        server = self.serve(self.config)
        _, err = self.log_on(server, "authcid=alice password=looking-glass", expect=6)
        self.assertIn("the server refuses the logon", err)
        report = server.next()
        self.assertEqual((report["class"], report["refused"]), ("negotiation", ""))
        self.assertTrue(report["failure"].startswith("SCRAM-SHA-256: "), report)
        self.log_on(server)

    def test_the_proved_name_decides(self):
        server = self.serve(self.config)
        _, err = self.log_on(server, BOB + " user=alice", expect=8)
        report = server.next()
        self.assertEqual((report["class"], report["refused"], report["claimed"], report["user"]),
                         ("policy", "proved", "alice", "bob"))
        self.assertNotIn("bob", err)
        self.log_on(server, BOB, expect=8)
        self.assertEqual(server.next()["refused"], "claimed")
        self.log_on(server, ALICE + " user=bob", expect=8)
        self.assertEqual(server.next()["refused"], "claimed")

    def test_a_stranger_learns_nothing(self):
        server = self.serve(self.config)
        heard = []
        for logon in ("authcid=bob password=x", "authcid=eve password=x"):
            proxy = Proxy(server.address)
            start = time.monotonic()
            _, err = self.log_on(server, logon, address=proxy.address, expect=6)
            self.assertGreater(time.monotonic() - start, 0.3)
            heard.append((proxy.seen, proxy.raw, err))
            self.assertGreaterEqual(proxy.times[-1] - proxy.times[0], 0.3)
        self.assertEqual(heard[0], heard[1])
        self.assertEqual(heard[0][1], frame(END, b"\1"))
        self.assertEqual([server.next()["refused"], server.next()["refused"]], ["claimed", ""])

    def test_peers_that_speak_something_else(self):
        server = self.serve(self.config, "--logon-time", "1", "--max-frame", "2048")
        for sent, expected in ((b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", "protocol"),
                               (frame(TOKEN, b"x" * 2049), "protocol"), (frame(TOKEN, b"x" * 99)[:50], "network"),
                               (frame(TOKEN, b"")[:3], "network"), (frame(MESSAGE, b"x"), "protocol"),
                               (frame(9, b""), "protocol"), (frame(TOKEN, b"\0garbage"), "negotiation"),
                               (frame(TOKEN, b""), "negotiation"), (b"", "network"), (None, "network")):
            host, port = server.address.rsplit(":", 1)
            with socket.create_connection((host, int(port))) as peer:
                if sent is not None:  # else it says nothing and stays
                    peer.sendall(sent)
                    peer.shutdown(socket.SHUT_WR)
                report = server.next()
                self.assertEqual((report["class"], report["established"]), (expected, False), sent)
        self.log_on(server)

    def test_servers_that_speak_something_else(self):
        for answer, expected in ((b"HTTP/1.1 400 Bad Request\r\n\r\n", 5), (frame(TOKEN, b"x")[:4], 4), (b"", 4),
                                 (None, 4), (frame(TOKEN, b"\0garbage"), 6), (frame(END, b"\1"), 6),
                                 (frame(END, b"\x63"), 5), (frame(TOKEN, b"x" * 1025)[:99], 5)):
            with socket.create_server(("127.0.0.1", 0)) as listener:
                client = start_client("127.0.0.1:%d" % listener.getsockname()[1], "--config", self.client, "--logon-time",
                                      "1", "--max-frame", "1024", logon=ALICE)
                peer, _ = listener.accept()
                with peer:
                    read_frame(peer.makefile("rb"))
                    if answer is not None:
                        peer.sendall(answer)
                        peer.shutdown(socket.SHUT_WR)
                    _, err = client.communicate(timeout=PATIENCE)
                self.assertEqual((client.returncode, err.count(b"\n")), (expected, 1), (answer, err))

    def test_twenty_at_once(self):
        server = self.serve(self.config)
        clients = [start_client(server.address, "--config", self.client, "--no-messages",
                                logon=ALICE if i % 2 else "authcid=alice password=x") for i in range(20)]
        statuses = []
        for client in clients:
            client.communicate(timeout=PATIENCE)
            statuses.append(client.returncode)
        self.assertEqual(statuses, [6, 0] * 10)
        self.assertEqual(sorted(server.next()["status"] for _ in clients), [0] * 10 + [6] * 10)

    def test_a_full_server(self):
        server = self.serve(self.config, "--max-clients", "1")
        host, port = server.address.rsplit(":", 1)
        with socket.create_connection((host, int(port))):
            self.log_on(server, expect=4)
        server.next()
        self.log_on(server)

    def test_ends_in_the_middle(self):
        server = Server(self.config)
        host, port = server.address.rsplit(":", 1)
        with socket.create_connection((host, int(port))) as peer:
            peer.sendall(b"\0")
            time.sleep(0.2)
            self.assertEqual(server.stop(signal.SIGINT), (0, ""))
        self.assertEqual(server.next()["class"], "interrupted")
        self.log_on(server, expect=4)
        with socket.create_server(("127.0.0.1", 0)) as silent:
            client = start_client("127.0.0.1:%d" % silent.getsockname()[1], "--config", self.client, logon=ALICE)
            with silent.accept()[0] as peer:
                peer.recv(1)
                client.terminate()
                self.assertIn(b"interrupted", client.communicate(timeout=PATIENCE)[1])
            self.assertEqual(client.returncode, 130)

    def test_wrong_arguments(self):
        broken = os.path.join(self.folder, "broken")
        with open(broken, "w") as file:
            file.write("nonsense = 1\n")
        config = ("--config", self.client)
        for expected, arguments in ((2, ["connect"]), (2, ["connect", "localhost", *config]),
                                    (2, ["connect", "localhost:99999", *config]), (2, ["connect", "::1:80", *config]),
                                    (2, ["connect", "localhost:1", "--config", "/nonexistent"]),
                                    (2, ["connect", "localhost:1", *config, "--file", "/nonexistent"]),
                                    (2, ["connect", "localhost:1", *config, "--bench", "0"]),
                                    (3, ["connect", "localhost:1", "--config", broken]),
                                    (3, ["serve", "--listen", "localhost:0", "--config", broken]),
                                    (4, ["connect", "127.0.0.1:1", *config]), (4, ["connect", "x.invalid:1", *config]),
                                    (2, ["serve", *config, "--listen", "x.invalid:1"]),
                                    (2, ["serve", *config, "--max-clients", "none"])):
            done = subprocess.run([QXNEGO, *arguments], stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE)
            self.assertEqual((done.returncode, done.stderr.count(b"\n"), done.stdout), (expected, 1, b""),
                             (arguments, done.stderr))



class Realm(Case):
    """Kerberos, NTLM and SCRAM, with a key distribution centre and a user file of the test's own."""

    def setUp(self):
        super().setUp()
        self.realm = os.path.join(self.folder, "realm")
        self.env = dict(os.environ)
        self.env.update(line.split("=", 1) for line in self.run_realm("start").splitlines())
        self.addCleanup(self.run_realm, "stop")
        with open(self.env["NTLM_USER_FILE"], "w") as file:
            file.write("QXTEST:alice:Alice1\n")
        every = [KERBEROS, NTLM, SCRAM]
        self.client = configuration(self.folder, "client", every)
        self.config = configuration(self.folder, "server", every)

    def run_realm(self, verb):
        return subprocess.run([os.environ["REALM_SCRIPT"], verb, self.realm], check=True, capture_output=True, text=True,
                              env=self.env).stdout

    def take_ticket(self, *options):
        subprocess.run(["kinit", *options, "alice"], input=b"Alice1\n", check=True, capture_output=True, env=self.env)

    def talk(self, server, logon=None, *options, address=None, expect=0, messages=b"one\ntwo\n"):
        out, err = self.connect(address or server.address, logon, "--config", self.client, "--target", "host@localhost",
                                *options, expect=expect, messages=messages)
        if expect == 0 and "--bench" not in options:
            self.assertEqual(out, messages)
        return err

    def test_single_sign_on(self):
        server = self.serve(self.config, "--require-confirmation")
        self.take_ticket()
        err = self.talk(server, None, "--require-confirmation", messages=b"x" * 100_000)
        self.assertIn("Kerberos  flags", err)
        report = server.next()
        self.assertEqual((report["user"], report["confirmation"], report["message_bytes"], report["delegated"]),
                         ("alice@QXNEGO.TEST", "confirmed", 100_000, ""))
        self.talk(server, None, "--delegate")
        self.assertEqual(server.next()["delegated"], "alice@QXNEGO.TEST")
        self.assertIn("50 messages of 1024 bytes", self.talk(server, None, "--bench", "50"))

    def test_passwords(self):
        server = self.serve(self.config)
        self.talk(server, "authcid=alice password=Alice1")
        self.assertEqual(server.next()["mechanism"], "Kerberos")
        # No such principal in the realm, but a user of the NTLM domain: the reason is shown on both sides.
        err = self.talk(server, "authcid=alice realm=QXTEST password=Alice1", "--why")
        self.assertRegex(err, r"Kerberos +Rejected +Rejected +rejected")
        report = server.next()
        self.assertEqual((report["mechanism"], report["confirmation"]), ("NTLMSSP", "confirmed"))
        kerberos = report["verdicts"][0]
        self.assertEqual((kerberos["mechanism"], kerberos["verdict"]), ("Kerberos", "rejected"))
        self.assertNotEqual(kerberos["status_text"], "")
        without_ntlm = configuration(self.folder, "without_ntlm", [KERBEROS, SCRAM])
        self.connect(server.address, ALICE, "--config", without_ntlm, "--no-messages")
        report = server.next()
        self.assertEqual((report["mechanism"], report["verdicts"][0]["reason"]), ("SCRAM-SHA-256", "GSSAPI Error"))
        err = self.talk(server, "authcid=alice password=wrong", expect=6)
        self.assertIn("qxnego: Kerberos: ", err)
        self.assertEqual(server.next()["class"], "negotiation")

    def test_policy_and_requested_user(self):
        policy = '[policy.users]\n"alice@QXNEGO.TEST" = ["NTLMSSP"]\ncarol = ["NTLMSSP"]\n'
        server = self.serve(configuration(self.folder, "policy", [KERBEROS, NTLM, SCRAM], policy))
        self.talk(server, "authcid=alice password=Alice1", expect=8)
        report = server.next()
        self.assertEqual((report["claimed"], report["user"], report["refused"]), ("alice", "alice@QXNEGO.TEST", "proved"))
        self.talk(server, "authcid=alice realm=QXTEST password=Alice1 user=carol")
        report = server.next()
        self.assertEqual((report["claimed"], report["mechanism"]), ("carol", "NTLMSSP"))
        self.assertIn("Due to Policy", [row["reason"] for row in report["verdicts"]])

    def test_the_kdc_stops(self):
        server = self.serve(self.config)
        self.take_ticket()
        self.run_realm("kill")
        self.assertRegex(self.talk(server, None, "--why"), r"NTLMSSP  flags[^$]*Kerberos +Rejected[^$]* KDC")
        only_kerberos = configuration(self.folder, "only_kerberos", [KERBEROS])
        _, err = self.connect(server.address, None, "--config", only_kerberos, "--target", "host@localhost", expect=6)
        self.assertRegex(err, r"qxnego: Kerberos: .*KDC")
        self.run_realm("restart")
        self.talk(server)
        self.run_realm("kill")
        self.assertIn("Kerberos  flags", self.talk(server))  # with the service ticket that is there

    def test_killed_in_the_middle(self):
        self.take_ticket()
        server = Server(self.config, env=self.env)
        proxy = Proxy(server.address, lambda is_client, number, contents: time.sleep(5) or contents)
        client = start_client(proxy.address, "--config", self.client, "--target", "host@localhost", env=self.env)
        time.sleep(1)
        server.stop(signal.SIGKILL)
        client.kill()
        client.communicate(timeout=PATIENCE)
        server = self.serve(self.config)
        for _ in range(2):
            proxy = Proxy(server.address)
            client = start_client(proxy.address, "--config", self.client, "--target", "host@localhost", env=self.env)
            while not proxy.seen:
                time.sleep(0.01)
            client.kill()
            client.communicate(timeout=PATIENCE)
            self.assertIn(server.next()["class"], ("network", "success"))
        self.talk(server)

    def test_twenty_at_once(self):
        server = self.serve(self.config)
        self.take_ticket()
        options = ("--config", self.client, "--target", "host@localhost", "--bench", "5")
        clients = [start_client(server.address, *options, env=self.env) for _ in range(20)]
        for client in clients:
            _, err = client.communicate(timeout=PATIENCE)
            self.assertEqual(client.returncode, 0, err)
        self.assertEqual({(report["mechanism"], report["confirmation"], report["messages"])
                          for report in (server.next() for _ in clients)}, {("Kerberos", "confirmed", 5)})

    def test_someone_in_between(self):
        """Whatever is changed in the offer or in the answer: both sides refuse, and nobody sends a message."""
        unknown = [0xA0, [[0x80, b"\x2b\x06\x01\x04\x01\x63"], [0x81, b"\x01"]]]
        changes = {
            "strike": lambda entries: entries.pop(0),
            "add": lambda entries: entries.append(unknown),
            "swap": lambda entries: entries.insert(0, entries.pop()),
            "alter": lambda entries: entries[0][1][0].__setitem__(1, b"\x2b\x06\x01\x04\x01\x63"),
            "double": lambda entries: entries.append(entries[0]),
        }
        server = self.serve(self.config)
        self.talk(server, "authcid=alice password=Alice1", address=Proxy(server.address).address)
        self.assertEqual(server.next()["confirmation"], "confirmed")
        for from_client in (True, False):
            for name, change in changes.items():
                with self.subTest(from_client=from_client, change=name):
                    changed = []

                    def alter(is_client, number, contents):
                        if is_client != from_client or number != 1:
                            return contents
                        changed.append(change_entries(contents, change) != contents)
                        return change_entries(contents, change)

                    proxy = Proxy(server.address, alter)
                    status, out, err = run_client(proxy.address, "--config", self.client, "--target", "host@localhost",
                                                  logon="authcid=alice password=Alice1", env=self.env, messages=b"x")
                    report = server.next()
                    self.assertEqual(changed, [True])
                    self.assertIn(status, (4, 6, 7), err)
                    self.assertIn(report["class"], ("network", "negotiation", "confirmation"), report)
                    self.assertEqual((out, report["messages"]), (b"", 0))


if __name__ == "__main__":
    unittest.main(warnings="ignore")
