"""The packages: what is in them, installed, tried and removed again. The Debian package goes into a root of
its own, the zip into a Windows of its own."""
import os
import pathlib
import subprocess
import tempfile
import unittest
import zipfile

import wine_prefix
from rig import RELEASE, WINDOWS, run, wait_until

UNIT = "NRVPasswordExpiration.service"
SERVICE_KEY = r"HKLM\System\CurrentControlSet\Services\NRVPasswordExpiration"
SETTINGS_KEY = r"HKLM\Software\Policies\Kadro\PwsentryProMPE\PWExpiration"


class PackageTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def package(self, build, pattern):
        run("cpack", "--config", build / "CPackConfig.cmake", "-B", self.folder / "cpack")
        [package] = (self.folder / "cpack").glob(pattern)
        return package


class DebianPackageTest(PackageTest):
    def test_installs_and_purges(self):
        package = self.package(RELEASE, "*.deb")
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
        package = self.package(RELEASE, "*.deb")
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


class WindowsPackageTest(PackageTest):
    def test_installs_and_removes(self):
        package = self.package(WINDOWS, "*.zip")
        with wine_prefix.WinePrefix() as windows:
            with zipfile.ZipFile(package) as archive:
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
            self.assertTrue((folder / "settings.md").exists())
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
            self.assertIn(b"RUNNING", windows.run("sc", "query", SERVICE_KEY.rpartition("\\")[2]).stdout)

            self.assertEqual(install("/remove"), (0, "Stopping service...", "Service successfully removed."))
            self.assertFalse(programs.exists())
            self.assertFalse(windows.key_exists(SERVICE_KEY))
            self.assertTrue(windows.key_exists(SETTINGS_KEY))
