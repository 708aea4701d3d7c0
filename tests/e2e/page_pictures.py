"""Opens a page or a mail in headless Chromium: returns what is on it, and leaves a screenshot in
build/pictures."""
import dataclasses
import html
import json
import pathlib
import re
import subprocess
import tempfile

from rig import ROOT

PICTURES = ROOT / "build/pictures"
BROWSER_SECONDS = 120
# The time is the browser's own: it ends as soon as nothing is left to load or run.
BROWSER = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
           "--no-first-run", "--disable-background-networking", "--disable-component-update",
           "--disable-sync", "--disable-dev-shm-usage", "--hide-scrollbars",
           "--window-size=900,1500", "--virtual-time-budget=5000", "--dump-dom"]

PROBE = ROOT / "tests/e2e/page_probe.html"  # added to each page


@dataclasses.dataclass
class Page:
    title: str
    text: str  # as a reader sees it
    images: list  # (src, width in pixels as it was loaded; 0: broken)


def look_at(page, name):
    """page: a path; name: of the picture."""
    page = pathlib.Path(page).resolve()
    PICTURES.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix="browser-") as folder:
        copy = pathlib.Path(folder) / "page.html"
        # Relative references lead from the copy to where the page is.
        base = f'<base href="{page.parent.as_uri()}/">'.encode()
        copy.write_bytes(base + page.read_bytes() + PROBE.read_bytes())
        done = subprocess.run(
            [*BROWSER, f"--user-data-dir={folder}/profile", f"--screenshot={PICTURES}/{name}.png",
             copy.as_uri()], capture_output=True, timeout=BROWSER_SECONDS, text=True)
    found = re.search(r'data-found="([^"]*)"', done.stdout)
    if not found:
        raise RuntimeError(f"{page} did not load in the browser: {done.stderr[-2000:]}")
    return Page(**json.loads(html.unescape(found[1])))


def look_at_mail(message, name):
    """A mail's HTML body, with its images in the places that name their Content-Location."""
    with tempfile.TemporaryDirectory(prefix="mail-") as folder:
        text = message.get_body(("html",)).get_content()
        for number, part in enumerate(message.walk()):
            if part.get_content_maintype() == "image":
                (pathlib.Path(folder) / f"image{number}").write_bytes(part.get_content())
                text = text.replace(f"src={part['Content-Location']}", f"src=image{number}")
        page = pathlib.Path(folder) / "mail.html"
        page.write_text('<meta charset="utf-8">' + text, "utf-8")
        return look_at(page, name)
