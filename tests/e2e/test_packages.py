"""The packages: what is in them, installed, tried and removed again. The Debian package goes into a root of
its own, the zip into a Windows of its own."""
import os
import pathlib
import subprocess
import tempfile
import unittest
import zipfile

import wine_prefix
from rig import RELEASE, WINDOWS, run

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
        dpkg = ["dpkg", f"--root={root}", "--force-script-chrootless", "--force-depends", "--no-triggers"]
        before = self.files(root)
        run(*dpkg, "--install", package)
        self.check_programs(root)

        (root / "etc/pwlapse/registry.reg").touch()
        (root / "var/lib/pwlapse/logfiles").mkdir(parents=True)
        run(*dpkg, "--purge", "pwlapse")
        # Settings are the administrator's.
        self.assertEqual(self.files(root) - before, {"etc/pwlapse/registry.reg"})

    @staticmethod
    def files(root):
        return {str(path.relative_to(root)) for path in root.rglob("*")
                if path.is_file() and not path.is_relative_to(root / "var/lib/dpkg")}

    def check_programs(self, root):
        unit = root / "usr/lib/systemd/system" / UNIT
        self.assertIn('\nExecStart=/usr/sbin/pwLapseSvc\n', unit.read_text())
        complaints = subprocess.run(["systemd-analyze", "verify", "--man=no", f"--root={root}", UNIT],
                                    capture_output=True, text=True).stderr
        self.assertEqual([line for line in complaints.splitlines() if line.startswith(str(unit))], [])
        self.assertEqual((root / "etc/pwlapse").stat().st_mode & 0o777, 0o750)

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

            done = windows.run("cmd", "/c", "install.cmd", cwd=folder)
            self.assertEqual((done.returncode, done.stdout.decode("ascii").splitlines()), (0, [
                "Norvyn Password Expiration Service installed.",
                "Norvyn Password Expiration Service started."]), done.stderr)
            self.assertEqual(windows.registry_value(SERVICE_KEY, "ImagePath").lower(),
                             r"c:\windows\pwlapse\pwlapsesvc.exe")
            self.assertEqual(windows.registry_value(SETTINGS_KEY, "reportOnly"), "0x1")
            self.assertEqual((system32 / "NorvynExpirationEmail.txt").read_text(), "ours")
            self.assertTrue((system32 / "NorvynExpirationEmail.html").exists())
            self.assertTrue((system32 / "logfiles").is_dir())

            done = windows.run("cmd", "/c", "install.cmd", cwd=folder)  # in place of itself
            self.assertEqual((done.returncode, done.stdout.decode("ascii").splitlines()), (0, [
                "Stopping service...", "Service successfully removed.",
                "Norvyn Password Expiration Service installed.",
                "Norvyn Password Expiration Service started."]), done.stderr)

            done = windows.run("cmd", "/c", "install.cmd", "/remove", cwd=folder)
            self.assertEqual(done.stdout.decode("ascii").splitlines(), [
                "Stopping service...", "Service successfully removed."], done.stderr)
            self.assertFalse((windows.drive / "windows/pwlapse").exists())
            self.assertFalse(windows.key_exists(SERVICE_KEY))
            self.assertTrue(windows.key_exists(SETTINGS_KEY))
