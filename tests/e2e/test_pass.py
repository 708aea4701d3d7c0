"""A whole pass of the built program against a Samba domain controller and a Postfix mail server: who
was mailed (from the delivered mails), who was expired (from the directory), the report, every log."""
import datetime
import html
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import page_pictures
import postfix_mail
import samba_ad

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = ROOT / "build/release/console/pwlapse"
PICTURES = ROOT / "build/pictures"
MAIL_DOMAIN = "example.com"
ADMIN_MAIL = f"admin@{MAIL_DOMAIN}"
REFUSED = f"refused@{MAIL_DOMAIN}"
PASS_SECONDS = 120
TODAY = datetime.date.today

TEMPLATE = """<html><body><p>Dear <%firstName%> <%lastName%>,</p>
<p>the password of EXAMPLE<%backslash%><%username%> expires in <b><%daysUntilExpiration%></b> days.</p>
</body></html>
"""

# Maximum ages: Policy1 30, the default policy 60, passwords of 20 characters and more 180. Warning days
# are 14, 7 and 1. By name: what the directory has.
USERS = {
    "outside": dict(password_age=20),
    "warned": dict(password_age=53),
    "quiet": dict(password_age=50),
    "longpass": dict(password_age=173),
    "expired": dict(password_age=65),
    "justexpired": dict(password_age=60),
    "mustchange": dict(password_age=None),
    "disabled": dict(password_age=29, disabled=True),
    "never": dict(password_age=500, never_expires=True),
    "cannot": dict(password_age=500, cant_change=True),
    "excluded": dict(password_age=59),
    "twice": dict(password_age=29),
    "nomail": dict(password_age=53, mail=""),
    "zo\u00eb.m\u00fcller": dict(password_age=53, given_name="Zo\u00eb", surname="M\u00fcller",
                                 mail=f"zoe@{MAIL_DOMAIN}"),
    "refused": dict(password_age=46, mail=REFUSED),
    "we(ird)": dict(password_age=53, mail=f"weird@{MAIL_DOMAIN}"),
    "markup": dict(password_age=50, mail=f"<i>m</i>@{MAIL_DOMAIN}"),
    "ab": dict(password_age=59),
    "PC01$": dict(password_age=59, computer=True, mail=""),
}

LISTS = {
    "pwsentry_pro_policy1_include.txt": "twice\ndisabled\nPC01$\n",
    "pwsentry_pro_defaultpolicy_exclude.txt": "LONGPASS\r\nexcluded\r\n",
    "pwsentry_pro_policy11_include.txt": "longpass\n",
}


def address_of(name):
    return USERS[name].get("mail", f"{name}@{MAIL_DOMAIN}") or "none"


# What the upcoming table says: e-mail warnings, age, maximum age, days left, emailed.
UPCOMING = {
    "twice": (1, 29, 30, 1, "yes"),
    "warned": (1, 53, 60, 7, "yes"),
    "quiet": (1, 50, 60, 10, "no"),
    "nomail": (1, 53, 60, 7, "no"),
    "zo\u00eb.m\u00fcller": (1, 53, 60, 7, "yes"),
    "refused": (1, 46, 60, 14, "no (smtp failure)"),
    "we(ird)": (1, 53, 60, 7, "yes"),
    "markup": (1, 50, 60, 10, "no"),
    "longpass": (1, 173, 180, 7, "yes"),
}
EXPIRED = {"expired": 65, "justexpired": 60}
MAILED = [name for name, row in UPCOMING.items() if row[4] == "yes"]


# The debug lines of one user, from pieces.

def debug_block(name, slot):
    added = f"  user added: {name}\n  listcount: N\n"
    age = USERS.get(name, {}).get("password_age") or 0
    read = f"  Password age:  {age} days, CLOCK\n"
    head = f"username={name}\n"
    if slot == 1 and name == "disabled":
        return head + f"  disabled account: {name}\n" + added
    if slot == 1 and name == "PC01$":
        return head + "  Username contains $ character.  Skipping User.\n" + added
    if slot == 0 and name in ("longpass", "excluded"):
        return head + " user excluded from policy\n"
    if name == "never":
        return head + f"  account with non-expiring pw: {name}\n" + added
    if name == "cannot":
        return head + f"  account cannot change pw: {name}\n" + added
    if name == "ab" or (slot == 0 and name == "twice"):
        return head + "  account processed earlier.\n"
    if name in ("outside", "mustchange", "Administrator"):
        return head + added + read
    return head + added + read + lookup(name) + decision(name, age) + expiry(name)


def lookup(name):
    user = USERS[name]
    missing = "" if user.get("mail", "x") else "    EmailAddress property not found.\n"
    return ("  --BEGIN GETEMAIL\n    getUserEmail() begin**\n    get email address\n" + missing +
            "    get first name\n    get last name\n    getUserEmail() end**\n"
            "  User Object Properties\n"
            f"    email: {address_of(name)}\n    fname: {user.get('given_name', 'Given')}\n"
            f"    lname: {user.get('surname', 'Name')}\n    username: {name}\n    domain: \n"
            "  --END GETEMAIL\n")


def decision(name, age):
    limit = 30 if name == "twice" else 180 if name == "longpass" else 60
    left = limit - age
    text = (f"  bEmailWarnings: 1  reportOnly: 0  bDisabled: 0  bEmailRunToday: 0  bEmailUserOK: 1"
            f"  countdown: {left}\n"
            f"  countdown: {left}\twarning1: 14\twarning2: 7\twarning3: 1\n"
            "  Configured to email users only at warning interval times.\n")
    if left not in (14, 7, 1):
        return text + "  No match of warning interval.  No email for this user today.\n\n"
    text += "  Days before expiration matches a warning interval.\n"
    if address_of(name) == "none":
        return text
    user = USERS[name]
    text += ("  emailUser() - begin\n"
             f"    countdown (inside emailUser): {left}\n    szUser: {name}\n"
             f"    szUserEmail: {address_of(name)}\n**HTML email body file found.\n"
             f"    user firstname: {user.get('given_name', 'Given')}\n"
             f"    user lastname: {user.get('surname', 'Name')}\n"
             f"    days until expiration: {left}\n"
             "    ..search and replace countdown string done.\n"
             f"    expirationLastRunDay set to {TODAY().day}\n")
    if name in MAILED:
        text += f"    email sent (to: {address_of(name)})\n"
    else:
        text += ("    emailUser failed. Check c:\\windows\\system32\\errors-norvyn-email.xml for more "
                 "information.\n")
    return text + "  emailUser() - end\n  user matches a warning interval.\n\n"


def expiry(name):
    return (f"  Expiring password for user={name}\n  --STAGE 400\n" if name in EXPIRED else "")


def rows_of(page, heading):
    """The table that follows a heading, as lists of cell texts; the label row left out."""
    table = page[page.index(heading):]
    table = table[:table.index("</table>")]
    cells = [[html.unescape(re.sub(r"<[^>]*>", "", cell)) for cell in re.findall("<td[^>]*>(.*?)</td>", row)]
             for row in re.findall("<tr>(.*?)</tr>", table, re.DOTALL)]
    return cells[1:]


class Site:
    """A work directory with a registry as Windows exports it."""

    def __init__(self, folder, ad, mail):
        self.folder = pathlib.Path(folder)
        self.ad = ad
        self.registry = self.folder / "site.reg"
        self.password = self.folder / "bind-password"
        self.password.write_text(samba_ad.ADMIN_PASSWORD + "\n")
        self.values = {
            r"System\CurrentControlSet\Control\ProductOptions": {"productType": "LanmanNT"},
            r"Software\Kadro\PwsentryPro\Directory": {
                "uri": f"ldaps://{ad.uri_host}", "bindMethod": "simple", "bindUser": samba_ad.ADMIN,
                "bindPasswordFile": str(self.password), "caFile": str(ad.ca_file)},
            r"Software\Policies\Kadro\PwsentryProMPE": {"expirationServiceDebug": 1},
            r"Software\Policies\Kadro\PwsentryProMPE\DefaultPolicy": {
                "policyName": "Everybody", "maxPasswordAge": 60, "emailWarnings": 1},
            r"Software\Policies\Kadro\PwsentryProMPE\Policy1": {
                "policyName": "Short-lived", "maxPasswordAge": 30, "emailWarnings": 1},
            r"Software\Policies\Kadro\PwsentryProMPE\PWExpiration": {
                "smtpServer": "127.0.0.1", "smtpPort": mail.port,
                "emailFromAddress": f"Help Desk <desk@{MAIL_DOMAIN}>",
                "emailSubject": "Your password", "adminEmailAddress": ADMIN_MAIL,
                "emailAdminReports": 1, "htmllog": 1, "warning1": 14, "warning2": 7, "warning3": 1,
                "emailAgingUsers": 1, "minLength1": 20, "maxAge1": 180},
        }

    @property
    def directory(self):
        return self.values[r"Software\Kadro\PwsentryPro\Directory"]

    @property
    def settings(self):
        return self.values[r"Software\Policies\Kadro\PwsentryProMPE\PWExpiration"]

    def write_registry(self):
        text = "Windows Registry Editor Version 5.00\r\n"
        for key, values in self.values.items():
            text += f"\r\n[HKEY_LOCAL_MACHINE\\{key}]\r\n"
            for name, value in values.items():
                data = f"dword:{value:08x}" if isinstance(value, int) else (
                    '"' + value.replace("\\", "\\\\").replace('"', '\\"') + '"')
                text += f'"{name}"={data}\r\n'
        self.registry.write_bytes(b"\xff\xfe" + text.encode("utf-16-le"))

    def run(self, *options):
        done = subprocess.run(
            [PROGRAM, "run", "--registry", self.registry, "--work-dir", self.folder, *options],
            capture_output=True, text=True, timeout=PASS_SECONDS, env=self.ad.environment)
        if "Sanitizer" in done.stderr:
            raise AssertionError(done.stderr)
        return done

    def read(self, name):
        return (self.folder / name).read_text()


class WholePassTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="pwlapse-pass-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.ad = cls.enterClassContext(samba_ad.SambaAd())
        cls.mail = cls.enterClassContext(
            postfix_mail.PostfixMail(domain=MAIL_DOMAIN, refused=[REFUSED]))
        cls.ad.set_max_password_age(42)
        cls.ad.add_users(
            samba_ad.User(name, cn=f"User {number}",
                          **{"mail": f"{name}@{MAIL_DOMAIN}", "given_name": "Given",
                             "surname": "Name", **user})
            for number, (name, user) in enumerate(USERS.items()))
        cls.site = Site(cls.folder, cls.ad, cls.mail)
        for name, text in {**LISTS, "NorvynExpirationEmail.html": TEMPLATE}.items():
            (cls.site.folder / name).write_text(text)
        cls.site.write_registry()
        cls.before = {name: cls.ad.pwd_last_set(name) for name in USERS}
        cls.done = cls.site.run()
        cls.delivered = cls.mail.delivered()
        cls.report = cls.site.read("logfiles/norvyn-expiration-report.html")
        PICTURES.mkdir(parents=True, exist_ok=True)

    @classmethod
    def enterClassContext(cls, manager):  # Python 3.11 has it; Debian 12's does too
        result = manager.__enter__()
        cls.addClassCleanup(manager.__exit__, None, None, None)
        return result

    def test_summary_and_exit_status(self):
        self.assertEqual(self.done.returncode, 1, self.done.stdout + self.done.stderr)
        self.assertIn(f"FAILED: mail to refused <{REFUSED}> was not sent\n", self.done.stdout)
        self.assertRegex(self.done.stdout, r"(?m)^  warned +5$")
        self.assertRegex(self.done.stdout, r"(?m)^  expired +2$")
        self.assertEqual(self.done.stderr, "")

    def test_who_was_mailed(self):
        warnings = [mail for mail in self.delivered if mail.recipient != ADMIN_MAIL]
        self.assertEqual(sorted(mail.recipient for mail in warnings),
                         sorted(address_of(name) for name in MAILED))
        for mail in warnings:
            message = mail.message
            name = next(name for name in MAILED if address_of(name) == mail.recipient)
            self.assertEqual(message.defects, [])
            self.assertEqual(message["Subject"], "Your password")
            self.assertIn(f'\nFrom: "Help Desk" <desk@{MAIL_DOMAIN}>\n'.encode(), mail.raw)
            self.assertEqual(mail.sender, f"desk@{MAIL_DOMAIN}")
            self.assertEqual(message["X-Priority"], "1")
            user = USERS[name]
            text = message.get_content()
            self.assertIn(f"Dear {user.get('given_name', 'Given')} {user.get('surname', 'Name')},", text)
            self.assertIn(f"EXAMPLE\\{name} expires in <b>{UPCOMING[name][3]}</b> days.", text)

    def test_who_was_expired(self):
        after = {name: self.ad.pwd_last_set(name) for name in USERS}
        expected = {name: 0 if name in EXPIRED else value for name, value in self.before.items()}
        self.assertEqual(after, expected)

    def test_report_rows(self):
        upcoming = rows_of(self.report, "Users with upcoming password expirations:")
        expected = [[name, address_of(name), *map(str, row)] for name, row in UPCOMING.items()]
        self.assertEqual(sorted(upcoming), sorted(expected))
        self.assertEqual((upcoming[0][0], upcoming[-1][0]), ("twice", "longpass"))  # by policy
        expired = rows_of(self.report, "Users with passwords <u>expired</u> during this run:")
        self.assertEqual(sorted(expired), sorted(
            [name, address_of(name), str(age), "60", "PASSWORD EXPIRED"]
            for name, age in EXPIRED.items()))
        self.assertNotIn("<i>", self.report)

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
        with tempfile.TemporaryDirectory() as folder:
            [admin] = [mail for mail in self.delivered if mail.recipient == ADMIN_MAIL]
            warning = next(mail for mail in self.delivered if mail.recipient.startswith("zoe@"))
            pages = {"report-file": self.site.folder / "logfiles/norvyn-expiration-report.html"}
            for name, mail in (("report-mail", admin), ("warning-mail", warning)):
                (pathlib.Path(folder) / name).mkdir()
                pages[name] = page_pictures.mail_page(mail.message, pathlib.Path(folder) / name)
            seen = {name: page_pictures.take_picture(page, PICTURES / f"{name}.png")
                    for name, page in pages.items()}
        for name in ("report-file", "report-mail"):
            self.assertEqual(seen[name].title, "Norvyn Password Expiration Report")
            self.assertEqual([width > 100 for _, width in seen[name].images], [True])
            self.assertIn("zo\u00eb.m\u00fcller", seen[name].text)
        self.assertIn("Dear Zo\u00eb M\u00fcller,", seen["warning-mail"].text)

    def test_plain_logs(self):
        stamp = r'"[ \d]\d/\d\d/\d{4} [ \d]\d:\d\d:\d\d"'
        soon = self.site.read("logfiles/norvyn-expiring-soon.log").splitlines()
        self.assertEqual(soon[0], '"Date of Run","Username","Email","Days before expiration"')
        expected = {name: row[3] for name, row in UPCOMING.items()}
        expected.update({name: 60 - age for name, age in EXPIRED.items()})
        self.assertEqual(sorted(re.sub(stamp, "TIME", line) for line in soon[1:]), sorted(
            f'TIME,"{name}","{address_of(name)}","{left}"' for name, left in expected.items()))
        expired = self.site.read("logfiles/norvyn-expired-pw.log").splitlines()
        self.assertEqual(sorted(re.sub(stamp, "TIME", line) for line in expired), sorted(
            f'TIME,"{name}","{age}","successful"' for name, age in EXPIRED.items()))
        skipped = self.site.read("logfiles/pwexpirationskiplist.txt").splitlines()
        self.assertEqual(skipped[0], "LIST OF SKIPPED USERS")
        self.assertEqual(sorted(skipped[1:]),
                         [f"  user found in list: {name}" for name in ("ab", "twice")])

    def test_every_debug_line(self):
        text = self.site.read("logfiles/norvyn-expiration-debug.log")
        text = re.sub(r"[ \d]\d/\d\d/\d{4} [ \d]\d:\d\d:\d\d", "TIME", text)
        text = re.sub(r"listcount: \d+", "listcount: N", text)
        text = re.sub(r"(days, )\d\d:\d\d:\d\d", r"\1CLOCK", text)
        text = re.sub(r"uptime \(in seconds\): \d+", "uptime (in seconds): N", text)
        rule = "-" * 27 + "\n"
        head, *slots = re.split(rule + r"Policy(\d+) Settings\n" + rule, text)
        wide = "-" * 80 + "\n"
        self.assertEqual(head, (
            "   Email enabled for length based policies.\n   policy0 applies to Domain Users\n"
            "-begin getRootDse\n-end getRootDse\n" + wide + "| Norvyn-expiration-debug.log\n" + wide +
            "Norvyn Password Filter -  Product Version 6.2.1\n"
            "Norvyn Password Expiration Service 6.2.0 Build 2015091901 \ntimestamp: TIME\n"
            "uptime (in seconds): N\n" + wide +
            "----------------------\nDomain Policy Settings\n----------------------\n"
            "max pw age = 42\n" + rule + "Expiration Service Settings\n" + rule +
            "reportOnly = 0\ntestEmailOnly = 0\ntestEmailAddress=\nhtmllog = 1\n"
            "emailAdminReports = 1\nwarningThreshold = 14\nwarning1 = 14\nwarning2 = 7\n"
            "warning3 = 1\nlimitEmails = 0\nexpirationLastRunDay = 0\nemailAgingUsers = 1\n"
            "minLength1 = 20\tmaxAge1 = 180\nminLength2 = 0\tmaxAge2 = 0\n"
            "minLength3 = 0\tmaxAge3 = 0\nminLength4 = 0\tmaxAge4 = 0\n"
            "serviceInterval (in min) = 1440\nPOLICY ORDER\n" +
            "".join(f"  policy{slot}  maxAge={age}\n" for slot, age in (
                *((slot, 0) for slot in (14, 13, 12, 10, 9, 8, 7, 6, 5, 4, 3, 2)),
                (1, 30), (0, 60), (11, 180)))))
        order, blocks = [int(slot) for slot in slots[::2]], dict(zip(map(int, slots[::2]), slots[1::2]))
        self.assertEqual(order, [14, 13, 12, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 11])
        domain_users = [name for name in USERS if name not in ("disabled", "PC01$")]
        lines = {1: ["twice", "disabled", "PC01$"], 0: [*domain_users, "Administrator"],
                 11: ["longpass"]}
        for slot, block in blocks.items():
            opening, *users = block.split("timestamp=TIME\n")
            if slot not in lines:
                self.assertEqual(block, "max pw age = 0\nPolicy pw age=0. SKIP THIS POLICY.\n")
                continue
            self.assertEqual(opening, "  i=0, buf2=pwsentry_pro_defaultpolicy_exclude.txt\n"
                             if slot == 0 else "")
            self.assertEqual(sorted(users), sorted(debug_block(name, slot) for name in lines[slot]))

    def test_error_file_tells_why_and_keeps_no_secret(self):
        log = self.site.read("errors-norvyn-email.xml")
        self.assertIn(f"Failed when sending RCPT TO:<{REFUSED}>", log)
        self.assertIn("550 5.1.1", log)
        for file in self.site.folder.rglob("*"):
            if file.is_file() and file != self.site.password:
                self.assertNotIn(samba_ad.ADMIN_PASSWORD.encode(), file.read_bytes(), file)

    def test_registry_got_the_mailing_day_and_nothing_else(self):
        text = self.site.registry.read_bytes().decode("utf-16")
        written = f'"expirationLastRunDay"=dword:{TODAY().day:08x}\r\n'
        self.assertIn(written, text)
        for key in self.site.values:
            self.assertIn(f"[HKEY_LOCAL_MACHINE\\{key}]", text)
        self.assertEqual(self.site.registry.stat().st_mode & 0o777, 0o600)


class LaterPassTest(unittest.TestCase):
    """What a pass does when something is in its way; one small domain for all."""

    @classmethod
    def setUpClass(cls):
        cls.ad = samba_ad.SambaAd()
        cls.ad.start()
        cls.addClassCleanup(cls.ad.stop)
        cls.mail = postfix_mail.PostfixMail(domain=MAIL_DOMAIN)
        cls.mail.start()
        cls.addClassCleanup(cls.mail.stop)
        cls.ad.add_users([samba_ad.User("walter", mail=f"walter@{MAIL_DOMAIN}", given_name="Walter",
                                        surname="Weiss", password_age=59)])

    def setUp(self):
        folder = tempfile.mkdtemp(prefix="pwlapse-pass-")
        self.addCleanup(shutil.rmtree, folder)
        self.site = Site(folder, self.ad, self.mail)

    def run_site(self, *options):
        self.site.write_registry()
        return self.site.run(*options)

    def test_kerberos_and_a_day_on_which_mail_went_out(self):
        self.ad.kinit()
        self.site.directory.clear()  # the realm's own servers, with the ticket at hand
        self.site.settings["limitEmails"] = 1
        self.site.values[r"Software\Kadro\PwsentryPro"] = {"expirationLastRunDay": TODAY().day}
        done = self.run_site("--directory", f"ldap://{self.ad.uri_host}")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        rows = rows_of(self.site.read("logfiles/norvyn-expiration-report.html"),
                       "Users with upcoming password expirations:")
        self.assertEqual(rows, [["walter", "none", "1", "59", "60", "1", "no"]])
        self.assertIn("  ** Service has already sent emails today",
                      self.site.read("logfiles/norvyn-expiration-debug.log"))

    def test_directory_that_cannot_be_used(self):
        for what, change, said in (
                ("unreachable", {"uri": "ldaps://127.0.0.1:1"}, "127.0.0.1:1"),
                ("bind refused", {"bindUser": "nobody@example.test"}, "nobody@example.test"),
                ("wrong base", {"uri": f"ldaps://{self.ad.uri_host}/DC=wrong,DC=test"}, "DC=wrong")):
            with self.subTest(what):
                self.setUp()
                self.site.directory.update(change)
                (self.site.folder / "pwsentry_pro_policy1_include.txt").write_text("walter\n")
                done = self.run_site()
                self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
                self.assertRegex(done.stdout, "(?m)^FAILED: could not bind to the domain: .*" + said)
                self.assertNotIn(samba_ad.ADMIN_PASSWORD, done.stdout + done.stderr)
                self.assertIn("Could not bind to the domain.",
                              self.site.read("logfiles/norvyn-expiration-debug.log"))

    def test_input_that_cannot_be_used(self):
        registry = self.site.registry
        for what, content, said in (
                ("missing", None, f"{registry}: "),
                ("wrong at line 3", b'REGEDIT4\r\n\r\n"a"=dword:zz\r\n', f"{registry}:3: "),
                ("not a registry file", b"\x00\x01\x02", f"{registry}:1: ")):
            with self.subTest(what):
                if content is not None:
                    registry.write_bytes(content)
                done = self.site.run()
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                self.assertRegex(done.stderr, rf"\Apwlapse: {re.escape(said)}[^\n]+\n\Z")
                if content is not None:
                    self.assertEqual(registry.read_bytes(), content)
        done = subprocess.run([PROGRAM, "run", "--nonsense"], capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stdout, done.stderr.count("\n")), (2, "", 1))

    def test_a_full_disk_stops_nothing_and_halves_nothing(self):
        self.site.settings["limitEmails"] = 1
        self.site.write_registry()
        before = self.site.registry.read_bytes()
        limited = subprocess.run(
            ["bash", "-c", 'ulimit -f 1; exec "$@"', "bash", PROGRAM, "run", "--registry",
             self.site.registry, "--work-dir", self.site.folder], capture_output=True, text=True,
            timeout=PASS_SECONDS, env=self.ad.environment)  # no file above 1 KiB
        self.assertEqual(limited.returncode, 1, limited.stdout + limited.stderr)
        self.assertIn("FAILED: the report file could not be written\n", limited.stdout)
        self.assertEqual(self.site.registry.read_bytes(), before)
        self.assertEqual([file.name for file in self.site.folder.glob("site.reg.*")],
                         ["site.reg.lock"])


if __name__ == "__main__":
    unittest.main()
