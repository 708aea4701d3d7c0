"""Access tokens in the place of a password: a pass against Postfix with Dovecot, which asks a token server."""
import os
import pathlib
import subprocess
import tempfile
import unittest

import site_files
from postfix_mail import PostfixMail
from rig import PROGRAM
from site_files import DOMAIN, person, site_registry
from token_server import CLIENT, SCOPE, SECRET, USER, TokenServer

# What the token server does, how the site differs, what the pass says (empty: the mail is sent) and how
# many tokens it was given.
CASES = [
    ("good", {}, "", 1),
    ("good", {"smtpAuthMethod": ""}, "", 1),
    ("good", {"smtpAuthMethod": "OAUTHBEARER"}, "", 1),
    ("withdrawn", {}, "", 2),
    ("bad", {}, "login refused: 535", 2),
    ("good", {"oauthClientSecretFile": "wrong"}, "oauthClientId or the secret in oauthClientSecretFile", 0),
    ("often", {}, "asked too often (429)", 0),
    ("moved", {}, "redirects elsewhere (302)", 0),
    ("garbage", {}, "holds no access token", 0),
    ("endless", {}, "its answer is too long", 0),
    ("silent", {}, "gave no answer (Operation timed out", 0),
    ("good", {"oauthTokenUrl": "other"}, "is not trusted (SSL certificate problem", 0),
    ("good", {"smtpStartTls": 0}, "an access token is sent under TLS only", 1),
    ("good", {"smtpTokenFile": "token"}, "", 0),
    ("good", {"smtpTokenFile": "stale"}, "login refused: 535", 0),
    ("good", {"smtpTokenFile": "none"}, "smtpTokenFile", 0),
]


class OAuthTest(unittest.TestCase):
    def test_every_way_and_fault(self):
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        site_files.make_certificates(folder, "localhost")
        server, other = (TokenServer(folder / f"{name}.pem", folder / f"{name}.key")
                         for name in ("host", "self"))
        server.good.add("from-a-file")
        files = {"right": SECRET, "wrong": "wr0ng", "token": "from-a-file", "stale": "ended", "none": ""}
        for name, text in files.items():
            (folder / name).touch(mode=0o600)
            (folder / name).write_text(text + "\n")
        mail = self.enterContext(PostfixMail(
            login=(USER, "unused"), introspection_port=server.introspection_port,
            tls=(folder / "host.pem", folder / "host.key")))
        for number, (mode, changes, said, given) in enumerate(CASES):
            with self.subTest(f"{number} {mode} {changes}"):
                server.mode, before = mode, len(server.given)
                settings = {
                    "smtpServer": "localhost", "smtpUsername": USER, "smtpStartTls": 1,
                    "smtpRequireVerifiedCertificate": 1, "emailAdminReports": 0,
                    "smtpAuthMethod": "XOAUTH2", "oauthTokenUrl": f"https://localhost:{server.port}/token",
                    "oauthClientId": CLIENT, "oauthScope": SCOPE, "oauthClientSecretFile": "right"}
                settings.update(changes)
                if changes.get("oauthTokenUrl"):
                    settings["oauthTokenUrl"] = f"https://localhost:{other.port}/token"
                options = site_files.write_site(folder, [person(f"user{number}", 46)],
                                                site_registry(mail.port, **settings))
                done = subprocess.run([PROGRAM, "run", *options], capture_output=True, text=True,
                                      env={**os.environ, "SSL_CERT_FILE": str(folder / "ca.pem")})
                self.assertIn(said, done.stdout + done.stderr)
                self.assertEqual(done.returncode, 1 if said else 0, done)
                self.assertEqual(len(server.given) - before, given)
                checked = subprocess.run([PROGRAM, "check", "--only", "mail", *options], capture_output=True, text=True,
                                         env={**os.environ, "SSL_CERT_FILE": str(folder / "ca.pem")})
                self.assertIn(said, checked.stdout)
                self.assertEqual([found.recipient for found in mail.delivered()].count(
                    f"user{number}@{DOMAIN}"), 0 if said else 1)
                written = done.stdout + done.stderr + checked.stdout + checked.stderr + "".join(
                    file.read_text("utf-8", "replace") for file in folder.rglob("*.*") if file.is_file())
                for secret in (SECRET, "t0ken-", "from-a-file"):
                    self.assertNotIn(secret, written)
