"""The users of the site over which whole passes are made, and what becomes of them there."""
import pathlib
import re

from site_files import DOMAIN, person

REFUSED = f"refused@{DOMAIN}"  # by the mail server

# Maximum ages: Policy1 30, the default policy 60, passwords of 20 characters and more 180. Warning
# days are 14, 7 and 1.
USERS = {user.name: user for user in (
    person("outside", 20), person("warned", 53), person("quiet", 50), person("longpass", 173),
    person("expired", 65), person("justexpired", 60), person("mustchange", None),
    person("disabled", 65, flags=0x202), person("never", 500, flags=0x10200),
    person("cannot", 500, cant_change=True), person("excluded", 59), person("twice", 29),
    person("nomail", 53, mail=""), person("refused", 46, mail=REFUSED),
    person("zo\u00eb.m\u00fcller", 53, given_name="Zo\u00eb", surname="M\u00fcller", mail=f"zoe@{DOMAIN}"),
    person("we(ird)", 53, mail=f"weird@{DOMAIN}"), person("markup", 50, mail=f"<i>m</i>@{DOMAIN}"),
    person("ab", 59), person("PC01$", 59, flags=0x1000, mail=""))}
FILES = pathlib.Path(__file__).parent / "sample_site_files"  # lists and the template
MAX_AGES = {"twice": 30, "longpass": 180}  # 60 of the others
EXPIRED = {"expired": 65, "justexpired": 60}
# By name: whether the report's table of upcoming expirations says that they were e-mailed.
UPCOMING = {**dict.fromkeys(("twice", "warned", "zo\u00eb.m\u00fcller", "we(ird)", "longpass"), "yes"),
            **dict.fromkeys(("quiet", "nomail", "markup"), "no"), "refused": "no (smtp failure)"}


def days_left(name):
    return MAX_AGES.get(name, 60) - USERS[name].password_age


def mailed(names=USERS):
    """{address: user} of those who get a warning."""
    return {USERS[name].mail: USERS[name] for name in names if UPCOMING.get(name) == "yes"}


def comparable(text):
    """What a pass wrote, without what depends on when it did."""
    text = re.sub(r"[ \d]\d/[ \d]\d/\d{4} [ \d]\d:\d\d:\d\d", "TIME", text)
    text = re.sub(r"(days, )\d\d:\d\d:\d\d", r"\1CLOCK", text)
    return re.sub(r"(uptime \(in seconds\): )\d+", r"\1N", text)
