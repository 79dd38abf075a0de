"""Certificates, good and bad, made with the openssl command; and what a server shows of them."""

from __future__ import annotations

import datetime
import subprocess
import threading
from dataclasses import dataclass
from pathlib import Path


@dataclass(frozen=True)
class Certificate:
    """What a server shows, and the authority that a client would have to trust for it."""
    chain: Path
    key: Path
    ca: Path


def openssl(*arguments: str | Path) -> None:
    subprocess.run(["openssl", *map(str, arguments)], check=True, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def _stamp(days: float) -> str:
    moment = datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(days=days)
    return moment.strftime("%Y%m%d%H%M%SZ")


class Authority:
    """A certificate authority in a folder of its own."""

    def __init__(self, folder: Path, name: str = "Test authority"):
        self.folder = folder
        self._issuing = threading.Lock()  # the index takes one at a time
        folder.mkdir(parents=True, exist_ok=True)
        self.key = folder / "ca.key"
        self.certificate = folder / "ca.pem"
        (folder / "index.txt").touch()
        (folder / "index.txt.attr").write_text("unique_subject = no\n")
        (folder / "serial").write_text("1000\n")
        self._write_configuration()
        openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", self.key, "-out",
                self.certificate, "-days", "30", "-subj", f"/CN={name}", "-config", self._config,
                "-extensions", "authority")

    @property
    def _config(self) -> Path:
        return self.folder / "openssl.cnf"

    def _write_configuration(self) -> None:
        self._config.write_text(f"""
[ca]
default_ca = here
[here]
dir = {self.folder}
database = $dir/index.txt
new_certs_dir = $dir
serial = $dir/serial
default_md = sha256
policy = anything
copy_extensions = copy
[anything]
commonName = supplied
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
[client]
basicConstraints = critical,CA:FALSE
extendedKeyUsage = clientAuth
""")

    def issue(self, name: str, hosts: str = "DNS:localhost,IP:127.0.0.1", *,
              begins: float = -1, ends: float = 30, key: str = "rsa:2048",
              purpose: str = "server", digest: str = "sha256") -> Certificate:
        """A certificate for `hosts`, valid between two moments that are given in days from now."""
        files = {kind: self.folder / f"{name}.{kind}" for kind in ("key", "csr", "pem")}
        openssl("req", "-newkey", key, "-nodes", "-keyout", files["key"], "-out", files["csr"],
                "-subj", f"/CN={name}", "-addext", f"subjectAltName={hosts}", "-config",
                self._config)
        with self._issuing:
            openssl("ca", "-batch", "-notext", "-config", self._config, "-cert", self.certificate,
                    "-keyfile", self.key, "-in", files["csr"], "-out", files["pem"], "-extensions",
                    purpose, "-md", digest, "-startdate", _stamp(begins), "-enddate", _stamp(ends))
        return Certificate(files["pem"], files["key"], self.certificate)

    def issue_below(self, leaf_as_authority: Certificate, name: str) -> Certificate:
        """One that a mere server's certificate has signed, as if it were an authority."""
        files = {kind: self.folder / f"{name}.{kind}" for kind in ("key", "csr", "crt", "pem")}
        extensions = self.folder / f"{name}.ext"
        extensions.write_text("subjectAltName=DNS:localhost,IP:127.0.0.1\n")
        openssl("req", "-newkey", "rsa:2048", "-nodes", "-keyout", files["key"], "-out",
                files["csr"], "-subj", f"/CN={name}", "-config", self._config)
        openssl("x509", "-req", "-in", files["csr"], "-CA", leaf_as_authority.chain, "-CAkey",
                leaf_as_authority.key, "-set_serial", "77", "-days", "5", "-out", files["crt"],
                "-extfile", extensions)
        files["pem"].write_bytes(files["crt"].read_bytes() + leaf_as_authority.chain.read_bytes())
        return Certificate(files["pem"], files["key"], self.certificate)


def self_signed(folder: Path, ca: Path) -> Certificate:
    """A certificate that vouches for itself, beside an authority that knows nothing of it."""
    folder.mkdir(parents=True, exist_ok=True)
    key, chain = folder / "self.key", folder / "self.pem"
    openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", chain, "-days",
            "30", "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1")
    return Certificate(chain, key, ca)
