#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""report_test.py COMMAND SAMPLES_DIR: looks at report pages in a browser, narrow and wide.

Fails on a picture without anything drawn, a text out of its picture, text over text, and a page that
is wider than the window. The pages are those of the samples and of a damaged file. Ends with 77, which means skipped, when
there is no browser or no selenium.
"""
import pathlib
import shutil
import subprocess
import sys
import tempfile

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
except ImportError:
    sys.exit(77)

WIDTHS = (360, 1400)
LOOK = """
const faults = [], box = e => e.getBoundingClientRect(), said = e => e.textContent.trim();
const shown = e => box(e).width > 0 && box(e).height > 0;
const name = document.title;
if (document.documentElement.scrollWidth > window.innerWidth)
    faults.push(`wider than the window: ${document.documentElement.scrollWidth}`);
for (const figure of document.querySelectorAll('figure')) {
    const id = figure.closest('section').id, frame = box(figure);
    const drawn = [...figure.querySelectorAll('.data path, .data line, .data rect')]
        .filter(e => !e.matches('.ideal') && box(e).width + box(e).height > 0);
    if (drawn.length == 0)
        faults.push(`${id}: nothing is drawn`);
    const svg = figure.querySelector('svg.plot');
    if (!svg || !svg.querySelector('title').textContent || !svg.querySelector('desc').textContent)
        faults.push(`${id}: no title or description`);
    const texts = [...figure.querySelectorAll('text')].filter(shown);
    if (texts.length < 3)
        faults.push(`${id}: ${texts.length} ticks`);
    for (const text of texts) {
        const b = box(text);
        if (b.left < frame.left - 1 || b.right > frame.right + 1 || b.top < frame.top - 1 || b.bottom > frame.bottom + 1)
            faults.push(`${id}: "${said(text)}" is out of its picture`);
    }
    texts.forEach((one, i) => texts.slice(i + 1).forEach(other => {
        const a = box(one), b = box(other);
        if (a.left < b.right && b.left < a.right && a.top < b.bottom - 2 && b.top < a.bottom - 2)
            faults.push(`${id}: "${said(one)}" over "${said(other)}"`);
    }));
}
return [document.querySelectorAll('figure').length, faults];
"""


def damaged(sample):
    data = bytearray(sample)
    data[60000:66000] = bytes(i * 37 & 255 for i in range(6000))
    return bytes(data[:100000] + bytes(3000) + data[100000:])


def browser():
    options = webdriver.ChromeOptions()
    for argument in ("headless", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run", "disable-sync",
                     "disable-background-networking", "disable-component-update"):
        options.add_argument("--" + argument)
    service = Service(shutil.which("chromedriver"))
    return webdriver.Chrome(options=options, service=service)


def main():
    command, samples = sys.argv[1], pathlib.Path(sys.argv[2])
    if not shutil.which("chromium") or not shutil.which("chromedriver"):
        sys.exit(77)
    with tempfile.TemporaryDirectory() as folder:
        broken = pathlib.Path(folder, "damaged.flv")
        broken.write_bytes(damaged((samples / "avc_aac_index.flv").read_bytes()))
        pages = pathlib.Path(folder, "pages")
        subprocess.run([command, "report", "-o", pages, broken, *sorted(samples.glob("*.flv"))], check=True)
        driver = browser()
        faults, pictures = [], 0
        try:
            for width in WIDTHS:
                driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                       {"width": width, "height": 2000, "deviceScaleFactor": 1, "mobile": False})
                for page in sorted(pages.glob("*.html")):
                    driver.get(page.as_uri())
                    count, found = driver.execute_script(LOOK)
                    pictures += count
                    faults += [f"{page.name} at {width}: {fault}" for fault in found]
        finally:
            driver.quit()
    print(*faults, sep="\n")
    print(f"{pictures} pictures looked at, {len(faults)} faults")
    sys.exit(1 if faults or pictures < 60 else 0)


if __name__ == "__main__":
    main()
