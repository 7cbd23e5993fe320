"""What the tests in Python stand on: configurations, serve as a process, frames, and a client's first token."""
import contextlib
import json
import os
import queue
import socket
import struct
import subprocess
import tempfile
import threading

QXNEGO = os.environ.get("QXNEGO")
TOKEN, CONFIRMATION, MESSAGE, END = range(1, 5)
PATIENCE = 60  # seconds; a machine under load is no fault

KERBEROS, NTLM = "1.2.840.113554.1.2.2", "1.3.6.1.4.1.311.2.2.10"
SCRAM, SCRAM_1 = "1.3.6.1.5.5.18", "1.3.6.1.5.5.14"
MECHANISMS = {  # name, library, prefix, single sign-on
    KERBEROS: ("Kerberos", "hostgss", "HOSTGSS", "true"),
    NTLM: ("NTLMSSP", "hostgss", "HOSTGSS", "true"),
    SCRAM: ("SCRAM-SHA-256", "scram", "SCRAM_SHA_256", "false"),
    SCRAM_1: ("SCRAM-SHA-1", "scram", "SCRAM_SHA_1", "false"),
}
ENTRY = """[[mechanism]]
name = "%s"
library = "lib%s.so"
prefix = "%s"
properties = { authentication = true, authorization = true, single_sign_on = %s, rank = %d }
settings = { verifiers_file = "%s", accept = "yes" }
oid = "%s"
"""


def write(folder, name, text):
    path = os.path.join(folder, name)
    with open(path, "w") as file:
        file.write(text)
    return path


def configuration(folder, name, *negotiates, policy=""):
    """Writes a configuration file, with the mechanisms in order of preference."""
    text = 'library_path = "%s"\n[[mechanism]]\nname = "QXNEGO"\n' % os.environ["QXNEGO_LIBRARIES"]
    text += 'oid = "1.3.6.1.4.1.32473.1.1"\nlibrary = "libgssp2qxnego.so"\nprefix = "QXNEGO"\n'
    text += "negotiates = [ %s ]\n" % ", ".join('{ oid = "%s" }' % oid for oid in negotiates)
    for rank, oid in enumerate(negotiates, 1):
        text += ENTRY % (*MECHANISMS[oid], rank, os.environ["QXNEGO_VERIFIERS"], oid)
    return write(folder, name, text + policy)


class Server:
    """qxnego serve on a free port of an address; `next` waits for the report of the next connection that ended."""

    def __init__(self, config, *options, address="127.0.0.1", reads=True):
        self.errors = tempfile.TemporaryFile()
        arguments = ["--listen", address + ":0", "--config", config, "--json", "--refusal-time", "300", *options]
        self.process = subprocess.Popen([QXNEGO, "serve", *arguments], stdout=subprocess.PIPE, stderr=self.errors,
                                        text=True)
        while (event := json.loads(self.process.stdout.readline()))["event"] == "notice":
            pass
        self.address = event["address"]
        self.addresses = [self.address]
        self.reports = queue.Queue()
        if reads:
            threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        with self.process.stdout as lines:
            for event in map(json.loads, lines):
                if event["event"] == "listening":
                    self.addresses.append(event["address"])
                else:
                    self.reports.put(event)

    def next(self):
        return self.reports.get(timeout=PATIENCE)

    def connection(self):
        host, port = self.address.rsplit(":", 1)
        return socket.create_connection((host.strip("[]"), int(port)))

    def children(self):
        return [int(child) for child in open("/proc/%d/task/%d/children" % ((self.process.pid,) * 2)).read().split()]

    def stop(self, number):
        """Ends it; its exit status and what it wrote to the standard error."""
        self.process.send_signal(number)
        status = self.process.wait(PATIENCE)
        self.errors.seek(0)
        return status, self.errors.read().decode()


def frame(kind, contents):
    return struct.pack(">IB", len(contents) + 1, kind) + contents


def send_all(peer, contents):
    """All that there is to say, unless the peer leaves before; with None it says nothing and stays."""
    with contextlib.suppress(OSError):
        if contents is not None:
            peer.sendall(contents)
            peer.shutdown(socket.SHUT_WR)


def read_frame(stream):
    """Its kind and contents; None at the end of the stream, however the peer has left."""
    with contextlib.suppress(ConnectionResetError):
        if len(head := stream.read(5)) == 5:
            length, kind = struct.unpack(">IB", head)
            return kind, stream.read(length - 1)


def encode(elements):
    """BER; an element is [identifier octet, contents], contents a list when it is constructed."""
    out = b""
    for identifier, contents in elements:
        body = encode(contents) if isinstance(contents, list) else contents
        size = len(body).to_bytes(4, "big").lstrip(b"\0")
        out += bytes([identifier, len(body)] if len(body) < 0x80 else [identifier, 0x80 + len(size), *size]) + body
    return out


def init_token(*mechanisms, claim=b"alice"):
    """A client's first token: of each mechanism its OID and whatever else is given, as {tag: bytes}."""
    entries = [[0xA0, [[0x80, oid], *([0x80 + tag, value] for tag, value in sorted(more.items()))]]
               for oid, more in mechanisms]
    return frame(TOKEN, encode([[0xA0, [[0xA0, entries], [0x81, b"\2"], [0x82, claim]]]]))
