"""The service as a Windows program: installed under Wine's service manager, configured in its registry,
a whole pass over Winsock and Schannel to a real mail server, pause in the middle of a pass, and removal.
ADSI and the network user functions are stand-ins that answer from an LDIF file and record each call; the
program itself is the one that is delivered. What it leaves behind is compared with a pass on this system.
"""
import base64
import collections
import contextlib
import datetime
import json
import pathlib
import re
import shutil
import socket
import ssl
import subprocess
import tempfile
import threading
import time
import unittest

import sample_site
import site_files
import wine_prefix
from postfix_mail import PostfixMail
from rig import PROGRAM, WAIT_SECONDS, WINDOWS, wait_until
from sample_site import REFUSED, comparable
from site_files import ADMIN_MAIL, person, site_registry

SERVICE = "NRVPasswordExpiration"
SERVICES = r"HKLM\SYSTEM\CurrentControlSet\Services"
SERVICE_KEY = rf"{SERVICES}\{SERVICE}"
EVENT_SOURCE = rf"{SERVICES}\EventLog\Application\{SERVICE}"
DAY_KEY = r"Software\Kadro\PwsentryPro"
PRODUCT_KEY = r"SYSTEM\CurrentControlSet\Control\ProductOptions"
CODE_PAGE = "cp1252"  # the ANSI code page of the prefix
SILENCE_SECONDS = 1  # of a worker that is suspended

STOP, PAUSE, CONTINUE = 1, 2, 3  # controls
STOPPED, RUNNING, PAUSED = b"1", b"4", b"7"
USAGE = f"{SERVICE} -install          install service\n{SERVICE} -remove           remove service\n"

TEMPLATE = "<html><p>Gr\u00fc\u00dfe, <%firstName%>: <%username%> has <%daysUntilExpiration%> days.</p></html>\n"
USERS = {name: sample_site.USERS[name] for name in (
    "outside", "warned", "quiet", "expired", "disabled", "never", "cannot", "nomail", "refused",
    "zo\u00eb.m\u00fcller")}

# Every call of a pass that differs from the others; how often and in which order is the same on every
# system, and tested there.
CALLS = (pathlib.Path(__file__).parent / "wine/calls_of_a_pass.txt").read_text().splitlines()


class Machine(unittest.TestCase):
    """A Windows machine, a domain controller, with the program in a folder of its own."""
    STAND_INS = ("netapi32.dll", "activeds.dll")

    @classmethod
    def setUpClass(cls):
        cls.windows = cls.enterClassContext(wine_prefix.WinePrefix())
        cls.folder = cls.windows.drive / "B\u00fcro 1"
        cls.folder.mkdir()
        for file in ("service/pwLapseSvc.exe", "console/pwlapse.exe", "tests/e2e/wine/control_service.exe"):
            shutil.copy(WINDOWS / file, cls.folder)
        # The stand-ins are where the system's DLLs are, and find their files there.
        cls.system = cls.windows.system_folder
        for name in cls.STAND_INS:
            shutil.copy(WINDOWS / "tests/e2e/wine" / name, cls.system)
        cls.windows.record_events()
        # A DLL beside the program, which no program could be started with, is not loaded.
        for name in wine_prefix.DLLS_LIKE_THE_SYSTEMS:
            (cls.folder / f"{name}.dll").write_text("planted")
        cls.logs = cls.system / "LogFiles"

    @classmethod
    def prepare(cls, users, keys):
        (cls.system / "domain.ldif").write_text(site_files.domain_ldif(users))
        for name in "calls.log", "fault.txt":
            (cls.system / name).unlink(missing_ok=True)
        shutil.rmtree(cls.logs, ignore_errors=True)
        (cls.system / "NorvynExpirationEmail.html").write_text(TEMPLATE, CODE_PAGE)
        cls.windows.run("reg", "delete", "HKLM\\" + site_files.POLICIES, "/f")
        cls.windows.import_registry({PRODUCT_KEY: {"ProductType": "LanmanNT"}, **keys})

    @classmethod
    def program(cls, *arguments):
        done = cls.windows.run(cls.folder / "pwLapseSvc.exe", *arguments)
        return done.returncode, done.stdout.decode(CODE_PAGE).replace("\r\n", "\n")

    @classmethod
    def control(cls, control=0):
        return cls.windows.run(cls.folder / "control_service.exe", SERVICE, control).stdout.strip()

    @classmethod
    def wait_for_report(cls):
        file = cls.logs / "Norvyn-expiration-report.html"
        wait_until(lambda: file.exists() and file.read_bytes().endswith(b"</body></html>"))

    @classmethod
    def calls(cls):
        return (cls.system / "calls.log").read_text("utf-8").splitlines()

    def assert_released(self):
        calls = self.calls()
        for kind in "object", "search", "rows", "column":
            self.assertEqual(calls.count("+ " + kind), calls.count("- " + kind), kind)
        freed = [line for line in calls if line.startswith("NetApiBufferFree")]
        self.assertEqual(freed[-1:], ["NetApiBufferFree 0 left"] if freed else [])

    def assert_gone(self):
        self.assertEqual(self.control(), b"error 1060")  # no such service
        for key in SERVICE_KEY, EVENT_SOURCE:
            self.assertFalse(self.windows.key_exists(key), key)


class FirstPassTest(Machine):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        scratch = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        site_files.make_certificates(scratch, "127.0.0.1")
        cls.mail = cls.enterClassContext(
            PostfixMail(refused=REFUSED, tls=(scratch / "self.pem", scratch / "self.key")))
        keys = site_registry(cls.mail.port, smtpStartTls=1, emailSubject="Kennwort l\u00e4uft ab")
        cls.prepare(USERS.values(), keys)
        cls.installed = cls.program("-install")
        cls.wait_for_report()
        cls.running = cls.control()
        cls.image_path = cls.windows.run("reg", "query", SERVICE_KEY, "/v", "ImagePath").stdout
        cls.start_type = cls.windows.registry_value(SERVICE_KEY, "Start")
        cls.mailing_day = cls.windows.registry_value(
            "HKLM\\" + DAY_KEY, "expirationLastRunDay")
        cls.delivered = cls.mail.delivered()
        cls.messages = cls.windows.run("reg", "query", EVENT_SOURCE).stdout
        cls.stopped = cls.control(STOP)
        cls.here = cls.pass_on_this_system(scratch / "here", keys)

    @staticmethod
    def pass_on_this_system(folder, keys):
        folder.mkdir()
        (folder / "NorvynExpirationEmail.html").write_text(TEMPLATE)
        subprocess.run([PROGRAM, "run", *site_files.write_site(folder, USERS.values(), keys)],
                       timeout=WAIT_SECONDS, capture_output=True, check=False)
        return folder

    def test_installation_starts_it_and_the_pass_leaves_its_day(self):
        name = "Norvyn Password Expiration Service"
        self.assertEqual(self.installed, (0, f"{name} installed.\n{name} started.\n"))
        self.assertEqual(self.running, RUNNING)
        self.assertEqual(self.start_type, "0x2")
        # In quotes: without, a program "C:\Büro" would be started.
        self.assertRegex(self.image_path, rb' "C:\\B.ro 1\\pwLapseSvc.exe"\r\n')
        self.assertEqual(self.mailing_day, hex(datetime.date.today().day))

    def test_mails_go_out_over_tls(self):
        warnings = [mail for mail in self.delivered if mail.recipient != ADMIN_MAIL]
        mailed = sample_site.mailed(USERS)
        self.assertEqual(sorted(mail.recipient for mail in warnings), sorted(mailed))
        for mail in warnings:
            user = mailed[mail.recipient]
            self.assertIn("with ESMTPS", mail.message["Received"])
            self.assertEqual(mail.message["Subject"], "Kennwort l\u00e4uft ab")
            self.assertIn(f"Gr\u00fc\u00dfe, {user.given_name}: {user.name} has 7 days.",
                          mail.message.get_content())
        self.assertEqual(len(self.delivered), len(warnings) + 1)

    def test_calls_have_their_flags_and_levels(self):
        names = "|".join(sorted(USERS, key=len, reverse=True))
        lines = [line if line.startswith("NetUserSetInfo") else re.sub(f"=({names})\\b", "=NAME", line)
                 for line in self.calls() if line[0] not in "+-"]
        self.assertEqual(list(dict.fromkeys(lines)), CALLS)
        self.assert_released()

    def test_files_are_those_of_a_pass_on_this_system(self):
        there = {file.name.lower(): file.read_bytes() for file in self.logs.iterdir()}
        here = {file.name: file.read_bytes() for file in (self.here / "logfiles").iterdir()}
        self.assertEqual((len(there), set(there)), (6, set(here)))
        records = [json.loads(files.pop("norvyn-last-run.json")) for files in (there, here)]
        for member in "outcomes", "lines", "mailsSent", "problems":
            self.assertEqual(records[0][member], records[1][member], member)
        report = "norvyn-expiration-report.html"
        self.assertEqual(comparable(there.pop(report).decode("ascii")),
                         comparable(here.pop(report).decode("ascii")))
        for name, text in there.items():
            self.assertEqual(text.count(b"\n"), text.count(b"\r\n"), name)
            self.assertEqual(comparable(text.decode(CODE_PAGE).replace("\r\n", "\n")),
                             comparable(here[name].decode()), name)
        self.assertEqual((self.system / "norvyn-report-logo.gif").read_bytes(),
                         (self.here / "norvyn-report-logo.gif").read_bytes())
        self.assertIn(REFUSED, (self.system / "errors-norvyn-email.xml").read_text("utf-8"))

    def test_stops_and_leaves_nothing(self):
        self.assertEqual(self.stopped, STOPPED)
        self.assertRegex(self.messages, rb'(?s)REG_SZ +C:\\B.ro 1\\pwLapseSvc.exe\r.*TypesSupported +REG_DWORD +0x7\r')
        events = (self.system / "events.log").read_text(CODE_PAGE).splitlines()
        self.assertEqual(events[0], "4 1 The service has started.")
        self.assertRegex("\n".join(events[1:-1]), r"\A2 11 pass over [^\n|]+ 1 problem; the next pass is in "
                         rf"24 h\|[^\n]*FAILED: mail to [^\n]+ was not sent: [^\n|]+\|\Z")
        self.assertEqual(events[-1], "4 2 The service has stopped.")
        self.assertEqual(self.program("-REMOVE"), (0, "Service successfully removed.\n"))
        self.assert_gone()


class ControlTest(Machine):
    def test_what_is_refused(self):
        # Outside the service manager. Of the exit status this system keeps the low bits.
        self.assertEqual(self.program("-x"), (
            1063 & 0xFF, USAGE + "In StartServiceCtrlDispatcherError number: 1063\n"))
        # A path that the code page cannot represent is not registered as a similar one.
        (folder := self.windows.drive / "\u0141").mkdir()
        shutil.copy(WINDOWS / "service/pwLapseSvc.exe", folder)
        done = self.windows.run(folder / "pwLapseSvc.exe", "-install")
        self.assertRegex(done.stdout, rb"\AUnable to install [^\n]+ - \w[^\n]+ \(0x459\)\r\n\Z")
        self.assert_gone()
        # No other directory than the domain or a file.
        done = self.windows.run(self.folder / "pwlapse.exe", "run", "--directory", "ldap://dc.site.example")
        self.assertEqual((done.returncode, done.stdout), (2, b""))
        self.assertRegex(done.stderr, rb'\Apwlapse: directory URI: "ldap://dc.site.example" is not ldif:[^\n]+\r\n\Z')

    def test_a_dll_beside_the_program_is_not_loaded(self):
        (folder := self.windows.drive / "planted").mkdir()
        shutil.copy(WINDOWS / "console/pwlapse.exe", folder)
        for name, said, *arguments in (
                ("crypt32", rb"secret is written", "protect-secret", "secret"), ("dnsapi", rb"no mail exchanger", "mx", "x"),
                ("winhttp", rb"\(WinHTTP error 12029\)", "check", "--only", "mail", "--set", "smtpAuthMethod=XOAUTH2",
                 "--set", "oauthTokenUrl=https://127.0.0.1:1/", "--set", "oauthClientId=x",
                 "--set", "oauthClientSecretFile=secret", "--set", "smtpServer=x", "--set", "smtpUsername=x", "--set", "smtpStartTls=1")):
            (planted := folder / f"{name}.dll").write_text("planted")
            done = self.windows.run(folder / "pwlapse.exe", *arguments, given=b"password\n", cwd=folder)
            self.assertRegex(done.stdout + done.stderr, said)
            planted.unlink()

    def test_redirected_output_is_in_the_code_page_of_the_console(self):
        keys = {site_files.POLICIES + r"\DefaultPolicy": {"policyName": "B\u00fcro", "maxPasswordAge": 60}}
        (self.folder / "site.reg").write_bytes(site_files.registry_file(keys))
        for page, codec in (437, "cp437"), (1252, "cp1252"), (932, "cp932"), (65001, "utf-8"):
            with self.subTest(page):
                self.windows.run_in_console(
                    "cmd", "/c", f"chcp {page} & pwlapse.exe policies --registry site.reg > out.txt",
                    cwd=self.folder)
                name = re.search(rb"POLICY NAME: ([^\r]+)\r\n", (self.folder / "out.txt").read_bytes())[1]
                self.assertEqual(name, "B\u00fcro".encode(codec, "replace"))

    def test_pause_in_the_middle_of_a_mail(self):
        users = person("walter", 59), person("lukasz", 20), person("\u0142ukasz", 65)
        with socket.create_server(("127.0.0.1", 0)) as server:
            server.settimeout(WAIT_SECONDS)
            self.prepare(users, site_registry(
                server.getsockname()[1], emailAdminReports=0, expirationServiceTime="25:00"))
            before = (self.system / "domain.ldif").read_text()
            self.program("/install")
            connection, _ = server.accept()
            with connection:  # the worker waits for the greeting
                self.assertEqual(self.control(PAUSE), PAUSED)
                connection.sendall(b"220 ready\r\n")
                connection.settimeout(SILENCE_SECONDS)
                with self.assertRaises(TimeoutError):
                    connection.recv(1)
                self.assertEqual(self.control(CONTINUE), RUNNING)
                connection.settimeout(WAIT_SECONDS)
                self.assertEqual(connection.recv(4), b"EHLO")
        self.wait_for_report()
        # A name that the code page cannot represent does not become a similar one.
        self.assertEqual((self.system / "domain.ldif").read_text(), before)
        self.assertIn("NetUserGetInfo server=null level=3 user=?ukasz -> 2221", self.calls())
        self.assertEqual(self.program("-remove"),
                         (0, "Stopping service...\nService successfully removed.\n"))
        wait_until(lambda: self.control() == b"error 1060")
        self.assert_gone()
        events = (self.system / "events.log").read_text(CODE_PAGE)
        self.assertRegex(events, r"1 20 FAILED: [^\n]+expirationServiceTime[^\n]+\n(.*\n)*1 22 FAILED: [^\n]+\n2 11 pass")

    def test_works_in_a_folder_of_its_own(self):
        work = self.windows.drive / "Work Folder"
        (log := self.system / "events.log").unlink(missing_ok=True)
        self.prepare([person("walter", 20)], site_registry(1, emailAdminReports=0))
        self.assertEqual(self.program("-install", "--Work-Folder", r"C:\Work Folder")[1].count("\n"), 2)
        wait_until(lambda: list(work.glob("LogFiles/*last-run.json")))
        status = self.windows.run(self.folder / "pwlapse.exe", "status", cwd=self.folder)
        self.assertRegex(status.stdout, rb"last pass")
        self.assertFalse(self.logs.exists())
        lock = work / "pwsentry_pro_domain_users.txt.lock"
        for fault, spoil, events in (
                ("", lambda: None, r"\A4 1 .*\n4 10 pass over 1 line in 1 list, [^\n|]+; the next pass is in 24 h\n"),
                ("ADsOpenObject", lambda: None, r"\A4 1 .*\n1 21 FAILED: could not bind [^\n|]+\n(.+\n)*2 11 pass"),
                ("", lambda: lock.unlink() or lock.mkdir(), r"\A4 1 .*\n1 12 FAILED: no pass [^\n|]+lock: Permission denied\n")):
            with self.subTest(events):
                self.control(STOP)
                log.unlink()
                (self.system / "fault.txt").write_text(fault)
                spoil()
                self.windows.run("sc", "start", SERVICE)
                wait_until(lambda: log.exists() and re.search(events, log.read_text(CODE_PAGE)))
        self.program("-remove")
        wait_until(lambda: self.control() == b"error 1060")
        self.assert_gone()

    def test_every_failure_releases_everything(self):
        why = {"ADsOpenObject": rb"FAILED: [^\n]+: \w[^\n]+\w \(0x80004005\)",
               "NetUserGetInfo": rb"note: the directory's search and the account calls differ about walter",
               "NetUserSetInfo": rb"FAILED: [^\n]+ expired: \w[^\n]+\w \(error 5\)"}
        self.prepare([person("walter", 59), person("expired", 65), person("other", 1)], site_registry(1))
        for call in ("NetUserSetInfo", None, "ADsGetObject", "ADsOpenObject", "Get", "SetSearchPreference",
                     "ExecuteSearch", "GetNextRow", "GetColumn", "QueryInterface", "properties",
                     "NetUserGetInfo", "NetUserModalsGet"):
            with self.subTest(call):
                (self.system / "calls.log").unlink(missing_ok=True)
                (self.system / "fault.txt").write_text(call or "")
                done = self.windows.run(self.folder / "pwlapse.exe", "run", cwd=self.folder)
                self.assertEqual((done.returncode, done.stderr), (1, b""))  # no mail server is there
                self.assertRegex(done.stdout, why.get(call, b"."))
                self.assert_released()


    def test_one_search_stands_for_the_account_calls(self):
        """For users who are not due. What the pass does and says is the same without it."""
        users = [*(person(f"user{age}", age) for age in range(30, 66)), person("mustchange", None),
                 *(sample_site.USERS[name] for name in ("disabled", "never", "cannot", "PC01$"))]
        calls, left = [], []
        for product in "LanmanNT", "ServerNT":
            keys = site_registry(1, warning1=0, warning2=0, warning3=0, emailAdminReports=0)
            keys |= {PRODUCT_KEY: {"ProductType": product}, DAY_KEY: {"expirationLastRunDay": 0}}
            self.prepare(users, keys)
            shutil.rmtree(self.folder / "LogFiles", ignore_errors=True)
            self.windows.run(self.folder / "pwlapse.exe", "run", cwd=self.folder)
            calls.append(collections.Counter(re.findall(r"NetUserGetInfo .* user=(\S+)", "\n".join(self.calls()))))
            left.append({file.name.lower(): comparable(file.read_text(CODE_PAGE))
                         for file in (self.folder / "LogFiles").iterdir()})
            self.assert_released()
            records = json.loads(left[-1].pop("norvyn-last-run.json"))
            left[-1].update({member: records[member] for member in ("outcomes", "lines", "problems")})
        self.assertEqual(left[0], left[1])
        self.assertIn("outside period", str(left[0]["outcomes"]))
        due = {"never": 1, "cannot": 1, "mustchange": 2, **{f"user{age}": 2 for age in range(46, 60)},
               **{f"user{age}": 3 for age in range(60, 66)}}
        self.assertEqual(calls[1], {**{f"user{age}": 2 for age in range(30, 46)}, **due})
        self.assertEqual(calls[0], {**due, "user65": 4})  # by which search and calls are compared

    def test_questions_are_answered_and_change_nothing(self):
        boss = person("other", 1, extra={"preferredLanguage": "de"})
        self.prepare([person("walter", 59, manager=boss.dn("DC=site,DC=example")), boss], site_registry(1))
        (self.folder / "NorvynManagerEmail.de.txt").write_text("Subject: Team\n\n<%managerName%>, <%domain%>")
        shutil.rmtree(self.folder / "LogFiles", ignore_errors=True)
        shutil.copy(self.system / "NorvynExpirationEmail.html", self.folder)
        before = sorted(self.folder.iterdir())
        for question, status, said in (
                ("check --only settings,templates", 0, rb"Settings\r\n  ok     "),
                ("list", 0, rb"USER +POLICY +AGE .*\r\nwalter +DefaultPolicy +59 "),
                ("explain walter", 0, rb"walter: "), ("preview walter", 0, rb"Today: +would be mailed, DefaultPolicy: "),
                ("preview walter --manager", 0, rb"(.+\n)+Subject: +Team\r\n(.+\n)+\r\nGiven Name, site.example\r\n"),
                ("forecast", 0, rb"passwords that reach their maximum age: 2 in 90 days"),
                ("status", 2, rb"CRITICAL: no pass is recorded here"), ("run --dry-run", 0, rb"A dry run: nothing is mailed")):
            with self.subTest(question):
                done = self.windows.run(self.folder / "pwlapse.exe", *question.split(), cwd=self.folder)
                self.assertEqual((done.returncode, done.stderr), (status, b""), done.stdout)
                self.assertRegex(done.stdout, rb"\A" + said)
        self.assertEqual(sorted(self.folder.iterdir()), before)
        self.assertNotIn("NetUserSetInfo", "".join(self.calls()))
        self.assert_released()
        # Only a file in UTF-16 is taken right by the system's own tools.
        self.windows.run(self.folder / "pwlapse.exe", "init", "new.reg", "--mail-server", "mail", "--sender",
                         "B\u00fcro <a@b.example>", "--administrator", "a@b.example", cwd=self.folder)
        self.windows.run("reg", "import", "new.reg", cwd=self.folder)
        imported = self.windows.run("reg", "query", "HKLM\\" + site_files.SETTINGS, "/v", "emailFromAddress").stdout
        self.assertIn("B\u00fcro <a@b.example>".encode("cp437"), imported)

    def test_times_of_expiry_come_by_one_search(self):
        """And by one for each user who is due, when the account is read again."""
        def in_days(days):
            return site_files.file_time(time.time() + days * 86400)

        keys = site_registry(1, warning1=0, warning2=0, warning3=0, emailAdminReports=0)
        keys[site_files.POLICIES + r"\DefaultPolicy"]["useDirectoryPolicy"] = 1
        keys[PRODUCT_KEY] = {"ProductType": "ServerNT"}
        self.prepare([person("due", 20, expires=in_days(3.5)), person("later", 20, expires=in_days(40)),
                      person("never", 20, expires=2**63 - 1), person("unsaid", 20)], keys)
        (self.system / "fault.txt").write_text("NetUserModalsGet")  # the domain's maximum age
        done = self.windows.run(self.folder / "pwlapse.exe", "run", cwd=self.folder)
        for line in (rb"outside period +1\r", rb"mail failed +1\r", rb"skipped +2\r",
                     rb"note: [^\r]+ the passwords of 1 user expire [^\r]+ they are left out"):
            self.assertRegex(done.stdout, line)
        users, one = "(&(objectCategory=person)(objectClass=user)", "(sAMAccountName=due)"
        self.assertEqual([call for call in self.calls() if "msDS-" in call and "Execute" in call], [
            f"ExecuteSearch {users}{name}) of 2: sAMAccountName msDS-UserPasswordExpiryTimeComputed"
            for name in ("", one)])
        self.assert_released()

    def test_one_attribute_is_written_by_the_directory(self):
        self.prepare([person("walter", 65)], site_registry(1, expireBy="ldap"))
        refused = rb"FAILED: [^\n]+ walter: \w[^\n]+ \(0x80070005\)"
        for fault, printed, written in (("SetInfo", refused, False), ("", rb"expired +1\r", True)):
            (self.system / "calls.log").unlink(missing_ok=True)
            (self.system / "fault.txt").write_text(fault)
            done = self.windows.run(self.folder / "pwlapse.exe", "run", cwd=self.folder)
            self.assertRegex(done.stdout, printed)
            self.assertIn("Put pwdLastSet type=3 value=0", self.calls())
            self.assertNotIn("NetUserSetInfo", "".join(self.calls()))
            self.assert_released()
            self.assertEqual("pwdLastSet: 0" in (self.system / "domain.ldif").read_text(), written)


class NtlmServer(contextlib.ExitStack):
    """A mail server with STARTTLS that takes any NTLM log-in, and the mails of one connection."""

    def __init__(self, certificate, key):
        super().__init__()
        self.tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.tls.load_cert_chain(certificate, key)
        listener = self.enter_context(socket.create_server(("127.0.0.1", 0)))
        self.port = listener.getsockname()[1]
        threading.Thread(target=self.serve, args=[listener], daemon=True).start()

    def serve(self, listener):
        replies = {b"EHLO": b"250-here\r\n250-STARTTLS\r\n250 AUTH NTLM", b"STAR": b"220 go", b"AUTH": b"334 ",
                   b"DATA": b"354 go"}
        tokens = [b"334 " + base64.b64encode(b"challenge"), b"235 welcome"]
        connection = listener.accept()[0]
        connection.sendall(b"220 ready\r\n")
        lines = connection.makefile("rb")
        while line := lines.readline():
            reply = replies.get(line[:4], tokens.pop(0) if line.startswith(b"TlRM") else b"250 well")
            connection.sendall(reply + b"\r\n")
            if line.startswith(b"STAR"):
                connection = self.tls.wrap_socket(connection, server_side=True)
                lines = connection.makefile("rb")
            while reply.startswith(b"354") and line != b".\r\n":
                line = lines.readline()
            if reply.startswith(b"354"):
                connection.sendall(b"250 taken\r\n")


class SecurityTest(Machine):
    """What the system's security packages are asked, and answer only elsewhere."""
    STAND_INS = (*Machine.STAND_INS, "security.dll")

    def test_credentials_binding_and_messages_after_the_handshake(self):
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        site_files.make_certificates(folder, "127.0.0.1")
        # Manual validation, no default credentials, strong ciphers; not SSL 2 to TLS 1.1, or TLS 1.2.
        newer, older = "SCH_CREDENTIALS flags=400018 protocols=not 2a8", "SCHANNEL_CRED flags=400018 protocols=800"
        for refused, asked in ("", [newer]), ("SCH_CREDENTIALS", [newer, older]):
            with self.subTest(refused), NtlmServer(folder / "self.pem", folder / "self.key") as server:
                self.prepare([person("walter", 53)], site_registry(
                    server.port, smtpStartTls=1, smtpAuthMethod="NTLM", smtpUsername="user",
                    smtpPassword="secret", emailAdminReports=0))
                (self.system / "fault.txt").write_text(refused)
                done = self.windows.run(self.folder / "pwlapse.exe", "run", cwd=self.folder)
                self.assertRegex(done.stdout, rb"warned +1\r")
                self.assertEqual([call for call in self.calls() if re.match("SCH|NTLM|step", call)], [
                    *asked, "step after the handshake, with a message", "NTLM first SMTP/127.0.0.1",
                    "step after the handshake, with nothing",
                    "NTLM last SMTP/127.0.0.1 tls-server-end-point:digest"])


class CodePageTest(unittest.TestCase):
    def test_texts_of_every_code_page(self):
        cases = (  # a text with a byte of a backslash in code page 932
            ("C", "cp1252", "K\u00fcndigung"), ("ja_JP", "cp932", "\u8868\u30bd\u80fd"),
            ("ru_RU", "cp1251", "\u041f\u0430\u0440\u043e\u043b\u044c"), ("hi_IN", "utf-8", "\u092a\u093e\u0938 \u8868"))
        for locale, code_page, text in cases:
            with self.subTest(code_page), wine_prefix.WinePrefix(locale) as windows, \
                    PostfixMail(refused=REFUSED) as mail:
                (folder := windows.drive / "site").mkdir()
                shutil.copy(WINDOWS / "console/pwlapse.exe", folder)
                done = windows.run("pwlapse.exe", "demo", "--work-dir", "demo", cwd=folder)
                self.assertEqual(done.returncode, 0, done.stdout)
                users = person("warned", 53), person(text + "-refused", 53, mail=REFUSED)
                site_files.write_site(folder, users, site_registry(
                    mail.port, emailSubject=text, emailCustomMsg=f"{text}\\\\{text}", emailAdminReports=0))
                done = windows.run("pwlapse.exe", "run", "--registry", "site.reg", "--directory",
                                   "ldif:domain.ldif", cwd=folder)
                self.assertIn(f"FAILED: mail to {text}-refused", done.stdout.decode(code_page))
                self.assertEqual([(mail.message["Subject"], mail.message.get_content())
                                  for mail in mail.delivered()], [(text, f"{text}\n{text}\n")])
