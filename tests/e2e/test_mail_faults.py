"""A pass whose mail server refuses, is silent, breaks off or dies: a relay in front of Postfix."""
import collections
import pathlib
import re
import subprocess
import tempfile
import time
import unittest

import site_files
import smtp_faults
from postfix_mail import PostfixMail
from rig import PROGRAM
from site_files import DOMAIN, SETTINGS, person
from smtp_faults import BREAK, DIE, SILENT

USERS = [f"user{number}" for number in range(1, 7)]
AGAIN = {"smtpRetries": 1, "smtpRetryDelay": 1}


def at(mail, verb, action):
    return lambda mails, heard: action if (mails, heard) == (mail, verb) else None


def always(verb, action):
    return lambda _, heard: action if heard == verb else None


class MailFaultsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.mail = cls.enterClassContext(PostfixMail())

    def run_pass(self, fault, **settings):
        """Who was mailed, how often; the report's last column; the summary; the seconds it took."""
        with smtp_faults.FaultRelay(self.mail.port) as relay, tempfile.TemporaryDirectory() as folder:
            relay.fault = fault
            keys = site_files.site_registry(relay.port, emailAdminReports=0, warning1=0, warning2=0,
                                            warning3=0, **settings)
            options = site_files.write_site(pathlib.Path(folder),
                                            [person(name, 55) for name in USERS], keys)
            before = collections.Counter(mail.recipient for mail in self.mail.delivered())
            began = time.monotonic()
            done = subprocess.run([PROGRAM, "run", *options], capture_output=True, text=True)
            seconds = time.monotonic() - began
            after = collections.Counter(mail.recipient for mail in self.mail.delivered())
            report = pathlib.Path(folder, "logfiles/norvyn-expiration-report.html").read_text()
            rows = re.findall(r"<td>([^<]*)</td></tr>", report.partition("upcoming")[2])
            self.assertEqual(done.stderr, "")
            return after - before, rows, done.stdout.replace(f":{relay.port}:", ":PORT:"), seconds

    def test_nobody_is_lost_to_a_fault_of_the_moment(self):
        verbs = ("MAIL", "RCPT", "DATA", ".")
        faults = [at(3, verb, action) for verb in verbs for action in (BREAK, b"451 4.3.0 later\r\n")]
        first = iter([BREAK, b"421 4.3.2 too busy\r\n"])
        faults.append(lambda _, verb: next(first, None) if verb == "" else None)
        everybody = {f"{name}@{DOMAIN}": 1 for name in USERS}
        for number, fault in enumerate(faults):
            with self.subTest(number):
                mailed, rows, summary, _ = self.run_pass(fault, **AGAIN)
                self.assertEqual(mailed, everybody, summary)
                self.assertEqual(rows, ["yes"] * len(USERS))
                self.assertNotIn("FAILED", summary)

    def test_what_is_lost_is_told_with_its_reason(self):
        silent = always("RCPT", SILENT)
        many = "mails were not sent, the first a mail to user"
        given_up = r"the mail server was given up \(smtpGiveUpAfter\): {} not tried"
        for name, fault, settings, mailed, problems in (
                ("for good", at(3, "RCPT", b"550-5.1.1 no such\r\n550 5.1.1 mailbox\r\n"), AGAIN, 5,
                 [f"mail to user3 <user3@{DOMAIN}> was not sent: "
                  "RCPT TO refused: 550 5.1.1 no such 5.1.1 mailbox"]),
                ("again and again", always("RCPT", b"450 4.2.1 not now\r\n"), AGAIN, 0,
                 [f"mail to {user} <{user}@{DOMAIN}> was not sent: RCPT TO refused: 450 4.2.1 not now"
                  for user in USERS]),
                ("at the door", always("", b"554 5.7.1 not you\r\n"), {}, 0,
                 [f"127.0.0.1:PORT: greeting refused: 554 5.7.1 not you: 5 {many}1 .*",
                  given_up.format("1 more mail was")]),
                ("dead", lambda mails, verb: DIE if mails == 3 else None, {"smtpGiveUpAfter": 2}, 2,
                 [f"mail to user3 .*: 127.0.0.1:PORT: MAIL FROM: connection .* by the server",
                  f"127.0.0.1:PORT: connection refused: 2 {many}4 .*", given_up.format("1 more mail was")]),
                ("silent", silent, {"smtpGiveUpAfter": 1}, 0,
                 ["mail to user1 .* was not sent: 127.0.0.1:PORT: RCPT TO: timed out",
                  given_up.format("5 more mails were")])):
            with self.subTest(name):
                delivered, rows, summary, seconds = self.run_pass(fault, **settings)
                found = re.findall("(?m)^FAILED: (.*)$", summary)
                self.assertEqual(len(found), len(problems), summary)
                for line, pattern in zip(found, problems):
                    self.assertRegex(line, rf"\A{pattern}\Z")
                self.assertEqual(delivered.total(), mailed)
                self.assertEqual(rows.count("yes"), mailed)
                self.assertEqual(rows.count("no (smtp failure)"), len(USERS) - mailed)
                self.assertLess(seconds, 60)


if __name__ == "__main__":
    unittest.main()
