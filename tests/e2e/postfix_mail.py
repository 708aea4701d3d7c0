"""A mail server for the end-to-end tests: a Postfix of its own, with Dovecot for its logins.

Everything that it has is in one temporary folder; it listens on 127.0.0.1 on free ports, delivers
what it accepts to a mail folder that the tests read, and nothing to anywhere else. It needs root
(Postfix does) and neither touches nor needs the machine's own mail configuration. One
object, one thread.

    with PostfixMail(refused="nobody@example.com") as mail:
        ...send to 127.0.0.1, mail.port...
        for delivered in mail.delivered(): ...
"""
import dataclasses
import email
import email.message
import email.policy
import imaplib
import os
import pwd
import shlex
import subprocess

from rig import WAIT_SECONDS, Rig, free_port, wait_until
from site_files import DOMAIN, fill_templates


@dataclasses.dataclass
class DeliveredMail:
    """One mail as it was delivered; the envelope is what the client said in MAIL and RCPT."""
    recipient: str
    sender: str
    message: email.message.EmailMessage
    raw: bytes


class PostfixMail(Rig):
    def __init__(self, refused="", login=None, tls=None, introspection_port=0):
        """refused: a recipient answered with 550; login: (user name, password), which also offers
        AUTH and takes nothing without; tls: (certificate file, key file), which also offers
        STARTTLS, and TLS from the first byte on tls_port; introspection_port: of a token server, which
        also offers logins by access token."""
        super().__init__()
        self.port, self.tls_port = free_port(), free_port() if tls else None
        self._login = login
        certificate, key = tls or ("", "")
        self._values = {
            "port": self.port, "domain": DOMAIN, "certificate": certificate, "key": key,
            "refusal": refused and "check_recipient_access inline:"
                                   f"{{{{{refused} = 550 5.1.1 {refused}: unknown here}}}}",
            "sasl": "yes" if login else "no", "introspection_port": introspection_port,
            "token_mechanisms": " xoauth2 oauthbearer" if introspection_port else "",
            "client_restrictions": "permit_sasl_authenticated, reject" if login else "",
            "tls_level": "may" if tls else "none",
            "tls_service": f"127.0.0.1:{self.tls_port} inet n - n - - smtpd"
                           " -o smtpd_tls_wrappermode=yes" if tls else ""}

    def start(self):
        """Returns when the server accepts connections."""
        owner = pwd.getpwnam("nobody")
        fill_templates("postfix", self.folder, uid=owner.pw_uid, gid=owner.pw_gid, **self._values)
        self.folder.chmod(0o755)  # the server's processes run under users of their own
        for name in "queue", "mail":
            (self.folder / name).mkdir()
        os.chown(self.folder / "mail", owner.pw_uid, owner.pw_gid)
        if self._login:
            self._start_dovecot(*self._login)
        self._postfix("start")
        self.callback(self._postfix, "stop")

    def delivered(self):
        """The mails delivered so far, in the order of their recipients. First waits until the
        server has nothing left to deliver: what it has accepted is in its queue, or delivered."""
        wait_until(lambda: not self._delivering(),
                   lambda: "mail is not delivered:\n" + self._log("mail.log"))
        mails = [self._read(file.read_bytes()) for file in (self.folder / "mail/new").glob("*")]
        return sorted(mails, key=lambda mail: (mail.recipient, mail.raw))

    def over_imap(self):
        """The same mails as an IMAP server hands them out."""
        self.delivered()
        settings = self.folder / "imap.conf"
        settings.write_text(f"ssl = no\nmail_uid = nobody\nmail_gid = nogroup\nfirst_valid_uid = 0\n"
                            f"base_dir = {self.folder}/imap\nlog_path = {self.folder}/imap.log\n"
                            f"mail_location = maildir:{self.folder}/mail\n")
        with imaplib.IMAP4_stream(f"exec env USER=root HOME={self.folder} doveadm -c {settings} exec imap"
                                  " 2>/dev/null") as box:
            box.select("INBOX", readonly=True)
            numbers = box.search(None, "ALL")[1][0].decode().split()
            return [self._read(box.fetch(number, "(BODY.PEEK[])")[1][0][1]) for number in numbers]

    def _log(self, name):
        file = self.folder / name
        return file.read_text("utf-8", "replace") if file.exists() else ""

    def _postfix(self, command):
        # Not through a pipe: the server would keep it open.
        done = subprocess.run(["postfix", "-c", self.folder, command], timeout=WAIT_SECONDS,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False)
        if done.returncode != 0:
            raise RuntimeError(f"postfix does not {command}:\n" + self._log("mail.log"))

    def _start_dovecot(self, user, password):
        # NTLM is Samba's, whose helper gets the one user and the password as arguments.
        for name, mode, text in (
                ("logins", 0o600, f"{user}:{{PLAIN}}{password}::::::\n"),
                ("ntlm", 0o700, '#!/bin/sh\nexec /usr/bin/ntlm_auth "$@"'
                 f" --username={shlex.quote(user)} --password={shlex.quote(password)}\n")):
            (self.folder / name).touch(mode=mode)
            (self.folder / name).write_text(text)
            os.chown(self.folder / name, pwd.getpwnam("dovecot").pw_uid, -1)
        dovecot = subprocess.Popen(
            ["/usr/sbin/dovecot", "-F", "-c", self.folder / "dovecot.conf"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT)
        self.callback(dovecot.wait, WAIT_SECONDS)
        self.callback(dovecot.terminate)
        wait_until((self.folder / "dovecot/sasl").is_socket,
                   lambda: "Dovecot does not start:\n" + self._log("dovecot.log"))

    def _delivering(self):
        """Whether the queue holds a mail; looked for in the order in which a mail moves, so that
        none is missed. One that cannot be delivered stays in "deferred"."""
        return any(file.is_file() for name in ("maildrop", "incoming", "active", "deferred")
                   for file in (self.folder / "queue" / name).rglob("*"))

    @staticmethod
    def _read(raw):
        message = email.message_from_bytes(raw, policy=email.policy.default)
        return DeliveredMail(str(message["Delivered-To"]),
                             str(message["Return-Path"]).strip("<>"), message, raw)
