"""Makes a site for a pass: a registry file and, where no server is the directory, an LDIF file.

Every password is far from its maximum age, so that nobody is to be mailed; or near to it, so that
everybody is.
"""
import pathlib
import time

REGISTRY = """\
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\Software\\Policies\\Kadro\\PwsentryProMPE\\DefaultPolicy]
"policyName"="Everybody"
"maxPasswordAge"=dword:0000005a
"emailWarnings"=dword:00000001
"useDirectoryPolicy"=dword:{directory_policy:08x}

[HKEY_LOCAL_MACHINE\\Software\\Policies\\Kadro\\PwsentryProMPE\\PWExpiration]
"smtpServer"="127.0.0.1"
"warningThreshold"=dword:0000000e
{settings}
[HKEY_LOCAL_MACHINE\\Software\\Kadro\\PwsentryPro\\Directory]
"""
HEAD = """\
version: 1

dn: DC=bench,DC=example
objectClass: top
objectClass: domainDNS
maxPwdAge: -77760000000000

"""
USER = """\
dn: CN=User {number},OU=Staff,DC=bench,DC=example
objectClass: top
objectClass: person
objectClass: organizationalPerson
objectClass: user
objectCategory: CN=Person,CN=Schema,CN=Configuration,DC=bench,DC=example
sAMAccountName: user{number}
givenName: First{number}
sn: Last{number}
mail: user{number}@bench.example
userAccountControl: 512
pwdLastSet: {changed}
{more}
"""
AGES = range(1, 61)  # days; the maximum is 90, and warnings begin 14 days before
DUE = (80,)  # with a mail for everybody
DAY = 86400
SECONDS_1601_TO_1970 = 11644473600
UNITS_A_SECOND = 10_000_000


def make_registry(folder, directory_values, directory_policy=0, settings=""):
    """Writes a registry with these values below its Directory key, and these lines of settings;
    returns its path."""
    file = pathlib.Path(folder) / f"registry{directory_policy}.reg"
    lines = "".join(f'"{name}"="{value}"\n' for name, value in directory_values.items())
    file.write_text(REGISTRY.format(directory_policy=directory_policy, settings=settings) + lines)
    return file


def make_ldif_site(folder, users, ages=AGES, settings="", languages=()):
    """Writes a directory of so many users, who prefer these languages in turn, to a folder; returns its
    registry file."""
    directory = pathlib.Path(folder) / "directory.ldif"
    now = int(time.time()) + SECONDS_1601_TO_1970
    with open(directory, "w", encoding="ascii") as file:
        file.write(HEAD)
        for number in range(users):
            changed = (now - ages[number % len(ages)] * DAY) * UNITS_A_SECOND
            more = f"preferredLanguage: {languages[number % len(languages)]}\n" if languages else ""
            file.write(USER.format(number=number, changed=changed, more=more))
    return make_registry(folder, {"uri": f"ldif:{directory}"}, settings=settings)
