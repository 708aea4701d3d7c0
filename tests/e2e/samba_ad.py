"""A real Active Directory domain controller (Samba) for the end-to-end tests.

SambaAd provisions a domain in a temporary folder, runs it on loopback as a child process and takes
both away again. The ports of a domain controller are fixed and its clients ask its name server, so
it is for the network and the mounts that run_e2e.py makes.

    with samba_ad.SambaAd() as ad:
        ad.add_users([site_files.User("jdoe", mail="jdoe@example.test", password_age=80)])
"""

import contextlib
import os
import re
import signal
import subprocess

import site_files
from rig import Rig, run, wait_until

REALM = "EXAMPLE.TEST"
BASE_DN = "DC=example,DC=test"
HOST = "dc1.example.test"  # the name in its certificate and of its Kerberos service
ADMIN = "Administrator@example.test"
ADMIN_PASSWORD = "Rig-Passw0rd!"

_STOP_SECONDS = 10
# Lets pwdLastSet be written as any number, which the directory itself never allows.
_ANY_PWD_LAST_SET = "--controls=local_oid:1.3.6.1.4.1.7165.4.3.20:0"
_DENY_CHANGE = "(OD;;CR;ab721a53-1e2f-11d0-9819-00aa0040529b;;%s)"
_CANNOT_CHANGE = f"D:{_DENY_CHANGE % 'PS'}{_DENY_CHANGE % 'WD'}(A;;RPLCLORC;;;AU)"


class SambaAd(Rig):
    """`environment` is what clients of its Kerberos realm run with."""

    def start(self):
        self.ca_file = self.folder / "ca.pem"
        self.environment = dict(os.environ, KRB5CCNAME=f"FILE:{self.folder}/ccache",
                                KRB5_CONFIG=f"{self.folder}/krb5.conf")
        site_files.fill_templates("samba", self.folder, realm=REALM, host=HOST)
        # Names of the domain, for the processes among these mounts only.
        for name in "hosts", "resolv.conf":
            run("mount", "--bind", self.folder / name, f"/etc/{name}")
            self.callback(run, "umount", f"/etc/{name}")
        site_files.make_certificates(self.folder, HOST)
        self._provision()
        self._ldb("ldbmodify", site_files.ldif_record(
            dn=f"CN=DC1,OU=Domain Controllers,{BASE_DN}", changetype="modify",
            add="servicePrincipalName", servicePrincipalName=f"ldap/{HOST}"))
        self.callback(self.stop_server)
        self.run_server()

    def _provision(self):
        # An empty configuration, so that the machine's own has no say.
        empty, dc = self.folder / "empty.conf", self.folder / "dc"
        empty.touch()
        options = (self.folder / "smb-options").read_text().splitlines()
        run("samba-tool", "domain", "provision", f"--configfile={empty}", "--server-role=dc",
            f"--realm={REALM}", "--domain=EXAMPLE", f"--adminpass={ADMIN_PASSWORD}",
            "--host-name=dc1", "--host-ip=127.0.0.1", f"--targetdir={dc}", "--use-rfc2307",
            *(f"--option={option}" for option in options))
        self._configuration = dc / "etc/smb.conf"

    def run_server(self):
        log = self.folder / "samba.out"
        with open(log, "wb") as output:
            self._server = subprocess.Popen(
                ["samba", "-s", self._configuration, "--interactive", "--model=single"],
                stdin=subprocess.DEVNULL, stdout=output, stderr=output, start_new_session=True)
        ask = ["ldapsearch", "-x", "-LLL", "-H", "ldap://127.0.0.1", "-s", "base", "-b", "", "1.1"]
        wait_until(lambda: subprocess.run(ask, capture_output=True).returncode == 0,
                   lambda: "samba does not come up:\n" + log.read_text(errors="replace"))

    def stop_server(self):
        """The domain goes down; run_server() brings it up again."""
        # Its own process group: the server and what it started, nobody else.
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self._server.pid, signal.SIGTERM)
        try:
            self._server.wait(_STOP_SECONDS)
        except subprocess.TimeoutExpired:
            os.killpg(self._server.pid, signal.SIGKILL)
            self._server.wait()

    # What the domain holds.

    def add_users(self, users):
        """Adds them all in one transaction."""
        users, folder = list(users), f"CN=Users,{BASE_DN}"
        self._ldb("ldbadd", "".join(user.ldif(folder, _CANNOT_CHANGE) for user in users), "--relax")
        self._ldb("ldbmodify", "".join(site_files.ldif_record(
            dn=user.dn(folder), changetype="modify", replace="pwdLastSet", pwdLastSet=user.last_set())
            for user in users), _ANY_PWD_LAST_SET)

    def set_max_password_age(self, days):
        self._ldb("ldbmodify", site_files.ldif_record(
            dn=BASE_DN, changetype="modify", replace="maxPwdAge",
            maxPwdAge=site_files.file_span(days)))

    def add_group(self, name, members):
        """A global security group; members: distinguished names."""
        self._ldb("ldbadd", "".join(
            [f"dn: CN={name},CN=Users,{BASE_DN}\nobjectClass: group\nsAMAccountName: {name}\n",
             *(f"member: {member}\n" for member in members)]))

    def add_password_settings(self, name, precedence, days, targets):
        """A password settings object; days: the maximum age, 0 for none; targets: distinguished names."""
        run("samba-tool", "domain", "passwordsettings", "pso", "create", name, str(precedence),
            f"--max-pwd-age={days}", "--min-pwd-age=0", f"--configfile={self._configuration}")
        self._ldb("ldbmodify", "".join(
            [f"dn: CN={name},CN=Password Settings Container,CN=System,{BASE_DN}\nchangetype: modify\n"
             "add: msDS-PSOAppliesTo\n", *(f"msDS-PSOAppliesTo: {target}\n" for target in targets)]))

    def read(self, kind, *attributes):
        """LDIF of all objects of a class, read from the database itself."""
        return self._ldb("ldbsearch", "", f"(objectClass={kind})", *attributes)

    def modify(self, user, attribute, value):
        self._ldb("ldbmodify", site_files.ldif_record(
            dn=user.dn(f"CN=Users,{BASE_DN}"), changetype="modify", replace=attribute, **{attribute: value}))

    def set_password(self, name, password):
        """Sets pwdLastSet to now as well."""
        run("samba-tool", "user", "setpassword", name, f"--newpassword={password}",
            f"--configfile={self._configuration}")

    def pwd_last_set(self, name):
        """The attribute as a number, read from the database itself."""
        escaped = re.sub(r"[()*\\]", lambda match: f"\\{ord(match.group()):02x}", name)
        found = self._ldb("ldbsearch", "", f"(sAMAccountName={escaped})", "pwdLastSet")
        return int(re.search(r"^pwdLastSet: (-?\d+)$", found, re.MULTILINE).group(1))

    def kinit(self, user):
        run("kinit", f"{user}@{REALM}", input=ADMIN_PASSWORD + "\n", env=self.environment)

    def _ldb(self, tool, ldif, *arguments):
        """Runs ldbadd, ldbmodify or ldbsearch on the domain's database; returns its output."""
        done = run(tool, "-H", self.folder / "dc/private/sam.ldb", *arguments, input=ldif)
        # The exit status is that of the last record only.
        if "failed" in done.stderr:
            raise RuntimeError(f"{tool}: {done.stderr}")
        return done.stdout
