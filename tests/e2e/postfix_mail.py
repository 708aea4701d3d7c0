"""A mail server for the end-to-end tests: a Postfix of its own, with Dovecot for its logins.

Everything that it has is in one temporary folder; it listens on 127.0.0.1 on free ports, delivers
what it accepts to a mail folder that the tests read, and nothing to anywhere else. It needs root
(Postfix does) and neither touches nor needs the machine's own mail configuration. One
object, one thread.

    with PostfixMail(domain="example.com", refused=["nobody@example.com"]) as mail:
        ...send to 127.0.0.1, mail.port...
        for delivered in mail.delivered(): ...
"""
import dataclasses
import email
import email.message
import email.policy
import grp
import os
import pathlib
import pwd
import select
import shlex
import shutil
import signal
import socket
import subprocess
import tempfile
import time

DAEMONS = "/usr/lib/postfix/sbin"
START_SECONDS = 60
STOP_SECONDS = 30
DELIVERY_SECONDS = 60
MECHANISMS = "plain login cram-md5 ntlm"

MAIN_CF = """\
compatibility_level = 3.6
queue_directory = {folder}/queue
data_directory = {folder}/data
command_directory = /usr/sbin
daemon_directory = {daemons}
mail_owner = postfix
setgid_group = postdrop
maillog_file = {folder}/mail.log
maillog_file_prefixes = {folder}
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = mail.{domain}
mydestination =
mynetworks_style = host
alias_maps =
alias_database =
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
smtpd_recipient_restrictions = check_recipient_access texthash:{folder}/recipients
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
"""

# No service is in a chroot; the limits of processes are those of the program.
MASTER_CF = """\
127.0.0.1:{port} inet n - n - - smtpd
{tls_service}
pickup unix n - n 60 1 pickup
cleanup unix n - n - 0 cleanup
qmgr unix n - n 300 1 qmgr
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
trace unix - - n - 0 bounce
flush unix n - n 1000? 0 flush
proxymap unix - - n - - proxymap
error unix - - n - - error
retry unix - - n - - error
discard unix - - n - - discard
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
auth_mechanisms = {mechanisms}
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


class PostfixError(RuntimeError):
    """The mail server did not do what it was asked to; the text holds the end of its log."""


@dataclasses.dataclass
class DeliveredMail:
    """One mail as it was delivered; the envelope is what the client said in MAIL and RCPT."""
    recipient: str
    sender: str
    message: email.message.EmailMessage
    raw: bytes


class PostfixMail:
    def __init__(self, domain="example.com", refused=(), logins=None, login_required=False,
                 tls=None):
        """refused: recipients answered with 550; logins: user names with their passwords, which
        also offers AUTH; login_required: nothing is taken without one; tls: (certificate file, key
        file), which also offers STARTTLS, and TLS from the first byte on tls_port."""
        self.domain = domain
        self.port = _free_port()
        self.tls_port = _free_port() if tls else None
        self._refused = list(refused)
        self._logins = dict(logins or {})
        self._login_required = login_required
        self._tls = tls
        self._folder = None
        self._dovecot = None
        self._master = None  # a descriptor of the process

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    def start(self):
        """Returns when the server accepts connections."""
        self._folder = pathlib.Path(tempfile.mkdtemp(prefix="postfix-"))
        try:
            self._folder.chmod(0o755)  # the server's processes run under users of their own
            self._write_files()
            if self._logins:
                self._start_dovecot()
            self._start_postfix()
        except BaseException:
            self.stop()
            raise

    def stop(self):
        """Ends the server and removes its folder with all mail in it. May be called at any time."""
        if self._master is not None:
            signal.pidfd_send_signal(self._master, signal.SIGTERM)
            if not select.select([self._master], [], [], STOP_SECONDS)[0]:
                signal.pidfd_send_signal(self._master, signal.SIGKILL)
            os.close(self._master)
            self._master = None
        if self._dovecot is not None:
            self._dovecot.terminate()
            self._dovecot.wait(STOP_SECONDS)
            self._dovecot = None
        if self._folder is not None:
            shutil.rmtree(self._folder, ignore_errors=True)
            self._folder = None

    def delivered(self):
        """The mails delivered so far, in the order of their recipients. First waits until the
        server has nothing left to deliver: what it has accepted is in its queue, or delivered."""
        deadline = time.monotonic() + DELIVERY_SECONDS
        while self._waiting():
            if time.monotonic() > deadline:
                raise PostfixError("mail is not delivered:\n" + self.log())
            time.sleep(0.02)
        mails = [self._read(file) for file in (self._folder / "mail/new").glob("*")]
        return sorted(mails, key=lambda mail: (mail.recipient, mail.raw))

    def log(self):
        file = self._folder / "mail.log"
        return file.read_text("utf-8", "replace") if file.exists() else ""

    def _write_files(self):
        owner = pwd.getpwnam("nobody")
        certificate, key = self._tls or ("", "")
        values = {
            "folder": self._folder, "domain": self.domain, "daemons": DAEMONS, "port": self.port,
            "uid": owner.pw_uid, "gid": owner.pw_gid, "mechanisms": MECHANISMS,
            "sasl": "yes" if self._logins else "no",
            "client_restrictions":
                "permit_sasl_authenticated, reject" if self._login_required else "",
            "tls_level": "may" if self._tls else "none", "certificate": certificate, "key": key,
            "tls_service": f"127.0.0.1:{self.tls_port} inet n - n - - smtpd"
                           " -o smtpd_tls_wrappermode=yes" if self._tls else "",
        }
        for name, text in (("main.cf", MAIN_CF), ("master.cf", MASTER_CF),
                           ("dovecot.conf", DOVECOT_CONF)):
            (self._folder / name).write_text(text.format(**values))
        (self._folder / "recipients").write_text(
            "".join(f"{address} 550 5.1.1 {address}: unknown here\n" for address in self._refused))
        if self._logins:
            self._write_logins()

        postfix, postdrop = pwd.getpwnam("postfix").pw_uid, grp.getgrnam("postdrop").gr_gid
        self._make_folder("data", 0o700, postfix, -1)
        self._make_folder("mail", 0o700, owner.pw_uid, owner.pw_gid)
        self._make_folder("queue", 0o755, 0, -1)
        self._make_folder("queue/pid", 0o755, 0, -1)
        self._make_folder("queue/maildrop", 0o730, postfix, postdrop)
        self._make_folder("queue/public", 0o710, postfix, postdrop)
        for name in ("active", "bounce", "corrupt", "defer", "deferred", "flush", "hold",
                     "incoming", "private", "saved", "trace"):
            self._make_folder("queue/" + name, 0o700, postfix, -1)

    def _make_folder(self, name, mode, user, group):
        folder = self._folder / name
        folder.mkdir()
        os.chown(folder, user, group)
        folder.chmod(mode)

    def _write_logins(self):
        self._dovecot_file("logins", 0o600, "".join(
            f"{user}:{{PLAIN}}{password}::::::\n" for user, password in self._logins.items()))
        # NTLM is Samba's, which knows but one user without a domain: the first.
        user, password = map(shlex.quote, next(iter(self._logins.items())))
        self._dovecot_file("ntlm", 0o700, "#!/bin/sh\nexec /usr/bin/ntlm_auth \"$@\""
                                          f" --username={user} --password={password}\n")

    def _dovecot_file(self, name, mode, text):
        file = self._folder / name
        file.touch(mode=mode)
        file.write_text(text)
        os.chown(file, pwd.getpwnam("dovecot").pw_uid, -1)

    def _start_postfix(self):
        # -w: comes back when the server is ready, or could not be started.
        done = subprocess.run([DAEMONS + "/master", "-w", "-c", self._folder],
                              timeout=START_SECONDS, stdin=subprocess.DEVNULL,
                              capture_output=True, check=False)
        if done.returncode != 0:
            raise PostfixError("Postfix does not start: " +
                               done.stderr.decode("utf-8", "replace") + self.log())
        self._master = os.pidfd_open(int((self._folder / "queue/pid/master.pid").read_text()))

    def _start_dovecot(self):
        self._dovecot = subprocess.Popen(
            ["/usr/sbin/dovecot", "-F", "-c", self._folder / "dovecot.conf"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT)
        deadline = time.monotonic() + START_SECONDS
        while not (self._folder / "dovecot/sasl").is_socket():
            if self._dovecot.poll() is not None or time.monotonic() > deadline:
                log = self._folder / "dovecot.log"
                raise PostfixError("Dovecot does not start: " +
                                   (log.read_text() if log.exists() else ""))
            time.sleep(0.02)

    def _waiting(self):
        """Whether the queue holds a mail; looked for in the order in which a mail moves, so that
        none is missed. One that cannot be delivered stays in "deferred"."""
        return any(file.is_file() for name in ("maildrop", "incoming", "active", "deferred")
                   for file in (self._folder / "queue" / name).rglob("*"))

    @staticmethod
    def _read(file):
        raw = file.read_bytes()
        message = email.message_from_bytes(raw, policy=email.policy.default)
        return DeliveredMail(recipient=str(message["Delivered-To"]),
                             sender=str(message["Return-Path"]).strip("<>"), message=message,
                             raw=raw)


def make_certificates(folder):
    """Writes, in PEM, for the host name "localhost": self.pem, which signed itself, and host.pem,
    which the authority in ca.pem signed; each with its key in NAME.key."""
    def openssl(*arguments):
        subprocess.run(["openssl", *arguments], cwd=folder, check=True, capture_output=True)

    make = ("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
            "-days", "2")
    name = ("-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost")
    openssl(*make, "-keyout", "self.key", "-out", "self.pem", *name)
    openssl(*make, "-keyout", "ca.key", "-out", "ca.pem", "-subj", "/CN=Test authority")
    openssl(*make, "-keyout", "host.key", "-out", "host.pem", *name, "-CA", "ca.pem", "-CAkey",
            "ca.key", "-addext", "basicConstraints=critical,CA:FALSE")


def _free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]
