"""The example templates, chosen by language and policy, mailed over Postfix and read by other programs."""
import html
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import site_files
from postfix_mail import PostfixMail
from rig import PROGRAM, ROOT
from site_files import DOMAIN, person, site_registry
from test_mail_readers import read_by_gmime, read_by_python

EXAMPLES = ROOT / "packaging/examples"
MOST_SPAM_POINTS = 1.0
# User, preferredLanguage, days left, subject, what the mail says.
PEOPLE = [
    ("anna", "de-AT", 14, "Ihr Windows-Kennwort läuft bald ab", "Guten Tag Anna & Söhne <x>,"),
    ("bea", "fr-CH, de;q=0.5", 7, "Votre mot de passe Windows expire bientôt", "Bonjour Given Name,"),
    ("carl", "es", 1, "Su contraseña de Windows caduca pronto", "Hola, Given Name:"),
    ("dora", "", 14, "Soon", "Hello Given Name,"),
    ("emil", "it", 14, "Soon", "Hello Given Name,"),
    ("fred", "de", 0, "Ihr Windows-Kennwort ist abgelaufen", "ist abgelaufen. Bei der nächsten Anmeldung"),
]


class TemplatesTest(unittest.TestCase):
    def run_pass(self, **settings):
        """The mails of a pass over the people, by user; of the administrator the report."""
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        for file in (*EXAMPLES.glob("*.html"), *EXAMPLES.glob("*.txt")):
            shutil.copy(file, folder)
        users = [person(name, 60 - days, extra={
            "preferredLanguage": language, "displayName": "Anna & Söhne <x>" if name == "anna" else ""})
            for name, language, days, *_ in PEOPLE]
        with PostfixMail() as mail:
            options = site_files.write_site(
                folder, users, site_registry(mail.port, emailSubject="Soon", emailLanguage="en", warning1=0, warning2=0,
                                             warning3=0,
                                             **settings))
            done = subprocess.run([PROGRAM, "run", *options], capture_output=True, text=True)
            self.assertEqual(done.returncode, 0, done)
            self.assertNotIn("is no token", done.stdout)
            return {found.recipient.split("@")[0]: found for found in mail.delivered()}

    def points(self, raw):
        """What SpamAssassin makes of it, without the network."""
        done = subprocess.run(["spamassassin", "-L", "-t"], input=raw, capture_output=True, check=True)
        status = re.search(rb"X-Spam-Status: .*?score=(-?[\d.]+)(?:.|\n)*?tests=([\w,\s]*?)\s+\w+=", done.stdout)
        return float(status[1]), status[2].decode()

    def test_the_examples_arrive_in_the_users_language(self):
        mails = self.run_pass(emailTextAlternative=1)
        for name, _, days, subject, words in PEOPLE:
            with self.subTest(name):
                raw = mails[name].raw
                for read in (read_by_python, read_by_gmime):
                    found = read(raw)
                    self.assertEqual((found["subject"], found["defects"]), (subject, []))
                    (plain_type, plain), (html_type, markup) = found["texts"]
                    self.assertEqual((plain_type, html_type), ("text/plain", "text/html"))
                    self.assertIn(words, plain)
                    self.assertIn(words, html.unescape(markup))
                    self.assertNotIn("<%", plain + markup)
                    self.assertIn(name, plain)
                message = mails[name].message
                self.assertEqual(message["Auto-Submitted"], "auto-generated")
                self.assertEqual(message.get_content_type(), "multipart/alternative")
                points, tests = self.points(raw)
                self.assertLess(points, MOST_SPAM_POINTS, tests)
        report = mails["admin"]
        self.assertEqual(report.message["Auto-Submitted"], "auto-generated")
        plain = report.message.get_body(["plain"]).get_content()
        self.assertIn(f"anna | anna@{DOMAIN} | 1 | 46 | 60 | 14 | yes", plain)
        self.assertIn("Users with upcoming password expirations:", plain)
        points, tests = self.points(report.raw)
        self.assertLess(points, MOST_SPAM_POINTS, tests)

    def test_without_the_settings_mails_are_html_alone(self):
        mail = self.run_pass(autoSubmitted=0)["anna"].message
        self.assertEqual((mail.get_content_type(), mail["Auto-Submitted"]), ("text/html", None))
