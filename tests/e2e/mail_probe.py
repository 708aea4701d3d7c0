"""Drives mail_probe: calls of the mail library's two objects, in one process, with their results."""
import os
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROBE = os.environ.get("MAIL_PROBE", ROOT / "build/debug/tests/e2e/mail_probe")
CALL_SECONDS = 60
_ESCAPES = (("\\", "\\\\"), ("\t", "\\t"), ("\r", "\\r"), ("\n", "\\n"))


def run(calls, environment=None):
    """calls: (method, argument...) in their order; returns a list of as many texts."""
    lines = ["\t".join(_escaped(str(part)) for part in call) for call in calls]
    done = subprocess.run([PROBE], input=("\n".join(lines) + "\n").encode(), capture_output=True,
                          timeout=CALL_SECONDS, env={**os.environ, **(environment or {})})
    if done.returncode != 0:
        raise AssertionError(done.stderr.decode("utf-8", "replace"))
    return [_plain(line) for line in done.stdout.decode().split("\n")[:-1]]


def _escaped(text):
    for plain, escape in _ESCAPES:
        text = text.replace(plain, escape)
    return text


def _plain(line):
    pieces = line.split("\\\\")
    for plain, escape in _ESCAPES[1:]:
        pieces = [piece.replace(escape, plain) for piece in pieces]
    return "\\".join(pieces)
