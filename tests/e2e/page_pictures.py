#!/usr/bin/python3
"""Opens a page or a mail in headless Chromium: takes its picture, tells whether its images show.

    page_pictures.py FILE.html|FILE.eml PICTURE.png [WIDTH]     exits 1 when an image is broken

The tests use take_picture() and mail_page().
"""
import dataclasses
import email
import email.policy
import html
import json
import pathlib
import re
import subprocess
import sys
import tempfile

DEFAULT_WIDTH = 900
# Renders in the browser's own clock: it ends as soon as nothing is left to load or run.
VIRTUAL_MS = 5000
BROWSER_SECONDS = 120
BROWSER = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
           "--no-first-run", "--disable-background-networking", "--disable-component-update",
           "--disable-sync", "--disable-dev-shm-usage", "--hide-scrollbars",
           f"--virtual-time-budget={VIRTUAL_MS}"]

# Leaves what the tests ask about in the page itself, where --dump-dom shows it.
PROBE = """<script>addEventListener("load", () => {
  const images = [...document.images].map(i => [i.getAttribute("src"), i.naturalWidth]);
  const found = {title: document.title, text: document.body.innerText, images,
                 height: document.documentElement.scrollHeight};
  document.documentElement.setAttribute("data-found", JSON.stringify(found));
});</script>"""


@dataclasses.dataclass
class Page:
    title: str
    text: str  # as a reader sees it
    images: list  # (src, width in pixels as it was loaded; 0: broken)
    height: int

    def broken_images(self):
        return [src for src, width in self.images if width == 0]


def take_picture(page, picture, width=DEFAULT_WIDTH):
    """Writes the whole page (a path) as a PNG file; returns what is on it, as a Page."""
    page = pathlib.Path(page).resolve()
    with tempfile.TemporaryDirectory(prefix="browser-") as folder:
        copy = pathlib.Path(folder) / "page.html"
        # Relative references lead from the copy to where the page is.
        base = f'<base href="{page.parent.as_uri()}/">'.encode()
        copy.write_bytes(base + page.read_bytes() + PROBE.encode())
        dom = _browse(folder, copy, "--dump-dom", f"--window-size={width},600")
        found = re.search(r'data-found="([^"]*)"', dom)
        if not found:
            raise RuntimeError(f"{page} did not load in the browser")
        result = Page(**json.loads(html.unescape(found[1])))
        _browse(folder, copy, f"--screenshot={pathlib.Path(picture).resolve()}",
                f"--window-size={width},{result.height}")
    return result


def mail_page(message, folder):
    """Writes a mail's HTML body (else text) and embedded images to a folder as a page; its path.

    A part is found by its Content-ID ("cid:" in the body) or Content-Location, as mail programs do.
    """
    folder = pathlib.Path(folder).resolve()
    body = message.get_body(("html", "plain"))
    text = body.get_content()
    if body.get_content_type() == "text/plain":
        text = f"<pre>{html.escape(text)}</pre>"
    for number, part in enumerate(message.walk()):
        if part.get_content_maintype() != "image":
            continue
        name = f"image{number}.{part.get_content_subtype()}"
        (folder / name).write_bytes(part.get_content())
        references = {str(part["Content-Location"]).strip(),
                      "cid:" + str(part["Content-ID"]).strip(" <>")}
        for reference in references:
            source = rf"""(src=)(["']?){re.escape(reference)}\2(?=[\s>])"""
            text = re.sub(source, rf"\1{name}", text)
    page = folder / "mail.html"
    page.write_text('<meta charset="utf-8">' + text, "utf-8")
    return page


def _browse(folder, page, *options):
    done = subprocess.run([*BROWSER, f"--user-data-dir={folder}/profile", *options, page.as_uri()],
                          capture_output=True, timeout=BROWSER_SECONDS, check=False)
    if done.returncode != 0:
        raise RuntimeError("Chromium failed: " + done.stderr.decode("utf-8", "replace")[-2000:])
    return done.stdout.decode("utf-8", "replace")


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    source = pathlib.Path(sys.argv[1])
    width = int(sys.argv[3]) if len(sys.argv) == 4 else DEFAULT_WIDTH
    with tempfile.TemporaryDirectory() as folder:
        if source.suffix == ".eml":
            message = email.message_from_bytes(source.read_bytes(), policy=email.policy.default)
            source = mail_page(message, folder)
        page = take_picture(source, sys.argv[2], width)
    for src, pixels in page.images:
        print(f"{src}: {'broken' if pixels == 0 else f'{pixels} pixels wide'}")
    sys.exit(1 if page.broken_images() else 0)


if __name__ == "__main__":
    main()
