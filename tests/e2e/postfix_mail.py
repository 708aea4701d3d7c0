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
import os
import pwd
import shlex
import subprocess

from rig import WAIT_SECONDS, Rig, free_port, wait_until
from site_files import DOMAIN

MAIN_CF = """\
compatibility_level = 3.6
queue_directory = {folder}/queue
data_directory = {folder}/data
maillog_file = {folder}/mail.log
maillog_file_prefixes = {folder}
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = mail.{domain}
mydestination =
alias_maps =
local_recipient_maps =
local_transport = error:no local delivery
default_transport = error:nothing leaves this machine
virtual_mailbox_domains = {domain}
virtual_mailbox_base = {folder}
virtual_mailbox_maps = static:mail/
virtual_uid_maps = static:{uid}
virtual_gid_maps = static:{gid}
virtual_minimum_uid = 1
smtpd_relay_restrictions = reject_unauth_destination
smtpd_client_restrictions = {client_restrictions}
smtpd_recipient_restrictions = {refusal}
smtpd_peername_lookup = no
smtpd_client_connection_count_limit = 0
smtpd_error_sleep_time = 0
message_drop_headers =
smtpd_sasl_auth_enable = {sasl}
smtpd_sasl_type = dovecot
smtpd_sasl_path = {folder}/dovecot/sasl
smtpd_sasl_security_options = noanonymous
smtpd_tls_security_level = {tls_level}
smtpd_tls_cert_file = {certificate}
smtpd_tls_key_file = {key}
smtpd_tls_ask_ccert = yes
smtpd_tls_received_header = yes
"""

# No service is in a chroot; the limits of processes are those of the program.
MASTER_CF = """\
127.0.0.1:{port} inet n - n - - smtpd
{tls_service}
cleanup unix n - n - 0 cleanup
qmgr unix n - n 300 1 qmgr
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
error unix - - n - - error
virtual unix - n n - - virtual
anvil unix - - n - 1 anvil
tlsmgr unix - - n 1000? 1 tlsmgr
postlog unix-dgram n - n - 1 postlogd
"""

DOVECOT_CONF = """\
base_dir = {folder}/dovecot
state_dir = {folder}/dovecot
log_path = {folder}/dovecot.log
protocols =
ssl = no
auth_mechanisms = plain login cram-md5 ntlm
auth_failure_delay = 0
auth_use_winbind = yes
auth_winbind_helper_path = {folder}/ntlm
default_vsz_limit = 0
disable_plaintext_auth = no
passdb {{
  driver = passwd-file
  args = {folder}/logins
}}
userdb {{
  driver = static
  args = uid={uid} gid={gid} home={folder}
}}
# A wrong password slows down nobody.
service anvil {{
  unix_listener anvil-auth-penalty {{
    mode = 0
  }}
}}
service auth {{
  unix_listener sasl {{
    mode = 0600
    user = postfix
  }}
}}
"""


@dataclasses.dataclass
class DeliveredMail:
    """One mail as it was delivered; the envelope is what the client said in MAIL and RCPT."""
    recipient: str
    sender: str
    message: email.message.EmailMessage
    raw: bytes


class PostfixMail(Rig):
    def __init__(self, refused="", login=None, tls=None):
        """refused: a recipient answered with 550; login: (user name, password), which also offers
        AUTH and takes nothing without; tls: (certificate file, key file), which also offers
        STARTTLS, and TLS from the first byte on tls_port."""
        super().__init__()
        self.port, self.tls_port = free_port(), free_port() if tls else None
        self._login = login
        certificate, key = tls or ("", "")
        self._values = {
            "port": self.port, "domain": DOMAIN, "certificate": certificate, "key": key,
            "refusal": refused and "check_recipient_access inline:"
                                   f"{{{{{refused} = 550 5.1.1 {refused}: unknown here}}}}",
            "sasl": "yes" if login else "no",
            "client_restrictions": "permit_sasl_authenticated, reject" if login else "",
            "tls_level": "may" if tls else "none",
            "tls_service": f"127.0.0.1:{self.tls_port} inet n - n - - smtpd"
                           " -o smtpd_tls_wrappermode=yes" if tls else ""}

    def start(self):
        """Returns when the server accepts connections."""
        owner = pwd.getpwnam("nobody")
        for name, text in (("main.cf", MAIN_CF), ("master.cf", MASTER_CF),
                           ("dovecot.conf", DOVECOT_CONF)):
            (self.folder / name).write_text(text.format(
                folder=self.folder, uid=owner.pw_uid, gid=owner.pw_gid, **self._values))
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
        mails = [self._read(file) for file in (self.folder / "mail/new").glob("*")]
        return sorted(mails, key=lambda mail: (mail.recipient, mail.raw))

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
    def _read(file):
        raw = file.read_bytes()
        message = email.message_from_bytes(raw, policy=email.policy.default)
        return DeliveredMail(str(message["Delivered-To"]),
                             str(message["Return-Path"]).strip("<>"), message, raw)
