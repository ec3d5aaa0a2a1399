"""A board with its console, and a headless browser that looks at it.

Everything is the caller's own and goes with it: the board's temporary folder, the launcher, the browser.
"""

import contextlib
import io
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time

SKIPPED = 77  # exit status that says so to ctest
PATIENCE = 60  # seconds, for a loaded machine; only what fails waits so long


def missing():
    """What the browser needs and this machine lacks, empty when nothing."""
    lacks = [name for name in ("chromium", "chromedriver") if shutil.which(name) is None]
    with contextlib.suppress(ImportError):
        import selenium  # noqa: F401

        return ", ".join(lacks)
    return ", ".join(lacks + ["python3-selenium"])


def wait_for(condition, what):
    """Waits until the condition gives something, and gives it back."""
    until = time.monotonic() + PATIENCE
    while time.monotonic() < until:
        result = condition()
        if result:
            return result
        time.sleep(0.05)
    raise AssertionError("waited in vain: " + what)


class Bench:
    """velcamd on a virtual board with a console."""

    # Shows nothing, until it is stopped.
    PLAYER = '#!/bin/sh\nprintf "%s\\n" "$@" >"$VBOARD_FOLDER/played"\nexec sleep 60\n'

    def __init__(self, programs, videos=()):
        self.folder = tempfile.mkdtemp(prefix="velcam-bench-")
        self.board = os.path.join(self.folder, "board")
        self.put("usr/bin/gst-launch-1.0", self.PLAYER, 0o755)
        for name in videos:
            self.put("velmarine/f/video/" + name, "no film")
        self.errors = os.path.join(self.folder, "errors")
        with open(self.errors, "wb") as errors, open(os.path.join(self.folder, "output"), "wb") as output:
            self.launcher = subprocess.Popen(
                [os.path.join(programs, "vboard"), "run", "--board", self.board, "--console", "0", "--",
                 os.path.join(programs, "velcamd")],
                stdin=subprocess.DEVNULL, stdout=output, stderr=errors)
        self.url = wait_for(self._url, "the console's address")

    def _url(self):
        with open(self.errors, encoding="utf-8") as errors:
            found = re.search(r"console at (\S+)", errors.read())
        return found and found.group(1)

    def put(self, path, text, mode=0o644):
        whole = os.path.join(self.board, "root", path)
        os.makedirs(os.path.dirname(whole), exist_ok=True)
        with open(whole, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(whole, mode)

    def end(self):
        """Interrupts the daemon; the exit status."""
        if self.launcher.poll() is None:
            self.launcher.send_signal(signal.SIGINT)
        return self.launcher.wait(PATIENCE)

    def close(self):
        try:
            self.end()
        except subprocess.TimeoutExpired:
            self.launcher.kill()
            self.launcher.wait()
        shutil.rmtree(self.folder, ignore_errors=True)


class Browser:
    """Headless Chromium with one page."""

    def __init__(self, folder):
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service

        self.downloads = os.path.join(folder, "downloads")
        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium")
        for flag in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--disable-dev-shm-usage", "--hide-scrollbars", "--user-data-dir=" + os.path.join(folder, "profile")):
            options.add_argument(flag)
        options.add_experimental_option("prefs", {"download.default_directory": self.downloads})
        self.driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)

    def close(self):
        self.driver.quit()

    def open(self, url):
        # Not get(): the live picture never finishes loading.
        self.driver.execute_cdp_cmd("Page.navigate", {"url": url})
        self.wait_text("link", "connected")

    def look(self, width, height, phone=False, scheme="dark"):
        """The window's size in the page's pixels, and whether dark or light is preferred."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": phone})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def find(self, selector):
        return self.driver.find_element("css selector", selector)

    def all(self, selector):
        return self.driver.find_elements("css selector", selector)

    def text(self, ident):
        return self.find("#" + ident).text

    def wait_text(self, ident, text):
        wait_for(lambda: self.all("#" + ident) and text in self.text(ident), f"'{text}' in #{ident}")

    def click(self, selector):
        self.driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", self.find(selector))
        self.find(selector).click()

    def pixels(self):
        """The live picture: a luma value for each of 1024x600 pixels, empty before there is a picture."""
        text = self.driver.execute_script("""
            const live = document.getElementById("live");
            if (!live.naturalWidth) return "";
            const canvas = document.createElement("canvas");
            canvas.width = 1024; canvas.height = 600;
            const context = canvas.getContext("2d");
            context.drawImage(live, 0, 0);
            const rgba = context.getImageData(0, 0, 1024, 600).data;
            let luma = "";
            for (let i = 0; i < rgba.length; i += 4)
                luma += String.fromCharCode((77 * rgba[i] + 150 * rgba[i + 1] + 29 * rgba[i + 2]) >> 8);
            return luma;""")
        return text.encode("latin-1")

    def screenshot(self, file):
        import base64

        picture = self.driver.execute_cdp_cmd("Page.captureScreenshot", {"format": "png"})
        with io.open(file, "wb") as out:
            out.write(base64.b64decode(picture["data"]))


def camera_in(pixels, x, y, width, height):
    """The number of the camera whose pattern fills a part of the panel, 0 for none; and its frame number."""
    def mean(column, row):
        left, top = x + (24 * column + 6) * width // 720, y + (216 + 24 * row + 6) * height // 480
        right, bottom = left + max(1, 12 * width // 720), top + max(1, 12 * height // 480)
        cell = [pixels[1024 * line + pixel] for line in range(top, bottom) for pixel in range(left, right)]
        return sum(cell) / len(cell)

    if not pixels:
        return 0, 0
    bits = 0
    for column in range(30):
        difference = mean(column, 0) - mean(column, 1)
        if abs(difference) < 40:
            return 0, 0
        bits = 2 * bits + (difference > 0)
    marker, camera, frame = bits >> 28, bits >> 25 & 7, bits >> 5 & 0xFFFFF
    return (camera, frame) if marker == 2 else (0, 0)
