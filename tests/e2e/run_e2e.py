#!/usr/bin/python3
"""Runs the end-to-end tests: all of this folder, or those named (test_pass, test_ldap.X.test_y).

Needs root, for the servers; uses sudo. Runs in a network of its own, where every port is free and
nothing reaches the outside, with mounts of its own. The last line is "N passed, N failed"; a test
that was skipped counts as failed, since what it should have shown was not shown.
"""
import os
import pathlib
import subprocess
import sys
import unittest

FOLDER = pathlib.Path(__file__).resolve().parent
OWN_NETWORK = "PWLAPSE_E2E_OWN_NETWORK"  # set in there


def main():
    if os.geteuid() != 0:
        os.execvp("sudo", ["sudo", "-n", "--", *sys.orig_argv])
    if OWN_NETWORK not in os.environ:
        os.environ[OWN_NETWORK] = "1"
        os.execvp("unshare", ["unshare", "--net", "--mount", *sys.orig_argv])
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    sys.path.insert(0, str(FOLDER))
    loader = unittest.TestLoader()
    names = sys.argv[1:]
    suite = loader.loadTestsFromNames(names) if names else loader.discover(str(FOLDER))
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2).run(suite)
    not_passed = [test for test, _ in result.failures + result.errors + result.skipped]
    not_passed += result.unexpectedSuccesses
    # A subtest stands for its test. A class that cannot set up fails without running one.
    bad = {getattr(test, "test_case", test).id(): test for test in not_passed}
    passed = result.testsRun - sum(isinstance(test, unittest.TestCase) for test in bad.values())
    print(f"{passed} passed, {len(bad)} failed")
    sys.exit(0 if not bad and passed > 0 else 1)


main()
