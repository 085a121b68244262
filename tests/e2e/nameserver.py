"""The name server: BIND, authoritative for the test zones, which takes dynamic updates signed with a key of its own."""
import base64
import os
import re
import secrets
import subprocess

import dns_query
from process import Background, LONG

ADDRESS = "127.0.0.1"
# On a real Debian, named may touch its own folders only (AppArmor), so the zones lie under this one.
FOLDER = "/var/cache/bind"

CONFIG = """
options {{
    directory "{folder}";
    listen-on {{ {addresses} }};
    listen-on-v6 {{ none; }};
    recursion no;
    notify no;
    dnssec-validation no;
    empty-zones-enable no;
    pid-file none;
    session-keyfile none;
    querylog yes;
}};
controls {{ }};
include "{folder}/update.key";
{zones}
"""

KEY = """key "{name}" {{
    algorithm hmac-sha256;
    secret "{secret}";
}};
"""

ZONE = """zone "{zone}" {{ type primary; file "{zone}.zone"; allow-update {{ {who}; }}; }};
"""

# The zone's own name server has an address: without one, named refuses the zone.
RECORDS = """$TTL 5
@ IN SOA ns hostmaster 1 60 60 60 5
@ IN NS ns
ns IN A {server}
{sites}"""


# The end is the address at which the question was asked.
QUERY = re.compile(r": query: (\S+) IN (\S+) .*\((\S+)\)$", re.M)


class NameServer:
    def __init__(self, folder, log, zones, resolvers=()):
        """`zones`: each zone's names (relative, "@" for the zone itself) with their addresses.

        Answers at the resolvers' addresses too, which must be on the loopback device.
        """
        os.makedirs(folder)
        self.key_file = os.path.join(folder, "update.key")
        self.zones = list(zones)
        self.secret = base64.b64encode(secrets.token_bytes(32)).decode()
        write(self.key_file, KEY.format(name="panel", secret=self.secret), mode=0o600)
        for zone, names in zones.items():
            sites = "".join(f"{name} IN A {address}\n" for name, address in names.items())
            write(os.path.join(folder, f"{zone}.zone"), RECORDS.format(server=ADDRESS, sites=sites))
        subprocess.run(["mount", "--bind", folder, FOLDER], check=True)
        self._folder, self._log, self._process = folder, log, None
        self.start(resolvers)

    def start(self, resolvers, read_only=()):
        """Also after `halt`: the zones are as they were left. Those that are read-only refuse updates."""
        addresses = "".join(f"{address}; " for address in (ADDRESS, *resolvers))
        served = "".join(ZONE.format(zone=zone, who="none" if zone in read_only else 'key "panel"') for zone in self.zones)
        write(os.path.join(self._folder, "named.conf"), CONFIG.format(folder=FOLDER, addresses=addresses, zones=served))
        self._process = Background("named", ["named", "-g", "-n", "1", "-c", f"{FOLDER}/named.conf"], self._log)
        self._process.wait_ready(lambda: all(self.look_up(zone, "SOA") for zone in self.zones))

    @property
    def pid(self):
        return self._process.pid

    def halt(self):
        """Nobody answers at any of the addresses: their ports are closed."""
        self._process.stop()

    def restart(self, resolvers, read_only=()):
        self.halt()
        self.start(resolvers, read_only)

    def queries(self):
        """What has been asked so far, by anybody: names, record types and the addresses asked at, in order."""
        return QUERY.findall(self._process.log())

    def look_up(self, name, kind, server=ADDRESS):
        """The data of the records there, one text each; None where nobody answers."""
        return dns_query.look_up(server, name, kind)

    def update(self, *lines):
        """A dynamic update of a test's own, such as `delete NAME TXT`, beside what the service does."""
        script = "".join(f"update {line}\n" for line in lines)
        done = subprocess.run(["nsupdate", "-k", self.key_file], input=f"server {ADDRESS}\n{script}send\n",
                              capture_output=True, text=True, check=False, timeout=LONG)
        if done.returncode != 0:
            raise RuntimeError(f"nsupdate: {done.stderr}")

    def stop(self):
        self.halt()
        subprocess.run(["umount", FOLDER], check=True)


def write(path, text, mode=0o644):
    with open(os.open(path, os.O_CREAT | os.O_WRONLY | os.O_TRUNC, mode), "w", encoding="utf-8") as file:
        file.write(text)
