"""A whole pass of the built program against a Samba domain controller and a Postfix mail server: who
was mailed (from the delivered mails), who was expired (from the directory), the report, every log."""
import dataclasses
import datetime
import email.utils
import html
import json
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import page_pictures
import samba_ad
import sample_site
import site_files
from postfix_mail import PostfixMail
from rig import PROGRAM
from sample_site import EXPIRED, FILES, MAX_AGES, REFUSED, UPCOMING, USERS, comparable
from site_files import ADMIN_MAIL, DOMAIN, POLICIES, User, person

PASS_SECONDS = 120
TODAY = datetime.date.today


def row_of(*cells):
    """A row of the report's tables."""
    text = "".join(f"<td>{html.escape(str(cell))}</td>" for cell in cells)
    return f"<tr>{text}</tr>".encode("ascii", "xmlcharrefreplace").decode()


class Site:
    """A work directory with a registry as Windows exports it."""

    def __init__(self, folder, ad, mail):
        self.folder = pathlib.Path(folder)
        self.ad = ad
        self.registry = self.folder / "site.reg"
        self.password = self.folder / "bind-password"
        self.password.write_text(samba_ad.ADMIN_PASSWORD + "\n")
        self.directory = {
            "uri": f"ldaps://{samba_ad.HOST}", "bindMethod": "simple", "bindUser": samba_ad.ADMIN,
            "bindPasswordFile": self.password, "caFile": ad.ca_file}
        self.keys = {
            **site_files.site_registry(mail.port, emailSubject="Your password", emailAgingUsers=1,
                                       minLength1=20, maxAge1=180),
            r"System\CurrentControlSet\Control\ProductOptions": {"productType": "LanmanNT"},
            r"Software\Kadro\PwsentryPro\Directory": self.directory,
            POLICIES + r"\Policy1": {
                "policyName": "Short-lived", "maxPasswordAge": 30, "emailWarnings": 1},
        }
        self.settings = self.keys[site_files.SETTINGS]

    def write_registry(self):
        self.registry.write_bytes(site_files.registry_file(self.keys))

    def run(self, *options, command="run", limit="unlimited"):
        """limit: of the size of a file, in KiB."""
        return subprocess.run(
            ["bash", "-c", f'ulimit -f {limit}; exec "$@"', "bash", PROGRAM, command, "--registry",
             self.registry, "--work-dir", self.folder, *options],
            capture_output=True, text=True, timeout=PASS_SECONDS, env=self.ad.environment)

    def ask(self, command, *options):
        """The answer of a command that is asked a question."""
        done = self.run(*options, "--format", "json", command=command)
        assert done.returncode == 0, done.stdout + done.stderr
        return json.loads(done.stdout)

    def files(self):
        return {file.relative_to(self.folder): file.read_bytes()
                for file in self.folder.rglob("*") if file.is_file()}

    def read(self, name):
        return (self.folder / name).read_text()


class WholePassTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.ad = cls.enterClassContext(samba_ad.SambaAd())
        cls.mail = cls.enterClassContext(PostfixMail(refused=REFUSED))
        cls.ad.set_max_password_age(42)
        cls.ad.add_users(dataclasses.replace(user, cn=f"User {number}")
                         for number, user in enumerate(USERS.values()))
        cls.site = Site(folder, cls.ad, cls.mail)
        shutil.copytree(FILES, folder, dirs_exist_ok=True)
        cls.site.write_registry()
        cls.before = {name: cls.ad.pwd_last_set(name) for name in USERS}
        cls.files_before = cls.site.files()
        cls.dry = cls.site.ask("run", "--dry-run")
        cls.listed = cls.site.ask("list")
        cls.explained = {name: cls.site.ask("explain", name) for name in USERS}
        cls.previewed = {name: cls.site.ask("preview", name) for name in USERS}
        cls.files_after_questions = cls.site.files()
        cls.done = cls.site.run()
        cls.delivered = cls.mail.delivered()
        cls.report = cls.site.read("logfiles/norvyn-expiration-report.html")

    def test_summary_and_exit_status(self):
        self.assertEqual(self.done.returncode, 1, self.done.stdout + self.done.stderr)
        self.assertIn(f"FAILED: mail to refused <{REFUSED}> was not sent: "
                      "RCPT TO refused: 550 5.1.1 ", self.done.stdout)
        self.assertRegex(self.done.stdout, r"(?m)^  warned +5$")
        self.assertRegex(self.done.stdout, r"(?m)^  expired +2$")
        self.assertEqual(self.done.stderr, "")

    def test_questions_agree_with_the_pass_and_change_nothing(self):
        self.assertEqual(self.files_after_questions, self.files_before)
        rows = {row["user"]: row for row in self.listed["users"]}
        self.assertLessEqual(set(USERS), set(rows))
        # That the mail server refuses one address cannot be known before.
        addresses = {row["address"] for row in rows.values() if row["mailed"]}
        self.assertEqual(addresses, set(sample_site.mailed()) | {REFUSED})
        self.assertEqual({name for name, row in rows.items() if row["forced"]}, set(EXPIRED))
        self.assertEqual({name: row["daysLeft"] for name, row in rows.items() if name in UPCOMING},
                         {name: sample_site.days_left(name) for name in UPCOMING})
        self.assertEqual(self.dry["would"], {"mailed": len(addresses), "forced": len(EXPIRED)})
        counts = {row["outcome"]: row["lines"] for row in self.dry["outcomes"]}
        self.assertEqual({"mail": counts["mail"], "force": counts["force"]},
                         {name: self.listed["counts"][name] for name in ("mail", "force")})
        for name, answer in self.explained.items():
            with self.subTest(name):  # who is left out by every policy has no row
                self.assertEqual(answer["users"], [rows[name]] if answer["users"] else [])
                self.assertEqual([policy["policy"] for policy in answer["policies"] if policy["has"]],
                                 [rows[name]["policy"]] if answer["users"] else [])
                self.assertEqual("would be mailed" in self.previewed[name]["today"],
                                 bool(answer["users"]) and rows[name]["mailed"])
        for mail in self.delivered:
            for name in {row["user"] for row in rows.values() if row["address"] == mail.recipient}:
                shown = {field["name"]: field["value"] for field in self.previewed[name]["fields"]}
                self.assertEqual({part: email.utils.getaddresses([shown[part]]) for part in ("From", "To")},
                                 {part: email.utils.getaddresses([mail.message[part]]) for part in ("From", "To")})
                self.assertEqual((shown["Subject"], shown["HTML"].split()),
                                 (mail.message["Subject"], mail.message.get_content().split()))
        self.assertEqual(self.explained["twice"]["policies"][0]["lists"][0]["line"], 1)
        self.assertIn("exclude.txt:", self.explained["excluded"]["policies"][1]["why"])

    def test_who_was_mailed(self):
        warnings = [mail for mail in self.delivered if mail.recipient != ADMIN_MAIL]
        mailed = sample_site.mailed()
        self.assertEqual(sorted(mail.recipient for mail in warnings), sorted(mailed))
        for mail in warnings:
            message, user = mail.message, mailed[mail.recipient]
            self.assertEqual(message.defects, [])
            self.assertEqual(message["Subject"], "Your password")
            self.assertIn(f'\nFrom: "Help Desk" <desk@{DOMAIN}>\n'.encode(), mail.raw)
            self.assertEqual(mail.sender, f"desk@{DOMAIN}")
            text = message.get_content()
            self.assertIn(f"Dear {user.given_name} {user.surname},", text)
            self.assertIn(f"EXAMPLE\\{user.name} expires in "
                          f"<b>{sample_site.days_left(user.name)}</b> days.", text)

    def test_who_was_expired(self):
        after = {name: self.ad.pwd_last_set(name) for name in USERS}
        expected = {name: 0 if name in EXPIRED else value for name, value in self.before.items()}
        self.assertEqual(after, expected)

    def test_report_rows(self):
        upcoming, expired = self.report.split("Users with passwords <u>expired</u>")
        rows = re.findall("<tr><td>.*?</tr>", upcoming.split("Users with upcoming")[1])
        self.assertEqual(sorted(rows), sorted(
            row_of(name, USERS[name].mail or "none", 1, USERS[name].password_age,
                   MAX_AGES.get(name, 60), sample_site.days_left(name), emailed)
            for name, emailed in UPCOMING.items()))
        self.assertIn("<td>twice</td>", rows[0])  # by policy
        self.assertIn("<td>longpass</td>", rows[-1])
        self.assertEqual(sorted(re.findall("<tr><td>(.*?)</td>", expired)), sorted(EXPIRED))

    def test_admin_mail_is_the_report(self):
        [mail] = [mail for mail in self.delivered if mail.recipient == ADMIN_MAIL]
        message = mail.message
        self.assertEqual(message["Subject"], "Norvyn Password Expiration Report")
        body = message.get_body(("html",)).get_content()
        self.assertEqual(body.replace("\r\n", "\n").rstrip("\n"),
                         self.report.replace("../norvyn-report-logo.gif", "images/logo.gif"))
        [image] = [part for part in message.walk() if part.get_content_type() == "image/gif"]
        self.assertEqual(image.get_content(),
                         (self.site.folder / "norvyn-report-logo.gif").read_bytes())
        self.assertEqual(image["Content-Location"], "images/logo.gif")

    def test_pages_look_right_in_a_browser(self):
        [admin] = [mail for mail in self.delivered if mail.recipient == ADMIN_MAIL]
        warning = next(mail for mail in self.delivered if mail.recipient.startswith("zoe@"))
        title, name = "Norvyn Password Expiration Report", "zo\u00eb.m\u00fcller"
        report = self.site.folder / "logfiles/norvyn-expiration-report.html"
        file = page_pictures.look_at(report, "report-file")
        for page in file, page_pictures.look_at_mail(admin.message, "report-mail"):
            self.assertEqual((page.title, [width > 100 for _, width in page.images], name in page.text),
                             (title, [True], True))
        page = page_pictures.look_at_mail(warning.message, "warning-mail")
        self.assertIn("Dear Zo\u00eb M\u00fcller,", page.text)

    def test_log_of_expired_passwords(self):
        lines = self.site.read("logfiles/norvyn-expired-pw.log").splitlines()
        self.assertEqual(sorted(map(comparable, lines)), sorted(
            f'"TIME","{name}","{age}","successful"' for name, age in EXPIRED.items()))

    def test_debug_log(self):
        text = comparable(self.site.read("logfiles/norvyn-expiration-debug.log"))
        rule = "-" * 27 + "\n"
        head, *slots = re.split(rule + r"Policy(\d+) Settings\n" + rule, text)
        expected = pathlib.Path(__file__).parent / "sample_site_debug.log"
        self.assertEqual(head, expected.read_text())
        self.assertEqual(slots[::2], re.findall(r"policy(\d+)  maxAge", head))
        seen = {int(slot): set(re.findall("(?m)^username=(.*)$", block))
                for slot, block in zip(slots[::2], slots[1::2])}
        default = {*USERS, "Administrator"} - {"disabled", "PC01$"}
        self.assertEqual({slot: names for slot, names in seen.items() if names}, {
            0: default, 1: {"twice", "disabled", "PC01$"}, 11: {"longpass"}})
        for slot, block in zip(map(int, slots[::2]), slots[1::2]):
            opening = {0: "  i=0, buf2=pwsentry_pro_defaultpolicy_exclude.txt\n", 1: "", 11: ""}
            self.assertEqual(block.partition("timestamp=")[0], opening.get(
                slot, "max pw age = 0\nPolicy pw age=0. SKIP THIS POLICY.\n"))

    def test_error_file_tells_why_and_keeps_no_secret(self):
        log = self.site.read("errors-norvyn-email.xml")
        self.assertIn(f"Failed when sending RCPT TO:<{REFUSED}>", log)
        self.assertIn("550 5.1.1", log)
        for file in self.site.folder.rglob("*"):
            if file.is_file() and file != self.site.password:
                self.assertNotIn(samba_ad.ADMIN_PASSWORD.encode(), file.read_bytes(), file)


class LaterPassTest(unittest.TestCase):
    """What a pass does when something is in its way; one small domain for all."""

    @classmethod
    def setUpClass(cls):
        cls.ad = cls.enterClassContext(samba_ad.SambaAd())
        cls.mail = cls.enterClassContext(PostfixMail(refused=REFUSED))
        cls.ad.add_users([person("walter", 59), person("reader", 0)])
        cls.ad.add_users([person("held35", 35), person("refused", 55), person("held50", 50),
                          User("noaddress", 45), person("held40", 40)])
        cls.ad.set_password("reader", samba_ad.ADMIN_PASSWORD)

    def setUp(self):
        folder = self.enterContext(tempfile.TemporaryDirectory())
        self.site = Site(folder, self.ad, self.mail)

    def run_site(self, *options, **limit):
        self.site.write_registry()
        return self.site.run(*options, **limit)

    def test_kerberos_and_a_day_on_which_mail_went_out(self):
        self.ad.kinit("Administrator")
        self.site.directory.clear()  # the realm's own servers, with the ticket of kinit
        self.site.settings["limitEmails"] = 1
        self.site.keys[r"Software\Kadro\PwsentryPro"] = {"expirationLastRunDay": TODAY().day}
        done = self.run_site("--directory", f"ldap://{samba_ad.HOST}")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertIn(row_of("walter", "none", 1, 59, 60, 1, "no"),
                      self.site.read("logfiles/norvyn-expiration-report.html"))
        self.assertIn("  ** Service has already sent emails today",
                      self.site.read("logfiles/norvyn-expiration-debug.log"))

    def test_directory_that_refuses_an_expiry(self):
        self.site.directory["bindUser"] = "reader@example.test"
        self.site.keys[POLICIES + r"\DefaultPolicy"]["maxPasswordAge"] = 59
        done = self.run_site()
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        self.assertRegex(done.stdout, r"(?m)^FAILED: the directory did not take the forced password "
                                      r"change of walter: .*Insufficient access")
        self.assertRegex(done.stdout, r"(?m)^  expiry refused +1$")
        self.assertFalse((self.site.folder / "logfiles/norvyn-expired-pw.log").exists())

    def test_a_full_disk_stops_nothing_and_halves_nothing(self):
        self.site.settings["limitEmails"] = 1
        self.site.write_registry()
        before = self.site.registry.read_bytes()
        limited = self.site.run(limit=1)
        self.assertEqual(limited.returncode, 1, limited.stdout + limited.stderr)
        self.assertIn("FAILED: the report file could not be written\n", limited.stdout)
        self.assertEqual(self.site.registry.read_bytes(), before)
        self.assertEqual([file.name for file in self.site.folder.glob("site.reg.*")],
                         ["site.reg.lock"])

    def test_expiries_that_are_held_back(self):
        """Two a pass, the oldest first; who has an address is mailed before, and once."""
        self.site.settings.update(maxExpirations=2, expireOnlyNotified=1, rememberWarnings=1)
        names = ["held35", "refused", "held50", "noaddress", "held40"]
        (self.site.folder / "pwsentry_pro_policy1_include.txt").write_text("\n".join(names) + "\n")
        limit, unnotified = "limit of expirations reached", "user not notified"
        for expired, rows in [
                ({"held50", "noaddress"}, {"held35": limit, "refused": unnotified, "held40": limit}),
                ({"held50", "noaddress", "held35", "held40"}, {"refused": unnotified})]:
            done = self.run_site()
            self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
            report = self.site.read("logfiles/norvyn-expiration-report.html")
            self.assertEqual(dict(re.findall(r"<td>(\w+)</td>[^\n]*NOT EXPIRED \((.*?)\)", report)), rows)
            self.assertEqual({name for name in names if self.ad.pwd_last_set(name) == 0}, expired)
        mailed = sorted(mail.recipient for mail in self.mail.delivered() if "held" in mail.recipient)
        self.assertEqual(mailed, [f"held{age}@{DOMAIN}" for age in (35, 40, 50)])
