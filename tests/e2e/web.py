"""The web server of the sites: nginx, which serves answer files on port 80 and the sites' certificates on port 443."""
import contextlib
import http.server
import os
import re
import subprocess
import threading

from ca import self_signed
from process import Background, accepts, wait_until
from sandbox import descendants

CERTIFICATE = re.compile("-----BEGIN CERTIFICATE-----.*?-----END CERTIFICATE-----\n", re.S)

CONFIG = """
user root;
worker_processes 1;
pid {folder}/nginx.pid;
error_log {folder}/error.log;
events {{ worker_connections 256; }}
http {{
    access_log {folder}/access.log;
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    server {{
        listen {address}:80;
        location /.well-known/acme-challenge/ {{ alias {answers}/; default_type text/plain; }}
    }}
{sites}}}
"""

SITE = """    server {{
        listen {address}:443 ssl;
        server_name {names};
        ssl_certificate {folder}/tls/{certname}/fullchain.pem;
        ssl_certificate_key {folder}/tls/{certname}/privkey.pem;
    }}
"""

# Run by the service after an installation: the site's folder points to the installed certificate from then on.
RELOAD = """#!/bin/sh
ln -sfn "$VEK_CERT_DIR" "{folder}/tls/$(basename "$VEK_CERT_DIR")" && exec nginx -c "{folder}/nginx.conf" -s reload
"""

# Takes over whatever is installed; for who is not told what it was.
RELOAD_ALL = """#!/bin/sh
for place in "$1"/*/*; do ln -sfn "$place" "{folder}/tls/$(basename "$place")"; done
exec nginx -c "{folder}/nginx.conf" -s reload
"""


class WebServer:
    """Every site starts with a self-signed placeholder, and shows the installed certificate once it is reloaded."""

    def __init__(self, folder, address, answers, sites):
        """`sites`: the certificate's name (ASCII form) and the host names (ASCII form) that are served with it."""
        self._address = address
        self.reload_command = os.path.join(folder, "reload-web")
        os.makedirs(os.path.join(folder, "tls"))
        for certname in sites:
            self_signed(os.path.join(folder, "placeholder", certname), certname)
            os.symlink(os.path.join(folder, "placeholder", certname), os.path.join(folder, "tls", certname))
        config = os.path.join(folder, "nginx.conf")
        with open(config, "w", encoding="utf-8") as file:
            servers = (SITE.format(address=address, folder=folder, certname=certname, names=" ".join(names))
                       for certname, names in sites.items())
            file.write(CONFIG.format(address=address, folder=folder, answers=answers, sites="".join(servers)))
        self.reload_all_command = os.path.join(folder, "reload-all")
        for script, text in ((self.reload_command, RELOAD), (self.reload_all_command, RELOAD_ALL)):
            with open(script, "w", encoding="utf-8") as file:
                file.write(text.format(folder=folder))
            os.chmod(script, 0o755)
        self._process = Background("nginx", ["nginx", "-c", config, "-g", "daemon off;"], os.path.join(folder, "nginx.log"))
        self._process.wait_ready(lambda: accepts(address, 80) and accepts(address, 443))

    @property
    def pid(self):
        return self._process.pid

    def stop(self):
        self._process.stop()

    def handshake(self, name, *options):
        """What `openssl s_client` says about the certificate shown for a name."""
        return subprocess.run(["openssl", "s_client", "-connect", f"{self._address}:443", "-servername", name, *options],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False).stdout

    def wait_trusted(self, name, root):
        """The certificate, PEM, that a TLS client which trusts `root` (a file) alone is shown for this name, and accepts.

        A reload is answered before the old worker is gone, so the first looks may still show the old one.
        """
        def trusted():
            shown = self.handshake(name, "-CAfile", root, "-verify_hostname", name)
            return shown if "Verification: OK" in shown else None

        shown = wait_until(trusted, f"{name} shows a trusted certificate of its own")
        wait_until(lambda: len(descendants(self._process.pid)) == 1, "the old worker is gone")
        return CERTIFICATE.search(shown)[0]


@contextlib.contextmanager
def another_server(address):
    """A web server of somebody else's, which knows none of our answers."""
    subprocess.run(["ip", "address", "add", f"{address}/32", "dev", "lo"], check=True)

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            self.send_error(404, "Not Found")

        def log_message(self, *_):
            pass

    server = http.server.ThreadingHTTPServer((address, 80), Handler)
    thread = threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True)
    thread.start()
    try:
        yield
    finally:
        server.shutdown()
        server.server_close()
        subprocess.run(["ip", "address", "del", f"{address}/32", "dev", "lo"], check=True)
