"""Every mistake of docs/console.md's table is made to a site that is in order, and found by "pwlapse
check": against a domain controller, a mail server and stand-ins that are broken. mistakes.txt has them."""
import contextlib
import json
import os
import pathlib
import pty
import re
import shutil
import socket
import ssl
import subprocess
import tempfile
import threading
import unittest

import samba_ad
import site_files
from broken_ldap import BrokenLdap, entry, message, page_of, result
from postfix_mail import PostfixMail
from rig import DEBUG, ROOT
from site_files import DOMAIN, POLICIES, SETTINGS, User, person

PROGRAM = DEBUG / "console/pwlapse"
DIRECTORY = r"Software\Kadro\PwsentryPro\Directory"
LOGIN = "postman", "Let-me-in"
PLAIN = {"smtpUsername": None, "smtpPassword": None, "smtpStartTls": None,
         "smtpRequireVerifiedCertificate": None, "smtpServer": "127.0.0.1"}
FILES = {"pwsentry_pro_policy1_include.txt": "anna\nben\n",
         "NorvynExpirationEmail.txt": "Hello <%firstName%>, <%daysUntilExpiration%> days are left.\n"}


def mistakes():
    """(part, mistake, how, finding) of each row."""
    part = ""
    for line in (pathlib.Path(__file__).parent / "mistakes.txt").read_text("utf-8").splitlines():
        if line.startswith("["):
            part = line.strip("[]")
        elif line and not line.startswith("#"):
            how = line.split(" | ")
            yield part, how[0], " | ".join(how[1:-1]), how[-1]


def matches(pattern, text):
    return re.fullmatch(".*".join(re.escape(piece) for piece in pattern.split("...")), text) is not None


class Site:
    """A site that is in order, until steps are taken."""

    def __init__(self, test):
        self.test, self.options, self.raw, self.mode = test, {}, [], 0o600
        self.folder = pathlib.Path(test.enterContext(tempfile.TemporaryDirectory()))
        self.environment = {**os.environ, "SSL_CERT_FILE": str(test.folder / "ca.pem")}
        self.keys = {
            SETTINGS: {
                "smtpServer": "localhost", "smtpPort": test.mail.port, "smtpStartTls": 1,
                "smtpRequireVerifiedCertificate": 1, "smtpUsername": LOGIN[0], "smtpPassword": LOGIN[1],
                "emailFromAddress": f"Help Desk <desk@{DOMAIN}>", "emailSubject": "Your password expires",
                "adminEmailAddress": f"admin@{DOMAIN}", "emailAdminReports": 1, "htmllog": 1,
                "warning1": 14, "warning2": 7, "warning3": 1},
            POLICIES + r"\DefaultPolicy": {"policyName": "All", "maxPasswordAge": 40, "emailWarnings": 1},
            POLICIES + r"\Policy1": {"policyName": "Staff", "maxPasswordAge": 30, "emailWarnings": 1},
            DIRECTORY: {
                "uri": f"ldaps://{samba_ad.HOST}", "bindMethod": "simple", "bindUser": samba_ad.ADMIN,
                "bindPasswordFile": test.password, "caFile": test.ad.ca_file}}
        for name, text in FILES.items():
            self.write(name, text)

    def write(self, name, content):
        file = self.folder / name
        file.parent.mkdir(exist_ok=True)
        file.write_bytes(content if isinstance(content, bytes) else content.encode())

    def values(self, key):
        path = {"PWExpiration": SETTINGS, "Directory": DIRECTORY}.get(key, f"{POLICIES}\\{key}")
        return self.keys.setdefault(path, {})

    def take(self, step):
        word, _, rest = step.partition(" ")
        if word == "raw":
            self.raw.append(rest)
        elif word == "file":
            name, _, content = rest.partition(" ")
            self.write(name, eval(content))
        elif word == "remove":
            (self.folder / rest).unlink()
        elif word == "as":
            self.options["user"], self.mode = rest, 0o644
        elif word == "mode":
            self.mode = int(rest, 8)
        elif word == "own":
            shutil.chown(self.folder / rest, "nobody")
        elif word == "untrusted":
            self.environment["SSL_CERT_FILE"] = "/dev/null"
        elif word == "smtp":
            self.values("PWExpiration").update(PLAIN, smtpPort=self.stand_in(rest.split("|")))
        elif word == "ended":
            certificate = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            certificate.load_cert_chain(self.test.folder / "ended.pem", self.test.folder / "host.key")
            self.values("PWExpiration").update(smtpStartTls=None, smtpSsl=1, smtpPort=self.stand_in([], certificate))
        elif word == "small":
            subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={rest}", "tmpfs", self.folder], check=True)
            self.test.addCleanup(subprocess.run, ["umount", self.folder], check=True)
        elif word == "refuse":  # as a controller words it, with the code of Windows
            refusal = f"80090308: LdapErr: DSID-0C09050F, comment: AcceptSecurityContext error, data {rest}, v4f7c"
            self.values("Directory")["uri"] = self.test.enterContext(BrokenLdap(
                [], bind=lambda number: message(number, result(0x61, 49, refusal)))).uri
        elif word == "ldap":
            head = entry("DC=x", defaultNamingContext="DC=x", maxPwdAge="-36288000000000",
                         **dict(pair.split("=") for pair in rest.split()))
            user = entry("CN=u", sAMAccountName="anna", objectCategory="CN=Person", objectClass="user")
            self.values("Directory")["uri"] = self.test.enterContext(BrokenLdap([page_of(user)], head=head)).uri
        else:
            key, name, assigned, value = re.fullmatch(r"(\w+)\\(\w+)(=|-)(.*)", step).groups()
            self.values(key)[name] = eval(value) if assigned == "=" else None

    def stand_in(self, replies, certificate=None):
        """The port of a mail server that gives one reply to each line, or begins with TLS and no more."""
        listener = self.test.enterContext(socket.create_server(("127.0.0.1", 0)))

        def serve():
            peer, _ = listener.accept()
            if certificate:
                with contextlib.suppress(OSError), certificate.wrap_socket(peer, server_side=True) as peer:
                    peer.recv(1)
                return
            with peer, peer.makefile("rb") as lines:
                for reply in replies:
                    peer.sendall(reply.encode() + b"\r\n")
                    if not lines.readline():
                        break

        threading.Thread(target=serve, daemon=True).start()
        return listener.getsockname()[1]

    def check(self, part):
        keys = {key: {name: value for name, value in values.items() if value is not None}
                for key, values in self.keys.items()}
        text = site_files.registry_file(keys).decode("utf-16") + "".join(f"{line}\r\n" for line in self.raw)
        self.write("site.reg", text)
        (self.folder / "wrong").write_text("not it\n")
        for path in self.folder, *self.folder.rglob("*"):
            path.chmod(0o755)
        (self.folder / "site.reg").chmod(self.mode)
        done = subprocess.run(
            [PROGRAM, "check", "--registry", "site.reg", "--format", "json", "--only", part],
            cwd=self.folder, env=self.environment, capture_output=True, text=True, timeout=120, **self.options)
        self.test.assertEqual(done.stderr, "")
        answer = json.loads(done.stdout)
        self.test.assertEqual(done.returncode, 1 if answer["faults"] else 0)
        return answer["findings"]


class CheckTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.ad = cls.enterClassContext(samba_ad.SambaAd())
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.folder.chmod(0o755)
        site_files.make_certificates(cls.folder, "localhost")
        subprocess.run(
            "openssl req -new -key host.key -subj /CN=localhost -addext subjectAltName=DNS:localhost | "
            "openssl x509 -req -copy_extensions copy -CA ca.pem -CAkey ca.key -days -1 -out ended.pem",
            shell=True, cwd=cls.folder, check=True, capture_output=True)
        cls.mail = cls.enterClassContext(PostfixMail(
            refused=f"refused@{DOMAIN}", login=LOGIN, tls=(cls.folder / "host.pem", cls.folder / "host.key")))
        cls.password = cls.ad.folder / "password"
        cls.password.write_text(samba_ad.ADMIN_PASSWORD + "\n")
        cls.ad.add_users([person("anna", 29), person("ben", 5),
                          *map(User, ("disabled", "gone", "must", "hours"))])
        for name, change in {"anna": {}, "disabled": {"userAccountControl": 514}, "gone": {"accountExpires": 1},
                             "must": {"pwdLastSet": 0}, "hours": {"logonHours": bytes(21)}}.items():
            cls.ad.set_password(name, samba_ad.ADMIN_PASSWORD)
            for attribute, value in change.items():
                cls.ad.modify(User(name), attribute, value)

    def test_a_site_in_order(self):
        findings = Site(self).check("settings,lists,templates,directory,mail,folder")
        self.assertEqual([one for one in findings if one["level"] != "ok"], [])

    def test_each_mistake(self):
        for part, mistake, how, expected in mistakes():
            with self.subTest(mistake):
                site = Site(self)
                for step in how.split(" ;; "):
                    site.take(step)
                findings = site.check(part)
                said = [f"{one['level']}: {one['subject']}: {one['text']}" for one in findings]
                found = [one for one, line in zip(findings, said) if matches(expected, line)]
                self.assertTrue(found, "\n".join([expected, *said]))
                if found[0]["level"] == "fault":
                    self.assertTrue(found[0]["cure"])

    def test_the_page_has_them(self):
        page = (ROOT / "docs/console.md").read_text("utf-8")
        rows = [f"| {mistake} | `{expected}` |" for _, mistake, _, expected in mistakes()]
        self.assertEqual([line for line in page.splitlines() if line in rows], rows)

    def init(self, folder, *options):
        done = subprocess.run(
            [PROGRAM, "init", "new.reg", "--directory", samba_ad.HOST, "--bind-user", samba_ad.ADMIN,
             "--bind-password-file", self.password, "--mail-server", "localhost", "--sender", f"desk@{DOMAIN}",
             "--administrator", f"admin@{DOMAIN}", *options],
            cwd=folder, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
        self.assertNotIn(samba_ad.ADMIN_PASSWORD, done.stdout + done.stderr)
        return done

    def test_init(self):
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        # The authority is not known: nothing is stored until its fingerprint is confirmed.
        refused = self.init(folder)
        self.assertEqual((refused.returncode, list(folder.iterdir())), (2, []), refused)
        self.assertIn("authority was not confirmed", refused.stderr)
        shown = re.findall(r"SHA-256 (\S+)\s+(\S+)", refused.stdout)
        self.assertEqual(self.init(folder, "--trust", "00" * 32).returncode, 2)
        done = self.init(folder, "--trust", "".join(shown[-1]))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        # The domain's own age is proposed; all passwords were set by the tests just now.
        self.assertRegex(done.stdout, r"own maximum age is 42 days")
        self.assertRegex(done.stdout, r"With a maximum age of 42 days, 0 of them would be")
        answer = subprocess.run(
            [PROGRAM, "check", "--registry", "new.reg", "--format", "json", "--only",
             "settings,lists,templates,directory,folder"], cwd=folder, capture_output=True, text=True, timeout=120)
        said = [one for one in json.loads(answer.stdout)["findings"] if one["level"] != "ok"]
        self.assertEqual([one["subject"].split("\\")[-1] for one in said], ["reportOnly"], said)
        before = (folder / "new.reg").read_bytes()
        self.assertIn("never overwritten", self.init(folder).stderr)
        self.assertEqual((folder / "new.reg").read_bytes(), before)

    def converse(self, folder, *answers):
        """Exit status and output of "pwlapse init" on a terminal that gives each answer when its question comes."""
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(folder)
            os.execv(PROGRAM, [PROGRAM, "init", "new.reg"])
        said, seen = b"", 0
        with contextlib.suppress(OSError), os.fdopen(terminal, "r+b", buffering=0) as screen:  # closed: EIO
            for question, text in [*answers, ("never asked", "")]:
                while (at := said.find(question.encode(), seen)) < 0:
                    said += screen.read(4096) or b""
                seen = at + len(question)
                screen.write(f"{text}\n".encode())
        return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), said.decode()

    def test_init_on_a_terminal(self):
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        answers = [("Domain controller", samba_ad.HOST), ("Account", samba_ad.ADMIN), ("bind-password]:", ""),
                   ("Password", "not this"), ("Mail server", ""), ("needed", "mail:25"), ("name of a host", "localhost"),
                   ("User name", "desk"), ("smtp-password]:", ""), ("Password", "of the mails"), ("Sender", "desk"), ("no e-mail address", f"desk@{DOMAIN}"), ("Administrator", f"admin@{DOMAIN}"),
                   ("[14,7,1]:", "ten"), ("three days", "")]
        status, said = self.converse(folder, *answers, ('"yes"', "no"))
        secrets = [folder / "bind-password", folder / "smtp-password"]
        self.assertEqual((status, sorted(folder.iterdir())), (2, secrets), said)
        for file in secrets:
            file.unlink()
        status, said = self.converse(folder, *answers, ('"yes"', "yes"), ("(52e)", ""), ("Password", samba_ad.ADMIN_PASSWORD))
        self.assertEqual(status, 0, said)
        self.assertNotIn(samba_ad.ADMIN_PASSWORD, said)
        self.assertEqual({*folder.iterdir()}, {*secrets, folder / "domain-ca.pem", folder / "new.reg"})
        self.assertEqual({file.stat().st_mode & 0o777 for file in secrets}, {0o600})
        self.assertEqual(secrets[1].read_text(), "of the mails\n")
        text = (folder / "new.reg").read_text()
        for line in ('"reportOnly"=dword:00000001', '"warning3"=dword:00000001', f'"emailFromAddress"="desk@{DOMAIN}"',
                     '"smtpStartTls"=dword:00000001', '"smtpUsername"="desk"', f'"smtpPasswordFile"="{secrets[1]}"'):
            self.assertIn(line, text)
        self.assertIn("never overwritten", self.converse(folder)[1])

    def test_explain_reads_one_user_only(self):
        site = Site(self)
        anna = entry("CN=u", sAMAccountName="anna", objectCategory="CN=Person", objectClass="user", pwdLastSet="1")
        server = self.enterContext(BrokenLdap([page_of(anna)] * 9))
        site.values("Directory")["uri"] = server.uri
        site.values("DefaultPolicy")["useDirectoryPolicy"] = 1
        site.check("settings")
        done = subprocess.run([PROGRAM, "explain", "anna", "--registry", "site.reg"], cwd=site.folder,
                              capture_output=True, text=True, timeout=120)
        self.assertIn("has this user", done.stdout)
        self.assertTrue(server.searches)
        self.assertEqual([search for search in server.searches if b"anna" not in search], [])
