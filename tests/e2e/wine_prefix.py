"""A Windows for the end-to-end tests: a Wine prefix of its own in a temporary folder, gone when it is
stopped. Its clocks say that the machine has been up for a day, since a service that starts with its
machine waits for eight minutes. Needs root for that. One object, one thread.

    with WinePrefix() as windows:
        done = windows.run("program.exe", "argument")
"""
import os
import shutil
import subprocess

import site_files
from rig import ROOT, WINDOWS, Rig

UP_SECONDS = 86400
WAIT_SECONDS = 180
# DLLs of the system for which a file of the same name elsewhere is preferred, if it is looked for. The
# others Wine's own DLLs load, too, and from the folder of the program.
DLLS_LIKE_THE_SYSTEMS = ("netapi32", "activeds", "security")
DLLS_OF_OTHERS = ("crypt32", "dnsapi", "winhttp")


class WinePrefix(Rig):
    def __init__(self, locale="C"):
        """locale: decides the ANSI code page; "C" has 1252."""
        self.locale = locale
        super().__init__()

    def start(self):
        prefix = self.folder / "prefix"
        prefix.mkdir()  # the server wants to be in it
        self.drive = prefix / "drive_c"
        # Where a service finds and leaves its files.
        self.system_folder = self.drive / "windows/system32"
        self.environment = {
            **os.environ, "WINEPREFIX": str(prefix), "WINEDEBUG": "-all", "LC_ALL": f"{self.locale}.UTF-8",
            "TMPDIR": str(self.folder),  # the server leaves a folder there
            # Without its debugger a program that crashes says so by its exit status.
            "WINEDLLOVERRIDES":
                f"winedbg.exe=d;mscoree=d;mshtml=d;{','.join(DLLS_LIKE_THE_SYSTEMS + DLLS_OF_OTHERS)},advapi32=n,b"}
        self.callback(self._command, "wineserver", "-w")
        self.callback(self._command, "wineserver", "-k")  # ends every program in it
        # A server that waits for its clients only would take the service manager along with the
        # first of them that ends.
        self._command("wineserver", "-p")
        # Without an option: the first program of all starts the service manager, an option would
        # start a second one beside it.
        self._command("wineboot")

    def run(self, program, *arguments, given=b"", **options):
        """A program to its end; its output as bytes. given: its standard input."""
        return subprocess.run(self._in_time("wine", program, *arguments), env=self.environment,
                              input=given, capture_output=True, timeout=WAIT_SECONDS, check=False, **options)

    def run_in_console(self, program, *arguments, **options):
        """The same in a console, which a pseudo-terminal makes."""
        end, console = os.openpty()
        try:
            subprocess.run(self._in_time("wine", program, *arguments), env=self.environment, stdin=console,
                           stdout=console, stderr=console, timeout=WAIT_SECONDS, check=True, **options)
        finally:
            os.close(end)
            os.close(console)

    def begin(self, program, *arguments):
        """A program in the background."""
        none = subprocess.DEVNULL
        return subprocess.Popen(self._in_time("wine", program, *arguments), env=self.environment,
                                stdin=none, stdout=none, stderr=none)

    def record_events(self):
        """Events of the program are lines of events.log in the system's folder from now on."""
        own = (self.system_folder / "advapi32.dll").read_bytes()
        # Not taken for a part of Wine, of which there is none by that name.
        (self.system_folder / "advapiw.dll").write_bytes(own.replace(b"Wine builtin DLL", b"Copy of a Wine's"))
        (self.system_folder / "advapi32.dll").unlink()
        shutil.copy(WINDOWS / "tests/e2e/wine/advapi32.dll", self.system_folder)

    def import_registry(self, keys):
        """keys: as for site_files.registry_file."""
        file = self.folder / "import.reg"
        file.write_bytes(site_files.registry_file(keys))
        self._command("wine", "regedit", "/S", str(file))

    def registry_value(self, key, name):
        """As "reg query" prints it; None when there is none."""
        done = self.run("reg", "query", key, "/v", name)
        lines = [line.split() for line in done.stdout.decode("ascii", "replace").splitlines()]
        return next((line[2] for line in lines if line[:1] == [name] and len(line) == 3), None)

    def files(self):
        """Of all folders but that of the user, in which Windows keeps files of its own."""
        return {path.relative_to(self.drive).as_posix() for path in self.drive.rglob("*")
                if path.is_file() and path.name != "package.msi" and not path.is_relative_to(self.drive / "users")}

    def registry_keys(self):
        """Below HKEY_LOCAL_MACHINE, without what Windows itself keeps of packages and screens."""
        file = self.drive / "keys.reg"
        self._command("wine", "regedit", "/E", "C:\\keys.reg", "HKEY_LOCAL_MACHINE")
        lines = file.read_text("utf-16").splitlines()
        file.unlink()
        return {line for line in lines if line.startswith("[")
                and "\\Installer" not in line and "\\Control\\Video" not in line}

    def key_exists(self, key):
        return self.run("reg", "query", key).returncode == 0

    def _command(self, *command):
        # Not through a pipe: the server would keep it open.
        done = subprocess.run(self._in_time(*command), env=self.environment, timeout=WAIT_SECONDS,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False)
        if done.returncode != 0 and command[0] != "wineserver":
            raise RuntimeError(f"{command[0]}: exit status {done.returncode}")

    @staticmethod
    def _in_time(*command):
        return [ROOT / "scripts/fixed_layout", "unshare", "--time", "--fork", f"--monotonic={UP_SECONDS}",
                f"--boottime={UP_SECONDS}", *map(str, command)]
