"""A small TLS server with a thread per connection, whose exchanges a test can hold, watch and spoil."""
import contextlib
import dataclasses
import http.server
import json
import socket
import ssl
import threading
import time
import traceback

from process import LONG


@dataclasses.dataclass
class Answer:
    """What is sent, and how badly."""
    status: int = 200
    headers: dict = dataclasses.field(default_factory=dict)
    body: bytes = b""
    delay: float = 0          # seconds before the first byte
    drop: bool = False        # the connection is closed without an answer
    cut_at: int | None = None  # so many bytes of the body, of which the header announces all, then the connection ends
    pace: float = 0           # seconds between the body's bytes


def json_answer(value, status=200, **headers):
    return Answer(status, {"Content-Type": "application/json", **headers}, json.dumps(value).encode())


@dataclasses.dataclass
class Request:
    method: str
    path: str
    headers: dict  # names in lower case
    body: bytes


class Gate:
    """Holds one exchange until the test lets it pass."""

    def __init__(self, matches):
        self.matches = matches
        self.reached, self.opened = threading.Event(), threading.Event()
        self.lost = False

    def wait_reached(self):
        if not self.reached.wait(LONG):
            raise AssertionError("the exchange that was to be held never came")

    def open(self):
        self.opened.set()

    def lose(self):
        """The request never arrives."""
        self.lost = True
        self.opened.set()


def tls_context(certificate, key):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    return context


class TlsServer:
    """Calls `answer(request) -> Answer` for every request. Each has a connection of its own where nothing else is said."""

    def __init__(self, address, port, certificate, key, answer, keeps_connections=False):
        self._answer, self._gates, self._closing = answer, [], threading.Event()
        self.seen = []    # (method, path) of every request, in order
        self.faults = []  # what went wrong in here, as against in the client: none in a sound test
        self._server = _Server((address, port), tls_context(certificate, key), self._exchange)
        self._server.keeps_connections = keeps_connections
        self._thread = threading.Thread(target=self._server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True)
        self._thread.start()

    def hold(self, matches):
        """The next request for which `matches(request)` is true waits, unanswered, at the gate returned."""
        gate = Gate(matches)
        self._gates.append(gate)
        return gate

    def present(self, certificate, key):
        """From the next connection on another certificate is shown; no session of the earlier one is taken up again."""
        self._server.context = tls_context(certificate, key)

    def stop(self):
        self._closing.set()
        for gate in self._gates:
            gate.open()
        self._server.shutdown()
        self._server.server_close()

    def _exchange(self, request):
        self.seen.append((request.method, request.path))
        for gate in self._gates:
            if not gate.reached.is_set() and gate.matches(request):
                gate.reached.set()
                gate.opened.wait()
                if gate.lost:
                    return Answer(drop=True)
        try:
            answer = self._answer(request)
        except Exception:
            self.faults.append(traceback.format_exc())
            return Answer(drop=True)
        self._closing.wait(answer.delay)
        return answer


class _Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    keeps_connections = False
    request_queue_size = 64

    def __init__(self, address, context, exchange):
        self.context, self.exchange = context, exchange
        super().__init__(address, _Handler)

    def finish_request(self, request, client_address):
        # The handshake belongs here, in the connection's own thread: a slow client then holds up nobody else.
        with contextlib.suppress(OSError):
            request.settimeout(LONG)
            with self.context.wrap_socket(request, server_side=True) as tls:
                super().finish_request(tls, client_address)

    def handle_error(self, request, client_address):
        pass  # a client that goes away in mid-exchange is part of what is tested


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    disable_nagle_algorithm = True  # or every answer waits 40 ms between header and body

    def log_message(self, *_):
        pass

    def _serve(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        headers = {name.lower(): value for name, value in self.headers.items()}
        answer = self.server.exchange(Request(self.command, self.path, headers, body))
        spoilt = answer.drop or answer.cut_at is not None
        self.close_connection = self.close_connection or spoilt or not self.server.keeps_connections
        if answer.drop:
            self.connection.shutdown(socket.SHUT_RDWR)
            return
        self.send_response(answer.status)
        for name, value in {"Content-Length": str(len(answer.body)), **self._connection(), **answer.headers}.items():
            if value is not None:
                self.send_header(name, value)
        self.end_headers()
        self._send_body(answer)

    def _connection(self):
        return {"Connection": "close"} if self.close_connection else {}

    def _send_body(self, answer):
        if self.command == "HEAD":
            return
        if answer.pace:
            for byte in answer.body:
                self.wfile.write(bytes([byte]))
                time.sleep(answer.pace)
        else:
            self.wfile.write(answer.body[:answer.cut_at])
        if answer.cut_at is not None:
            self.connection.shutdown(socket.SHUT_RDWR)
        elif self.close_connection:
            self.connection.unwrap()  # an orderly end; a cut answer ends without it

    do_GET = do_POST = do_HEAD = _serve
