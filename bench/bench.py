#!/usr/bin/python3
"""Measures the figures that this system is to hold, peers in the same run; prints a line for each.

Run by scripts/bench, which builds the programs. What is compared is measured in turns, so that a
change of the machine's mood meets both; of several rounds the median counts.
"""
import contextlib
import dataclasses
import os
import pathlib
import re
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/bench"
PWLAPSE = BUILD / "console/pwlapse"
PROGRAMS = BUILD / "bench"
EXAMPLES = ROOT / "packaging/examples"
sys.path.insert(0, str(ROOT / "tests/e2e"))
import ldif_site  # noqa: E402
import own_network  # noqa: E402
import samba_ad  # noqa: E402
import site_files  # noqa: E402
import smtp_faults  # noqa: E402

ROUNDS = 5  # of what takes seconds
LDAP_USERS = 4000
MAILS = 2000  # a round
MAIL_ROUNDS = 5
DUE = 10_000  # users of a pass that mails them all
FAR = 20  # milliseconds that a far mail server is away, each way
ATTACHMENT_MB = 25
# What a pass reads of each user; of the security descriptor the access list only.
LDAP_ATTRIBUTES = ["sAMAccountName", "userAccountControl", "pwdLastSet", "nTSecurityDescriptor",
                   "mail", "givenName", "sn", "objectCategory"]
EXPIRY_ATTRIBUTE = "msDS-UserPasswordExpiryTimeComputed"
DACL_ONLY = "!1.2.840.113556.1.4.801=::MAMCAQQ="


class Table:
    """The lines of the result."""
    FORMAT = "{:<45} {:>12} {:>12} {:>7} {:>12}  {}"

    def __init__(self):
        self.short = False
        print(self.FORMAT.format("", "ours", "peer's", "ratio", "target", ""), flush=True)

    def row(self, name, ours, target="-", holds=None, peer="-", ratio=None):
        """holds: whether ours is within the target; None where there is none."""
        self.short = self.short or holds is False
        print(self.FORMAT.format(name, ours, peer, "-" if ratio is None else f"{ratio:.2f}", target,
                                 {True: "met", False: "not met", None: ""}[holds]), flush=True)


@dataclasses.dataclass
class Cost:
    """What a program took from start to end."""
    seconds: float
    processor_seconds: float
    peak_mb: float


def cost_of(command, **options):
    """Runs it to its end. A failure ends the measurement."""
    start = time.perf_counter()
    process = subprocess.Popen([str(part) for part in command], stdout=subprocess.DEVNULL,
                               **options)
    _, status, usage = os.wait4(process.pid, 0)
    seconds = time.perf_counter() - start
    if status != 0:
        sys.exit(f"bench: {command[0]} failed")
    return Cost(seconds, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024)


def compare(rounds, ours, peer):
    """The medians of our measurement, of the peer's, and of the ratio of each round, since what
    disturbs a round disturbs both. Who goes first changes from round to round."""
    pairs = []
    for number in range(rounds):
        order = (ours, peer) if number % 2 == 0 else (peer, ours)
        values = {measure: measure() for measure in order}
        pairs.append((values[ours], values[peer]))
    return (statistics.median(pair[0] for pair in pairs),
            statistics.median(pair[1] for pair in pairs),
            statistics.median(pair[0] / pair[1] for pair in pairs))


def pass_command(registry, folder):
    return [PWLAPSE, "run", "--registry", registry, "--work-dir", folder]


class LdifSite:
    """A site with so many users and nobody to mail, and what passes over it took."""

    def __init__(self, folder, users):
        self.users = users
        self.folder = pathlib.Path(folder) / str(users)
        self.folder.mkdir()
        self.command = pass_command(ldif_site.make_ldif_site(self.folder, users), self.folder)
        self.results = []

    def measure(self):
        self.results.append(cost_of(self.command))

    def seconds(self):
        return statistics.median(cost.seconds for cost in self.results)

    def processor_seconds(self):
        """To compare sizes by: a long run has more neighbours on the machine than a short one."""
        return statistics.median(cost.processor_seconds for cost in self.results)

    def microseconds_a_user(self):
        return self.processor_seconds() * 1_000_000 / self.users

    def peak_mb(self):
        return max(cost.peak_mb for cost in self.results)

    def check(self):
        """That all users were seen; else the figures mean nothing."""
        users = (self.folder / "pwsentry_pro_domain_users.txt").read_bytes().count(b"\n")
        if users != self.users:
            sys.exit(f"bench: the pass saw {users} of {self.users} users")


def bench_ldif(table):
    with tempfile.TemporaryDirectory(prefix="bench-") as folder:
        small, middle, large = sites = [LdifSite(folder, users)
                                        for users in (10_000, 100_000, 1_000_000)]
        for _ in range(ROUNDS):
            for site in (small, small, small, middle, middle, large):
                site.measure()
        for site in sites:
            site.check()
        listing = [PWLAPSE, "list", *middle.command[2:], "--format", "csv"]
        list_seconds, pass_seconds, list_ratio = compare(
            ROUNDS, lambda: cost_of(listing).seconds, lambda: cost_of(middle.command).seconds)
    seconds = middle.seconds()
    table.row(f"LDIF, 100,000 users ({100_000 / seconds:,.0f} users/s)", f"{seconds:.2f} s",
              "< 2 s", seconds < 2)
    table.row("LDIF, 100,000 users, peak memory", f"{middle.peak_mb():.0f} MB", "< 300 MB",
              middle.peak_mb() < 300)
    table.row("  `list` of them as CSV, to a pass", f"{list_seconds:.2f} s", "1.50 x",
              list_ratio < 1.5, f"{pass_seconds:.2f} s", list_ratio)
    table.row("LDIF, 1,000,000 users", f"{large.seconds():.2f} s")
    table.row("LDIF, 1,000,000 users, peak memory", f"{large.peak_mb():.0f} MB")
    ratio = large.processor_seconds() / middle.processor_seconds()
    table.row("  processor time, to 100,000 users", f"{large.processor_seconds():.2f} s",
              "12.00 x", ratio <= 12, f"{middle.processor_seconds():.2f} s", ratio)
    ratio = large.microseconds_a_user() / small.microseconds_a_user()
    table.row("  processor time a user, to 10,000 users", f"{large.microseconds_a_user():.2f} us",
              "1.20 x", ratio <= 1.2, f"{small.microseconds_a_user():.2f} us", ratio)


def bench_ldap(table):
    with samba_ad.SambaAd() as domain, tempfile.TemporaryDirectory(prefix="bench-") as folder:
        domain.add_users(site_files.person(f"user{n}", n % 60 + 1) for n in range(LDAP_USERS))
        uri = f"ldaps://{samba_ad.HOST}"
        password = pathlib.Path(folder) / "password"
        password.touch(mode=0o600)
        password.write_text(samba_ad.ADMIN_PASSWORD)
        domain.set_max_password_age(90)
        directory = {"uri": uri, "bindMethod": "simple", "bindUser": samba_ad.ADMIN,
                     "bindPasswordFile": password, "caFile": domain.ca_file}
        search = ["ldapsearch", "-x", "-LLL", "-H", uri, "-D", samba_ad.ADMIN, "-y", password,
                  "-b", samba_ad.BASE_DN, "-E", "pr=1000/noprompt", "-E", DACL_ONLY,
                  "(objectClass=user)", *LDAP_ATTRIBUTES]
        environment = {**os.environ, "LDAPTLS_CACERT": str(domain.ca_file)}
        for what, policy, more, target in (
                ("", 0, [], 1.3), ("own ages, ", 1, [EXPIRY_ATTRIBUTE], 1.2)):
            registry = ldif_site.make_registry(folder, directory, policy)
            ours, peer, ratio = compare(
                ROUNDS, lambda: cost_of(pass_command(registry, folder)).seconds,
                lambda: cost_of([*search, *more], env=environment).seconds)
            table.row(f"LDAP, {LDAP_USERS:,} users, {what}against ldapsearch", f"{ours:.2f} s",
                      f"{target:.2f} x", ratio <= target, f"{peer:.2f} s", ratio)


@contextlib.contextmanager
def mail_sink():
    """Postfix's smtp-sink on a free port, which it yields; takes every mail and forgets it."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    user = ["-u", "nobody"] if os.geteuid() == 0 else []
    program = shutil.which("smtp-sink", path=os.environ["PATH"] + ":/usr/sbin")
    sink = subprocess.Popen([program, *user, f"127.0.0.1:{port}", "1000"])
    try:
        while True:
            with contextlib.suppress(ConnectionRefusedError):
                socket.create_connection(("127.0.0.1", port)).close()
                break
            if sink.poll() is not None:
                sys.exit("bench: smtp-sink does not start")
            time.sleep(0.01)
        yield port
    finally:
        sink.terminate()
        sink.wait()


def seconds_printed_by(*command):
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, check=False)
    if done.returncode != 0:
        sys.exit(f"bench: {command[0]} failed")
    return float(done.stdout)


@contextlib.contextmanager
def tls_sink():
    """A sink that offers STARTTLS; yields its port. Ours and the peer trust its authority, and
    no other, so that both verify and neither reads a list of authorities."""
    with tempfile.NamedTemporaryFile() as certificate:
        sink = subprocess.Popen([PROGRAMS / "tls_sink", certificate.name],
                                stdout=subprocess.PIPE, text=True)
        os.environ["SSL_CERT_FILE"] = certificate.name
        try:
            yield int(sink.stdout.readline())
        finally:
            sink.terminate()
            sink.wait()
            del os.environ["SSL_CERT_FILE"]


def bench_encodings(table):
    names = {"report": "Report of 20 KB and picture, built, against ",
             "base64": "Base64, MB/s, against ",
             "quoted-printable": "Quoted-printable, MB/s, against "}
    with tls_sink() as port:
        done = subprocess.run([PROGRAMS / "encodings", str(port)], stdout=subprocess.PIPE,
                              text=True, check=True)
    for line in done.stdout.splitlines():
        what, ours, peer, peer_name, ratio = line.split("\t")
        target = 3.0 if what == "report" else 1.0
        table.row(names[what] + peer_name, f"{int(ours):,} /s", f"{target:.2f} x",
                  float(ratio) >= target, f"{int(peer):,} /s", float(ratio))


def mails_a_second(program, port, mode, *more):
    return MAILS / seconds_printed_by(PROGRAMS / program, port, MAILS, mode, *more)


def bench_mail(table):
    with mail_sink() as plain, tls_sink() as tls, tempfile.NamedTemporaryFile() as mail:
        mail.write(subprocess.run([PROGRAMS / "kelvado_mails"], stdout=subprocess.PIPE,
                                  check=True).stdout)
        mail.flush()
        # Resuming the session is what makes the last one twice as fast: libcurl does not here.
        for name, port, mode, target in (
                ("SMTP, one connection a mail", plain, "each", 1.5),
                ("SMTP, one connection for all", plain, "kept", 1.2),
                ("STARTTLS, one connection for all", tls, "starttls-kept", 1.3),
                ("STARTTLS and XOAUTH2, one for all", tls, "starttls-oauth-kept", 1.3),
                ("STARTTLS, one connection a mail", tls, "starttls-each", 2.5)):
            ours, peer, ratio = compare(
                MAIL_ROUNDS, lambda: mails_a_second("kelvado_mails", port, mode),
                lambda: mails_a_second("curl_mails", port, mode, mail.name))
            table.row(f"{name}, against libcurl", f"{ours:,.0f} /s", f"{target:.2f} x",
                      ratio >= target, f"{peer:,.0f} /s", ratio)
        source = [shutil.which("smtp-source", path=os.environ["PATH"] + ":/usr/sbin"), "-d",
                  "-m", MAILS, "-l", os.path.getsize(mail.name), f"127.0.0.1:{plain}"]
        ours, peer, ratio = compare(
            MAIL_ROUNDS, lambda: mails_a_second("kelvado_mails", plain, "kept"),
            lambda: MAILS / cost_of(source).seconds)
        table.row("SMTP, one connection for all, to smtp-source", f"{ours:,.0f} /s", "1.00 x",
                  ratio >= 1, f"{peer:,.0f} /s", ratio)


def bench_attachment(table):
    """The peak of sending one, and that further ones add nothing to it."""
    with mail_sink() as port:
        once, often = (
            cost_of([PROGRAMS / "kelvado_mails", port, count, f"attachment={ATTACHMENT_MB}"]).peak_mb
            for count in (1, 8))
    # The program's own copy and the message's; no third one goes out.
    limit = 60
    table.row(f"Attachment of {ATTACHMENT_MB} MB, peak memory", f"{once:.0f} MB",
              f"< {limit} MB", once < limit)
    ratio = often / once
    table.row("The same eight times, to once", f"{often:.0f} MB", "1.05 x", ratio <= 1.05,
              f"{once:.0f} MB", ratio)


class DueSite:
    """A site whose users are all to be mailed."""

    def __init__(self, folder, users, port, way="", languages=(), **settings):
        self.users = users
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=folder))
        lines = f'"smtpPort"=dword:{port:08x}\n'
        if way:
            settings["smtpStartTls"] = 1
            lines += '"smtpUsername"="bench"\n"smtpPassword"="bench"\n'
        lines += "".join(f'"{name}"=dword:{value:08x}\n' for name, value in settings.items())
        self.command = pass_command(ldif_site.make_ldif_site(self.folder, users, ldif_site.DUE, lines,
                                                             languages), self.folder)

    def cost(self):
        (self.folder / "logfiles/norvyn-warnings-sent.log").unlink(missing_ok=True)
        return cost_of(self.command)


def bench_pass(table):
    login = ", STARTTLS and login"
    with tempfile.TemporaryDirectory(prefix="bench-") as folder, mail_sink() as plain, \
            tls_sink() as tls:
        for milliseconds in (1, FAR):
            for way, port in (("", plain), (login, tls)):
                with smtp_faults.SlowLine(port, milliseconds / 1000) as line:
                    cost = DueSite(folder, DUE, line.port, way).cost()
                table.row(f"Pass, {DUE:,} mails, {milliseconds} ms away{way}",
                          f"{cost.seconds / DUE * 1000:.2f} ms a mail")
                table.row("  peak memory", f"{cost.peak_mb:.0f} MB")
        # Ten thousand of these would take more than an hour.
        count = 50
        with smtp_faults.SlowLine(tls, FAR / 1000) as line:
            each = seconds_printed_by(PROGRAMS / "kelvado_mails", line.port, count,
                                      "starttls-login-each") / count
        ratio = each / (cost.seconds / DUE)
        table.row(f"  to a connection a mail ({count}, extrapolated)", f"{cost.seconds / 60:.0f} min",
                  "3.00 x", ratio >= 3, f"{each * DUE / 60:.0f} min", ratio)
        sites = [DueSite(folder, DUE, plain, rememberWarnings=on) for on in (1, 0)]
        ours, peer, ratio = compare(ROUNDS, *(lambda site=site: site.cost().seconds
                                              for site in sites))
        table.row(f"Pass, {DUE:,} mails, remembered, to not", f"{ours:.2f} s", "1.10 x",
                  ratio <= 1.1, f"{peer:.2f} s", ratio)
        sites = [DueSite(folder, DUE, plain, languages=languages)
                 for languages in (("de-AT", "fr", "es-MX", "en"), ())]
        for file in EXAMPLES.glob("NorvynExpirationEmail*.html"):
            shutil.copy(file, sites[0].folder)
        one = (EXAMPLES / "NorvynExpirationEmail.html").read_text("utf-8")
        one = re.sub("displayName|expirationDate|expirationTime", "firstName", one)
        (sites[1].folder / "NorvynExpirationEmail.html").write_text(one, "utf-8")
        ours, peer, ratio = compare(ROUNDS, *(lambda site=site: site.cost().seconds
                                              for site in sites))
        table.row(f"Pass, {DUE:,} mails, templates by language, to one", f"{ours:.2f} s", "1.11 x",
                  ratio <= 1.11, f"{peer:.2f} s", ratio)


def main():
    parts = {"run": (bench_ldif, bench_ldap, bench_pass), "pass": (bench_pass,),
             "mail": (bench_encodings, bench_mail, bench_attachment)}
    names = sys.argv[1:] or ["run", "mail"]
    if not set(names) <= set(parts):
        sys.exit("usage: scripts/bench [run|pass|mail]")
    own_network.enter()
    table = Table()
    for name in names:
        for measure in parts[name]:
            measure(table)
    sys.exit(1 if table.short else 0)


main()
