"""QXNEGO through the host's GSS-API library, in programs that nobody here wrote: gss-client and gss-server, and Python's
gssapi in both roles. Runs in the realm of realm.sh; the libraries are not sanitized, since the programs are not."""
import contextlib
import json
import os
import socket
import subprocess
import threading
import unittest

REALM, LIBRARIES = os.environ["REALM"], os.environ["QXNEGO_LIBRARIES"]
QXNEGO = "1.3.6.1.4.1.32473.1.1"
KERBEROS = ("Kerberos", "1.2.840.113554.1.2.2", "hostgss", "HOSTGSS", "true")
SCRAM = ("SCRAM-SHA-256", "1.3.6.1.5.5.18", "scram", "SCRAM_SHA_256", "false")
NTLM = ("NTLMSSP", "1.3.6.1.4.1.311.2.2.10", "hostgss", "HOSTGSS", "true")
POLICY = '[policy.users]\nbob = ["Kerberos"]\n"mallory@QXNEGO.TEST" = ["SCRAM-SHA-256"]\n'


def write(name, text):
    with open(os.path.join(REALM, name), "w") as file:
        file.write(text)
    return file.name


def configuration(name, *mechanisms, settings=""):
    """The framework's file, with the mechanisms in order of preference."""
    offer = ", ".join('{ oid = "%s" }' % oid for _, oid, *_ in mechanisms)
    text = 'library_path = "%s"\n[[mechanism]]\nname = "QXNEGO"\noid = "%s"\n' % (LIBRARIES, QXNEGO)
    text += 'library = "libgssp2qxnego.so"\nprefix = "QXNEGO"\nnegotiates = [ %s ]\n%s' % (offer, settings)
    for rank, (mechanism, oid, library, prefix, sso) in enumerate(mechanisms):
        text += '[[mechanism]]\nname = "%s"\noid = "%s"\nlibrary = "lib%s.so"\n' % (mechanism, oid, library)
        text += 'prefix = "%s"\n[mechanism.properties]\nauthentication = true\nauthorization = true\n' % prefix
        text += 'single_sign_on = %s\nrank = %d\n[mechanism.settings]\naccept = "yes"\n' % (sso, rank)
        text += 'verifiers_file = "%s"\n' % os.environ["QXNEGO_VERIFIERS"]
    return write(name, text + POLICY)


ALL = configuration("all.conf", KERBEROS, SCRAM, NTLM)
os.environ["QXGSS_CONF"] = ALL
os.environ["GSS_MECH_CONFIG"] = write(
    "mech.conf", "qxnego %s %s/libqxnego-gssapi.so\nntlm %s %s\n" % (QXNEGO, LIBRARIES, NTLM[1], os.environ["NTLM"]))

import gssapi  # noqa: E402: it reads the environment

MECH = gssapi.OID.from_int_seq(QXNEGO)
LOG, STORY, SELECTED = (gssapi.OID.from_int_seq("%s.1.%d" % (QXNEGO, n)) for n in (1, 2, 3))
FLAG = gssapi.RequirementFlag
SERVICE = gssapi.Name("host@localhost", gssapi.NameType.hostbased_service)


def run(*command, **more):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=True, **more).stdout


def take_ticket(user, password):
    run("kinit", "-f", user, input=password)


def setUpModule():
    run("kadmin.local", "-q", "addprinc -pw Mallory1 mallory")


def told(context, oid):
    return gssapi.raw.inquire_sec_context_by_oid(context, oid)[0].decode()


def story(context):
    return json.loads(told(context, STORY))


def with_password(user, password):
    acquired = gssapi.raw.acquire_cred_with_password(gssapi.Name(user), password.encode(), mechs=[MECH],
                                                     usage="initiate")
    return gssapi.Credentials(acquired.creds)


def failure_of(context):
    """What a context failed with. One that has a token for its peer keeps that to itself until it is asked."""
    try:
        return "" if context.complete else "it goes on"
    except gssapi.exceptions.GSSError as failure:
        return str(failure)


def acceptor():
    return gssapi.Credentials(name=SERVICE, usage="accept", mechs=[MECH])


class Pair:
    """A client and a server; `establish` carries their tokens until one fails or both are complete."""

    def __init__(self, client=None, server=None, flags=FLAG.mutual_authentication | FLAG.confidentiality):
        self.client = gssapi.SecurityContext(name=SERVICE, creds=client, mech=MECH, usage="initiate", flags=flags)
        self.server = gssapi.SecurityContext(creds=server or acceptor(), usage="accept")

    def establish(self):
        token, turn = self.client.step(), self.server
        while token:
            token, turn = turn.step(token), self.client if turn is self.server else self.server
        return self


class Python(unittest.TestCase):
    def setUp(self):
        take_ticket("alice", "Alice1")

    def test_single_sign_on_and_messages_both_ways(self):
        pair = Pair().establish()
        self.assertTrue(pair.client.complete and pair.server.complete)
        self.assertEqual(str(pair.server.initiator_name), "alice@QXNEGO.TEST")
        self.assertEqual(str(pair.client.initiator_name), "alice@QXNEGO.TEST")
        self.assertEqual(pair.client.mech, MECH)
        self.assertGreater(pair.server.lifetime, 3600)
        self.assertIsNone(pair.server.delegated_creds)
        for sender, receiver in ((pair.client, pair.server), (pair.server, pair.client)):
            for text in (b"text", b""):
                message = sender.wrap(text, True)
                self.assertTrue(message.encrypted)
                self.assertEqual(receiver.unwrap(message.message)[:2], (text, True))
                receiver.verify_signature(text, sender.get_signature(text))
            with self.assertRaises(gssapi.exceptions.BadMICError):
                receiver.verify_signature(b"other", sender.get_signature(b"text"))
            size = sender.get_wrap_size_limit(1000)
            self.assertLessEqual(len(sender.wrap(b"x" * size, True).message), 1000)

    def test_the_story(self):
        pair = Pair().establish()
        for context, side, user in ((pair.client, "client", ""), (pair.server, "server", "alice@QXNEGO.TEST")):
            self.assertEqual(told(context, SELECTED), "Kerberos")
            self.assertIn("MechState:        Selected", told(context, LOG))
            known = story(context)
            self.assertEqual([known[key] for key in ("side", "established", "user", "confirmation", "failure")],
                             [side, True, user, "confirmed", ""])
            self.assertEqual({row["mechanism"]: row["state"] for row in known["verdicts"]},
                             {"Kerberos": "Selected", "SCRAM-SHA-256": "Rejected", "NTLMSSP": "Rejected"})

    def test_passwords(self):
        for user, password, mechanism, name in (("alice", "Alice1", "Kerberos", "alice@QXNEGO.TEST"),
                                                ("alice", "wonderland", "SCRAM-SHA-256", "alice"),
                                                ("QXTEST\\alice", "Alice1", "NTLMSSP", "QXTEST\\alice")):
            pair = Pair(with_password(user, password)).establish()
            self.assertEqual((told(pair.server, SELECTED), str(pair.server.initiator_name)), (mechanism, name))
            protects = mechanism != "SCRAM-SHA-256"
            self.assertEqual(story(pair.client)["confirmation"], "confirmed" if protects else "unconfirmed")
            self.assertEqual(FLAG.integrity in pair.client.actual_flags, protects)
            self.assertEqual(FLAG.mutual_authentication in pair.client.actual_flags, mechanism != "NTLMSSP")

    def test_wrong_passwords(self):
        """What failed first is said first, and what looks like more of a logon string is part of the password."""
        for password in ("wrong", '" realm="QXTEST', "wonderland ", "'"):
            pair = Pair(with_password("alice", password))
            with self.assertRaisesRegex(gssapi.exceptions.GSSError, r'Minor \(\d+\): Kerberos: "'):
                pair.establish()
            self.assertIn('SCRAM-SHA-256: "', failure_of(pair.server))

    def test_a_policy_that_refuses(self):
        """By the name that is claimed, and by the one that is proved."""
        take_ticket("mallory", "Mallory1")
        for client, cause in ((with_password("bob", "builder"), 'the claimed name "bob"'),
                              (None, 'name "mallory')):
            pair = Pair(client)
            with self.assertRaisesRegex(gssapi.exceptions.UnauthorizedError, "the server's policy does not let"):
                pair.establish()
            self.assertIn(cause, failure_of(pair.server))

    def test_delegation(self):
        pair = Pair(flags=FLAG.delegate_to_peer | FLAG.mutual_authentication).establish()
        self.assertIn(FLAG.delegate_to_peer, pair.server.actual_flags)
        delegated = pair.server.delegated_creds
        self.assertEqual((str(delegated.name), delegated.usage), ("alice@QXNEGO.TEST", "initiate"))
        take_ticket("mallory", "Mallory1")
        further = Pair(delegated).establish()
        self.assertEqual(str(further.server.initiator_name), "alice@QXNEGO.TEST")

    def test_names(self):
        for text, kind in (("alice", gssapi.NameType.user), ("host@localhost", gssapi.NameType.hostbased_service)):
            name = gssapi.Name(text, kind).canonicalize(MECH)
            again = gssapi.Name(name.export(), gssapi.NameType.export)
            self.assertEqual((str(name), name, again), (text, again, gssapi.Name(text, kind).canonicalize(MECH)))
            self.assertNotEqual(name, gssapi.Name("alicf", kind).canonicalize(MECH))
        self.assertNotEqual(gssapi.Name("a@b", gssapi.NameType.user).canonicalize(MECH),
                            gssapi.Name("a@b", gssapi.NameType.hostbased_service).canonicalize(MECH))

    def test_credential_stores(self):
        alice = gssapi.Name("alice")
        os.environ.update(KRB5_KTNAME=REALM + "/none", KRB5CCNAME=REALM + "/none")
        try:
            stores = ({"client_keytab": REALM + "/client.keytab", "ccache": "MEMORY:own"},
                      {"ccache": "FILE:" + REALM + "/ccache"}, {"password": "Alice1"})
            acceptors = gssapi.Credentials(usage="accept", mechs=[MECH], store={"keytab": REALM + "/service.keytab"})
            for store in stores:
                initiators = gssapi.Credentials(name=alice, usage="initiate", mechs=[MECH], store=store)
                self.assertIn(str(initiators.name), ("alice", "alice@QXNEGO.TEST"))
                self.assertEqual(told(Pair(initiators, acceptors).establish().server, SELECTED), "Kerberos")
            logon = {"qxnego_logon_file": write("logon", "authcid=alice password=wonderland\n")}
            initiators = gssapi.Credentials(usage="initiate", mechs=[MECH], store=logon)
            self.assertEqual(told(Pair(initiators, acceptors).establish().server, SELECTED), "SCRAM-SHA-256")
            strict = dict(logon, qxnego_confirmation="required")
            with self.assertRaisesRegex(gssapi.exceptions.GSSError, "SCRAM-SHA-256 has no MICs"):
                Pair(gssapi.Credentials(usage="initiate", mechs=[MECH], store=strict), acceptors).establish()
            self.assertEqual(str(initiators.name), "alice")
            self.assertTrue(gssapi.Credentials(usage="accept", mechs=[MECH], store={"qxnego_config": ALL}).name)
            for store, cause in (({"qxnego_config": "/other"}, "the process has another configuration"),
                                 ({"qxnego_confirmation": "yes"}, "confirmation must be"),
                                 ({"qxnego_logon_file": REALM + "/none"}, "No such file"),
                                 ({}, "SCRAM-SHA-256: it has no single sign-on")):
                with self.assertRaisesRegex(gssapi.exceptions.GSSError, cause):
                    gssapi.Credentials(usage="initiate", mechs=[MECH], store=store)
        finally:
            os.environ.update(KRB5_KTNAME="FILE:" + REALM + "/service.keytab", KRB5CCNAME="FILE:" + REALM + "/ccache")

    def test_two_threads(self):
        server, failures = acceptor(), []

        def work(user, password, name):
            try:
                for _ in range(10):
                    pair = Pair(with_password(user, password), server).establish()
                    self.assertEqual(str(pair.server.initiator_name), name)
            except Exception as failure:  # a thread's own would be lost
                failures.append(failure)

        threads = [threading.Thread(target=work, args=row) for row in (("alice", "Alice1", "alice@QXNEGO.TEST"),
                                                                      ("alice", "wonderland", "alice"))]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])


class Samples(unittest.TestCase):
    def converse(self, *options, config=ALL, server_config=None, message="hello there"):
        """One gss-client against one gss-server; what each has printed."""
        with socket.create_server(("127.0.0.1", 0)) as listener:
            port = str(listener.getsockname()[1])
        arguments = ["gss-server", "-port", port, "-once", "host@localhost"]
        environment = dict(os.environ, QXGSS_CONF=server_config or config)
        with subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              env=environment) as server:
            try:
                self.assertEqual(server.stdout.readline(), "starting...\n")
                client = subprocess.run(["gss-client", "-port", port, "-mech", "{ %s }" % QXNEGO.replace(".", " "),
                                         *options, "localhost", "host@localhost", message],
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                        env=dict(os.environ, QXGSS_CONF=config), timeout=60)
                return client.stdout, server.communicate(timeout=60)[0]
            finally:
                server.kill()

    def test_each_mechanism(self):
        take_ticket("alice", "Alice1")
        plain = ("-nw", "-nx", "-nm")
        for options, user in (((), "alice@QXNEGO.TEST"), (("-d", "-seq", "-mcount", "3"), "alice@QXNEGO.TEST"),
                              (("-user", "alice", "-pass", "wonderland", *plain), "alice"),
                              (("-user", "QXTEST\\alice", "-pass", "Alice1"), "QXTEST\\alice")):
            client, server = self.converse(*options)
            self.assertIn('Accepted connection: "%s"' % user, server)
            self.assertIn('Received message: "hello there"', server)
            self.assertIn("Response received." if plain[0] in options else "Signature verified.", client)
            self.assertEqual("error" in client + server, False, client + server)

    def test_what_fails_is_told(self):
        client, server = self.converse("-user", "alice", "-pass", "wrong")
        self.assertIn("the server refuses the logon", client)
        self.assertRegex(server, 'error accepting context: Kerberos: .*; SCRAM-SHA-256: "Error authenticating user"; ')
        client, server = self.converse("-user", "bob", "-pass", "builder")
        self.assertIn("the server's policy does not let this user log on with this mechanism", client)
        self.assertIn('the policy lets the claimed name "bob" log on with none of these', server)

    def test_confirmation(self):
        """A server that wants it refuses a mechanism that cannot."""
        strict = configuration("strict.conf", KERBEROS, SCRAM, settings='settings = { confirmation = "required" }\n')
        client, server = self.converse("-user", "alice", "-pass", "wonderland", server_config=strict)
        self.assertIn("the mechanism gives none", client)
        self.assertIn("SCRAM-SHA-256 has no MICs to confirm the negotiation with", server)

    def test_a_configuration_that_is_missing(self):
        client, _ = self.converse(config=REALM + "/none.conf", server_config=ALL)
        self.assertIn("none.conf: cannot be read: No such file or directory", client)


if __name__ == "__main__":
    with contextlib.suppress(KeyboardInterrupt):
        unittest.main()
