"""Messages of the mail library as other programs read them: Python's email package and GMime."""
import email
import email.policy
import email.utils
import json
import pathlib
import tempfile
import unittest
from email.header import decode_header, make_header

import gi

import mail_probe

gi.require_version("GMime", "3.0")
from gi.repository import GMime  # noqa: E402

GMime.init()

MAX_LINE, MAX_ENCODED_LINE = 998, 76  # octets, without the line end
FROM, TO = ("Zoë Müller, IT", "zoe@example.com"), ("", "to@example.com")
BYTES = bytes(range(256)) * 20
HTML = "<p>gr\u00fc\u00df dich</p>"

DATA = json.loads((pathlib.Path(__file__).parent / "mail_texts.json").read_text("utf-8"))
# The texts of subject and body, each in a message of its own; then bodies whose lines are awkward.
TEXTS = DATA["subjects and bodies"] | {"1,500 characters unbroken": "x" * 1500}
BODIES = DATA["bodies"] | {"long unbroken line": "y" * 5000, "long unbroken umlauts": "ü" * 3000}
NAMES = DATA["file names"]


def lines(text):
    """A body without what the way of line ends may change."""
    return text.replace("\r\n", "\n").replace("\r", "\n").rstrip("\n")


def read_by_python(raw):
    message = email.message_from_bytes(raw, policy=email.policy.default)
    found = {"subject": message["Subject"], "texts": [], "files": {}, "defects": [
        defect for part in message.walk()
        for owner in (part, *part.values()) for defect in owner.defects]}
    # This package's newer half puts blanks between the encoded words of a name; its older does not.
    older = email.message_from_bytes(raw)
    for field in ("From", "To", "Cc"):
        found[field] = [(str(make_header(decode_header(name))), address) for name, address in
                        email.utils.getaddresses(older.get_all(field, []))]
    for part in message.walk():
        name = part.get_filename()
        if name is None and part.get_content_maintype() == "text":
            found["texts"].append((part.get_content_type(), lines(part.get_content())))
        elif not part.is_multipart():
            found["files"][name or part["Content-Location"]] = part.get_payload(decode=True)
    return found


def read_by_gmime(raw):
    parser = GMime.Parser.new_with_stream(GMime.StreamMem.new_with_buffer(raw))
    message = parser.construct_message(None)
    found = {"subject": message.get_subject(), "texts": [], "files": {}, "defects": []}
    for field, addresses in (("From", message.get_from()), ("To", message.get_to()),
                             ("Cc", message.get_cc())):
        mailboxes = [addresses.get_address(i) for i in range(addresses.length())]
        found[field] = [(box.get_name() or "", box.get_addr()) for box in mailboxes]
    parts = GMime.PartIter.new(message)
    while True:
        part = parts.get_current()
        if isinstance(part, GMime.TextPart) and not part.get_filename():
            found["texts"].append((part.get_content_type().get_mime_type(), lines(part.get_text())))
        elif isinstance(part, GMime.Part):
            stream = GMime.StreamMem.new()
            part.get_content().write_to_stream(stream)
            name = part.get_filename() or part.get_content_location()
            found["files"][name] = bytes(stream.get_byte_array())
        if not parts.next():
            return found


class ReadersTest(unittest.TestCase):
    def test_every_message_is_read_as_it_was_meant(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        for what, (calls, expected) in self.messages().items():
            with self.subTest(what):
                self.check(calls, **expected)

    def messages(self):
        """By name: the calls that build it, and what a reader is to find."""
        file, image = self.folder / "Übersicht – 総覧.bin", self.folder / "logo.gif"
        file.write_bytes(BYTES)
        image.write_bytes(b"GIF89a" + BYTES)
        attached = "приложение\r\n.\r\n"
        # A name of each text, 200 in all, and their addresses; Bcc is for the envelope only.
        people = [(f"{list(TEXTS.values())[i % 5][:60]} {i}", f"user{i}@example.com")
                  for i in range(200)]
        both = {f"{what}, in HTML": (
            [("SetHtmlBody", text), ("AddPlainTextAlternativeBody", text)],
            dict(subject=text, texts=[("text/plain", text), ("text/html", text)]))
            for what, text in TEXTS.items()}
        bodies = {what: ([("Body", text)], dict(subject=TEXTS.get(what, "s"),
                                                texts=[("text/plain", lines(text))]))
                  for what, text in (TEXTS | BODIES).items()}
        return both | bodies | {
            "recipients": (
                [*(("AddTo", *person) for person in people[:150]),
                 *(("AddCC", *person) for person in people[150:]),
                 ("AddBcc", "Hidden", "hidden@example.com")],
                dict(To=[TO, *people[:150]], Cc=people[150:])),
            "attachments": (
                [("Body", "see"), *(("AddStringAttachment", name, attached) for name in NAMES),
                 ("AddFileAttachment", file)],
                dict(texts=[("text/plain", "see")],
                     files={file.name: BYTES, **{name: attached.encode() for name in NAMES}})),
            "everything at once": (
                [("SetHtmlBody", HTML), ("AddRelatedFile2", image, "images/logo.gif"),
                 ("AddPlainTextAlternativeBody", "grüß dich"),
                 ("AddStringAttachment", "Grüße.txt", "a")],
                dict(texts=[("text/plain", "grüß dich"), ("text/html", HTML)],
                     files={"images/logo.gif": image.read_bytes(), "Grüße.txt": b"a"}))}

    def check(self, calls, **expected):
        """Builds a message, has it read by both, and compares what they found."""
        file = self.folder / "message.eml"
        results = mail_probe.run([("From", f'"{FROM[0]}" <{FROM[1]}>'), ("AddTo", *TO),
                                  ("Subject", expected.get("subject", "s")), *calls,
                                  ("SaveEml", file), ("LastErrorText",)])
        self.assertNotIn("0", results, results[-1])
        raw = file.read_bytes()
        self.assertNotRegex(raw, rb"(?<!\r)\n|\r(?!\n)|\0")
        self.assertLessEqual(max(map(len, raw.split(b"\r\n"))), MAX_LINE)
        self.assertEqual([line for line in raw.partition(b"\r\n\r\n")[0].split(b"\r\n")
                          if b"=?" in line and len(line) > MAX_ENCODED_LINE], [])
        expected = {"subject": "s", "From": [FROM], "To": [TO], "Cc": [], "defects": [],
                    "texts": [("text/plain", "")], "files": {}, **expected}
        for reader in (read_by_python, read_by_gmime):
            found = reader(raw)
            for what, value in expected.items():
                self.assertEqual(found[what], value, (reader.__name__, what, raw[:3000]))
