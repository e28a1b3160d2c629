"""Debian's Chromium, driven headless, and a server on this machine for it."""

from __future__ import annotations

import functools
import threading
from contextlib import contextmanager
from http.server import SimpleHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.wait import WebDriverWait

ROOT = Path(__file__).resolve().parents[2]
SITE = ROOT / "build/web"
HERE = Path(__file__).resolve().parent


class Site:
    """build/web at `address` and below embed/orvel/, tests/web below test/, a folder below scratch/ that takes what
    a page puts there. `faults`: paths with the bytes that are given in place of the file, None for status 404."""

    def __init__(self, scratch: Path):
        self.scratch, self.faults = scratch, {}
        handler = functools.partial(_Handler, self)
        self._server = ThreadingHTTPServer(("localhost", 0), handler)
        self.address = f"http://localhost:{self._server.server_address[1]}/"
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def close(self) -> None:
        self._server.shutdown()
        self._server.server_close()


class _Handler(SimpleHTTPRequestHandler):
    def __init__(self, site, *arguments):
        self.site = site
        super().__init__(*arguments)

    def translate_path(self, path):
        for prefix, folder in (
            ("/test/", HERE),
            ("/scratch/", self.site.scratch),
            ("/embed/orvel/", SITE),
            ("/embed/", self.site.scratch),
            ("/", SITE),
        ):
            if path.startswith(prefix):
                return str(folder / path.removeprefix(prefix))

    def do_GET(self):
        if self.path not in self.site.faults:
            super().do_GET()
            return
        content = self.site.faults[self.path]
        self.send_response(404 if content is None else 200)
        self.end_headers()
        self.wfile.write(content or b"")

    def do_PUT(self):
        Path(self.translate_path(self.path)).write_bytes(self.rfile.read(int(self.headers["Content-Length"])))
        self.send_response(204)
        self.end_headers()

    def log_message(self, *arguments):
        pass


def call(driver, site, name: str, patience: float, **options) -> dict:
    """What a function of harness.js gives, in a page of its own, within `patience` seconds."""
    driver.get(f"{site.address}test/harness.html")
    wait = WebDriverWait(driver, patience, 0.2)
    wait.until(lambda _: driver.execute_script("return document.body.dataset.ready"))
    script = f"{name}(arguments[0]).then((r) => {{ window.result = r; }}, (e) => {{ window.result = String(e); }});"
    driver.execute_script(script, options)
    result = wait.until(lambda _: driver.execute_script("return window.result"))
    if not isinstance(result, dict):
        raise RuntimeError(f"{name}: {result}")
    return result


@contextmanager
def chromium(downloads: Path, *flags: str, microphone: Path | None = None):
    """A headless browser. `microphone`: the WAV file that its microphone gives, over and over."""
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for flag in (
        "--headless=new",
        "--no-sandbox",  # it runs as root in containers, and reads our own files only
        "--disable-dev-shm-usage",
        "--disable-background-networking",
        "--disable-component-update",
        "--no-first-run",
        "--autoplay-policy=no-user-gesture-required",
        *flags,
    ):
        options.add_argument(flag)
    if microphone:
        options.add_argument("--use-fake-device-for-media-stream")
        options.add_argument(f"--use-file-for-fake-audio-capture={microphone}")
    options.add_experimental_option("prefs", {"download.default_directory": str(downloads)})
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
    try:
        yield driver
    finally:
        driver.quit()
