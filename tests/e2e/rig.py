"""What the servers of the tests have in common."""
import contextlib
import pathlib
import socket
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
DEBUG, RELEASE, WINDOWS = (ROOT / "build" / name for name in ("debug", "release", "windows"))
PROGRAM = RELEASE / "console/pwlapse"
WAIT_SECONDS = 60


class Rig(contextlib.ExitStack):
    """`start` brings it up in `folder`, which is temporary, and leaves as callbacks what ends it."""

    def __enter__(self):
        try:
            self.folder = pathlib.Path(self.enter_context(
                tempfile.TemporaryDirectory(prefix="pwlapse-rig-", ignore_cleanup_errors=True)))
            self.start()
        except BaseException:
            self.close()
            raise
        return self


def run(*command, **options):
    """Runs it to its end; that it fails is an error, with what it said."""
    done = subprocess.run(command, text=True, capture_output=True, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{command}: {done.returncode}\n{done.stdout[-2000:]}{done.stderr[-2000:]}")
    return done


def wait_until(condition, complaint=lambda: "timed out", seconds=WAIT_SECONDS):
    deadline = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise RuntimeError(complaint())
        time.sleep(0.02)
    return result


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]
