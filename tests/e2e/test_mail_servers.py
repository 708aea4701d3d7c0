"""The mail library against Postfix with Dovecot: every way to connect, to trust and to log in."""
import base64
import email
import email.policy
import itertools
import os
import pathlib
import subprocess
import tempfile
import unittest

import mail_probe
import site_files
from postfix_mail import PostfixMail
from rig import RELEASE
from site_files import DOMAIN

EXAMPLE = RELEASE / "examples/send_mail"
USER, PASSWORD, WRONG = "postman", "p\u00e4ss & <word>", "not-it-9f3a"
SECRETS = [form for word in (PASSWORD, WRONG) for form in (
    word, base64.b64encode(word.encode()).decode(),
    base64.b64encode(f"{USER}\0{USER}\0{word}".encode()).decode())]
# The settings that choose TLS, and what is logged when it cannot be had.
WAYS = {
    "plain": ([], ""),
    "STARTTLS": ([("StartTLS", 1)], "Failed to establish TLS connection."),
    "implicit TLS": ([("SmtpSsl", 1)], "Failed to connect to secure SMTP (1)"),
}
# The method that is asked for, and what is logged when the login is refused.
METHODS = {
    "": "Failed to login using LOGIN method",
    "LOGIN": "Failed to get response to login password",
    "PLAIN": "Failed to login using PLAIN method",
    "CRAM-MD5": "Failed to get successful CRAM-MD5 response",
    "NTLM": "Logon denied.  Check username, password, and domain",
}
MESSAGE = [
    ("From", f"J\u00fcrgen <juergen@{DOMAIN}>"), ("AddTo", "\u041f\u0451\u0442\u0440", f"to@{DOMAIN}"),
    ("AddBcc", "", f"bcc@{DOMAIN}"), ("SetHtmlBody", "<p>.\n..\n.gr\u00fc\u00df</p>\n." + "z" * 3000),
    ("AddPlainTextAlternativeBody", ".\n.."), ("AddStringAttachment", "\u00fc.txt", "a\r\n.\r\n\r\n")]


class ServersTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        site_files.make_certificates(cls.folder, "localhost")
        files = {name: (cls.folder / f"{name}.pem", cls.folder / f"{name}.key")
                 for name in ("self", "host")}
        cls.servers = {name: cls.enterClassContext(PostfixMail(login=(USER, PASSWORD), tls=tls))
                       for name, tls in {**files, None: None}.items()}

    def send(self, server, settings, host="localhost", way="plain", method="", password=PASSWORD):
        """Whether it was sent, the log, and what was to be transmitted."""
        port = server.tls_port if way == "implicit TLS" and server.tls_port else server.port
        results = mail_probe.run(
            [*MESSAGE, ("Subject", f"{host} {way} {method} {settings}"), ("SmtpHost", host),
             ("SmtpPort", port), ("SmtpUsername", USER), ("SmtpPassword", password),
             ("SmtpAuthMethod", method), *WAYS[way][0], *settings, ("RenderToMime",),
             ("SendEmail",), ("LastErrorText",)],
            SSL_CERT_FILE=str(self.folder / "ca.pem"),
            # The system's NTLM package loses 6 KB of OpenSSL's with each login.
            ASAN_OPTIONS=f"detect_leaks={int(method not in ('NTLM', 'MSN'))}")
        mime, sent, log = results[-3:]
        for secret in SECRETS:
            self.assertNotIn(secret, log)
        return sent == "1", log, mime

    def test_every_way(self):
        for certificate in ("self", "host"):
            server, sent = self.servers[certificate], []
            for case in itertools.product(WAYS, (0, 1), METHODS, (PASSWORD, WRONG)):
                with self.subTest(f"{certificate} {case}"):
                    way, verify, method, password = case
                    done, log, mime = self.send(server, [("RequireVerifiedCertificate", verify)],
                                                way=way, method=method, password=password)
                    if way != "plain":
                        self.assertIn("SSL Server Certificate "
                                      f"{'' if certificate == 'host' else 'not '}verified.", log)
                    problem = METHODS[method] if password == WRONG else ""
                    if certificate == "self" and verify and way != "plain":
                        self.assertIn("Failed to verify server certificate", log)
                        problem = WAYS[way][1]
                    self.assertIn(problem, log)
                    self.assertEqual(done, not problem, log)
                    if done:
                        sent.append(mime)
            self.check_delivered(server, sent)

    def check_delivered(self, server, sent):
        """Each of `sent` came to both recipients as it was, below what the server put on top."""
        mails = server.delivered()
        for recipient in ("bcc", "to"):
            got = [mail for mail in mails if mail.recipient == f"{recipient}@{DOMAIN}"]
            self.assertEqual({mail.sender for mail in got}, {f"juergen@{DOMAIN}"})
            # The end of the data brings its own line end.
            self.assertEqual(sorted(mail.raw[mail.raw.index(b"MIME-Version"):] for mail in got),
                             sorted(mime.replace("\r\n", "\n").encode() + b"\n" for mime in sent))

    def test_shows_a_certificate_of_its_own(self):
        client = self.folder / "client.pem"
        client.write_bytes(b"".join((self.folder / f"host.{kind}").read_bytes()
                                    for kind in ("pem", "key")))
        server = self.servers["self"]
        done, log, _ = self.send(server, [("SetSslClientCert", client)], way="STARTTLS")
        self.assertTrue(done, log)
        self.assertIn("<ClientCertDN>CN = localhost</ClientCertDN>", log)
        self.assertTrue(any(b'Client CN "localhost"' in mail.raw for mail in server.delivered()))
        certificate = (self.folder / "host.pem").read_bytes()
        locked = subprocess.run(["openssl", "pkey", "-aes256", "-passout", "pass:word", "-in",
                                 self.folder / "host.key"], capture_output=True, check=True).stdout
        for key in (b"", locked):  # there is nobody to ask for a pass phrase
            client.write_bytes(certificate + key)
            done, log, _ = self.send(server, [("SetSslClientCert", client)], way="STARTTLS")
            self.assertIn("<error>Error creating credentials</error>", log)
            self.assertFalse(done)

    def test_the_example(self):
        server, file = self.servers["host"], self.folder / "\u00fc.bin"
        file.write_bytes(bytes(range(256)))
        command = [EXAMPLE, "localhost", str(server.port), f"me@{DOMAIN}", f"file@{DOMAIN}", file]
        for password, status in ((WRONG, 1), (PASSWORD, 0)):
            done = subprocess.run(command, capture_output=True, text=True, env={
                **os.environ, "SSL_CERT_FILE": str(self.folder / "ca.pem"),
                "SMTP_USERNAME": USER, "SMTP_PASSWORD": password})
            self.assertEqual((done.returncode, bool(done.stderr)), (status, bool(status)), done)
        [mail] = [mail for mail in server.delivered() if mail.recipient == f"file@{DOMAIN}"]
        message = email.message_from_bytes(mail.raw, policy=email.policy.default)
        [attached] = message.iter_attachments()
        self.assertEqual((attached.get_filename(), attached.get_content()),
                         (file.name, file.read_bytes()))

    def test_what_a_server_does_not_offer(self):
        bare = self.servers[None]
        for options, said in ((dict(way="implicit TLS"), "Failed to connect to secure SMTP (1)"),
                              (dict(method="MSN"), "MSN authentication failed")):
            done, log, _ = self.send(bare, [], **options)
            self.assertIn(said, log)
            self.assertFalse(done)
        self.assertEqual(bare.delivered(), [])
