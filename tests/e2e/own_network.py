"""A network and mounts of a program's own: every port is free there, nothing reaches the outside."""
import os
import subprocess
import sys

_INSIDE = "PWLAPSE_OWN_NETWORK"


def enter():
    """Starts this program again in there, as root, by sudo where that asks nothing; returns inside."""
    if os.geteuid() != 0:
        if subprocess.run(["sh", "-c", "sudo -n true"], capture_output=True).returncode != 0:
            sys.exit(f"{sys.argv[0]}: servers are started as root")
        os.execvp("sudo", ["sudo", "-n", "-E", "--", *sys.orig_argv])
    if _INSIDE not in os.environ:
        os.environ[_INSIDE] = "1"
        os.execvp("unshare", ["unshare", "--net", "--mount", *sys.orig_argv])
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
