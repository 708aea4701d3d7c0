"""A server of OAuth access tokens for the end-to-end tests, with TLS, and the introspection (RFC 7662)
by which Dovecot asks it about a token. Listens on loopback; every answer is as `mode` says."""
import base64
import http.server
import json
import ssl
import threading
import time
import urllib.parse

USER, CLIENT, SECRET, SCOPE = "postman", "app id", "client-s3cret&%", "mail.send offline"


class TokenServer:
    def __init__(self, certificate, key):
        self.mode, self.given, self.good = "good", [], set()
        server = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                form = urllib.parse.parse_qs(self.rfile.read(int(self.headers["Content-Length"])).decode())
                status, answer = (server.introspect if "token" in form else server.token)(
                    form, self.headers.get("Authorization", ""))
                self.send_response(status)
                if status == 302:
                    self.send_header("Location", self.path)
                self.end_headers()
                self.wfile.write(answer if isinstance(answer, bytes) else json.dumps(answer).encode())

            def log_message(self, *_):
                pass

        def serve(context=None):
            listener = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
            if context:
                listener.socket = context.wrap_socket(listener.socket, server_side=True)
            threading.Thread(target=listener.serve_forever, daemon=True).start()
            return listener.server_address[1]

        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificate, key)
        self.port, self.introspection_port = serve(context), serve()

    def introspect(self, form, _):
        return 200, {"active": form["token"][0] in self.good, "username": USER}

    def token(self, form, authorization):
        proof = ":".join(map(urllib.parse.quote, (CLIENT, SECRET)))
        if authorization != "Basic " + base64.b64encode(proof.encode()).decode():
            return 401, {"error": "invalid_client", "error_description": "no such client"}
        if form != {"grant_type": ["client_credentials"], "scope": [SCOPE]}:
            return 400, {"error": "invalid_request"}
        answers = {"garbage": (200, b"<html>\xff"), "often": (429, {}), "moved": (302, {}),
                   "endless": (200, b"x" * 10**6)}
        if self.mode == "silent":
            time.sleep(60)
        if self.mode in answers:
            return answers[self.mode]
        self.given.append("t0ken-%d-" % len(self.given) + "x" * 600)
        if self.mode == "good":
            self.good.add(self.given[-1])
        elif self.mode == "withdrawn":  # the next one is good
            self.mode = "good"
        return 200, {"access_token": self.given[-1], "token_type": "Bearer", "expires_in": 3600}
