"""A certificate authority of the cluster's own, and one certificate for all of its addresses."""

import subprocess

from .layout import NUMBERS, Layout
from .processes import give_away

CONFIGURATION = """
[req]
distinguished_name = names
[names]
[authority]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[server]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = serverAuth
subjectAltName = {names}
"""


def make(layout: Layout):
    layout.tls.mkdir()
    names = [f"IP:{place(number)}" for place in (layout.collector, layout.database) for number in NUMBERS]
    (layout.tls / "openssl.cnf").write_text(CONFIGURATION.format(names=",".join(names)))
    request(layout, "ca", "ca.pem", "-x509", "-days", "3650", "-extensions", "authority")
    request(layout, "server", "server.csr")
    openssl(layout, "x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-set_serial", "1",
            "-days", "3650", "-out", "server.pem", "-extfile", "openssl.cnf", "-extensions", "server")
    (layout.tls / "ca.key").unlink()  # nothing more is to be signed
    give_away(layout.tls / "server.key")


def request(layout: Layout, name: str, out: str, *options: str):
    openssl(layout, "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-config", "openssl.cnf",
            "-subj", f"/CN=Kite cluster {name}", "-keyout", f"{name}.key", "-out", out, *options)


def openssl(layout: Layout, *arguments: str):
    subprocess.run(["openssl", *arguments], cwd=layout.tls, check=True, stdin=subprocess.DEVNULL, capture_output=True)
