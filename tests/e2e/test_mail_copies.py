"""The report to several administrators with its rows as CSV, and the mails to managers: sent through
Postfix, read back over IMAP by Python's email package and by GMime."""
import csv
import io
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

    def run_pass(self, users, **settings):
        """What the pass says."""
        options = site_files.write_site(self.folder, users, site_registry(self.mail.port, **settings))
        return subprocess.run([PROGRAM, "run", *options], capture_output=True, text=True).stdout

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
        users = [person("=cmd", 53, mail=f"a,b@{DOMAIN}"), person("zo\u00eb", 59), person("old", 70)]
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
