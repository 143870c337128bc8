"""A viewer and a browser in front of it, for the tests: the real program and a real Chromium."""
import json
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

BIN = pathlib.Path(os.environ.get("SCANSTEPS_BIN", "build/dev/bin"))


def wait(condition, what, seconds=15):
    """Returns the first true value of `condition`."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.03)
    raise AssertionError(f"no {what} within {seconds} s")


class Viewer:
    """`scansteps view` with arguments; `address` has the token."""

    def __init__(self, *arguments, cwd=None):
        self.errors = tempfile.TemporaryFile("w+")
        self.process = subprocess.Popen([str(BIN.resolve() / "scansteps"), "view", *arguments], cwd=cwd,
                                        stdout=subprocess.DEVNULL, stderr=self.errors)
        self.address = wait(self.find_address, "address")

    def find_address(self):
        if self.process.poll() is not None:
            raise AssertionError(f"scansteps view ended with {self.process.returncode}: {self.said()}")
        found = re.search(r"http://\S+", self.said())
        return found and found.group()

    def said(self):
        self.errors.seek(0)
        return self.errors.read()

    def end(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
        return self.process.wait(20)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()
        self.errors.close()


class Browser:
    def __init__(self, width=1440, height=900, dark=False):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--hide-scrollbars", "--force-device-scale-factor=1",
                         "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--disable-background-networking"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
        self.size(width, height)
        if dark:
            self.dark(True)

    def size(self, width, height):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 600})

    def dark(self, isDark):
        value = "dark" if isDark else "light"
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": value}]})

    def open(self, viewer, state=""):
        """Opens the address; `state` is what stands after the #."""
        self.driver.get("about:blank")
        self.driver.get(viewer.address + (f"#{state}" if state else ""))
        wait(lambda: self.js("return document.querySelector('.card') !== null"), "card")

    def js(self, code, *arguments):
        return self.driver.execute_script(code, *arguments)

    def click(self, selector):
        self.js("document.querySelector(arguments[0]).click()", selector)

    def text(self, selector):
        return self.js("return document.querySelector(arguments[0]).textContent", selector)

    def picture(self):
        """What the large picture shows: version, frame, step, tuned, format."""
        return self.js("return {...document.getElementById('picture').dataset}")

    def shown(self, **wanted):
        """Waits until the picture has these facts."""
        def fits():
            facts = self.picture()
            return facts if all(facts.get(key) == str(value) for key, value in wanted.items()) and "version" in facts else None
        facts = wait(fits, f"picture with {wanted}")
        self.settle()
        return facts

    def settle(self):
        self.driver.execute_async_script("const done = arguments[0]; requestAnimationFrame(() => requestAnimationFrame(done))")

    def pixels(self):
        """The canvas as (width, height, bytes RGBA)."""
        import base64
        width, height, data = self.js("""
            const canvas = document.getElementById('picture');
            const copy = new OffscreenCanvas(canvas.width, canvas.height).getContext('2d', {willReadFrequently: true});
            copy.drawImage(canvas, 0, 0);
            const data = copy.getImageData(0, 0, canvas.width, canvas.height).data;
            let text = '';
            for (let i = 0; i < data.length; i += 32768) text += String.fromCharCode(...data.subarray(i, i + 32768));
            return [canvas.width, canvas.height, btoa(text)];""")
        return width, height, base64.b64decode(data)

    def console(self):
        return [entry for entry in self.driver.get_log("browser") if entry["level"] in ("WARNING", "SEVERE")]

    def save(self, path):
        self.driver.save_screenshot(str(path))

    def close(self):
        self.driver.quit()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


def report(record):
    """The records that `scansteps inspect --json --data` prints."""
    out = subprocess.run([str(BIN.resolve() / "scansteps"), "inspect", str(record), "--json", "--data"], check=True, capture_output=True, text=True)
    return [json.loads(line)["record"] for line in out.stdout.splitlines()]
