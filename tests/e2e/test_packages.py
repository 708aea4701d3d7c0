"""The packages: what is in them, installed, tried and removed again. The Debian package goes into a root of
its own, the zip into a Windows of its own."""
import http.server
import os
import pathlib
import shutil
import subprocess
import tempfile
import threading
import unittest
import uuid
import zipfile

import site_files
import wine_prefix
from postfix_mail import PostfixMail
from rig import RELEASE, ROOT, WINDOWS, run, wait_until

UNIT = "NRVPasswordExpiration.service"
SERVICE = "NRVPasswordExpiration"
SERVICE_KEY = rf"HKLM\System\CurrentControlSet\Services\{SERVICE}"
SETTINGS_KEY = r"HKLM\Software\Policies\Kadro\PwsentryProMPE\PWExpiration"


# What the removal of the MSI leaves, as docs/windows.md says, beside the logs: what passes have written, a
# file that somebody put to the programs, and the keys that -install has made or closed.
LEFT_FILES = {"pwsentry_pro_domain_users.txt", "pwsentry_pro_domain_users.txt.lock", "norvyn-report-logo.gif",
              "own.txt"}
LEFT_KEYS = {r"[HKEY_LOCAL_MACHINE\Software\Kadro]", r"[HKEY_LOCAL_MACHINE\Software\Kadro\PwsentryPro]"}


class DebianPackageTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def package(self):
        run("cpack", "--config", RELEASE / "CPackConfig.cmake", "-B", self.folder / "cpack")
        [package] = (self.folder / "cpack").glob("*.deb")
        return package

    def test_installs_and_purges(self):
        package = self.package()
        self.assertRegex(run("dpkg-deb", "--field", package, "Depends").stdout,
                         "libldap.*libssl.*libsystemd0")
        root = self.folder / "root"
        (root / "var/lib/dpkg/updates").mkdir(parents=True)
        (root / "var/lib/dpkg/status").touch()
        (root / "etc").mkdir()
        dpkg = ["dpkg", f"--root={root}", "--force-script-chrootless", "--force-depends", "--no-triggers"]
        before = self.files(root)
        run(*dpkg, "--install", package)
        self.check_programs(root)

        # Settings, lists and templates are the administrator's; what the service has written is not.
        work = root / "var/lib/pwlapse"
        own = {root / "etc/pwlapse/registry.reg", work / "pwsentry_pro_policy1_include.txt",
               work / "NorvynExpirationEmail.html"}
        (work / "logfiles").mkdir()
        for file in *own, work / "written.reg", work / "logfiles/norvyn-expired-pw.log", \
                work / "pwsentry_pro_domain_users.txt.lock", work / "errors-norvyn-email.xml":
            file.touch()
        run(*dpkg, "--purge", "pwlapse")
        self.assertEqual(self.files(root) - before, {str(file.relative_to(root)) for file in own})

    def test_lintian_and_hardening(self):
        package = self.package()
        done = run("lintian", "--fail-on", "error,warning", "--allow-root", package)
        self.assertEqual(done.stdout, "")
        tree = self.folder / "tree"
        run("dpkg-deb", "--extract", package, tree)
        for program in tree / "usr/bin/pwlapse", tree / "usr/sbin/pwLapseSvc":
            seen = run("readelf", "--wide", "--all", program).stdout
            for sign in (r"DYN \(Position-Independent", "GNU_RELRO", "BIND_NOW", "__stack_chk_fail@",
                         r"__\w+printf_chk@"):
                with self.subTest(program=program.name, sign=sign):
                    self.assertRegex(seen, sign)
            # Where indirect jumps may land. The start code of the C library has a few in any program.
            self.assertGreater(run("objdump", "--disassemble", program).stdout.count("endbr64"), 1000)

    @staticmethod
    def files(root):
        """But for the list of packages and that of users, which the service's stays in."""
        return {str(path.relative_to(root)) for path in root.rglob("*")
                if path.is_file() and path.parent != root / "etc"
                and not path.is_relative_to(root / "var/lib/dpkg")}

    def check_programs(self, root):
        unit = root / "usr/lib/systemd/system" / UNIT
        self.assertIn('\nExecStart=/usr/sbin/pwLapseSvc\n', unit.read_text())
        complaints = subprocess.run(["systemd-analyze", "verify", "--man=no", f"--root={root}", UNIT],
                                    capture_output=True, text=True).stderr
        self.assertEqual([line for line in complaints.splitlines() if line.startswith(str(unit))], [])
        groups = dict(line.split(":")[0:3:2] for line in (root / "etc/group").read_text().splitlines())
        for folder, owner, mode in ("etc/pwlapse", "root", 0o2750), ("var/lib/pwlapse", "pwlapse", 0o750):
            status = (root / folder).stat()
            self.assertEqual((status.st_mode & 0o7777, status.st_gid, status.st_uid != 0),
                             (mode, int(groups["pwlapse"]), owner == "pwlapse"))

        example = root / "usr/share/doc/pwlapse/examples/registry.reg"
        shown = run(root / "usr/bin/pwlapse", "policies", "--registry", example).stdout
        self.assertIn("Slot 0: DefaultPolicy, maximum age 90 days, users are warned", shown)
        for page in root.glob("usr/share/man/man*/*.gz"):
            self.assertEqual(run("man", "--warnings", "--local-file", page, env=dict(
                os.environ, MANWIDTH="80", LC_ALL="C.UTF-8")).stderr, "")


class TimeStamps(http.server.BaseHTTPRequestHandler):
    """A time stamp server (RFC 3161), by the configuration in the folder of the server."""
    def do_POST(self):
        (self.server.folder / "query").write_bytes(self.rfile.read(int(self.headers["Content-Length"])))
        run("openssl", "ts", "-reply", "-config", "stamps.cnf", "-queryfile", "query", "-out", "reply", cwd=self.server.folder)
        self.wfile.write(b"HTTP/1.0 200 OK\r\nContent-Type: application/timestamp-reply\r\n\r\n" +
                         (self.server.folder / "reply").read_bytes())


class WindowsPackageTest(unittest.TestCase):
    """Both packages, signed and stamped with certificates that are made for it."""

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        site_files.make_certificates(cls.folder, "Kadro")
        (cls.folder / "password").write_text("not for a command line\n")
        run("openssl", "pkcs12", "-export", "-in", cls.folder / "self.pem", "-inkey", cls.folder / "self.key",
            "-out", cls.folder / "self.p12", "-passout", f"file:{cls.folder / 'password'}")
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "stamps.key", "-out", "stamps.pem",
            "-subj", "/CN=Stamps", "-addext", "extendedKeyUsage=critical,timeStamping", cwd=cls.folder)
        (cls.folder / "stamps.cnf").write_text(
            "[tsa]\ndefault_tsa = a\n[a]\nserial = serial\nsigner_cert = stamps.pem\nsigner_key = stamps.key\n"
            "signer_digest = sha256\ndigests = sha256\ndefault_policy = 1.2.3\n")
        server = cls.enterClassContext(http.server.HTTPServer(("127.0.0.1", 0), TimeStamps))
        server.folder = cls.folder
        threading.Thread(target=server.serve_forever, daemon=True).start()
        run(ROOT / "scripts/package_windows", cls.folder, env=dict(
            os.environ, PWLAPSE_TIMESTAMP_URL=f"http://127.0.0.1:{server.server_port}/",
            PWLAPSE_CERTIFICATE=str(cls.folder / "self.p12"),
            PWLAPSE_PASSWORD_FILE=str(cls.folder / "password")))
        [cls.zip], [cls.msi] = cls.folder.glob("*.zip"), cls.folder.glob("*.msi")

    def assert_signed(self, file):
        done = run("osslsigncode", "verify", "-CAfile", self.folder / "self.pem", "-TSA-CAfile",
                   self.folder / "stamps.pem", "-in", file)
        self.assertIn("Timestamp Server Signature verification: ok", done.stdout)

    def newer_msi(self):
        """The same files, as the next version."""
        newer = self.folder / "newer.msi"
        shutil.copy(self.msi, newer)
        for name, value in ("ProductVersion", "6.99.0"), ("ProductCode", f"{{{uuid.uuid4()}}}".upper()):
            run("msibuild", newer, "-q", f"UPDATE `Property` SET `Value` = '{value}' WHERE `Property` = '{name}'")
        run("msibuild", newer, "-s", "newer", "Kadro", "x64;1033", f"{{{uuid.uuid4()}}}".upper())
        return newer

    def test_msi(self):
        self.assert_signed(self.msi)
        user = site_files.person("walter", 59)
        with wine_prefix.WinePrefix() as windows, PostfixMail() as mail:
            system = windows.system_folder
            for name in "netapi32.dll", "activeds.dll":
                shutil.copy(WINDOWS / "tests/e2e/wine" / name, system)
            (system / "calls.log").touch()  # of the stand-ins
            (system / "domain.ldif").write_text(site_files.domain_ldif([user]))
            (system / "NorvynExpirationEmail.html").write_text("<html></html>")
            windows.import_registry(site_files.site_registry(mail.port))
            before = windows.files(), windows.registry_keys()

            def msiexec(what, package, *properties):
                target = windows.drive / "package.msi"
                shutil.copy(package, target)
                return windows.run("msiexec", "/qn", what, r"C:\package.msi", *properties).returncode

            def service(name):
                return windows.registry_value(SERVICE_KEY, name)

            refused = 1603 & 0xFF  # of the exit status this system keeps the low bits
            self.assertEqual(msiexec("/i", self.msi, r"SERVICEACCOUNT=SITE\pw$"), refused)
            self.assertEqual(windows.files(), before[0])
            self.assertEqual(msiexec("/i", self.msi), 0)
            wait_until(lambda: len(mail.delivered()) == 2)  # the user's and the report
            programs = windows.drive / "Program Files/pwlapse"
            self.assertEqual(windows.run("cmd", "/c", "pwlapse", "--help").returncode, 0)

            # The service stays as its administrator has set it; a program comes back.
            changed = {"ObjectName": r"SITE\other$", "FailureActions": "0102", "DelayedAutostart": "0x1"}
            for (name, value), kind in zip(changed.items(), ("REG_SZ", "REG_BINARY", "REG_DWORD")):
                windows.run("reg", "add", SERVICE_KEY, "/v", name, "/t", kind, "/d", value, "/f")
            program = (programs / "pwlapse.exe").read_bytes()
            (programs / "pwlapse.exe").write_bytes(b"damaged")
            (programs / "own.txt").write_text("ours")
            newer = self.newer_msi()
            self.assertEqual(msiexec("/i", newer), 0)
            self.assertEqual({name: service(name) for name in changed}, changed)
            self.assertIn(b"RUNNING", windows.run("sc", "query", SERVICE).stdout)
            self.assertEqual((programs / "pwlapse.exe").read_bytes(), program)
            self.assertEqual(msiexec("/i", self.msi), refused)

            # What is left is the administrator's and what passes have written.
            self.assertEqual(msiexec("/x", newer), 0)
            left = {pathlib.Path(path.lower()) for path in windows.files() - before[0]}
            self.assertEqual({path.name for path in left if path.parent.name != "logfiles"}, LEFT_FILES)
            self.assertEqual(windows.registry_keys() - before[1], LEFT_KEYS)
            self.assertEqual(msiexec("/i", self.msi, r"SERVICEACCOUNT=SITE\pw$", r"WORKDIR=C:\work place"), 0)
            self.assertEqual(service("ObjectName"), r"SITE\pw$")
            self.assertIn(rb"C:\work place", windows.run("reg", "query", SERVICE_KEY + r"\Parameters").stdout)

    def test_zip(self):
        with wine_prefix.WinePrefix() as windows:
            with zipfile.ZipFile(self.zip) as archive:
                archive.extractall(windows.drive)
            [folder] = windows.drive.glob("pwlapse-*")
            # A site's own template is kept.
            system32 = windows.system_folder
            (system32 / "NorvynExpirationEmail.txt").write_text("ours")

            def install(*arguments):
                done = windows.run("cmd", "/c", "install.cmd", *arguments, cwd=folder)
                self.assertEqual(done.stderr, b"")
                return done.returncode, *done.stdout.decode("ascii").splitlines()

            script = (folder / "install.cmd").read_bytes()
            self.assertEqual(script.count(b"\r\n"), script.count(b"\n"))
            for program in folder.glob("*.exe"):
                self.assert_signed(program)
            self.assertTrue((folder / "PolicyDefinitions/de-DE/pwlapse.adml").exists())
            self.assertEqual(install("/x")[0], 2)
            self.assertFalse(windows.key_exists(SERVICE_KEY))
            self.assertEqual(install(), (0, "Norvyn Password Expiration Service installed.",
                                         "Norvyn Password Expiration Service started."))
            self.assertEqual(windows.registry_value(SERVICE_KEY, "ImagePath").lower(),
                             r"c:\windows\pwlapse\pwlapsesvc.exe")
            self.assertEqual(windows.registry_value(SETTINGS_KEY, "reportOnly"), "0x1")
            self.assertEqual((system32 / "NorvynExpirationEmail.txt").read_text(), "ours")
            self.assertTrue((system32 / "NorvynExpirationEmail.html").exists())
            self.assertTrue((system32 / "logfiles").is_dir())

            # An upgrade replaces the programs, and only them.
            windows.run("reg", "add", SERVICE_KEY, "/v", "DelayedAutostart", "/t", "REG_DWORD", "/d", "1", "/f")
            programs = windows.drive / "windows/pwlapse"
            names = ("pwLapseSvc.exe", "pwlapse.exe")
            contents = {name: (folder / name).read_bytes() for name in names}
            (folder / "pwlapse.exe").write_bytes(contents["pwlapse.exe"] + b"+")
            self.assertEqual(install(), (0, "The programs are replaced, and the service runs."))
            self.assertEqual(windows.registry_value(SERVICE_KEY, "DelayedAutostart"), "0x1")
            installed = {name: (programs / name).read_bytes() for name in names}
            self.assertEqual(installed, contents | {"pwlapse.exe": contents["pwlapse.exe"] + b"+"})

            # Whatever goes wrong, the old programs run on: a file in use, a service that does not start.
            (folder / "pwlapse.exe").write_bytes(contents["pwlapse.exe"])
            reader = windows.begin("cmd", "/c", r"ping -n 600 127.0.0.1 < C:\windows\pwlapse\pwlapse.exe > C:\held")
            wait_until((windows.drive / "held").exists)
            self.assertEqual(install()[:2], (1, r"Not installed. A program in C:\windows\pwlapse is in use; "
                                                "the programs are those of before."))
            windows.run("taskkill", "/f", "/im", "ping.exe")
            reader.wait()
            (folder / "pwLapseSvc.exe").write_bytes(b"no program")
            self.assertEqual(install(), (
                1, "Not installed. The new service does not start; the programs are those of before."))
            self.assertEqual({path.name: path.read_bytes() for path in programs.iterdir()}, installed)
            self.assertIn(b"RUNNING", windows.run("sc", "query", SERVICE).stdout)

            self.assertEqual(install("/remove"), (0, "Stopping service...", "Service successfully removed."))
            self.assertFalse(programs.exists())
            self.assertFalse(windows.key_exists(SERVICE_KEY))
            self.assertTrue(windows.key_exists(SETTINGS_KEY))
