#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""report_test.py COMMAND SAMPLES_DIR: looks at report pages in a browser: narrow, wide and printed, light and dark.

Fails on a picture without anything drawn, a text out of its picture, text over text, a page that is wider
than the window, text that hardly differs from its background, a focus that is not seen, and pictures,
tables and headings that a screen reader cannot tell. The pages are those of the samples and of a damaged
file, and their index. Ends with 77, which means skipped, when there is no browser or no selenium.
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

VIEWS = ((360, "dark", "screen"), (1400, "light", "screen"), (720, "light", "print"))
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
const luminance = colour => colour.match(/[0-9.]+/g).slice(0, 3).map(v => v / 255)
    .map(v => v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4)
    .reduce((sum, v, i) => sum + v * [0.2126, 0.7152, 0.0722][i], 0);
const behind = e => getComputedStyle(e).backgroundColor.endsWith(', 0)') ? behind(e.parentElement)
    : getComputedStyle(e).backgroundColor;
for (const e of document.querySelectorAll('body *')) {
    if (![...e.childNodes].some(n => n.nodeType == 3 && n.data.trim()) || !e.checkVisibility())
        continue;
    const style = getComputedStyle(e), two = [luminance(e.matches('text') ? style.fill : style.color), luminance(behind(e))];
    const contrast = (Math.max(...two) + 0.05) / (Math.min(...two) + 0.05);
    if (contrast < 4.5)
        faults.push(`"${said(e)}": contrast ${contrast.toFixed(2)}`);
}
for (const e of document.querySelectorAll('a, summary, [tabindex]')) {
    e.focus();
    if (e.checkVisibility() && (document.activeElement != e || parseFloat(getComputedStyle(e).outlineWidth) < 2
        || getComputedStyle(e).outlineStyle == 'none'))
        faults.push(`"${said(e)}": no focus to be seen`);
}
return [document.querySelectorAll('figure').length, faults];
"""


def damaged(sample):
    data = bytearray(sample)
    data[60000:66000] = bytes(i * 37 & 255 for i in range(6000))
    return bytes(data[:100000] + bytes(3000) + data[100000:])


def heard(driver):
    """Faults of what a screen reader is told."""
    driver.execute_script("document.querySelectorAll('details').forEach(e => e.open = true)")
    nodes = driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
    told = [(node["role"]["value"], node.get("name", {}).get("value", ""), node) for node in nodes if not node["ignored"]]
    roles = [role for role, _, _ in told]
    faults = [f"{role} without a name" for role, name, _ in told
              if not name and role in ("image", "table", "region", "link", "columnheader", "rowheader", "DisclosureTriangle")]
    if roles.count("table") == 0 or roles.count("columnheader") < 2 * roles.count("table") or "rowheader" not in roles:
        faults.append("tables without heads")
    last = 0
    for level in (p["value"]["value"] for role, _, node in told if role == "heading" for p in node["properties"] if p["name"] == "level"):
        faults += [f"a heading of level {level} after one of level {last}"] if level > last + 1 else []
        last = level
    return faults


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
            for width, scheme, medium in VIEWS:
                driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
                    "media": medium, "features": [{"name": "prefers-color-scheme", "value": scheme}]})
                driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                       {"width": width, "height": 2000, "deviceScaleFactor": 1, "mobile": False})
                for page in sorted(pages.glob("*.html")):
                    driver.get(page.as_uri())
                    count, found = driver.execute_script(LOOK)
                    pictures += count
                    found += heard(driver) if medium == "screen" else []
                    faults += [f"{page.name} at {width}, {medium}, {scheme}: {fault}" for fault in found]
        finally:
            driver.quit()
    print(*faults, sep="\n")
    print(f"{pictures} pictures looked at, {len(faults)} faults")
    sys.exit(1 if faults or pictures < 90 else 0)


if __name__ == "__main__":
    main()
