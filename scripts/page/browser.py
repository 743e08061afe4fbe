"""A headless Chromium, driven through chromedriver's HTTP interface.

Needs the programs chromium and chromedriver (Debian: chromium, chromium-driver); without
them every use fails with a message that says so.
"""
import base64
import json
import os
import shutil
import socket
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

FLAGS = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--disable-default-apps", "--disable-dev-shm-usage", "--force-device-scale-factor=1",
         "--hide-scrollbars", "--lang=en"]
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
KEYS = {"Enter": "\ue007", "Escape": "\ue00c", "Tab": "\ue004", "ArrowUp": "\ue013",
        "ArrowDown": "\ue015", "ArrowLeft": "\ue012", "ArrowRight": "\ue014", "End": "\ue010",
        "Home": "\ue011"}


def program(*names):
    for name in names:
        found = shutil.which(name)
        if found:
            return found
    raise RuntimeError(f"the page's tests need {' or '.join(names)}: run scripts/install-dependencies")


class Browser:
    """One browser with an empty profile. Use it as a context."""

    def __init__(self, width=1280, height=900, dark=False, script=True):
        self.folder = tempfile.TemporaryDirectory(prefix="browser-", ignore_cleanup_errors=True)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        self.base = f"http://127.0.0.1:{port}"
        environment = dict(os.environ, HOME=self.folder.name, XDG_CONFIG_HOME=self.folder.name)
        self.driver = subprocess.Popen(
            [program("chromedriver"), f"--port={port}", "--log-level=SEVERE"], env=environment,
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            self._start(width, height, dark, script)
        except BaseException:
            self.close()
            raise

    def _start(self, width, height, dark, script):
        deadline = time.monotonic() + 30
        while True:
            try:
                if self._call("GET", "/status")["ready"]:
                    break
            except OSError:
                pass
            if time.monotonic() > deadline:
                raise RuntimeError("chromedriver does not answer")
            time.sleep(0.05)
        options = {
            "binary": program("chromium", "chromium-browser", "google-chrome"),
            "args": FLAGS + [f"--user-data-dir={self.folder.name}/profile",
                             f"--window-size={width},{height}"],
            "perfLoggingPrefs": {"enableNetwork": True, "enablePage": False},
        }
        capabilities = {"browserName": "chrome", "goog:chromeOptions": options,
                        "timeouts": {"script": 110_000},  # ms
                        "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}
        answer = self._call("POST", "/session", {"capabilities": {"alwaysMatch": capabilities}})
        self.base += "/session/" + answer["sessionId"]
        # Away from the browser's own first page, which asks for many things.
        self._call("POST", "/url", {"url": "about:blank"})
        self.requests()
        self.resize(width, height)
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self.command("Emulation.setEmulatedMedia", features=[scheme])
        if not script:
            self.command("Emulation.setScriptExecutionDisabled", value=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        try:
            if "/session/" in self.base:
                self._call("DELETE", "")
        except (OSError, RuntimeError):
            pass
        self.driver.terminate()
        self.driver.wait()
        self.folder.cleanup()

    def _call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data, method=method,
                                         headers={"Content-Type": "application/json"})
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with opener.open(request, timeout=120) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            value = json.load(error)["value"]
            raise RuntimeError(value["error"] + ": " + value["message"]) from None

    def command(self, name, **parameters):
        """A command of the browser's own protocol."""
        return self._call("POST", "/goog/cdp/execute", {"cmd": name, "params": parameters})

    def resize(self, width, height):
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height,
                     deviceScaleFactor=1, mobile=False)

    def open(self, file):
        self._call("POST", "/url", {"url": "file://" + os.path.abspath(file)})

    def run(self, script, *arguments):
        """Runs the body of a function in the page and answers what it returns."""
        return self._call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def wait(self, script, seconds=20):
        """Until the expression holds in the page; its value."""
        deadline = time.monotonic() + seconds
        while True:
            value = self.run("return " + script)
            if value:
                return value
            if time.monotonic() > deadline:
                raise RuntimeError("does not come true: " + script)
            time.sleep(0.05)

    def texts(self, selector):
        return self.run("return [...document.querySelectorAll(arguments[0])].map("
                        "(node) => (node.innerText || node.textContent).trim())", selector)

    def click(self, selector):
        element = self._call("POST", "/element", {"using": "css selector", "value": selector})
        self._call("POST", f"/element/{element[ELEMENT]}/click", {})

    def press(self, *keys):
        """Presses keys, by name or as characters, wherever the focus is."""
        actions = []
        for key in keys:
            value = KEYS.get(key, key)
            actions += [{"type": "keyDown", "value": value}, {"type": "keyUp", "value": value}]
        self._call("POST", "/actions", {"actions": [{"type": "key", "id": "k", "actions": actions}]})

    def console(self):
        """What the page has written to the console since the last call, errors included."""
        return [entry["level"] + ": " + entry["message"]
                for entry in self._call("POST", "/se/log", {"type": "browser"})]

    def requests(self):
        """The addresses that were asked for since the last call."""
        urls = []
        for entry in self._call("POST", "/se/log", {"type": "performance"}):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                urls.append(message["params"]["request"]["url"])
        return urls

    def screenshot(self, file, full=False):
        shot = self.command("Page.captureScreenshot", format="png", captureBeyondViewport=full)
        with open(file, "wb") as out:
            out.write(base64.b64decode(shot["data"]))
