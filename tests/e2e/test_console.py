"""The console as a person meets it: the demo, the catcher, and how they refuse what they cannot do."""
import email
import email.policy
import pathlib
import re
import smtplib
import subprocess
import tempfile
import unittest

import page_pictures
import samba_ad

samba_ad.enter_own_network()

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = ROOT / "build/release/console/pwlapse"
PICTURES = ROOT / "build/pictures"


class DemoTest(unittest.TestCase):
    def test_shows_every_outcome_the_mails_and_the_report(self):
        with tempfile.TemporaryDirectory(prefix="pwlapse-demo-") as folder:
            for attempt in ("new folder", "the folder of an earlier demo"):
                with self.subTest(attempt):
                    self.check_demo(folder)

    def check_demo(self, folder):
        done = subprocess.run([PROGRAM, "demo", "--work-dir", folder], capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout + done.stderr)
        self.assertNotIn("NOT AS EXPECTED", done.stdout)
        for user in ("anna.adler", "zo\u00eb.m\u00fcller", "PC01$", "AB"):
            self.assertRegex(done.stdout, rf"(?m)^{re.escape(user)} +\w+ +\w+")
        mails = re.findall(r"(?m)^  (\S+\.eml)$", done.stdout)
        self.assertEqual(len(mails), 5)  # four warnings and the report
        for path in mails:
            message = email.message_from_bytes(pathlib.Path(path).read_bytes(),
                                               policy=email.policy.default)
            self.assertEqual([part.defects for part in message.walk() if part.defects], [])
        [report] = re.findall(r"(?m)^  (\S+\.html)$", done.stdout)
        PICTURES.mkdir(parents=True, exist_ok=True)
        page = page_pictures.take_picture(report, PICTURES / "demo-report.png")
        self.assertEqual(page.broken_images(), [])
        self.assertIn("zo\u00eb.m\u00fcller", page.text)

    def test_leaves_a_folder_of_something_else_alone(self):
        with tempfile.TemporaryDirectory() as folder:
            (pathlib.Path(folder) / "mine.txt").write_text("mine")
            done = subprocess.run([PROGRAM, "demo", "--work-dir", folder], capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertRegex(done.stderr, r"\Apwlapse: .*not empty.*\n\Z")
            self.assertEqual([file.name for file in pathlib.Path(folder).iterdir()], ["mine.txt"])


class CatchTest(unittest.TestCase):
    def test_saves_what_it_is_sent(self):
        with tempfile.TemporaryDirectory() as folder:
            catcher = subprocess.Popen([PROGRAM, "catch", "--port", "0", "--dir", f"{folder}/mails"],
                                       stdout=subprocess.PIPE, text=True)
            try:
                port = int(re.search(r"127\.0\.0\.1:(\d+)", catcher.stdout.readline()).group(1))
                with smtplib.SMTP("127.0.0.1", port) as client:
                    client.sendmail("a@x.example", ["b@x.example"], b"Subject: hello\r\n\r\n..dots\r\n.\r\n")
                file = pathlib.Path(catcher.stdout.readline().strip())
                message = email.message_from_bytes(file.read_bytes(), policy=email.policy.default)
                self.assertEqual(message["Subject"], "hello")
                self.assertEqual(message.get_content().splitlines(), ["..dots", "."])
                done = subprocess.run([PROGRAM, "catch", "--port", str(port), "--dir", folder],
                                      capture_output=True, text=True)
                self.assertEqual(done.returncode, 2)
                self.assertRegex(done.stderr, rf"\Apwlapse: .*{port}.*\n\Z")
            finally:
                catcher.terminate()
                catcher.wait()
                catcher.stdout.close()


class MxTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not samba_ad.in_own_network():
            raise unittest.SkipTest("a name server needs a network of its own")
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        resolver = pathlib.Path(folder.name) / "resolv.conf"
        resolver.write_text("nameserver 127.0.0.1\n")
        subprocess.run(["mount", "--bind", resolver, "/etc/resolv.conf"], check=True)
        cls.addClassCleanup(subprocess.run, ["umount", "/etc/resolv.conf"], check=True)
        server = subprocess.Popen(
            ["dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--no-resolv", "--no-hosts",
             "--listen-address=127.0.0.1", "--bind-interfaces", "--local=/test/",
             "--mx-host=site.test,second.site.test,20", "--mx-host=site.test,first.site.test,10"],
            stderr=subprocess.PIPE, text=True)
        cls.addClassCleanup(server.stderr.close)
        cls.addClassCleanup(server.wait)
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
                done = subprocess.run([PROGRAM, "mx", text], capture_output=True, text=True)
                self.assertEqual((done.returncode, done.stdout, done.stderr), (status, output, error))


if __name__ == "__main__":
    unittest.main()
