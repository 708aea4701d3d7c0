"""The console as a person meets it: the demo, the catcher, and how they refuse what they cannot do."""
import datetime
import email
import email.policy
import fcntl
import pathlib
import re
import signal
import smtplib
import socket
import subprocess
import tempfile
import unittest

import page_pictures
import site_files
from rig import PROGRAM

COMPLETION = pathlib.Path(__file__).parents[2] / "packaging/pwlapse.bash-completion"


def run(*arguments):
    """Exit status, output and errors."""
    done = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True)
    return done.returncode, done.stdout, done.stderr


def read_mail(file):
    return email.message_from_bytes(pathlib.Path(file).read_bytes(), policy=email.policy.default)


class ConsoleTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def assert_refused(self, said, *arguments):
        """One line of errors, which is `said`, a regular expression."""
        status, output, errors = run(*arguments)
        self.assertEqual((status, output), (2, ""))
        self.assertRegex(errors, rf"\Apwlapse: {said}\n\Z")

    def test_demo_shows_every_outcome_the_mails_and_the_report(self):
        for attempt in ("new folder", "the folder of an earlier demo"):
            with self.subTest(attempt):
                self.check_demo(self.folder)

    def check_demo(self, folder):
        status, output, errors = run("demo", "--work-dir", folder)
        self.assertEqual((status, errors), (0, ""), output)
        self.assertNotIn("NOT AS EXPECTED", output)
        for user in ("anna.adler", "zo\u00eb.m\u00fcller", "PC01$", "AB"):
            self.assertRegex(output, rf"(?m)^{re.escape(user)} +\w+ +\w+")
        mails = re.findall(r"(?m)^  (\S+\.eml)$", output)
        self.assertEqual(len(mails), 5)  # four warnings and the report
        for mail in mails:
            self.assertEqual([part.defects for part in read_mail(mail).walk() if part.defects], [])
        [report] = re.findall(r"(?m)^  (\S+\.html)$", output)
        page = page_pictures.look_at(report, "demo-report")
        self.assertNotIn(0, [width for _, width in page.images])
        self.assertIn("zo\u00eb.m\u00fcller", page.text)
        self.check_questions(output, folder)

    def check_questions(self, output, folder):
        """The commands that the demo shows; and that a preview is what was mailed."""
        enter, *questions = output.split("ready to paste):\n")[1].splitlines()
        self.assertEqual(len(questions), 5)
        for question in questions:
            done = subprocess.run(["sh", "-c", f"{enter}\n{question}"], capture_output=True, text=True)
            # The demo's pass had a mail that failed.
            self.assertEqual((done.returncode, done.stderr), (int(question.endswith("status")), ""), question)
            self.assertGreater(done.stdout.count("\n"), 3, question)
        self.assertRegex(done.stdout, r"\AWARNING: last pass \d+ s ago .*, 18 lines, 4 mails sent, 1 problem\n")
        self.check_old_pass(folder)
        before = sorted((file, file.stat().st_mtime_ns) for file in folder.rglob("*") if file.is_file())
        site = ("--registry", folder / "demo-registry.reg", "--work-dir", folder)
        mail, shown = read_mail(folder / "mails" / "0001.eml"), self.folder.parent / "shown.eml"
        self.addCleanup(shown.unlink, missing_ok=True)
        user = mail["To"].addresses[0].username
        self.assertEqual(run("preview", user, "--eml", shown, *site)[0], 0)
        for name in ("From", "To", "Subject", "Content-Type", "X-Priority"):
            self.assertEqual(read_mail(shown)[name], mail[name])
        self.assertEqual(read_mail(shown).get_content(), mail.get_content().rstrip("\r\n"))
        page = self.folder.parent / "forecast.html"
        self.addCleanup(page.unlink, missing_ok=True)
        self.assertEqual(run("forecast", "--html", page, *site)[0], 0)
        self.assertIn("Password expiry forecast", page_pictures.look_at(page, "forecast").text)
        self.assertEqual(sorted((file, file.stat().st_mtime_ns) for file in folder.rglob("*") if file.is_file()), before)

    def check_old_pass(self, folder):
        """A pass of 27 hours ago is too old, and no pass is none."""
        old = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.assertEqual(run("status", "--work-dir", old)[0], 2)
        record = pathlib.Path("logfiles", "norvyn-last-run.json")
        (old / record.parent).mkdir()
        ended = datetime.datetime.now(datetime.UTC) - datetime.timedelta(hours=27)
        (old / record).write_text(re.sub(r'("ended": )"[^"]*"', rf'\1"{ended:%Y-%m-%dT%H:%M:%SZ}"',
                                         (folder / record).read_text()))
        status, output, _ = run("status", "--work-dir", old)
        self.assertEqual(status, 2)
        self.assertIn("no pass within 26 h: last pass 27 h ago", output)
        self.assertEqual(run("status", "--work-dir", old, "--max-age", "28h")[0], 1)

    def test_demo_leaves_a_folder_of_something_else_alone(self):
        (self.folder / "mine.txt").write_text("mine")
        self.assert_refused(".*not empty.*", "demo", "--work-dir", self.folder)
        self.assertEqual([file.name for file in self.folder.iterdir()], ["mine.txt"])

    def test_catcher_names_the_files_that_it_saves(self):
        with subprocess.Popen([PROGRAM, "catch", "--port", "0", "--dir", self.folder / "mails"],
                              stdout=subprocess.PIPE, text=True) as catcher:
            self.addCleanup(catcher.kill)
            port = re.search(r"127\.0\.0\.1:(\d+)", catcher.stdout.readline()).group(1)
            with smtplib.SMTP("127.0.0.1", int(port)) as client:
                client.sendmail("a@x.example", ["b@x.example"], b"Subject: hello\r\n\r\n..dots\r\n.\r\n")
            message = read_mail(catcher.stdout.readline().strip())
            self.check_test_mail(port, catcher)
            self.assert_refused(f".*{port}.*", "catch", "--port", port, "--dir", self.folder)
            catcher.terminate()
        self.assertEqual((message["Subject"], message.get_content().splitlines()),
                         ("hello", ["..dots", "."]))

    def check_test_mail(self, port, catcher):
        registry = self.folder / "site.reg"
        registry.write_bytes(site_files.registry_file({site_files.SETTINGS: {
            "smtpServer": "127.0.0.1", "emailCustomMsg": "Dear <%firstName%>,\\\\<%daysUntilExpiration%> days."}}))
        before = registry.read_bytes()
        command = ("test-mail", "me@x.example", "--registry", registry, "--work-dir", self.folder)
        self.assertEqual(run(*command, "--days", "3", "--set", f"smtpPort={port}")[0], 0)
        message = read_mail(catcher.stdout.readline().strip())
        self.assertEqual((message["To"].addresses[0].addr_spec, message.get_content().split()),
                         ("me@x.example", ["Dear", "Jane,", "3", "days."]))
        status, output, _ = run(*command, "--set", "smtpPort=1")
        self.assertEqual((status, output), (1, "The mail was not sent: 127.0.0.1:1: connection refused\n"))
        self.assertEqual((registry.read_bytes(), list(self.folder.rglob("errors*"))), (before, []))

    def test_bash_completes_every_command_and_option_of_the_help(self):
        def complete(*words):
            script = (f"source {COMPLETION}; COMP_WORDS=({' '.join(map(repr, words))}); "
                      f"COMP_CWORD={len(words) - 1}; _pwlapse; printf '%s\\n' \"${{COMPREPLY[@]}}\"")
            done = subprocess.run(["bash", "-c", script], capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            return set(done.stdout.split())

        commands = set(re.findall(r"(?m)^  ([a-z]\S*) ", run("--help")[1].split("Subcommands:")[1]))
        self.assertGreater(len(commands), 8)
        self.assertEqual(complete(str(PROGRAM), ""), commands | {"--help", "--version"})
        for command in commands:
            options = set(re.findall(r"(?m)^  (?:-h,)?(--[\w-]+)", run(command, "--help")[1]))
            self.assertEqual(complete(str(PROGRAM), command, "-"), options)
        self.assertEqual(complete(str(PROGRAM), "status", "--format", ""), {"text", "json", "csv"})

    def test_says_what_is_wrong_with_a_command_line(self):
        for arguments, said in ((["runn"], 'there is no command "runn"'), ([], "a command is needed"),
                                (["run", "--nonsense"], "--nonsense")):
            self.assert_refused(f".*{said}.*", *arguments)
        with open("/dev/full", "w") as full:
            for arguments in (["--help"], ["--version"], ["catch", "--port", "0", "--dir", self.folder]):
                done = subprocess.run([PROGRAM, *arguments], stdout=full, stderr=subprocess.PIPE, text=True)
                self.assertEqual((done.returncode, done.stderr),
                                 (2, "pwlapse: the output cannot be written\n"))

    def test_a_pass_says_what_is_wrong_with_its_input(self):
        registry, users = self.folder / "site.reg", self.folder / "users.ldif"
        users.write_text("dn: DC=x\nobjectClass: domainDNS\n\ndn: CN=u,DC=x\nobjectClass: user\n"
                         "sAMAccountName: user\npwdLastSet: 12x\n")
        command = ("run", "--registry", registry, "--work-dir", self.folder, "--directory", f"ldif:{users}")
        key = site_files.SETTINGS
        for content, said in (
                (None, f"{registry}: [^\n]+"), (b'REGEDIT4\r\n\r\n"a"=dword:zz\r\n', f"{registry}:3: [^\n]+"),
                (b"\x00\x01\x02", f"{registry}:1: [^\n]+"),
                (site_files.registry_file({key: {"reportOnly": "1"}}), 'registry value "reportOnly" of '
                 + re.escape(key) + r": not a number \(REG_DWORD\)")):
            with self.subTest(said):
                if content is not None:
                    registry.write_bytes(content)
                self.assert_refused(said, *command)
                self.assertEqual(registry.read_bytes() if registry.exists() else None, content)
        registry.write_bytes(site_files.registry_file({key: {"reportOnly": 1}}))
        for mode, notes in (0o755, 0), (0o1777, 1):
            self.folder.chmod(mode)
            status, output, _ = run(*command)
            self.assertEqual(status, 0)
            self.assertIn(f"note: {users}:7: pwdLastSet is not a time\n", output)
            self.assertEqual(output.count("note: other users can write to the work folder"), notes)
        with open("/dev/full", "w") as full:
            self.assertEqual(subprocess.run([PROGRAM, *command], stdout=full, stderr=subprocess.DEVNULL).returncode, 2)
        lock = self.folder / "pwsentry_pro_domain_users.txt.lock"
        with lock.open() as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            self.assert_refused("another pass is at work in this folder", *command)
        lock.unlink()
        lock.mkdir()
        self.assert_refused(f"no pass is made without .*{lock.name}: .+", *command)

    def test_a_pass_that_is_told_to_stop_ends_after_the_user_in_hand(self):
        server = self.enterContext(socket.create_server(("127.0.0.1", 0)))
        site = site_files.write_site(
            self.folder, [site_files.person(name, 59) for name in ("first", "second")],
            site_files.site_registry(server.getsockname()[1], emailAdminReports=0))
        for told in signal.SIGTERM, signal.SIGINT, signal.SIGHUP:
            with self.subTest(told), subprocess.Popen([PROGRAM, "run", *site], stdout=subprocess.PIPE,
                                                      text=True) as process:
                connection, _ = server.accept()  # the first mail waits for the greeting
                process.send_signal(told)
                connection.sendall(b"554 no\r\n")
                connection.close()
                output, _ = process.communicate(timeout=60)
                self.assertEqual(process.returncode, 1)
                self.assertRegex(output, r"\A1 line in 1 user list\n(.*\n)*FAILED: the pass was stopped")
                self.assertIn("<td>first</td>",
                              (self.folder / "logfiles/norvyn-expiration-report.html").read_text())


class MxTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        resolver = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory())) / "resolv.conf"
        resolver.write_text("nameserver 127.0.0.1\n")
        subprocess.run(["mount", "--bind", resolver, "/etc/resolv.conf"], check=True)
        cls.addClassCleanup(subprocess.run, ["umount", "/etc/resolv.conf"], check=True)
        server = cls.enterClassContext(subprocess.Popen(
            ["dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--no-resolv", "--no-hosts",
             "--listen-address=127.0.0.1", "--bind-interfaces", "--local=/test/",
             "--mx-host=site.test,second.site.test,20", "--mx-host=site.test,first.site.test,10"],
            stderr=subprocess.PIPE, text=True))
        cls.addClassCleanup(server.terminate)
        while "cachesize" not in (line := server.stderr.readline()):
            assert line, "dnsmasq does not come up"

    def test_shows_the_hosts_by_preference(self):
        for text, status, output, error in (
                ("site.test", 0, "first.site.test\nsecond.site.test\n", ""),
                ('"a@b" <user@SITE.test>', 0, "first.site.test\nsecond.site.test\n", ""),
                ("none.test", 1, "", "pwlapse: no mail exchanger of none.test was found\n"),
                ("user@", 2, "", "pwlapse: mx: neither a domain nor an e-mail address\n")):
            with self.subTest(text):
                self.assertEqual(run("mx", text), (status, output, error))
