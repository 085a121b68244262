"""A certificate authority of our own, made at run time: root, intermediate, server certificates. EC keys, for speed."""
import os
import re
import secrets
import subprocess

EC = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"]


def openssl(*arguments, data=None, saying=b""):
    """Its output; it has to succeed, and to say this on standard error."""
    done = subprocess.run(["openssl", *arguments], input=data, capture_output=True, check=False)
    if done.returncode != 0 or saying not in done.stderr:
        raise RuntimeError(f"openssl {arguments[0]}: {done.stderr.decode(errors='replace')}")
    return done.stdout


class CertificateAuthority:
    def __init__(self, folder):
        self.folder = folder
        os.makedirs(folder, exist_ok=True)
        self.root = self._path("root.pem")
        openssl("req", "-x509", *EC, "-keyout", self._path("root.key"), "-out", self.root, "-days", "30",
                "-subj", "/CN=Harness Root", "-addext", "keyUsage=critical,keyCertSign,cRLSign")
        self.intermediate = self._path("intermediate.pem")
        self._signed("root", "intermediate", "/CN=Harness Intermediate",
                     "basicConstraints=critical,CA:TRUE,pathlen:0", "keyUsage=critical,keyCertSign,cRLSign")

    def _path(self, name):
        return os.path.join(self.folder, name)

    def _signed(self, issuer, name, subject, *extensions):
        openssl("req", "-x509", *EC, "-CA", self._path(f"{issuer}.pem"), "-CAkey", self._path(f"{issuer}.key"),
                "-keyout", self._path(f"{name}.key"), "-out", self._path(f"{name}.pem"), "-days", "30", "-subj", subject,
                *(part for extension in extensions for part in ("-addext", extension)))

    def server(self, *names, days=30):
        """A TLS server's certificate for these names (addresses too): the paths of its chain and of its key.

        One with a negative number of days has ended that long ago.
        """
        kinds = ("IP" if name.replace(".", "").isdigit() else "DNS" for name in names)
        alternatives = ",".join(f"{kind}:{name}" for kind, name in zip(kinds, names))
        base = names[0] if days > 0 else f"{names[0]}-ended"
        chain, key, request = (self._path(f"{base}.{kind}") for kind in ("pem", "key", "csr"))
        openssl("req", "-new", *EC, "-keyout", key, "-out", request, "-subj", f"/CN={names[0]}",
                "-addext", f"subjectAltName={alternatives}", "-addext", "basicConstraints=critical,CA:FALSE")
        leaf = openssl("x509", "-req", "-in", request, "-days", str(days), *self._issuing())
        with open(chain, "wb") as file:
            file.write(leaf + read(self.intermediate).encode())
        return chain, key

    def _issuing(self):
        """How openssl issues a certificate with what the request asks for."""
        return ("-copy_extensions", "copy", "-CA", self.intermediate, "-CAkey", self._path("intermediate.key"),
                "-set_serial", "0x" + secrets.token_hex(16))

    def issue(self, request_der):
        """The names that are asked for, and the certificate for them, PEM: the leaf and the intermediate."""
        request = self._path(f"request-{secrets.token_hex(8)}.der")
        with open(request, "wb") as file:
            file.write(request_der)
        # `openssl x509 -req` does the same in five times the time; but this one goes on with a signature that does not hold.
        shown = openssl("req", "-x509", "-config", os.devnull, "-verify", "-inform", "DER", "-in", request, "-days", "90",
                        "-text", *self._issuing(), saying=b"verify OK").decode()
        text, begin, leaf = shown.partition("-----BEGIN CERTIFICATE-----")
        return names_in(text), (begin + leaf, read(self.intermediate))


def self_signed(folder, name):
    """A placeholder such as a web server starts with; fullchain.pem and privkey.pem in the folder."""
    os.makedirs(folder, exist_ok=True)
    openssl("req", "-x509", *EC, "-keyout", os.path.join(folder, "privkey.pem"),
            "-out", os.path.join(folder, "fullchain.pem"), "-days", "30", "-subj", f"/CN={name}",
            "-addext", f"subjectAltName=DNS:{name}")


def read(path):
    # An authority may send any bytes, and a log has them as they came.
    with open(path, encoding="utf-8", errors="surrogateescape") as file:
        return file.read()


def names_of(kind, data, form="PEM"):
    """The DNS names in a certificate ("x509") or a request ("req")."""
    return names_in(openssl(kind, "-inform", form, "-noout", "-text", data=data).decode())


def names_in(text):
    return sorted(re.findall(r"DNS:([^,\s]+)", text))
