"""The service program as systemd meets it: notifications, the signals that control it, a pause in the middle
of a pass, installation. A socket of the test and a systemctl that takes notes stand for systemd, whose own
checker looks at the unit. The program gets an /etc of its own, in a mount namespace, and a clock that says
that the machine has been up for long: a service that starts with its machine waits for eight minutes.
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
import unittest

import site_files
from rig import RELEASE, WAIT_SECONDS, wait_until

PROGRAM = RELEASE / "service/pwLapseSvc"
UNIT = "NRVPasswordExpiration.service"
RT_SIGSUSPEND = "130 "  # as /proc shows the system call that a thread is in
USAGE = ("NRVPasswordExpiration -install          install service\n"
         "NRVPasswordExpiration -remove           remove service\n")


class ServiceTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.etc = self.folder / "etc"
        self.registry = self.etc / "pwlapse/registry.reg"
        for name in "work", "bin", "run/systemd/system":
            (self.folder / name).mkdir(parents=True)
        subprocess.run(["cp", "-a", "/etc", self.etc], check=True)
        self.registry.parent.mkdir(exist_ok=True)
        for name in "systemctl", "systemd-sysusers", "systemd-tmpfiles":
            program = self.folder / "bin" / name
            program.write_text(f'#!/bin/sh\necho "${{0##*/}} $*" >> {self.folder}/calls\n'
                               '[ "$2" != "${FAILS-x}" ] && [ "${0##*/}" != "${FAILS-x}" ]\n')
            program.chmod(0o755)

    def set_up_site(self, users, age, port=9):
        ldif = self.folder / "domain.ldif"
        ldif.write_text(site_files.domain_ldif(site_files.person(name, age) for name in users))
        self.registry.write_bytes(site_files.registry_file({
            **site_files.site_registry(port, emailAdminReports=0),
            r"Software\Kadro\PwsentryPro\Directory": {"uri": f"ldif:{ldif}"}}))

    def begin(self, *arguments, program=PROGRAM, **environment):
        """Starts the program, with as few powers as its unit leaves it; nothing outside of its namespaces
        is changed."""
        script = ('mount --make-rprivate / && mount --bind "$1/etc" /etc && mount --bind "$1/run" /run && '
                  'shift && exec setpriv --bounding-set=-all --no-new-privs "$@"')
        process = subprocess.Popen(
            ["unshare", "--mount", "--time", "--boottime", "86400", "--fork", "--kill-child", "sh", "-c",
             script, "sh", self.folder, program, *arguments],
            cwd=self.folder / "work", stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            env=dict(os.environ, PATH=f"{self.folder}/bin:{os.environ['PATH']}", **environment))
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)  # takes the program along
        return process

    def call(self, *arguments, **options):
        process = self.begin(*arguments, **options)
        output, errors = process.communicate(timeout=WAIT_SECONDS)
        return process.returncode, output, errors

    def start(self):
        self.manager = self.enterContext(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM))
        self.manager.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
        self.manager.settimeout(WAIT_SECONDS)
        self.manager.bind(f"{self.folder}/notify")
        return self.begin(NOTIFY_SOCKET=f"{self.folder}/notify")

    def expect(self, *messages):
        for message in messages:
            data, ancillary, _, _ = self.manager.recvmsg(4096, 1024)
            self.assertEqual(data.decode(), message)
            self.pid = struct.unpack("iii", ancillary[0][2])[0]

    def start_up(self):
        process = self.start()
        self.expect(*["STATUS=Starting"] * 3, "READY=1\nSTATUS=Running")
        return process

    def pause(self):
        os.kill(self.pid, signal.SIGUSR1)
        self.expect("STATUS=Pausing", "STATUS=Paused")

    def proceed(self):
        os.kill(self.pid, signal.SIGUSR2)
        self.expect("STATUS=Continuing", "READY=1\nSTATUS=Running")

    def stop(self, process):
        os.kill(self.pid, signal.SIGTERM)
        self.expect("STOPPING=1\nSTATUS=Stopping", "STOPPING=1\nSTATUS=Stopped")
        output, errors = process.communicate(timeout=WAIT_SECONDS)
        self.assertEqual((output[:len(USAGE)], errors, process.returncode), (USAGE, "", 0))

    def is_frozen(self):
        return any((task / "syscall").read_text().startswith(RT_SIGSUSPEND)
                   for task in pathlib.Path(f"/proc/{self.pid}/task").iterdir())

    def test_a_pause_freezes_the_worker_in_the_middle_of_a_mail_that_then_fails(self):
        server = self.enterContext(socket.create_server(("127.0.0.1", 0)))
        server.settimeout(WAIT_SECONDS)
        self.set_up_site(["walter"], 59, server.getsockname()[1])
        process = self.start_up()
        connection, _ = server.accept()  # the mail waits for the greeting
        self.enterContext(connection)
        self.pause()
        wait_until(self.is_frozen)
        connection.sendall(b"220 here\r\n")
        os.kill(self.pid, signal.SIGUSR1)  # a second pause is not taken, and says nothing
        with self.assertRaises(BlockingIOError):
            connection.recv(1, socket.MSG_DONTWAIT)
        wait_until(self.is_frozen)
        self.proceed()
        connection.settimeout(WAIT_SECONDS)
        self.assertRegex(connection.recv(100), b"^(EHLO|HELO) ")
        os.kill(self.pid, signal.SIGUSR2)  # nor a second continue
        connection.close()
        for line in ("FAILED: mail to walter <walter@example.com> was not sent: "
                     r"127.0.0.1:\d+: EHLO: connection (closed|reset) by the server",
                     "note: what the mail server said to the last mail that failed is in "
                     "errors-norvyn-email.xml",
                     r"pass over 1 line in 1 list, in \d+ s: 1 mail failed; 0 mails sent; 1 problem; "
                     "the next pass is in 24 h"):
            self.assertRegex(process.stderr.readline(), rf"\ApwLapseSvc: {line}\n\Z")
        os.kill(self.pid, signal.SIGHUP)  # nothing to a service
        self.stop(process)

    def test_pauses_anywhere_and_stops_while_paused(self):
        # More users than a pass gets through meanwhile: the worker allocates and writes its debug log all
        # the time, and is frozen while it holds locks.
        self.set_up_site([f"user{number}" for number in range(50000)], 10)
        process = self.start_up()
        log = self.folder / "work/logfiles/norvyn-expiration-debug.log"
        wait_until(lambda: log.exists() and b"username=user0\n" in log.read_bytes())
        for _ in range(300):
            self.pause()
            self.proceed()
        self.pause()
        self.assertNotIn(b"username=user49999\n", log.read_bytes())
        self.stop(process)

    def test_does_not_start_without_settings_or_a_service_manager(self):
        for arguments in [], ["-x"]:
            self.assertEqual(self.call(*arguments), (
                1063 % 256, USAGE + "In StartServiceCtrlDispatcherError number: 1063\n", ""))
        self.registry.write_text("Windows Registry Editor Version 5.00\nx\n")
        process = self.start()
        self.expect(*["STATUS=Starting"] * 2, "STOPPING=1\nSTATUS=Stopped, error 1009")
        output, errors = process.communicate(timeout=WAIT_SECONDS)
        self.assertEqual(output, USAGE)
        self.assertRegex(errors, r"^pwLapseSvc: \S+registry\.reg:2: .+\n$")

    def test_installs_and_removes_its_unit(self):
        program = self.folder / "a b %d/pwLapseSvc"
        program.parent.mkdir()
        shutil.copy(PROGRAM, program)
        unit = self.etc / "systemd/system" / UNIT
        failed = "CreateService failed - The s"
        for step in "systemd-sysusers", "systemd-tmpfiles", "daemon-reload":
            status, output, _ = self.call("-install", program=program, FAILS=step)
            self.assertEqual((status, output[:len(failed)]), (0, failed))
        unit.unlink()
        (self.folder / "calls").unlink()

        name = "Norvyn Password Expiration Service"
        self.assertEqual(self.call("-Install", program=program),
                         (0, f"{name} installed.\n{name} started.\n", ""))
        self.assertIn("\nDescription=Handles password age settings for Norvyn Password Filter\n",
                      unit.read_text())
        self.assertEqual(unit.stat().st_mode & 0o777, 0o644)
        self.check_unit(unit)
        self.assertIn("already exists. (0x431)", self.call("/INSTALL")[1])
        self.assertEqual(self.call("-remove"),
                         (0, "Stopping service...\nService successfully removed.\n", ""))
        for file in unit, self.etc / "sysusers.d/pwlapse.conf", self.etc / "tmpfiles.d/pwlapse.conf":
            self.assertFalse(file.exists())
        calls = (self.folder / "calls").read_text().replace("systemctl --quiet ", "").replace(" " + UNIT, "")
        self.assertEqual(calls.splitlines(), [
            "systemd-sysusers /etc/sysusers.d/pwlapse.conf",
            "systemd-tmpfiles --create /etc/tmpfiles.d/pwlapse.conf",
            "daemon-reload", "enable", "start", "daemon-reload", "enable", "is-active", "stop",
            "disable --now", "daemon-reload"])
        self.assertIn("Problems removing service. Error number: 1060\n", self.call("-remove")[1])

    def check_unit(self, unit):
        """systemd accepts the unit, its program's path too, and rates its sandbox."""
        copy = self.folder / UNIT
        shutil.copy(unit, copy)
        done = subprocess.run(["systemd-analyze", "verify", "--man=no", copy], capture_output=True,
                              text=True)
        self.assertEqual((done.returncode, [line for line in done.stderr.splitlines() if UNIT in line]),
                         (0, []))
        done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", copy],
                              capture_output=True, text=True)
        exposure = re.search(r"exposure level for \S+: ([\d.]+)", done.stdout)
        self.assertLess(float(exposure[1]), 3.0)
