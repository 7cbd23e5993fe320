"""QXNEGO through the host's GSS-API library, in programs that nobody here wrote: gss-client and gss-server, and Python's
gssapi in both roles. Runs in the realm of realm.sh; the libraries are not sanitized, since the programs are not."""
import concurrent.futures
import glob
import json
import os
import pathlib
import socket
import subprocess
import unittest
import unittest.mock

from network_harness import KERBEROS, NTLM, SCRAM, configuration, write

REALM, LIBRARIES = os.environ["REALM"], os.environ["QXNEGO_LIBRARIES"]
QXNEGO = "1.3.6.1.4.1.32473.1.1"
POLICY = '[policy.users]\nbob = ["Kerberos"]\n"mallory@QXNEGO.TEST" = ["SCRAM-SHA-256"]\n'
ALL = configuration(REALM, "all.conf", KERBEROS, SCRAM, NTLM, policy=POLICY)
os.environ["QXGSS_CONF"] = ALL
os.environ["GSS_MECH_CONFIG"] = write(REALM, "mech.conf", "\n".join(
    ["qxnego %s %s/libqxnego-gssapi.so" % (QXNEGO, LIBRARIES),
     *(pathlib.Path(file).read_text() for file in glob.glob("/etc/gss/mech.d/*.conf"))]))

import gssapi  # noqa: E402: it reads the environment

MECH = gssapi.OID.from_int_seq(QXNEGO)
LOG, STORY, SELECTED = (gssapi.OID.from_int_seq("%s.1.%d" % (QXNEGO, n)) for n in (1, 2, 3))
FLAG = gssapi.RequirementFlag
SERVICE = gssapi.Name("host@localhost", gssapi.NameType.hostbased_service)
ACCEPTOR = gssapi.Credentials(name=SERVICE, usage="accept", mechs=[MECH])
Failure = gssapi.exceptions.GSSError


def take_ticket(user, password):
    subprocess.run(["kinit", "-f", user], input=password, text=True, capture_output=True, check=True)


def setUpModule():
    subprocess.run(["kadmin.local", "-q", "addprinc -pw Mallory1 mallory"], capture_output=True, check=True)


def told(context, oid):
    return gssapi.raw.inquire_sec_context_by_oid(context, oid)[0].decode()


def story(context):
    return json.loads(told(context, STORY))


def with_password(user, password):
    acquired = gssapi.raw.acquire_cred_with_password(gssapi.Name(user), password.encode(), mechs=[MECH],
                                                     usage="initiate")
    return gssapi.Credentials(acquired.creds)


def credential(store, usage="initiate", name=None):
    return gssapi.Credentials(name=name, usage=usage, mechs=[MECH], store=store)


def failure_of(context):
    """What a context failed with. One that has a token for its peer keeps that to itself until it is asked."""
    try:
        return "" if context.complete else "it goes on"
    except Failure as failure:
        return str(failure)


class Pair:
    """A client and a server; `establish` carries their tokens until one fails or both are complete."""

    def __init__(self, client=None, server=None, flags=FLAG.mutual_authentication | FLAG.confidentiality):
        self.client = gssapi.SecurityContext(name=SERVICE, creds=client, mech=MECH, usage="initiate", flags=flags)
        self.server = gssapi.SecurityContext(creds=server or ACCEPTOR, usage="accept")

    def establish(self):
        token, turn = self.client.step(), self.server
        while token:
            token, turn = turn.step(token), self.client if turn is self.server else self.server
        return self


class Python(unittest.TestCase):
    def setUp(self):
        take_ticket("alice", "Alice1")

    def test_single_sign_on_messages_and_the_story(self):
        pair = Pair().establish()
        self.assertEqual(pair.client.mech, MECH)
        for context, peer, side, user in ((pair.client, pair.server, "client", ""),
                                          (pair.server, pair.client, "server", "alice@QXNEGO.TEST")):
            self.assertEqual((context.complete, str(context.initiator_name)), (True, "alice@QXNEGO.TEST"))
            for text in (b"text", b""):
                message = context.wrap(text, True)
                self.assertTrue(message.encrypted)
                self.assertEqual(peer.unwrap(message.message)[:2], (text, True))
                peer.verify_signature(text, context.get_signature(text))
            self.assertRaises(gssapi.exceptions.BadMICError, peer.verify_signature, b"other",
                              context.get_signature(b"text"))
            size = context.get_wrap_size_limit(1000)
            self.assertLessEqual(len(context.wrap(b"x" * size, True).message), 1000)
            self.assertEqual(told(context, SELECTED), "Kerberos")
            self.assertIn("MechState:        Selected", told(context, LOG))
            known = story(context)
            self.assertEqual([known[key] for key in ("side", "established", "user", "confirmation", "failure")],
                             [side, True, user, "confirmed", ""])
            self.assertEqual({row["mechanism"]: row["state"] for row in known["verdicts"]},
                             {"Kerberos": "Selected", "SCRAM-SHA-256": "Rejected", "NTLMSSP": "Rejected"})

    def test_flags_are_those_of_the_mechanism(self):
        """Kerberos protects messages also when nobody asks for it; NTLM does not, and has no MICs to confirm with then."""
        for flag in (FLAG.mutual_authentication, FLAG.replay_detection, FLAG.delegate_to_peer):
            pair = Pair(flags=flag).establish()
            for context in (pair.client, pair.server):
                self.assertEqual({one for one in FLAG if one in context.actual_flags} - {FLAG.protection_ready},
                                 {flag, FLAG.confidentiality, FLAG.integrity})
                self.assertEqual(story(context)["confirmation"], "confirmed")
        plain, strict = (Pair(credential(dict(store, password="Alice1"), name=gssapi.Name("QXTEST\\alice")),
                              flags=FLAG.mutual_authentication) for store in ({}, {"qxnego_confirmation": "required"}))
        self.assertRaisesRegex(Failure, "without integrity, which was not", strict.establish)
        plain.establish()
        for context in (plain.client, plain.server):
            self.assertNotIn(FLAG.integrity, context.actual_flags)
            self.assertEqual(story(context)["confirmation"], "unconfirmed")
            self.assertRaisesRegex(Failure, "does not protect messages", context.get_signature, b"text")

    def test_passwords_in_three_threads(self):
        def log_on(user, password, mechanism, name):
            protects = mechanism != "SCRAM-SHA-256"
            for _ in range(10):
                pair = Pair(with_password(user, password)).establish()
                self.assertEqual((told(pair.server, SELECTED), str(pair.server.initiator_name)), (mechanism, name))
                self.assertEqual(story(pair.client)["confirmation"], "confirmed" if protects else "unconfirmed")
                self.assertEqual(FLAG.integrity in pair.client.actual_flags, protects)
                self.assertEqual(FLAG.mutual_authentication in pair.client.actual_flags, mechanism != "NTLMSSP")

        with concurrent.futures.ThreadPoolExecutor() as threads:
            list(threads.map(log_on, ("alice", "alice", "QXTEST\\alice"), ("Alice1", "wonderland", "Alice1"),
                             ("Kerberos", "SCRAM-SHA-256", "NTLMSSP"), ("alice@QXNEGO.TEST", "alice", "QXTEST\\alice")))

    def test_wrong_passwords(self):
        """What failed first is said first, and what looks like more of a logon string is part of the password."""
        for password in ("wrong", '" realm="QXTEST', "wonderland ", "'"):
            pair = Pair(with_password("alice", password))
            self.assertRaisesRegex(Failure, r'Minor \(\d+\): Kerberos: "', pair.establish)
            self.assertIn('SCRAM-SHA-256: "', failure_of(pair.server))
            known = story(pair.server)
            self.assertEqual((known["class"], known["established"], known["user"]), ("negotiation", False, ""))
            self.assertIn("SCRAM-SHA-256", told(pair.server, LOG))

    def test_a_policy_that_refuses(self):
        """By the name that is claimed, and by the one that is proved."""
        take_ticket("mallory", "Mallory1")
        for client, cause in ((with_password("bob", "builder"), 'the claimed name "bob"'), (None, 'name "mallory')):
            pair = Pair(client)
            self.assertRaisesRegex(gssapi.exceptions.UnauthorizedError, "the server says that its policy does not let",
                                   pair.establish)
            self.assertIn(cause, failure_of(pair.server))

    def test_delegation(self):
        pair = Pair(flags=FLAG.delegate_to_peer | FLAG.mutual_authentication).establish()
        self.assertIn(FLAG.delegate_to_peer, pair.server.actual_flags)
        delegated = pair.server.delegated_creds
        self.assertEqual((str(delegated.name), delegated.usage), ("alice@QXNEGO.TEST", "initiate"))
        take_ticket("mallory", "Mallory1")
        further = Pair(delegated).establish()
        self.assertEqual(str(further.server.initiator_name), "alice@QXNEGO.TEST")

    @unittest.mock.patch.dict(os.environ, dict.fromkeys(("KRB5_KTNAME", "KRB5CCNAME", "NTLM_USER_FILE"), REALM + "/none"))
    def test_credential_stores(self):
        accepting = credential({"keytab": REALM + "/service.keytab"}, "accept")
        logon = {"qxnego_logon_file": write(REALM, "logon", "authcid=alice password=wonderland\n")}
        self.assertEqual(str(credential(logon).name), "alice")
        self.assertTrue(credential({"qxnego_config": ALL}, "accept").name)
        for store, selected in (({"client_keytab": REALM + "/client.keytab", "ccache": "MEMORY:own"}, "Kerberos"),
                                ({"ccache": "FILE:" + REALM + "/ccache"}, "Kerberos"),
                                ({"password": "Alice1"}, "Kerberos"), (logon, "SCRAM-SHA-256")):
            initiating = credential(store, name=None if store is logon else gssapi.Name("alice"))
            self.assertIn(str(initiating.name), ("alice", "alice@QXNEGO.TEST"))
            self.assertEqual(told(Pair(initiating, accepting).establish().server, SELECTED), selected)
        for store, cause in (({"qxnego_config": "/other"}, "the process has another configuration"),
                             ({"qxnego_confirmation": "yes"}, "confirmation must be"),
                             (dict(logon, qxnego_confirmation="required"), "SCRAM-SHA-256 has no MICs"),
                             ({"qxnego_logon_file": REALM + "/none"}, "No such file"),
                             ({}, "SCRAM-SHA-256: it has no single sign-on")):
            with self.assertRaisesRegex(Failure, cause):
                Pair(credential(store), accepting).establish()


class Samples(unittest.TestCase):
    def converse(self, *options, config=ALL):
        """One gss-client against one gss-server; what each has printed."""
        with socket.create_server(("127.0.0.1", 0)) as listener:
            port = str(listener.getsockname()[1])
        printed = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "text": True}
        with subprocess.Popen(["gss-server", "-port", port, "-once", "host@localhost"], **printed) as server:
            try:
                self.assertEqual(server.stdout.readline(), "starting...\n")
                mech = "{ %s }" % QXNEGO.replace(".", " ")
                client = subprocess.run(["gss-client", "-port", port, "-mech", mech, *options, "localhost",
                                         "host@localhost", "hello there"], timeout=60,
                                        env=dict(os.environ, QXGSS_CONF=config), **printed)
                return client.stdout, server.communicate(timeout=60)[0]
            finally:
                server.kill()

    def test_logons(self):
        take_ticket("alice", "Alice1")
        for options, user, last in ((("-d", "-seq", "-mcount", "3"), "alice@QXNEGO.TEST", "Signature verified."),
                                    (("-user", "alice", "-pass", "wonderland", "-nw", "-nx", "-nm"), "alice",
                                     "Response received.")):
            client, server = self.converse(*options)
            self.assertIn('Accepted connection: "%s"' % user, server)
            self.assertIn('Received message: "hello there"', server)
            self.assertIn(last, client)
            self.assertNotIn("error", client + server)

    def test_what_fails_is_told(self):
        client, server = self.converse("-user", "alice", "-pass", "wrong")
        self.assertIn("the server refuses the logon", client)
        self.assertRegex(server, 'error accepting context: Kerberos: .*; SCRAM-SHA-256: "Error authenticating user"; ')
        client, _ = self.converse(config=REALM + "/none.conf")
        self.assertIn("none.conf: cannot be read: No such file or directory", client)


if __name__ == "__main__":
    unittest.main()
