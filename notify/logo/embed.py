#!/usr/bin/python3
"""Renders logo.svg and writes it as a GIF into ../report_logo.cpp.

To run after a change to the drawing. Needs Debian's chromium, fonts-dejavu-core and python3-pil.
"""
import io
import pathlib
import subprocess
import sys
import tempfile

from PIL import Image

HERE = pathlib.Path(__file__).resolve().parent
COLOURS = 128  # smooth edges; two orange, two grey tones and what lies between them and white
BYTES_A_LINE = 20

HEAD = """\
// The bytes of the logo, a GIF89a image of {width} x {height} pixels.
// Made from logo/logo.svg by logo/embed.py: change the drawing, not this file.
#include "notify/report_logo.h"

namespace notify {{
namespace {{

// clang-format off
constexpr unsigned char kLogo[] = {{
"""
TAIL = """\
};
// clang-format on

}  // namespace

std::string_view reportLogo() {
  return {reinterpret_cast<const char*>(kLogo), sizeof(kLogo)};
}

}  // namespace notify
"""


def render(folder):
    page = folder / "logo.html"
    page.write_text("<!DOCTYPE html><body style='margin:0'>" + (HERE / "logo.svg").read_text())
    picture = folder / "logo.png"
    subprocess.run(
        ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
         "--no-first-run", "--disable-background-networking", "--disable-component-update",
         "--disable-sync", f"--user-data-dir={folder / 'profile'}", "--hide-scrollbars",
         "--window-size=600,400", f"--screenshot={picture}", page.as_uri()],
        check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return Image.open(picture).convert("RGB")


def main():
    with tempfile.TemporaryDirectory() as name:
        picture = render(pathlib.Path(name))
    picture = picture.crop((0, 0, 248, 74))  # the drawing's own size
    out = io.BytesIO()
    # Without dithering: it would speckle the plain areas.
    picture.quantize(COLOURS, dither=Image.Dither.NONE).save(out, "GIF")
    gif = bytearray(out.getvalue())
    gif[0:6] = b"GIF89a"
    lines = [",".join(f"0x{byte:02x}" for byte in gif[i:i + BYTES_A_LINE]) + ",\n"
             for i in range(0, len(gif), BYTES_A_LINE)]
    (HERE.parent / "report_logo.cpp").write_text(
        HEAD.format(width=picture.width, height=picture.height) + "".join(lines) + TAIL)
    if len(sys.argv) > 1:  # a copy to look at
        pathlib.Path(sys.argv[1]).write_bytes(gif)
    print(len(gif), "bytes")


main()
