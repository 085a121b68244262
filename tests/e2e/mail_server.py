"""A small mail server (RFC 5321) with a thread for each connection, which does what a test says."""
import socket
import socketserver
import ssl
import threading


class MailServer:
    """`behaviour` is one of

    "accept"  takes every message
    "refuse"  has no room for any recipient (451)
    "mute"    lets others connect and says nothing
    "vanish"  takes the whole message and closes the connection without a word
    """

    def __init__(self, address, port, certificate=None):
        self.behaviour = "accept"
        self.messages = []     # (recipient, message) of each message that was taken as a whole, accepted or not
        self.connections = 0
        self._closing = threading.Event()
        self._server = _Server((address, port), self._serve, certificate)
        self._thread = threading.Thread(target=self._server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True)
        self._thread.start()

    def stop(self):
        self._closing.set()
        self._server.shutdown()
        self._server.server_close()

    def _serve(self, stream):
        self.connections += 1
        if self.behaviour == "mute":
            self._closing.wait()
            return

        def say(text):
            stream.write(text.encode("ascii") + b"\r\n")
            stream.flush()

        say("220 mail.shop.example at your service")
        recipient = None
        for line in iter(stream.readline, b""):
            verb, _, rest = line.decode("ascii").strip().partition(" ")
            if verb.upper() == "RCPT" and self.behaviour == "refuse":
                say("451 no room")
            elif verb.upper() == "RCPT":
                recipient = rest
                say("250 fine")
            elif verb.upper() == "DATA":
                say("354 go on")
                self.messages.append((recipient, self._message(stream)))
                if self.behaviour == "vanish":
                    return
                say("250 accepted")
            elif verb.upper() == "QUIT":
                say("221 good bye")
                return
            else:
                say("250 fine")

    @staticmethod
    def _message(stream):
        """With the dots of transparency taken away."""
        lines = []
        for line in iter(stream.readline, b".\r\n"):
            if not line.endswith(b"\r\n"):
                raise ConnectionError("the message breaks off")
            lines.append(line[1:] if line.startswith(b".") else line)
        return b"".join(lines)


class _Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True
    block_on_close = False

    def __init__(self, address, serve, certificate):
        self._serve = serve
        self._context = None
        if certificate:
            self._context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            self._context.load_cert_chain(*certificate)
        super().__init__(address, None)

    def finish_request(self, request, client_address):
        try:
            request.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            if self._context:
                request = self._context.wrap_socket(request, server_side=True)
            with request.makefile("rwb") as stream:
                self._serve(stream)
            if self._context:
                request.close()
        except OSError:  # the service was killed, or does not trust this server
            pass
