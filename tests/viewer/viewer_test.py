#!/usr/bin/python3
"""The viewer as people use it: `scansteps view` in front of a real browser.

    tests/viewer/viewer_test.py [--screenshots DIR] [TEST...]      SCANSTEPS_BIN: where the programs are

Run from the root of the checkout after `npm ci` in this folder."""
import http.client
import math
import os
import pathlib
import re
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from browser import BIN, Browser, Viewer, report, wait  # noqa: E402
from records import FLOAT, UINT, USHORT, Array, recording  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parents[2]
IMAGES = ROOT / "examples/images"
AXE = pathlib.Path(__file__).parent / "node_modules/axe-core/axe.min.js"
EDGES = f"cjread load.name={IMAGES}/img0000.jpg load.count=2 ! cyuv ! ccanny"  # three frames
CAMERA = ["ccap1 dev_name=test:moving@30 ! ccanny", "--set", "dataX=320", "--set", "dataY=240"]
screenshots = None


def run(*arguments):
    subprocess.run([str(BIN.resolve() / "scansteps"), "run", "--quiet", "--step-output", "none", *arguments], check=True)


def request(viewer, path="/", token=True, method="GET", **headers):
    """Status and headers of the answer to one request."""
    parts = urllib.parse.urlsplit(viewer.address)
    connection = http.client.HTTPConnection(parts.hostname, parts.port, timeout=10)
    if token:
        headers["Cookie"] = f"scansteps-{parts.port}={parts.query.removeprefix('token=')}"
    connection.request(method, path, headers={name.replace("_", "-"): value for name, value in headers.items()})
    answer = connection.getresponse()
    return answer.status, dict(answer.getheaders())


def half(length):
    """As the page centres: Math.round."""
    return math.floor(length / 2 + 0.5)


class ViewerTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.folder = tempfile.TemporaryDirectory()
        cls.tmp = pathlib.Path(cls.folder.name)

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.folder.cleanup()

    def setUp(self):
        self.browser.size(1440, 900)
        self.browser.dark(False)

    def tearDown(self):
        self.assertEqual(self.browser.console(), [])

    def frame_shown(self, size):
        """The grey values (red) of the frame's pixels, shown 1:1, by row."""
        width, height, rgba = self.browser.pixels()
        left, top = half(width - size[0]), half(height - size[1])
        rows = (rgba[4 * (width * (top + y) + left):4 * (width * (top + y) + left + size[0])] for y in range(size[1]))
        return [[row[4 * x:4 * x + 3] for x in range(size[0])] for row in rows]

    def test_camera_moves(self):
        with Viewer(*CAMERA) as viewer:
            self.browser.open(viewer)
            first = self.browser.shown(step=0)
            before = self.browser.pixels()
            wait(lambda: int(self.browser.picture()["version"]) > int(first["version"]) + 2, "newer pictures")
            self.assertFalse(before == self.browser.pixels())
            self.assertNotIn("token", self.browser.driver.current_url)

    def test_displayed_pixels_are_the_recorded_ones(self):
        rec = self.tmp / "rgb.rec"
        run(f"cjread load.name={IMAGES}/img0000.jpg load.count=2 ! filesaver save.name={rec}")
        records = report(rec)
        with Viewer(str(rec)) as viewer:
            self.browser.open(viewer, "zoom=1")
            for number in (3, 2):  # seeking shows the right frame
                self.browser.js("const seek = document.querySelector('#seek input'); seek.value = arguments[0]; seek.dispatchEvent(new Event('input'))", number)
                self.browser.shown(frame=number, format="png")
                array = records[number - 1]["data"]["Array"]
                width, height = array["dims"][0] // 3, array["dims"][1]
                shown = self.frame_shown((width, height))
                data = array["data"]
                rows = [[bytes(data[3 * (width * y + x):3 * (width * y + x) + 3]) for x in range(width)] for y in range(height)]
                wrong = [(x, y, shown[y][x], rows[y][x]) for y in range(height) for x in range(width) if shown[y][x] != rows[y][x]]
                self.assertFalse(wrong, f"{len(wrong)} pixels differ, the first: {wrong[:1]}")

    def test_slider_changes_edges_as_set_does(self):
        rec = self.tmp / "edges.rec"
        run(f"{EDGES} ! filesaver save.name={rec}", "--set", "OCV.trh=200", "--set", "OCV.trl=100")
        array = report(rec)[3]["data"]["Array"]
        width, height = array["dims"][:2]
        wanted = [[bytes(3 * [array["data"][width * y + x] & 255]) for x in range(width)] for y in range(height)]
        with Viewer(EDGES) as viewer:
            self.browser.open(viewer, "step=2&zoom=1")
            self.browser.shown(step=2, frame=3, tuned=0)
            for name, value in (("OCV.trh", 200), ("OCV.trl", 100)):
                self.browser.js("""const slider = document.querySelector(`input[type=range][aria-label^="${arguments[0]}"]`);
                    slider.max = 4000; slider.value = arguments[1]; slider.dispatchEvent(new Event('input'));""", name, value)
                wait(lambda: self.browser.js("return [...document.querySelectorAll('.setting.changed label')].map(l => l.title)").count(name), "change")
            wait(lambda: self.frame_shown((width, height)) == wanted, "the edge map of --set")
            self.assertEqual(self.browser.picture()["tuned"], "1")
            said = self.browser.js("""navigator.clipboard.writeText = async (text) => { window.copied = text; };
                [...document.querySelectorAll('.actions button')].find(b => b.textContent === 'Copy command').click()""")
            command = wait(lambda: self.browser.js("return window.copied"), "a command", 5)
            self.assertIn("OCV.trh=200", command)
            self.assertIsNone(said)

    def test_trial_is_applied_and_refused(self):
        with Viewer(*CAMERA) as viewer:
            self.browser.open(viewer, "step=1")
            self.browser.shown(step=1)
            slide = "const s = document.querySelector('input[type=range][aria-label^=\"OCV.trh\"]'); s.value = arguments[0]; s.dispatchEvent(new Event('input'))"
            self.browser.js(slide, 50)
            self.browser.shown(step=1, tuned=1)
            self.browser.click(".actions .primary")
            self.browser.shown(step=1, tuned=0)
            wait(lambda: self.browser.text("#state") == "running", "a run that goes on")
            self.browser.js("import('/connection.js').then(({Connection}) => { window.other = new Connection(() => other.send({set: 'capture.dev_name', step: 0, value: 'x'}), () => {}); other.on('reply', (head) => { window.reply = head.error; }); })")
            self.assertIn("cannot be changed", wait(lambda: self.browser.js("return window.reply"), "a reply"))

    def test_overlays_lie_where_the_record_says(self):
        attributes = [0] * 16
        attributes[4] = struct.unpack("<I", struct.pack("<f", 8))[0]  # size
        rec = self.tmp / "overlays.rec"
        frame = {"data": Array(USHORT, (60, 40, 1), [32768] * 2400), "vert": Array(FLOAT, (2, 1, 1), [20, 10]),
                 "vertAttr": Array(UINT, (16, 1, 1), attributes),
                 "fvertsArray": [{"closed": 0, "verts": Array(FLOAT, (2, 2, 1), [5, 30, 50, 30])}],
                 "regions": Array(FLOAT, (8, 1, 1), [40, 15, 9, 30, 10, 50, 20, 0])}
        rec.write_bytes(recording(60, 40, [frame]))
        with Viewer(str(rec)) as viewer:
            self.browser.open(viewer, "zoom=8")
            self.browser.shown(frame=2)
            wait(lambda: self.browser.text("#overlays") == "1 corners1 lines1 regions", "counts")
            self.browser.settle()
            width, height, rgba = self.browser.pixels()
            left, top = half(width - 480), half(height - 320)

            def colour(x, y):
                at = 4 * (width * round(top + 8 * (y + 0.5)) + round(left + 8 * (x + 0.5)))
                return tuple(rgba[at:at + 3])

            red, green, blue = colour(20.9, 10)  # from the centre along the orientation
            self.assertTrue(red > 120 and green > 100 and blue < 90, (red, green, blue))
            self.assertGreater(colour(25, 30)[2], 120)
            self.assertEqual(colour(25, 35), (0, 0, 0))
            self.assertGreater(colour(29.5, 15)[0], 120)  # the left side of the box
            self.assertEqual(colour(40, 15), (0, 0, 0))

    def test_models_are_drawn(self):
        obj = self.tmp / "knot.obj"
        run(f"readd load.name={ROOT}/examples/models/textured_knot.rec ! cply export.name={obj}", "--types", "off")
        for what in (str(ROOT / "examples/models/torus_knot.rec"), str(ROOT / "examples/models/sphere_points.rec"), str(obj)):
            with self.subTest(what), Viewer(what) as viewer:
                self.browser.open(viewer, "kind=model")
                wait(lambda: self.browser.js("return document.getElementById('model').dataset.drawn"), "a model")
                self.browser.settle()
                share = self.browser.js("""
                    const from = document.querySelector('#model canvas'), to = new OffscreenCanvas(200, 100), c = to.getContext('2d');
                    c.drawImage(from, 0, 0, 200, 100);
                    const data = c.getImageData(0, 0, 200, 100).data;
                    let lit = 0;
                    for (let i = 0; i < data.length; i += 4) lit += Math.abs(data[i] - data[0]) + Math.abs(data[i + 1] - data[1]) + Math.abs(data[i + 2] - data[2]) > 60;
                    return lit / 20000;""")
                self.assertGreater(share, 0.005)
                self.assertLess(share, 0.9)
                if what.endswith(".obj") and screenshots:
                    self.browser.save(screenshots / "viewer_model.png")

    def test_cloud_grows(self):
        rec = self.tmp / "cloud.rec"
        places = [math.sin(i * i) for i in range(3000)]
        rec.write_bytes(recording(2, 2, [{"pns": {"Points": Array(FLOAT, (3, count, 1), places[:3 * count])}} for count in (10, 100, 1000)]))
        with Viewer(f"readd load.name={rec}", "--types", "off", "--paused") as viewer:
            self.browser.open(viewer, "kind=model")
            self.browser.click("#step")
            for count in ("10", "100", "1,000"):
                self.browser.click("#step")
                wait(lambda: self.browser.text("#size").startswith(count + " points"), f"{count} points")
                self.assertTrue(self.browser.js("return document.getElementById('empty').hidden"))

    def test_reload_keeps_the_state(self):
        with Viewer(EDGES) as viewer:
            self.browser.open(viewer)
            self.browser.shown(step=0)
            self.browser.click("[data-step='2']")
            self.browser.click("#tab-levels")
            self.browser.click("[data-compare=side]")
            time.sleep(0.4)
            self.browser.driver.refresh()
            self.browser.shown(step=2)
            self.assertEqual(self.browser.js("return [...document.querySelectorAll('[aria-selected=true], [aria-checked=true]')].map(e => e.textContent)"),
                             ["Picture", "Run", "Side", "Levels"])

    def test_two_viewers_and_the_end_of_the_run(self):
        with Viewer(CAMERA[0].replace("@30", "@20"), *CAMERA[1:], "--frames", "120") as viewer, Browser() as other:
            self.browser.open(viewer)
            other.open(viewer, "step=1")
            self.browser.shown(step=0)
            other.shown(step=1)
            for browser in (self.browser, other):
                wait(lambda: browser.text("#state") == "ended", "the end of the run on the page", 30)
                wait(lambda: browser.picture()["frame"] == "120", "the last frame")
            self.assertEqual(other.console(), [])
            self.assertIsNone(viewer.process.poll())
            self.assertEqual(viewer.end(), 130)

    def test_pause_and_step(self):
        with Viewer(*CAMERA, "--paused") as viewer:
            self.browser.open(viewer)
            wait(lambda: self.browser.text("#state") == "paused", "pause")
            for number in (1, 2):
                self.browser.click("#step")
                self.browser.shown(frame=number)

    def test_errors_stand_on_their_card(self):
        with Viewer(f"cjread load.name={IMAGES}/img0000.jpg load.count=1 ! cyuv ! cjwrite name={self.tmp}/none/out0000.jpg") as viewer:
            self.browser.open(viewer)
            note = wait(lambda: self.browser.text("#notes-2"), "a message on the card of cjwrite")
            self.assertTrue(note)

    def test_axe(self):
        for state in ("", "tab=levels", "tab=record", "tab=timing&theme=dark", "kind=model"):
            what = str(ROOT / "examples/models/torus_knot.rec") if "model" in state else EDGES
            with self.subTest(state), Viewer(what) as viewer:
                self.browser.open(viewer, "step=2&" + state if "model" not in state else state)
                time.sleep(0.5)
                self.browser.js(AXE.read_text())
                found = self.browser.driver.execute_async_script("axe.run().then(arguments[0])")
                serious = [(each["id"], each["nodes"][0]["html"]) for each in found["violations"] if each["impact"] in ("serious", "critical")]
                self.assertEqual(serious, [])

    def test_who_is_let_in(self):
        with Viewer(EDGES) as viewer:
            parts = urllib.parse.urlsplit(viewer.address)
            for what, wanted in ((dict(), 200), (dict(token=False), 401), (dict(token=False, path="/main.js"), 401),
                                 (dict(token=False, path="/?token=wrong"), 401), (dict(path="/../../etc/passwd"), 404),
                                 (dict(Host="evil.example"), 421), (dict(Host=f"evil.example:{parts.port}"), 421),
                                 (dict(Host=f"localhost:{parts.port}"), 200), (dict(Origin="http://evil.example"), 403),
                                 (dict(method="POST"), 405)):
                with self.subTest(what):
                    self.assertEqual(request(viewer, **what)[0], wanted)
            status, headers = request(viewer, "/?" + parts.query, token=False)
            self.assertEqual(status, 200)
            self.assertIn("HttpOnly; SameSite=Strict", headers["set-cookie"])
            self.assertIn("default-src 'none'", headers["content-security-policy"])
            for origin, token, wanted in (("http://evil.example", True, 403), (f"http://{parts.netloc}", False, 401), (f"http://{parts.netloc}", True, 101)):
                self.assertEqual(request(viewer, "/ws", token, Origin=origin, Connection="Upgrade", Upgrade="websocket", Sec_WebSocket_Version="13",
                                         Sec_WebSocket_Key="MDEyMzQ1Njc4OTAxMjM0NQ==", Sec_WebSocket_Protocol="scansteps-view")[0], wanted)

    def test_hostile_connections_do_not_disturb_the_run(self):
        with Viewer(*CAMERA) as viewer:
            self.browser.open(viewer)
            self.browser.shown(step=0)
            parts = urllib.parse.urlsplit(viewer.address)
            idle = []
            for number in range(3000):
                try:
                    idle.append(socket.create_connection((parts.hostname, parts.port), timeout=0.2))
                    idle[-1].send([b"GET / HTTP/1.1\r\n", b"\x16\x03\x01\0\xff" * 9, b"GET /" + b"a" * 9000][number % 3])
                except OSError:
                    break
            before = int(self.browser.picture()["frame"])
            begin = time.monotonic()
            wait(lambda: int(self.browser.picture()["frame"]) > before + 60, "frames", 10)
            self.assertLess(time.monotonic() - begin, 6)  # 60 frames at 30 a second
            for each in idle:
                each.close()

    def test_missing_files(self):
        for name in ("missing.rec", "missing.ply", "missing.json"):
            done = subprocess.run([str(BIN.resolve() / "scansteps"), "view", name], capture_output=True, text=True, timeout=20)
            self.assertEqual((done.returncode, name in done.stderr), (2, True), done.stderr)

    def test_screenshots(self):
        """Every size and both modes; the page never scrolls sideways."""
        features = f"cjread load.name={IMAGES}/photo_astronaut.jpg load.count=1 ! cyuv ! ccorner5 ! ccanny2a ! csegment"
        with Viewer(features, "--set", "cpu_base=0") as viewer:
            for name, size, dark, state in (("desktop", (1440, 900), False, "step=2"), ("small", (1280, 720), True, "step=3&tab=timing&overlays=lines"),
                                            ("compare", (1280, 720), False, "step=3&compare=side&tab=levels"), ("phone", (390, 844), False, "step=2"),
                                            ("phone_dark", (390, 844), True, "step=4&overlays=regions&tab=record")):
                self.browser.size(*size)
                self.browser.dark(dark)
                self.browser.open(viewer, state)
                self.browser.shown(step=re.search(r"\d", state).group())
                time.sleep(2.5)
                self.assertLessEqual(self.browser.js("return document.documentElement.scrollWidth"), size[0])
                if screenshots:
                    self.browser.save(screenshots / f"viewer_{name}.png")


if __name__ == "__main__":
    if "--screenshots" in sys.argv:
        at = sys.argv.index("--screenshots")
        screenshots = pathlib.Path(sys.argv[at + 1])
        screenshots.mkdir(parents=True, exist_ok=True)
        del sys.argv[at:at + 2]
    os.chdir(ROOT)
    unittest.main(verbosity=2)
