"""Passes that are killed at random moments, each with a second pass behind it.

PWLAPSE_KILLS in the environment says how many; some are enough for every day.
"""
import collections
import os
import pathlib
import random
import socketserver
import subprocess
import tempfile
import threading
import time
import unittest

import site_files
from rig import PROGRAM

KILLS = int(os.environ.get("PWLAPSE_KILLS", 20))
USERS = [site_files.person(f"user{i}", (46, 53, 59)[i % 3]) for i in range(300)]


class Recorder(socketserver.StreamRequestHandler):
    """A mail server that counts the mails of each recipient."""
    mails = collections.Counter()

    def handle(self):
        self.wfile.write(b"220 ready\r\n")
        while line := self.rfile.readline().strip():
            verb = line[:4].upper()
            if verb == b"RCPT":
                recipient = line[line.index(b"<") + 1:line.index(b"@")].decode()
            elif verb == b"DATA":
                self.wfile.write(b"354 go on\r\n")
                while (text := self.rfile.readline()) != b".\r\n":
                    if not text:
                        return
                self.mails[recipient] += 1
            elif verb == b"QUIT":
                return
            self.wfile.write(b"250 ok\r\n")


class KilledPassTest(unittest.TestCase):
    def test_nobody_is_mailed_twice_or_missed(self):
        server = self.enterContext(socketserver.ThreadingTCPServer(("127.0.0.1", 0), Recorder))
        server.daemon_threads, server.handle_error = True, lambda *_: None  # who was killed hangs up
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.shutdown)
        keys = site_files.site_registry(server.server_address[1], rememberWarnings=1, emailAdminReports=0)
        chance, length, midst, twice = random.Random(os.environ.get("PWLAPSE_KILLS", "")), 0, 0, 0
        for kill in range(KILLS + 1):
            with self.subTest(kill), tempfile.TemporaryDirectory() as folder:
                command = [PROGRAM, "run", *site_files.write_site(pathlib.Path(folder), USERS, keys)]
                Recorder.mails.clear()
                began = time.monotonic()
                with subprocess.Popen(command, stdout=subprocess.DEVNULL) as process:
                    if kill > 0:  # the first one is left alone, and shows how long a pass takes
                        time.sleep(chance.uniform(0, length))
                        process.kill()
                length = length or time.monotonic() - began
                mailed = len(Recorder.mails)
                midst += 0 < mailed < len(USERS)
                subprocess.run(command, stdout=subprocess.DEVNULL, check=True)
                again = [name for name, count in Recorder.mails.items() if count > 1]
                twice += len(again)
                self.assertEqual(len(Recorder.mails), len(USERS), f"{mailed} before the kill")
                # The mail in hand: accepted, and not yet recorded.
                self.assertLessEqual(len(again), 1 if kill > 0 else 0, again)
        print(f"{KILLS} kills, {midst} between the first mail and the last; {twice} mails in hand went out twice")
        self.assertGreater(midst, KILLS // 4)
