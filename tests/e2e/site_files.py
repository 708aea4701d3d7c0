"""Files that the tests give to programs: a registry, a domain as LDIF, certificates."""
import base64
import dataclasses
import pathlib
import re
import string
import subprocess
import time

DOMAIN = "example.com"  # of the mail addresses
ADMIN_MAIL = f"admin@{DOMAIN}"
POLICIES = r"Software\Policies\Kadro\PwsentryProMPE"
SETTINGS = POLICIES + r"\PWExpiration"

_FILETIME_EPOCH = 11644473600  # seconds from 1601 to 1970
_SECONDS_PER_DAY = 86400
# Denies SELF the right to change the password.
_DENY_CHANGE = base64.b64decode(
    "AQAEgAAAAAAAAAAAAAAAABQAAAAEADAAAQAAAAYAKAAAAQAAAQAAAFMacqsvHtARmBkAqgBAUpsBAQAAAAAABQoAAAA=")


def file_time(seconds):
    """A time of this system's clock, as a directory keeps it."""
    return int((seconds + _FILETIME_EPOCH) * 10**7)


def file_span(days):
    """An interval as a directory keeps it."""
    return -days * _SECONDS_PER_DAY * 10**7


def site_registry(port, **settings):
    """The keys of a site that mails to a port: the maximum age is 60 days, warnings go out 14, 7 and
    1 days before."""
    return {
        POLICIES: {"expirationServiceDebug": 1},
        POLICIES + r"\DefaultPolicy": {
            "policyName": "Everybody", "maxPasswordAge": 60, "emailWarnings": 1},
        SETTINGS: {
            "smtpServer": "127.0.0.1", "smtpPort": port, "htmllog": 1, "emailAdminReports": 1,
            "adminEmailAddress": ADMIN_MAIL, "emailFromAddress": f"Help Desk <desk@{DOMAIN}>",
            "warning1": 14, "warning2": 7, "warning3": 1, **settings},
    }


def registry_file(keys):
    """keys: {key below HKEY_LOCAL_MACHINE: {name: text or number}}. In the bytes of an export."""
    text = "Windows Registry Editor Version 5.00\r\n"
    for key, values in keys.items():
        text += f"\r\n[HKEY_LOCAL_MACHINE\\{key}]\r\n"
        for name, value in values.items():
            data = f"dword:{value:08x}" if isinstance(value, int) else (
                '"' + str(value).replace("\\", "\\\\").replace('"', '\\"') + '"')
            text += f'"{name}"={data}\r\n'
    return b"\xff\xfe" + text.encode("utf-16-le")


def ldif_record(**values):
    """Those that are not empty; in base64 what is more than letters and digits."""
    record = ""
    for name, value in values.items():
        text = value if isinstance(value, bytes) else str(value).encode()
        if text.isalnum():
            record += f"{name}: {text.decode()}\n"
        elif text:
            record += f"{name}:: {base64.b64encode(text).decode()}\n"
    return record + "\n"


@dataclasses.dataclass
class User:
    """An account of a directory. Its password is half a day older than it says, so that no clock comes
    near the edge of a day."""
    name: str  # sAMAccountName; a directory takes none of "/\\[]:;|=,+*?<> in it
    password_age: float | None = 0  # days; None: to be changed at next logon
    cn: str = ""  # where it differs from the name
    mail: str = ""
    given_name: str = ""
    surname: str = ""
    flags: int = 0x200  # userAccountControl
    cant_change: bool = False
    manager: str = ""  # distinguished name
    extra: dict = dataclasses.field(default_factory=dict)  # further attributes, in a file
    expires: int | str = ""  # msDS-UserPasswordExpiryTimeComputed, in a file; a server computes it

    def dn(self, base):
        escaped = re.sub(r'([,+"\\<>;=#])', r"\\\1", self.cn or self.name)
        return f"CN={escaped},{base}"

    def last_set(self):
        return 0 if self.password_age is None else file_time(
            time.time() - (self.password_age + 0.5) * _SECONDS_PER_DAY)

    def ldif(self, base, deny_change, **more):
        """deny_change: the security descriptor of who cannot change the password."""
        return ldif_record(
            dn=self.dn(base), objectClass="computer" if self.name.endswith("$") else "user",
            sAMAccountName=self.name, userAccountControl=self.flags, mail=self.mail,
            givenName=self.given_name, sn=self.surname, manager=self.manager,
            nTSecurityDescriptor=deny_change if self.cant_change else "", **self.extra, **more)


def person(name, password_age, **more):
    """A user who can be mailed."""
    return User(name, password_age, **{"mail": f"{name}@{DOMAIN}", "given_name": "Given",
                                       "surname": "Name", **more})


def domain_ldif(users):
    base = "DC=site,DC=example"
    return ldif_record(dn=base, objectClass="domainDNS", maxPwdAge=file_span(42)) + "".join(
        user.ldif(base, _DENY_CHANGE, objectCategory="CN=Person,CN=Schema", pwdLastSet=user.last_set(),
                  **{"msDS-UserPasswordExpiryTimeComputed": user.expires})
        for user in users)


def fill_templates(name, folder, **values):
    """Writes the files of a folder beside this one into `folder`, with a value for each $name; that
    of $folder is `folder`."""
    for file in (pathlib.Path(__file__).parent / name).iterdir():
        (folder / file.name).write_text(string.Template(file.read_text()).substitute(values, folder=folder))


def write_site(folder, users, keys):
    """Writes site.reg and domain.ldif; returns the options with which "pwlapse run" takes them."""
    registry, domain = folder / "site.reg", folder / "domain.ldif"
    registry.write_bytes(registry_file(keys))
    domain.write_text(domain_ldif(users), "utf-8")
    return ["--registry", registry, "--work-dir", folder, "--directory", f"ldif:{domain}"]


def make_certificates(folder, name):
    """Writes, in PEM, for a host name: self.pem, which signed itself, and host.pem, which the
    authority in ca.pem signed; each with its key in NAME.key."""
    def openssl(*arguments):
        subprocess.run(["openssl", *arguments], cwd=folder, check=True, capture_output=True)

    make = ("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
            "-days", "90")
    host = ("-subj", f"/CN={name}", "-addext", f"subjectAltName=DNS:{name}")
    openssl(*make, "-keyout", "self.key", "-out", "self.pem", *host)
    openssl(*make, "-keyout", "ca.key", "-out", "ca.pem", "-subj", "/CN=Test authority")
    openssl(*make, "-keyout", "host.key", "-out", "host.pem", *host, "-CA", "ca.pem", "-CAkey",
            "ca.key", "-addext", "basicConstraints=critical,CA:FALSE")
