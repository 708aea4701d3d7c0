"""The LDAP directory against a real domain controller and against servers that are broken.

Drives build/debug/tests/e2e/directory_probe.
"""

import pathlib
import re
import socket
import subprocess
import tempfile
import time
import unittest

import broken_ldap
import postfix_mail
import samba_ad
import site_files
from broken_ldap import BrokenLdap, entry, page_of
from rig import DEBUG, PROGRAM
from samba_ad import BASE_DN
from site_files import User

PROBE = DEBUG / "tests/e2e/directory_probe"
KEY = r"Software\Kadro\PwsentryPro\Directory"
# More than two pages.
MANY = 2100

CHANGED = str(0x20000001)  # kNetPasswordChanged
NO_OBJECT, DOWN, LOGON, FAIL = "80072030", "8007203a", "8007052e", "80004005"
EXPIRED_WORDS = ("Your Windows password has expired.\n\nYou will be prompted to change your password "
                 "prior to your next logon.")
# LDAP result codes.
NO_SUCH_ATTRIBUTE, DENIED, UNWILLING = 16, 50, 53


class Probe:
    """The program with its settings, kept in `folder` while it runs."""

    def __init__(self, folder, settings):
        self.registry = pathlib.Path(folder) / "registry.reg"
        self.content = site_files.registry_file({KEY: settings})

    def start(self, *names, environment=None, seconds=0):
        """`names`: users to expire, each when a line comes on its input."""
        self.registry.write_bytes(self.content)
        return subprocess.Popen([PROBE, self.registry, str(seconds), *names], text=True,
                                env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def run(self, *names, **options):
        """The lines that it prints, split, in a list by their first word."""
        with self.start(*names, **options) as process:
            output, _ = process.communicate("\n" * len(names), timeout=60)
        found = {"status": process.returncode}
        for line in output.splitlines():
            kind, *fields = line.split("\t")
            found.setdefault(kind, []).append(fields)
        return found


# The users of the domain whose every value is looked at.
USERS = [
    User("plain", mail="plain@example.test", given_name="Jörg", surname="O'Neil <x>", password_age=85),
    User("disabled", password_age=10, flags=0x202), User("never", password_age=20, flags=0x10200),
    User("cant", password_age=30, cant_change=True), User("must", password_age=None),
    User("COMPUTER$", password_age=40, flags=0x1000),
    User("a(b)", cn=r"Doe, J (x)*\y", mail="paren@example.test", password_age=50),
    User("Jürgen ß", mail="j@example.test", password_age=60)]


class RealDirectoryTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.ad = cls.enterClassContext(samba_ad.SambaAd())
        cls.ad.add_users([*USERS, User("reader")])
        cls.ad.add_users(User(f"many{i:04}", password_age=5) for i in range(MANY))
        cls.ad.set_max_password_age(90)
        cls.ad.set_password("reader", samba_ad.ADMIN_PASSWORD)
        cls.password_file = cls.ad.folder / "password"
        cls.password_file.write_text(samba_ad.ADMIN_PASSWORD + "\r\nnot this line\n")
        cls.ad.kinit("reader")

    def settings(self, scheme="ldaps", base="", **settings):
        given = {"uri": f"{scheme}://{samba_ad.HOST}{base}", "bindMethod": "simple",
                 "bindUser": samba_ad.ADMIN, "bindPasswordFile": self.password_file,
                 "caFile": self.ad.ca_file, **settings}
        return {k: v for k, v in given.items() if v is not None}

    def probe(self, *scheme, **settings):
        return Probe(self.ad.folder, self.settings(*scheme, **settings))

    def read_until(self, process, start):
        for line in process.stdout:
            if line.startswith(start):
                return line
        self.fail(f"the program ended with {process.wait()} before it printed {start!r}")

    def test_every_way_in_reads_the_domain(self):
        expected = {user.name: (user.flags, user.cant_change, user.password_age, user.mail,
                                user.given_name, user.surname) for user in USERS}
        reader = {"bindUser": "reader@example.test"}
        kerberos = {"bindMethod": None, "bindUser": None}
        ways = {"simple, ldaps": self.probe(**reader),
                "simple, StartTLS": self.probe("LDAP", **reader),
                "Kerberos, ldap": self.probe("ldap", **kerberos),
                "Kerberos, ldaps": self.probe("ldaps", bindMethod="GSSAPI"),
                "Kerberos, server by DNS": self.probe(uri=None, **kerberos),
                "base below the domain": self.probe(base=f"/CN=Users,{BASE_DN}", **reader)}
        for way, probe in ways.items():
            with self.subTest(way):
                found = probe.run(environment=self.ad.environment)
                self.assertNotIn("error", found)
                self.assertEqual(found["domain"], [[BASE_DN, str(site_files.file_span(90))]])
                now = site_files.file_time(time.time())
                users = {name: (int(flags), int(cannot),
                                (now - int(last)) // -site_files.file_span(1) if int(last) else None, *texts)
                         for name, flags, cannot, last, *texts in found["user"]}
                self.assertEqual({name: users.get(name) for name in expected}, expected)
                self.assertEqual(sum(name.startswith("many") for name in users), MANY)
                self.assertNotIn("warning", found)

    def test_expiry_reaches_the_directory_or_is_refused(self):
        self.ad.add_users([User("expire1", password_age=99), User("a(b)2", cn="Expire, (2)*"),
                           User("expire3")])
        self.assertEqual(self.probe().run("expire1", "a(b)2")["expired"],
                         [["expire1", "0", ""], ["a(b)2", "0", ""]])
        self.assertEqual([self.ad.pwd_last_set(name) for name in ("expire1", "a(b)2")], [0, 0])
        found = self.probe(bindUser="reader@example.test").run("expire3")
        self.assertEqual(found["expired"][0][:2], ["expire3", "5"])
        self.assertNotEqual(self.ad.pwd_last_set("expire3"), 0)

    def site(self, mail_port, names, templates=(), **settings):
        """The command of a pass over the users of a list; templates: (name, text)."""
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        for name, text in (("pwsentry_pro_policy1_include.txt", names), *templates):
            (folder / name).write_text(text)
        keys = site_files.site_registry(mail_port, emailAdminReports=0, warning1=0, warning2=0, warning3=0, **settings)
        keys[site_files.POLICIES + r"\DefaultPolicy"]["maxPasswordAge"] = 0
        keys[site_files.POLICIES + r"\Policy1"] = {
            "policyName": "Staff", "maxPasswordAge": 30, "emailWarnings": 1}
        keys[KEY] = self.settings()
        (folder / "site.reg").write_bytes(site_files.registry_file(keys))
        return [PROGRAM, "run", "--registry", folder / "site.reg", "--work-dir", folder]

    def test_manager_and_language_are_those_of_the_directory(self):
        boss = site_files.person("boss", 1, cn="Boss, The", extra={"preferredLanguage": "fr"})
        self.ad.add_users([boss, site_files.person(
            "anna", 27, manager=boss.dn(f"CN=Users,{BASE_DN}"),
            extra={"preferredLanguage": "de-AT", "displayName": "Anna Ä"})])
        mail = self.enterContext(postfix_mail.PostfixMail())
        subprocess.run(self.site(mail.port, "anna\n", [
            ("NorvynExpirationEmail.de.txt", "Subject: Bald\n\n<%displayName%>, <%domain%>, <%managerName%>"),
            ("NorvynManagerEmail.fr.txt", "Subject: Bientôt\n\n<%managerName%>: <%users%><%displayName%><%/users%>")],
            managerDays=7), check=True, capture_output=True)
        self.assertEqual(
            [(found.recipient, found.message["Subject"], found.message.get_content().strip())
             for found in mail.delivered()],
            [(f"anna@{site_files.DOMAIN}", "Bald", "Anna Ä, example.test, Given Name"),
             (f"boss@{site_files.DOMAIN}", "Bientôt", "Given Name: Anna Ä")])

    def test_a_password_that_changes_during_a_pass_is_not_expired(self):
        self.ad.add_users([User("early", password_age=40, mail="early@example.test", surname="E"),
                           User("late", password_age=40, mail="late@example.test", surname="L"),
                           User("between", password_age=40)])
        server = self.enterContext(socket.create_server(("127.0.0.1", 0)))
        command = self.site(server.getsockname()[1], "early\nlate\n")
        with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as program:
            connection, _ = server.accept()  # the mail to the first waits for the greeting
            self.ad.set_password("late", "An0ther-Passw0rd!")
            connection.sendall(b"554 no\r\n")
            connection.close()
            output, _ = program.communicate(timeout=60)
        self.assertEqual(re.findall("(?m)^FAILED: (.*)$", output), [
            "mail to early <early@example.test> was not sent: "
            f"127.0.0.1:{server.getsockname()[1]}: greeting refused: 554 no"], output)
        self.assertEqual(self.ad.pwd_last_set("early"), 0)
        self.assertNotEqual(self.ad.pwd_last_set("late"), 0)
        # Between the last reading and the write.
        with self.probe().start("between") as probe:
            self.read_until(probe, "user\tbetween")
            self.ad.set_password("between", "An0ther-Passw0rd!")
            output, _ = probe.communicate("\n")
        self.assertIn(f"expired\tbetween\t{CHANGED}\t", output)
        self.assertNotEqual(self.ad.pwd_last_set("between"), 0)

    def test_maximum_ages_are_those_of_the_directory(self):
        """300 users, each ten minutes to one side of a border between two days."""
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        mail = self.enterContext(postfix_mail.PostfixMail())
        users = {kind: [site_files.person(f"{kind}{n}", days - 0.5 - (n // 2 - 8) + (n % 2 * 1200 - 600) / 86400)
                        for n in range(60)]
                 for kind, days in [("domain", 90), ("single", 30), ("group", 45), ("tied", 20), ("endless", 60)]}
        names = {kind: [user.dn(f"CN=Users,{BASE_DN}") for user in some] for kind, some in users.items()}
        self.ad.add_users(user for some in users.values() for user in some)
        self.ad.add_group("Inner", names["group"][30:])
        self.ad.add_group("Outer", [*names["group"][:30], *names["single"], f"CN=Inner,CN=Users,{BASE_DN}"])
        for kind in "tied", "endless":
            self.ad.add_group(kind.title(), names[kind])
        tied, endless, outer = (f"CN={group},CN=Users,{BASE_DN}" for group in ("Tied", "Endless", "Outer"))
        for settings in [("Single", 50, 30, names["single"]), ("Group", 10, 45, [outer, endless]),
                         ("TiedA", 5, 20, [tied]), ("TiedB", 5, 25, [tied]), ("Endless", 1, 0, [endless])]:
            self.ad.add_password_settings(*settings)
        keys = site_files.site_registry(mail.port, emailAdminReports=0, warning1=0, warning2=0, warning3=0)
        keys[site_files.POLICIES + r"\DefaultPolicy"] |= {"useDirectoryPolicy": 1, "maxPasswordAge": 1}
        keys[KEY] = self.settings(bindUser="reader@example.test")
        (folder / "site.reg").write_bytes(site_files.registry_file(keys))
        (folder / "NorvynExpirationEmail.txt").write_text("<%daysUntilExpiration%> days")
        (folder / "pwsentry_pro_defaultpolicy_exclude.txt").write_text("plain\n")  # no address of the site
        command = [PROGRAM, "run", "--registry", folder / "site.reg", "--work-dir", folder]
        done = subprocess.run(command, stdout=subprocess.PIPE, text=True)
        self.assertEqual(done.returncode, 0, done.stdout)

        now, day = site_files.file_time(time.time()), -site_files.file_span(1)
        time_name = "msDS-UserPasswordExpiryTimeComputed"
        records = self.ad.read("user", "sAMAccountName", time_name).split("\n\n")
        objects = [dict(re.findall("(?m)^([^ :]+): (.*)$", record)) for record in records]
        times = {found.get("sAMAccountName"): int(found[time_name]) for found in objects if time_name in found}
        left = {user.name: -((now - times[user.name]) // day) for some in users.values() for user in some
                if times[user.name] < 2**63 - 1}
        self.assertEqual(len(left), 240)
        due = {name: days for name, days in left.items() if days <= 14}
        self.assertEqual(
            {message.recipient: message.message.get_content().strip() for message in mail.delivered()},
            {f"{name}@{site_files.DOMAIN}": f"{days} days" if days > 0 else EXPIRED_WORDS
             for name, days in due.items()})
        expired = {name for name, days in due.items() if days <= 0}
        self.assertRegex(done.stdout, rf"already expired +{len(expired)}\n")
        self.assertFalse([name for name in expired if self.ad.pwd_last_set(name) == 0])
        # A file without the computed attribute comes to the same.
        soon = folder / "logfiles/norvyn-expiring-soon.log"
        rows = re.compile('(?m)"([^"]*)","[^"]*","(-?[0-9]+)"$')
        by_server = rows.findall(soon.read_text())
        soon.unlink()
        (folder / "domain.ldif").write_text("".join(
            self.ad.read(kind) for kind in ("domainDNS", "user", "group", "msDS-PasswordSettings")))
        keys[site_files.SETTINGS]["reportOnly"] = 1
        (folder / "site.reg").write_bytes(site_files.registry_file(keys))
        subprocess.run([*command, "--directory", f"ldif:{folder}/domain.ldif"], stdout=subprocess.PIPE)
        self.assertEqual(sorted(rows.findall(soon.read_text())), sorted(by_server))

    def test_a_dropped_connection_is_made_anew_for_an_expiry(self):
        self.ad.add_users([User("dropped1"), User("dropped2")])
        with self.probe().start("dropped1", "dropped2") as probe:
            self.read_until(probe, "user\tdropped2")
            self.ad.stop_server()
            try:
                probe.stdin.write("\n")
                probe.stdin.flush()
                lost = self.read_until(probe, "expired")
            finally:
                self.ad.run_server()
            output, _ = probe.communicate("\n")
        self.assertIn("expired\tdropped1\t2453\t", lost)
        self.assertIn("expired\tdropped2\t0\t\n", output)
        self.assertEqual(self.ad.pwd_last_set("dropped2"), 0)

    def test_what_cannot_be_is_one_line(self):
        wrong = self.ad.folder / "wrong"
        wrong.write_text("not the password\n")
        empty = self.ad.folder / "empty"
        empty.write_text("\n")
        for probe, status, text in [
                (self.probe(bindPasswordFile=wrong), LOGON, "refused: wrong user name or password (52e)"),
                (self.probe(bindUser="nobody@example.test"), LOGON, "nobody@example.test"),
                (self.probe(bindPasswordFile="/no/such"), LOGON, "/no/such: No such file"),
                (self.probe(bindPasswordFile=empty), LOGON, f"{empty}: its first line is empty"),
                (self.probe(base="/OU=None,DC=example,DC=test"), NO_OBJECT, "OU=None"),
                (self.probe(base="/DC=other,DC=test"), NO_OBJECT, "DC=other"),
                (self.probe(uri="ldaps://localhost:1"), DOWN, "localhost:1: connection refused"),
                (self.probe(uri="ldap://no-such-host.invalid"), DOWN, "no-such-host.invalid:389: name not found"),
                # Its authority is not one that this system trusts, or the name is not the server's.
                (self.probe(caFile=None), DOWN, f'{samba_ad.HOST}:636: TLS: the server\'s certificate was issued by "CN=Test authority"'),
                (self.probe("ldap", caFile=None), DOWN, "the password was not sent"),
                (self.probe(uri="ldaps://127.0.0.1"), DOWN, f"is for {samba_ad.HOST}, not for 127.0.0.1"),
                (self.probe(caFile="/no/such"), FAIL, "authorities /no/such: No such file"),
                (self.probe("ldap", bindMethod="gssapi"), LOGON, "Kerberos bind")]:
            with self.subTest(text):
                found = probe.run(environment=dict(self.ad.environment, KRB5CCNAME="FILE:/none"))
                self.assertEqual((found["status"], found["error"][0][0]), (1, status), found)
                self.assertIn(text, found["error"][0][1])
                self.assertNotIn(samba_ad.ADMIN_PASSWORD, found["error"][0][1])

    def test_no_password_goes_over_a_plain_connection(self):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            uri = f"ldap://127.0.0.1:{listener.getsockname()[1]}"
            with self.probe(uri=uri).start() as probe:
                peer, _ = listener.accept()
                with peer, peer.makefile("rb") as rest:
                    received = peer.recv(4096)
                    peer.sendall(broken_ldap.message(1, broken_ldap.result(0x78, 2)))
                    received += rest.read()
                output, _ = probe.communicate()
        self.assertRegex(output, f"^error\t{DOWN}\t.*the password was not sent")
        self.assertNotIn(samba_ad.ADMIN_PASSWORD.encode(), received)


class BrokenServerTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.folder / "password").write_text("secret\n")

    def run_probe(self, server, *names):
        with server:
            return Probe(self.folder, {
                "uri": server.uri, "bindMethod": "simple", "bindUser": "u",
                "bindPasswordFile": self.folder / "password"}).run(*names, seconds=1)

    def test_values_that_cannot_be_spare_their_neighbours(self):
        faults = {
            "CN=nameless": {"mail": "m"},
            "CN=word": {"sAMAccountName": "word", "pwdLastSet": "soon"},
            "CN=huge": {"sAMAccountName": "huge", "pwdLastSet": "9" * 40},
            "CN=flags": {"sAMAccountName": "flags", "userAccountControl": "99999999999"},
            "CN=lines": {"sAMAccountName": "two\nlines"},
        }
        good = {"userAccountControl": "514", "pwdLastSet": "0", "nTSecurityDescriptor": b"\x01" + bytes(19)}
        pages = [
            page_of(entry("CN=first", sAMAccountName="first", **{**good, "nTSecurityDescriptor": b"\1\xff"}),
                    broken_ldap.reference("ldap://elsewhere/DC=y"),
                    *(entry(dn, **values) for dn, values in faults.items()), cookie=b"same"),
            # Servers may use one cookie throughout, and give a page without an entry.
            page_of(cookie=b"same"),
            page_of(entry("CN=last", sAMAccountName="last", mail="x" * 1_000_000, sn=b"\xff", **good),
                    entry("CN=bare", sAMAccountName="bare"))]
        found = self.run_probe(BrokenLdap(pages))
        self.assertEqual([(name, flags, len(mail), surname)
                          for name, flags, _, _, mail, _, surname in found["user"]],
                         [("first", "514", 0, ""), ("last", "514", 1_000_000, "ÿ"),
                          ("bare", "0", 0, "")])
        self.assertEqual(found["domain"], [["DC=x", "-600000000"]])
        self.assertEqual([warning[0].split(":")[0] for warning in found["warning"]],
                         ["CN=first", *faults, "1 users without userAccountControl, pwdLastSet or "
                                   "nTSecurityDescriptor"])

    def test_a_server_that_does_not_exchange_a_value(self):
        """It is asked to once; then each write is a plain one, right behind a read."""
        head = entry("DC=x", defaultNamingContext="DC=x", maxPwdAge="-600000000", pwdLastSet="7")
        users = [entry(f"CN={name}", sAMAccountName=name, pwdLastSet=time)
                 for name, time in [("one", "7"), ("two", "7"), ("changed", "8")]]
        for codes, answers, changes in [
                ((UNWILLING, 0, 0), ["0", "0", CHANGED], [2, 1, 1]),
                ((NO_SUCH_ATTRIBUTE, 0, 0), ["0", "0", CHANGED], [2, 1, 1]),
                ((NO_SUCH_ATTRIBUTE, DENIED, 0, NO_SUCH_ATTRIBUTE), ["5", "0", CHANGED], [2, 1, 2, 2]),
                ((DENIED, 0, 0), ["5", "0", "0"], [2, 2, 2]),
                # It hangs up, once over each connection; then it is not asked any more.
                ((), ["2453", "2453", "2453"], [2, 2, 2])]:
            with self.subTest(codes):
                server = BrokenLdap([page_of(*users)], head=head, modify=codes)
                found = self.run_probe(server, "one", "two", "changed")
                self.assertEqual([status for _, status, _ in found["expired"]], answers)
                self.assertEqual(server.changes, changes)

    def test_a_server_that_stops_before_tls_is_given_up(self):
        site_files.make_certificates(self.folder, "localhost")
        with socket.create_server(("127.0.0.1", 0)) as silent:  # accepts, by the system, and no more
            for scheme in "ldaps", "ldap":
                found = Probe(self.folder, {
                    "uri": f"{scheme}://127.0.0.1:{silent.getsockname()[1]}", "bindMethod": "simple",
                    "bindUser": "u", "bindPasswordFile": self.folder / "password",
                    "caFile": self.folder / "self.pem"}).run(seconds=1)
                self.assertEqual(found["error"][0][0], DOWN)
                self.assertIn("timed out", found["error"][0][1])

    def test_a_server_that_misbehaves_is_given_up(self):
        user = entry("CN=u", sAMAccountName="u")
        endless = page_of(user, cookie=b"c")
        empty = page_of(cookie=b"c")

        def raw(data):
            return lambda _: data

        def part(number):
            return broken_ldap.message(number, user)

        for name, server, status, text in [
                ("same page", BrokenLdap([endless] * 9), FAIL, "the same page again"),
                ("no entries", BrokenLdap([empty] * 200), FAIL, "page after page without an entry"),
                ("overfull", BrokenLdap([page_of(*[user] * 1001, cookie=b"c")]), FAIL,
                 "more entries than a page holds"),
                ("refused", BrokenLdap([page_of(code=50)]), LOGON, "Insufficient access"),
                ("cut short", BrokenLdap([page_of(user, cookie=b"c"), page_of(code=4)]), FAIL,
                 "Size limit exceeded"),
                ("referral", BrokenLdap([page_of(code=broken_ldap.REFERRAL)]), NO_OBJECT, "Referral"),
                ("silent", BrokenLdap([part]), DOWN, "Timed out"),
                ("hangs up", BrokenLdap([part, None]), DOWN, ""),
                ("garbage", BrokenLdap([raw(b"HTTP/1.1 400 Bad Request\r\n\r\n")]), None, ""),
                ("made-up length", BrokenLdap([raw(b"\x30\x84\x7f\xff\xff\xff")]), None, ""),
                ("silent at bind", BrokenLdap([], bind=raw(b"")), DOWN, ""),
                ("no directory", BrokenLdap([], head=entry("", vendorName="x")), NO_OBJECT,
                 "no defaultNamingContext")]:
            with self.subTest(name):
                found = self.run_probe(server)
                self.assertEqual((found["status"], len(found.get("error", []))), (1, 1), found)
                if status is not None:
                    self.assertEqual(found["error"][0][0], status, found)
                self.assertIn(text, found["error"][0][1])
