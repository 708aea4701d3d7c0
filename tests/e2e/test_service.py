"""The service program as systemd meets it: its notifications, the signals that control it, a pause in the
middle of a pass, and its installation. A socket of the test takes systemd's place, and a systemctl that
takes notes; systemd's own checker looks at the unit.

The program reads /etc/pwlapse, so it gets an /etc of its own, in a mount namespace, and a clock that says
that the machine has been up for long (a service that starts with its machine waits for eight minutes).
"""
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = pathlib.Path(os.environ.get("SERVICE_PROGRAM", ROOT / "build/release/service/pwLapseSvc"))
UNIT = "NRVPasswordExpiration.service"
RT_SIGSUSPEND = "130 "  # as /proc shows the system call that a thread is in
TIMEOUT = 60  # seconds that anything may take before a test fails

USAGE = ("NRVPasswordExpiration -install          install service\n"
         "NRVPasswordExpiration -remove           remove service\n")

REGISTRY = r"""Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\Software\Policies\Kadro\PwsentryProMPE]
"expirationServiceDebug"=dword:00000001

[HKEY_LOCAL_MACHINE\Software\Policies\Kadro\PwsentryProMPE\DefaultPolicy]
"policyName"="Everybody"
"maxPasswordAge"=dword:0000002a
"emailWarnings"=dword:00000001

[HKEY_LOCAL_MACHINE\Software\Policies\Kadro\PwsentryProMPE\PWExpiration]
"smtpServer"="127.0.0.1"
"smtpPort"=dword:{port:08x}
"htmllog"=dword:00000001
"expirationDelay"=dword:00000e10

[HKEY_LOCAL_MACHINE\Software\Kadro\PwsentryPro\Directory]
"uri"="ldif:{ldif}"
"""

HEAD = """dn: DC=site,DC=example
objectClass: domainDNS
maxPwdAge: -9223372036854775808

"""

USER = """dn: CN={name},DC=site,DC=example
objectClass: user
objectCategory: CN=Person,CN=Schema,CN=Configuration,DC=site,DC=example
sAMAccountName: {name}
userAccountControl: 512
mail: {name}@site.example
givenName: Given
sn: Surname
pwdLastSet: {last_set}

"""


def file_time(days_ago):
    return int((time.time() - days_ago * 86400 + 11644473600) * 10**7)


class Site:
    """A folder with a registry, a directory and a systemctl, seen by programs that are started in it."""

    def __init__(self):
        self._folder = tempfile.TemporaryDirectory(prefix="pwlapse-service-")
        self.folder = pathlib.Path(self._folder.name)
        self.etc = self.folder / "etc"
        self.run = self.folder / "run"
        self.work = self.folder / "work"
        for folder in (self.run / "systemd/system", self.work, self.folder / "bin"):
            folder.mkdir(parents=True)
        subprocess.run(["cp", "-a", "/etc", self.etc], check=True)
        (self.etc / "pwlapse").mkdir(exist_ok=True)
        systemctl = self.folder / "bin/systemctl"
        systemctl.write_text(f'#!/bin/sh\necho "$*" >> {self.folder}/calls\n')
        systemctl.chmod(0o755)

    def close(self):
        self._folder.cleanup()

    def set_up(self, users, port=9):
        ldif = self.folder / "domain.ldif"
        ldif.write_text(HEAD + "".join(USER.format(name=name, last_set=file_time(age))
                                       for name, age in users))
        (self.etc / "pwlapse/registry.reg").write_text(
            REGISTRY.format(port=port, ldif=ldif))

    def command(self, *arguments):
        """The program with /etc and /run of the site. Nothing outside the namespace is changed."""
        script = ('set -e; mount --make-rprivate /; mount --bind "$1" /etc; mount --bind "$2" /run; '
                  'shift 2; exec "$@"')
        return ["unshare", "--mount", "--time", "--boottime", "86400", "--fork", "--kill-child",
                "sh", "-c", script, "sh", self.etc, self.run, PROGRAM, *arguments]

    def environment(self, **more):
        return dict(os.environ, PATH=f"{self.folder}/bin:{os.environ['PATH']}", **more)

    def call(self, *arguments):
        done = subprocess.run(self.command(*arguments), cwd=self.work, env=self.environment(),
                              capture_output=True, text=True, timeout=TIMEOUT)
        return done.returncode, done.stdout, done.stderr

    def systemctl_calls(self):
        calls = self.folder / "calls"
        text = calls.read_text() if calls.exists() else ""
        calls.unlink(missing_ok=True)
        return text.splitlines()


class Service:
    """The program under the test's own service manager."""

    def __init__(self, site):
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.manager.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
        self.manager.settimeout(TIMEOUT)
        path = site.folder / "notify"
        path.unlink(missing_ok=True)
        self.manager.bind(str(path))
        self.process = subprocess.Popen(
            site.command(), cwd=site.work, env=site.environment(NOTIFY_SOCKET=str(path)),
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.pid = None

    def next_message(self):
        data, ancillary, _, _ = self.manager.recvmsg(4096, 1024)
        self.pid = struct.unpack("iii", ancillary[0][2])[0]
        return data.decode()

    def kill(self, number):
        os.kill(self.pid, number)

    def end(self):
        """What it printed, its errors and its exit status."""
        output, errors = self.process.communicate(timeout=TIMEOUT)
        self.manager.close()
        return output, errors, self.process.returncode

    def abandon(self):
        if self.process.poll() is None:
            self.process.kill()  # takes the program along
            self.process.communicate()
        self.manager.close()

    def await_frozen(self):
        """Until a thread waits for the one signal that thaws it."""
        def frozen(task):
            return (task / "syscall").read_text().startswith(RT_SIGSUSPEND)
        deadline = time.monotonic() + TIMEOUT
        while not any(map(frozen, pathlib.Path(f"/proc/{self.pid}/task").iterdir())):
            if time.monotonic() > deadline:
                raise AssertionError("no thread of the service is frozen")


class ServiceTest(unittest.TestCase):
    def setUp(self):
        self.site = Site()
        self.addCleanup(self.site.close)

    def start(self):
        service = Service(self.site)
        self.addCleanup(service.abandon)
        self.expect(service, *["STATUS=Starting"] * 3, "READY=1\nSTATUS=Running")
        return service

    def expect(self, service, *messages):
        self.assertEqual([service.next_message() for _ in messages], list(messages))

    def stop(self, service):
        service.kill(signal.SIGTERM)
        self.expect(service, "STOPPING=1\nSTATUS=Stopping", "STOPPING=1\nSTATUS=Stopped")
        output, errors, status = service.end()
        self.assertEqual((output[:len(USAGE)], errors, status), (USAGE, "", 0))

    def mail_server(self):
        server = socket.create_server(("127.0.0.1", 0))
        server.settimeout(TIMEOUT)
        self.addCleanup(server.close)
        return server, server.getsockname()[1]

    def test_a_pause_freezes_the_worker_in_the_middle_of_a_pass(self):
        server, port = self.mail_server()
        self.site.set_up([("walter", 40)], port)
        service = self.start()
        connection, _ = server.accept()
        self.addCleanup(connection.close)
        connection.settimeout(TIMEOUT)

        # The pass waits for the server's greeting.
        service.kill(signal.SIGUSR1)
        self.expect(service, "STATUS=Pausing", "STATUS=Paused")
        service.await_frozen()
        connection.sendall(b"220 here\r\n")
        service.kill(signal.SIGUSR1)  # a second pause is not taken, and says nothing
        connection.setblocking(False)
        with self.assertRaises(BlockingIOError):
            connection.recv(1)
        service.await_frozen()

        connection.settimeout(TIMEOUT)
        service.kill(signal.SIGUSR2)
        self.expect(service, "STATUS=Continuing", "READY=1\nSTATUS=Running")
        self.assertRegex(connection.recv(100), b"^(EHLO|HELO) ")
        service.kill(signal.SIGUSR2)  # nor a second continue
        self.stop(service)

    def test_pauses_anywhere_and_stops_while_paused(self):
        # Far more users than a pass gets through meanwhile: the worker allocates and writes its debug log
        # all the time, and is frozen with locks in its hands.
        self.site.set_up([(f"user{number}", 10) for number in range(50000)])
        service = self.start()
        log = self.site.work / "logfiles/norvyn-expiration-debug.log"
        while not (log.exists() and b"username=user0\n" in log.read_bytes()):
            time.sleep(0.01)
        for _ in range(300):
            service.kill(signal.SIGUSR1)
            self.expect(service, "STATUS=Pausing", "STATUS=Paused")
            service.kill(signal.SIGUSR2)
            self.expect(service, "STATUS=Continuing", "READY=1\nSTATUS=Running")
        service.kill(signal.SIGUSR1)
        self.expect(service, "STATUS=Pausing", "STATUS=Paused")
        size = log.stat().st_size
        self.assertNotIn(b"username=user49999\n", log.read_bytes())
        self.assertEqual(log.stat().st_size, size)
        self.stop(service)

    def test_a_registry_that_cannot_be_used_stops_the_start(self):
        (self.site.etc / "pwlapse/registry.reg").write_text("Windows Registry Editor Version 5.00\nx\n")
        service = Service(self.site)
        self.addCleanup(service.abandon)
        self.expect(service, "STATUS=Starting", "STATUS=Starting",
                    "STOPPING=1\nSTATUS=Stopped, error 1009")
        output, errors, _ = service.end()
        self.assertEqual(output, USAGE)
        self.assertRegex(errors, r"^pwLapseSvc: \S+registry\.reg:2: .+\n$")

    def test_started_by_hand_it_shows_the_usage_and_gives_up(self):
        for arguments in ([], ["-x"]):
            status, output, errors = self.site.call(*arguments)
            self.assertEqual(
                (output, errors),
                (USAGE + "In StartServiceCtrlDispatcherError number: 1063\n", ""))
            self.assertEqual(status, 1063 % 256)

    def test_installs_and_removes_its_unit(self):
        unit = self.site.etc / "systemd/system" / UNIT
        self.assertEqual(self.site.call("-Install"), (0, (
            "Norvyn Password Expiration Service installed.\n"
            "Norvyn Password Expiration Service started.\n"), ""))
        self.assertEqual(self.site.systemctl_calls(), [
            "--quiet daemon-reload", f"--quiet enable {UNIT}", f"--quiet start {UNIT}",
            "--quiet daemon-reload", f"--quiet enable {UNIT}"])
        text = unit.read_text()
        self.assertIn("\nDescription=Handles password age settings for Norvyn Password Filter\n", text)
        self.assertIn(f'\nExecStart="{PROGRAM}"\n', text)
        self.check_unit(unit)

        status, output, _ = self.site.call("/INSTALL")
        self.assertEqual((status, output), (
            0, "CreateService failed - The specified service already exists. (0x431)\n"))

        self.assertEqual(self.site.call("-remove"), (0, (
            "Stopping service...\nService successfully removed.\n"), ""))
        self.assertFalse(unit.exists())
        self.assertEqual(self.site.systemctl_calls(), [
            f"--quiet is-active {UNIT}", f"--quiet stop {UNIT}", f"--quiet disable --now {UNIT}",
            "--quiet daemon-reload"])
        self.assertEqual(self.site.call("-remove"), (0, (
            "Problems removing service. Error number: 1060\n"
            "Problems getting service status. Error number: 6\n"
            "Stopping service...\n"
            "Problems stopping service. Error number: 6\n"
            "Problems deleting service. Error number: 6\n"), ""))

    def check_unit(self, unit):
        """systemd finds nothing wrong with the unit, and it is well shut in."""
        copy = self.site.folder / UNIT
        shutil.copy(unit, copy)
        done = subprocess.run(["systemd-analyze", "verify", "--man=no", copy], capture_output=True,
                              text=True)
        complaints = [line for line in done.stderr.splitlines() if UNIT in line]
        self.assertEqual((done.returncode, complaints), (0, []), done.stderr)
        done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", copy],
                              capture_output=True, text=True)
        exposure = re.search(r"exposure level for \S+: ([\d.]+)", done.stdout)
        self.assertIsNotNone(exposure, done.stdout + done.stderr)
        self.assertLess(float(exposure[1]), 3.0)
