"""Drives mail_probe: calls of the mail library's two objects, in one process, with their results."""
import os
import subprocess

from rig import DEBUG, WAIT_SECONDS



def run(calls, **environment):
    """calls: (method, argument...) in their order; returns a list of as many texts."""
    texts = [str(text) for call in calls for text in (*call, "", "")[:3]]
    done = subprocess.run([DEBUG / "tests/e2e/mail_probe"], input="".join(text + "\0" for text in texts).encode(),
                          capture_output=True, timeout=WAIT_SECONDS, env={**os.environ, **environment})
    if done.returncode != 0:
        raise AssertionError(done.stderr.decode("utf-8", "replace"))
    return done.stdout.decode().split("\0")[:-1]
