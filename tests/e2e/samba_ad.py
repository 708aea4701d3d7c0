"""A real Active Directory domain controller (Samba) for the end-to-end tests.

SambaAd provisions a domain in a temporary folder, runs it on loopback as a child process and takes
both away again. The ports of a domain controller are fixed, so a test program first calls
enter_own_network(): it starts itself again inside a network namespace of its own, where every port
is free, the host names of the domain resolve and nothing reaches the outside. Where namespaces are
not allowed the plain loopback is used, and a port that is taken is one clear message.

    samba_ad.enter_own_network()
    with samba_ad.SambaAd() as ad:
        ad.add_users([samba_ad.User("jdoe", mail="jdoe@example.test", password_age=80)])

Needs root, and Debian's samba-ad-dc, samba-ad-provision, ldb-tools, krb5-user and openssl. Standard
library only.
"""

import base64
import dataclasses
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

REALM = "EXAMPLE.TEST"
BASE_DN = "DC=example,DC=test"
ADMIN = "Administrator@example.test"
ADMIN_PASSWORD = "Rig-Passw0rd!"

_MARK = "PWLAPSE_E2E_OWN_NETWORK"
_PORTS = (53, 88, 389, 464, 636)
_START_SECONDS = 60
_STOP_SECONDS = 10
_FILETIME_EPOCH = 11644473600  # seconds from 1601 to 1970
_SECONDS_PER_DAY = 86400
# Lets pwdLastSet be written as any number, which the directory itself never allows.
_ANY_PWD_LAST_SET = "--controls=local_oid:1.3.6.1.4.1.7165.4.3.20:0"
_CHANGE_PASSWORD = "ab721a53-1e2f-11d0-9819-00aa0040529b"

UF_DISABLED = 0x2
UF_NORMAL_ACCOUNT = 0x200
UF_WORKSTATION = 0x1000
UF_NEVER_EXPIRES = 0x10000


def in_own_network():
    return os.environ.get(_MARK) == "1"


def enter_own_network():
    """Starts this program again in namespaces of its own; returns when it runs there already, or
    when that is not possible."""
    if in_own_network():
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        return
    unshare = ["unshare", "--net", "--mount"]
    if shutil.which("unshare") is None or subprocess.run(
            [*unshare, "true"], capture_output=True).returncode != 0:
        return
    os.environ[_MARK] = "1"
    os.execvp("unshare", [*unshare, sys.executable, *sys.orig_argv[1:]])


@dataclasses.dataclass
class User:
    name: str  # sAMAccountName; a directory takes none of "/\\[]:;|=,+*?<> in it
    cn: str = ""  # where it differs from the name
    mail: str = ""
    given_name: str = ""
    surname: str = ""
    password_age: float | None = 0  # days; None: to be changed at next logon
    disabled: bool = False
    never_expires: bool = False
    cant_change: bool = False
    computer: bool = False

    @property
    def dn(self):
        return f"CN={_escape_rdn(self.cn or self.name)},CN=Users,{BASE_DN}"

    def ldif(self):
        control = UF_WORKSTATION if self.computer else UF_NORMAL_ACCOUNT
        control |= UF_DISABLED if self.disabled else 0
        control |= UF_NEVER_EXPIRES if self.never_expires else 0
        values = [("dn", self.dn),
                  ("objectClass", "computer" if self.computer else "user"),
                  ("sAMAccountName", self.name),
                  ("userAccountControl", str(control)),
                  ("mail", self.mail), ("givenName", self.given_name), ("sn", self.surname)]
        if self.cant_change:
            denials = "".join(f"(OD;;CR;{_CHANGE_PASSWORD};;{sid})" for sid in ("PS", "WD"))
            values.append(("nTSecurityDescriptor", f"D:{denials}(A;;RPLCLORC;;;AU)"))
        return "".join(_ldif_line(name, value) for name, value in values if value) + "\n"

    def file_time(self, now):
        if self.password_age is None:
            return 0
        return int((now - self.password_age * _SECONDS_PER_DAY + _FILETIME_EPOCH) * 10_000_000)


class SambaAd:
    """One domain, from start() to stop(). `uri_host` is the name its certificate and its Kerberos
    service go by; `environment` is what clients of its Kerberos realm run with."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="pwlapse-ad-"))
        self.uri_host = "dc1.example.test" if in_own_network() else "localhost"
        self.ca_file = self.folder / "ca.pem"
        self.environment = dict(os.environ, KRB5_CONFIG=str(self.folder / "krb5.conf"),
                                KRB5CCNAME=f"FILE:{self.folder}/ccache")
        self._server = None

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    def start(self):
        try:
            self._require_free_ports()
            self._provision()
            self._make_certificate()
            self._write_configuration()
            self._bind_system_files()
            self._add_service_names()
            self.run_server()
        except BaseException:
            self.stop()
            raise

    def stop(self):
        self.stop_server()
        if in_own_network():
            for name in ("hosts", "resolv.conf"):
                subprocess.run(["umount", f"/etc/{name}"], capture_output=True)
        shutil.rmtree(self.folder, ignore_errors=True)

    def stop_server(self):
        """The domain goes down; run_server() brings it up again."""
        if self._server is None:
            return
        # Its own process group: the server and what it started, nobody else.
        os.killpg(self._server.pid, signal.SIGTERM)
        try:
            self._server.wait(_STOP_SECONDS)
        except subprocess.TimeoutExpired:
            os.killpg(self._server.pid, signal.SIGKILL)
            self._server.wait()
        self._server = None

    # What the domain holds.

    def add_users(self, users):
        """Adds them all in one transaction."""
        now = time.time()
        users = list(users)
        self.ldb("ldbadd", "".join(user.ldif() for user in users), "--relax")
        self.ldb("ldbmodify", "".join(
            _ldif_line("dn", user.dn) +
            f"changetype: modify\nreplace: pwdLastSet\npwdLastSet: {user.file_time(now)}\n\n"
            for user in users), _ANY_PWD_LAST_SET)

    def set_max_password_age(self, days):
        span = -int(days * _SECONDS_PER_DAY * 10_000_000) if days else -0x8000000000000000
        self.ldb("ldbmodify", f"dn: {BASE_DN}\nchangetype: modify\nreplace: maxPwdAge\n"
                              f"maxPwdAge: {span}\n")

    def set_password(self, name, password):
        """Sets pwdLastSet to now as well."""
        _run(["samba-tool", "user", "setpassword", name, f"--newpassword={password}",
              f"--configfile={self.folder}/smb.conf"])

    def pwd_last_set(self, name):
        """The attribute as a number, read from the database itself."""
        found = self.ldb("ldbsearch", "", f"(sAMAccountName={_escape_filter(name)})", "pwdLastSet")
        return int(re.search(r"^pwdLastSet: (-?\d+)$", found, re.MULTILINE).group(1))

    def ldb(self, tool, ldif, *arguments):
        """Runs ldbadd, ldbmodify or ldbsearch on the domain's database; returns its output."""
        done = _run([tool, "-H", self.folder / "dc/private/sam.ldb", *arguments], input=ldif)
        # The exit status is that of the last record only.
        if "failed" in done.stderr:
            raise RuntimeError(f"{tool}: {done.stderr}")
        return done.stdout

    def kinit(self, principal="Administrator", password=ADMIN_PASSWORD):
        _run(["kinit", f"{principal}@{REALM}"], input=password + "\n", env=self.environment)

    # How it is made.

    def _require_free_ports(self):
        for port in _PORTS:
            with socket.socket() as probe:
                probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                try:
                    probe.bind(("127.0.0.1", port))
                except OSError as error:
                    raise RuntimeError(f"a domain controller needs port {port} of 127.0.0.1: "
                                       f"{error.strerror}") from error

    def _provision(self):
        # An empty configuration, so that the machine's own has no say.
        empty = self.folder / "empty.conf"
        empty.write_text("")
        _run(["samba-tool", "domain", "provision", f"--configfile={empty}", "--server-role=dc",
              f"--realm={REALM}", "--domain=EXAMPLE", f"--adminpass={ADMIN_PASSWORD}",
              "--host-name=dc1", "--host-ip=127.0.0.1", f"--targetdir={self.folder}/dc",
              "--option=interfaces=lo", "--option=bind interfaces only=yes",
              "--option=vfs objects=dfs_samba4 acl_xattr xattr_tdb", "--use-rfc2307"])

    def _make_certificate(self):
        """An authority and a host certificate that has the names in the place clients look."""
        names = self.folder / "names.ext"
        # For "localhost" libldap looks for the name of the machine.
        machine = {socket.gethostname(), socket.getfqdn()}
        names.write_text("subjectAltName=" + ",".join(
            f"DNS:{name}" for name in ("dc1.example.test", "localhost", *machine)) + "\n")

        def openssl(*arguments):
            _run(["openssl", *arguments], cwd=self.folder)

        key = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes")
        openssl("req", "-x509", *key, "-keyout", "ca.key", "-out", "ca.pem", "-days", "2",
                "-subj", "/CN=Rig CA")
        openssl("req", *key, "-keyout", "host.key", "-out", "host.csr", "-subj",
                "/CN=dc1.example.test")
        openssl("x509", "-req", "-in", "host.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
                "-CAcreateserial", "-out", "host.pem", "-days", "2", "-extfile", "names.ext")
        (self.folder / "host.key").chmod(0o600)

    def _write_configuration(self):
        folder, dc = self.folder, self.folder / "dc"
        (folder / "smb.conf").write_text(f"""[global]
netbios name = DC1
realm = {REALM}
workgroup = EXAMPLE
server role = active directory domain controller
server services = ldap, kdc, cldap, dns
interfaces = lo
bind interfaces only = yes
private dir = {dc}/private
state directory = {dc}/state
cache directory = {dc}/cache
lock directory = {dc}
binddns dir = {dc}/bind-dns
pid directory = {dc}
ncalrpc dir = {dc}/ncalrpc
log file = {folder}/log.samba
logging = file
ldap server require strong auth = allow_sasl_over_tls
tls keyfile = {folder}/host.key
tls certfile = {folder}/host.pem
tls cafile = {folder}/ca.pem
""")
        (folder / "krb5.conf").write_text(f"""[libdefaults]
default_realm = {REALM}
dns_lookup_kdc = false
dns_lookup_realm = false
dns_canonicalize_hostname = false
rdns = false
[realms]
{REALM} = {{
kdc = 127.0.0.1
}}
[domain_realm]
.example.test = {REALM}
localhost = {REALM}
""")

    def _bind_system_files(self):
        """Names of the domain, for the processes in these namespaces only."""
        if not in_own_network():
            return
        (self.folder / "hosts").write_text("127.0.0.1 localhost\n127.0.0.1 dc1.example.test dc1\n")
        (self.folder / "resolv.conf").write_text("nameserver 127.0.0.1\noptions timeout:2\n")
        for name in ("hosts", "resolv.conf"):
            _run(["mount", "--bind", self.folder / name, f"/etc/{name}"])

    def _add_service_names(self):
        self.ldb("ldbmodify", f"dn: CN=DC1,OU=Domain Controllers,{BASE_DN}\nchangetype: modify\n"
                              "add: servicePrincipalName\nservicePrincipalName: ldap/localhost\n"
                              "servicePrincipalName: ldap/dc1.example.test\n")

    def run_server(self):
        with open(self.folder / "samba.out", "wb") as output:
            self._server = subprocess.Popen(
                ["samba", "-s", self.folder / "smb.conf", "--interactive", "--model=single"],
                stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                start_new_session=True)
        deadline = time.monotonic() + _START_SECONDS
        while not self._answers():
            if self._server.poll() is not None or time.monotonic() > deadline:
                output = (self.folder / "samba.out").read_text(errors="replace")
                raise RuntimeError(f"samba does not come up:\n{output[-2000:]}")
            time.sleep(0.05)

    def _answers(self):
        return subprocess.run(
            ["ldapsearch", "-x", "-LLL", "-H", "ldap://127.0.0.1", "-s", "base", "-b", "",
             "defaultNamingContext"], capture_output=True).stdout.count(BASE_DN.encode()) == 1


def _run(command, **options):
    done = subprocess.run([str(part) for part in command], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{command[0]} failed:\n{done.stdout[-2000:]}{done.stderr[-2000:]}")
    return done


def _ldif_line(name, value):
    if value.isascii() and value.isprintable() and value[0] not in " :<" and value[-1] != " ":
        return f"{name}: {value}\n"
    return f"{name}:: {base64.b64encode(value.encode()).decode()}\n"


def _escape_rdn(text):
    return re.sub(r'([,+"\\<>;=#])', r"\\\1", text)


def _escape_filter(text):
    return re.sub(r"[()*\\]", lambda match: f"\\{ord(match.group()):02x}", text)
