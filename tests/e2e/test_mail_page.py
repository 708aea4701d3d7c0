"""docs/mail.md: the values of each of its set-ups, as they stand there but for names, addresses and
ports, make a pass mail through Postfix (with Dovecot for logins, and a token server)."""
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

import site_files
from postfix_mail import PostfixMail
from rig import PROGRAM
from site_files import DOMAIN, person
from token_server import CLIENT, SCOPE, SECRET, USER, TokenServer

PAGE = pathlib.Path(__file__).parents[2] / "docs/mail.md"
PASSWORD = "pa55 word"


def set_ups():
    """{heading: {value: text or number}} of the indented registry values below it."""
    found = {}
    for section in re.split(r"^## ", PAGE.read_text(), flags=re.M)[1:]:
        values = re.findall(r'^    "(\w+)"=(?:dword:(\w{8})|"(.*)")$', section, re.M)
        found[section.splitlines()[0]] = {name: int(number, 16) if number else text
                                          for name, number, text in values}
    return {heading: values for heading, values in found.items() if values}


class MailPageTest(unittest.TestCase):
    def test_each_set_up_mails(self):
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        site_files.make_certificates(folder, "localhost")
        pair = folder / "host.pem", folder / "host.key"
        tokens = TokenServer(*pair)
        (folder / "secret").touch(mode=0o600)
        (folder / "secret").write_text(SECRET + "\n")
        oauth = {"oauthTokenUrl": f"https://localhost:{tokens.port}/token", "oauthClientId": CLIENT,
                 "oauthClientSecretFile": "secret", "oauthScope": SCOPE, "smtpUsername": USER}
        servers = {
            "A relay that asks for no login": (dict(), {}),
            "A server with a certificate of your own authority": (
                dict(login=(USER, PASSWORD), tls=pair), {"smtpUsername": USER, "smtpPassword": PASSWORD}),
            "A hosted service that takes OAuth access tokens only": (
                dict(login=(USER, "unused"), tls=pair, introspection_port=tokens.introspection_port), oauth)}
        pages = set_ups()
        self.assertEqual(list(pages), list(servers))
        for heading, values in pages.items():
            with self.subTest(heading), PostfixMail(**servers[heading][0]) as mail:
                here = {"smtpServer": "localhost", "smtpPort": mail.port, **servers[heading][1]}
                self.assertLessEqual(set(here) - {"smtpPort"}, set(values))
                keys = site_files.site_registry(mail.port, emailAdminReports=0, **{**values, **here})
                options = site_files.write_site(folder, [person("walter", 59)], keys)
                for command in (["run"], ["test-mail", f"me@{DOMAIN}"]):
                    done = subprocess.run([PROGRAM, *command, *options], capture_output=True, text=True,
                                          env={**os.environ, "SSL_CERT_FILE": str(folder / "ca.pem")})
                    self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
                self.assertEqual([found.recipient for found in mail.delivered()],
                                 [f"me@{DOMAIN}", f"walter@{DOMAIN}"])
