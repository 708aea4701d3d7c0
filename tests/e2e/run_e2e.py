#!/usr/bin/python3
"""Runs the end-to-end tests: all of this folder, or those named (test_pass, test_ldap.X.test_y).

Needs root, for the servers; uses sudo where there is one that asks nothing. The last line is
"N passed, N failed"; a test that was skipped counts as failed, since what it should have shown was
not shown.
"""
import pathlib
import signal
import sys
import unittest

FOLDER = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(FOLDER))
import own_network  # noqa: E402


def main():
    own_network.enter()
    # Ignored in what a shell runs in the background, or nohup, and so in the programs under test.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGHUP, signal.SIG_DFL)
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
