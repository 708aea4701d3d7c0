"""The report to several administrators with its rows as CSV, and the mails to managers: sent through
Postfix, read back over IMAP by Python's email package and by GMime."""
import csv
import io
import json
import pathlib
import subprocess
import tempfile
import unittest

import site_files
from postfix_mail import PostfixMail
from rig import PROGRAM
from site_files import DOMAIN, person, site_registry
from test_mail_readers import read_by_gmime, read_by_python

CSV = "Norvyn-expiration-report.csv"


class CopiesTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.mail = self.enterContext(PostfixMail(refused=f"gone@{DOMAIN}"))

    def run_pass(self, users, *more, **settings):
        """What the pass says."""
        options = site_files.write_site(self.folder, users, site_registry(self.mail.port, **settings))
        return subprocess.run([PROGRAM, "run", *options, *more], capture_output=True, text=True).stdout

    def read(self):
        """{recipient: the mail as both readers find it}"""
        found = {}
        for mail in self.mail.over_imap():
            by_python, by_gmime = read_by_python(mail.raw), read_by_gmime(mail.raw)
            self.assertEqual({**by_gmime, "From": by_python["From"]}, by_python)
            self.assertNotIn(mail.recipient, found)
            found[mail.recipient] = by_python
        return found

    def test_report_to_several_administrators(self):
        admins = [f"one@{DOMAIN}", f"gone@{DOMAIN}", f"two@{DOMAIN}"]
        users = [person("=cmd", 53, mail=f"a,b@{DOMAIN}"), person("zo\u00eb", 59, mail=f"zoe@{DOMAIN}"), person("old", 70)]
        said = self.run_pass(users, adminReportCsv=1, adminReportWhen="changes",
                             adminEmailAddress=f"{admins[0]}; {admins[1]}, {admins[2]}")
        self.assertIn(f"the report was not mailed to gone@{DOMAIN}", said)
        mails = self.read()
        for admin in (admins[0], admins[2]):
            self.assertEqual([address for _, address in mails[admin]["To"]], admins)
            text = mails[admin]["files"][CSV].decode("utf-8-sig")
            rows = {row["user"]: row for row in csv.DictReader(io.StringIO(text, newline=""))}
            self.assertEqual(list(rows), ["'=cmd", "zo\u00eb", "old"])
            self.assertEqual(rows["zo\u00eb"]["daysLeft"], "1")
            self.assertEqual(rows["old"]["status"], "PASSWORD EXPIRED")

    def test_one_mail_for_all_users_of_a_manager(self):
        base = "DC=site,DC=example"
        boss = person("boss/1", 1, cn="Boss, The", mail=f"boss@{DOMAIN}")
        staff = dict(manager=boss.dn(base))
        users = [boss, person("nobody", 1, mail=""), person("gone", 59, mail=f"gone@{DOMAIN}", **staff),
                 person("zo\u00eb<", 53, mail=f"zoe@{DOMAIN}", **staff), person("far", 46, **staff),
                 person("lost", 59, manager=f"CN=nobody,{base}")]
        said = self.run_pass(users, managerDays=7, emailTextAlternative=1, emailAdminReports=0)
        self.assertIn("the manager of lost (CN=nobody,DC=site,DC=example) was not mailed", said)
        record = json.loads((self.folder / "logfiles/norvyn-last-run.json").read_text("utf-8"))
        self.assertEqual((record["managersMailed"], record["managersFailed"]), (1, 0))
        self.assertIn("1 manager would be mailed", self.run_pass(users, "--dry-run", managerDays=7))
        mails = self.read()
        self.assertEqual(set(mails), {f"{name}@{DOMAIN}" for name in ("zoe", "far", "lost", "boss")})
        texts = dict(mails[f"boss@{DOMAIN}"]["texts"])
        self.assertLess(texts["text/plain"].index("(gone)"), texts["text/plain"].index("(zo\u00eb<)"))
        self.assertIn("<td>zo\u00eb&lt;</td>", texts["text/html"])
        self.assertNotIn("far", texts["text/html"])
        self.assertIn("Given Name", texts["text/html"])
        # A template of the site's own, and the text that is made of it when it is filled.
        (self.folder / "NorvynManagerEmail.html").write_text(
            "<title>Staff</title>Hi <%managerName%><ol><%users%><li><%username%><br><%daysUntilExpiration%><%/users%></ol>")
        for file in (self.mail.folder / "mail/new").iterdir():
            file.unlink()
        self.run_pass(users, managerDays=7, emailTextAlternative=1, emailAdminReports=0)
        mail = self.read()[f"boss@{DOMAIN}"]
        self.assertEqual(mail["subject"], "Staff")
        self.assertEqual(mail["texts"][0], ("text/plain", "Hi Given Name\n\n1. gone\n   1\n2. zo\u00eb<\n   7"))
