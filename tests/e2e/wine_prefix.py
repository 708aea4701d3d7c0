"""A Windows for the end-to-end tests: a Wine prefix of its own in a temporary folder, gone when it is
stopped. Its clocks say that the machine has been up for a day, since a service that starts with its
machine waits for eight minutes. Needs root for that. One object, one thread.

    with WinePrefix() as windows:
        done = windows.run("program.exe", "argument")
"""
import os
import pathlib
import shutil
import subprocess
import tempfile

UP_SECONDS = 86400
START_SECONDS = 180
RUN_SECONDS = 120


class WineError(RuntimeError):
    """Windows did not do what it was asked to."""


def registry_file(keys):
    """keys: {full key: {name: text or number}}."""
    text = "Windows Registry Editor Version 5.00\r\n"
    for key, values in keys.items():
        text += f"\r\n[{key}]\r\n"
        for name, value in values.items():
            data = f"dword:{value:08x}" if isinstance(value, int) else (
                '"' + value.replace("\\", "\\\\").replace('"', '\\"') + '"')
            text += f'"{name}"={data}\r\n'
    return text


class WinePrefix:
    def __init__(self):
        self._base = pathlib.Path(tempfile.mkdtemp(prefix="wine-"))
        self.folder = self._base / "prefix"
        self.folder.mkdir()  # the server wants to be in it
        self.environment = {
            **os.environ, "WINEPREFIX": str(self.folder), "WINEDEBUG": "-all", "LC_ALL": "C.UTF-8",
            "TMPDIR": str(self._base),  # the server leaves a folder there
            # Without its debugger a program that crashes says so by its exit status.
            "WINEDLLOVERRIDES": "winedbg.exe=d;mscoree=d;mshtml=d"}

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    def start(self):
        try:
            # A server that waits for its clients only would take the service manager along with the
            # first of them that ends.
            self._command("wineserver", "-p", seconds=START_SECONDS)
            # Without an option: the first program of all starts the service manager, an option would
            # start a second one beside it.
            self._command("wineboot", seconds=START_SECONDS)
        except BaseException:
            self.stop()
            raise

    def stop(self):
        """Ends every program in it, and removes it. May be called at any time."""
        for option in "-k", "-w":
            subprocess.run(["wineserver", option], env=self.environment, timeout=START_SECONDS,
                           stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, check=False)
        shutil.rmtree(self._base, ignore_errors=True)

    @property
    def drive(self):
        return self.folder / "drive_c"

    @property
    def system_folder(self):
        """Where a service finds and leaves its files."""
        return self.drive / "windows/system32"

    def run(self, program, *arguments, seconds=RUN_SECONDS, **options):
        """A program to its end; its output as bytes."""
        return subprocess.run(self._in_time("wine", program, *arguments), env=self.environment,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=seconds,
                              check=False, **options)

    def import_registry(self, keys):
        """keys: as for registry_file."""
        file = self._base / "import.reg"
        file.write_bytes(b"\xff\xfe" + registry_file(keys).encode("utf-16-le"))
        self._command("wine", "regedit", "/S", str(file))

    def registry_value(self, key, name):
        """As "reg query" prints it; None when there is none."""
        done = self.run("reg", "query", key, "/v", name)
        lines = [line.split() for line in done.stdout.decode("ascii", "replace").splitlines()]
        return next((line[2] for line in lines if line[:1] == [name] and len(line) == 3), None)

    def key_exists(self, key):
        return self.run("reg", "query", key).returncode == 0

    def use_dlls_beside(self, program, *names):
        """The DLLs of these names beside a program, in place of the system's."""
        self.import_registry({
            rf"HKEY_CURRENT_USER\Software\Wine\AppDefaults\{program}\DllOverrides":
                {name: "native,builtin" for name in names}})

    def _command(self, *command, seconds=RUN_SECONDS):
        # Not through a pipe: the server would keep it open.
        done = subprocess.run(self._in_time(*command), env=self.environment, timeout=seconds,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False)
        if done.returncode != 0 and command[0] != "wineserver":
            raise WineError(f"{command[0]}: exit status {done.returncode}")

    @staticmethod
    def _in_time(*command):
        return ["unshare", "--time", "--fork", f"--monotonic={UP_SECONDS}", f"--boottime={UP_SECONDS}",
                *map(str, command)]
