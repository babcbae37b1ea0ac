"""The inspector as a process, and a browser that looks at its page."""

import contextlib
import http.client
import json
import os
import resource
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.parse
from pathlib import Path

SAMPLE = Path(__file__).resolve().parents[2] / "tools/inspector/sample"
PROGRAM, SEND_HITS = os.environ["QV_INSPECTOR"], os.environ["SEND_HITS"]
END = "\r\n"
TIMEOUT = 60  # seconds; nothing here takes long, but the machine may be busy


def run_tests():
    unittest.main(module="__main__", argv=sys.argv[:1] + sys.argv[1:], verbosity=2)


def skip_unless(path, package):
    """Ends the program as skipped if the path of that Debian package is not there."""
    if not os.path.exists(path):
        print(f"Skipped: there is no {path}, of the package {package}")
        sys.exit(77)


def eventually(condition, what):
    """Waits until the condition answers something true, which it answers."""
    end = time.monotonic() + TIMEOUT
    while not (found := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"it never came about: {what}")
        time.sleep(0.01)
    return found


class Inspector(contextlib.AbstractContextManager):
    """Runs on free ports until the end of the block, which it is to survive."""

    def __init__(self, *options, file_limit=resource.RLIM_INFINITY):
        self.process = subprocess.Popen([PROGRAM, "--port", "0", "--page-port", "0", *map(str, options)],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, [file_limit] * 2))
        self.collector, self.page = (self.process.stdout.readline().split()[-1] for _ in range(2))

    def __exit__(self, *error):
        self.process.send_signal(signal.SIGTERM)
        _, said = self.process.communicate(timeout=TIMEOUT)
        if error[0] is None:
            assert self.process.returncode == 0, f"it ended with {self.process.returncode}: {said}"
        self.said = said

    def send(self, target, body=None, headers={}, method=None, timeout=TIMEOUT, port=None):
        """The answer, which has its body in it; what the connection suffers is raised."""
        connection = http.client.HTTPConnection(urllib.parse.urlsplit(port or self.collector).netloc,
                                                timeout=timeout)
        with contextlib.closing(connection):
            connection.request(method or ("GET" if body is None else "POST"), target, body, headers)
            answer = connection.getresponse()
            answer.text = answer.read()
        return answer

    def ask(self, target, body=None, headers={}, method=None):
        return self.send(target, body, headers, method, port=self.page)

    def set_rules(self, *rules):
        answer = self.ask("/api/rules", json.dumps(rules), method="PUT")
        assert answer.status == 200, answer.text

    def hits(self, wanted=""):
        text = self.ask(f"/api/export?format=jsonl&hits={wanted}").text.decode()
        return [json.loads(line) for line in text.splitlines() if line]

    def resident(self):
        """In MiB."""
        status = Path(f"/proc/{self.process.pid}/status").read_text()
        return int(status.split("VmRSS:")[1].split()[0]) / 1024

    def connect(self):
        address = urllib.parse.urlsplit(self.collector)
        return socket.create_connection((address.hostname, address.port), TIMEOUT)

    def send_many(self, count, first=0):
        """GETs in one go, over one connection, each for /hit with an id of its own."""
        head = "HTTP/1.1\r\nHost: kiosk.example\r\nUser-Agent: a kiosk\r\nAccept: */*\r\n"
        with self.connect() as connection:
            def drain():
                while connection.recv(1 << 20):
                    pass
            reader = threading.Thread(target=drain)
            reader.start()
            for begin in range(first, first + count, 1000):
                connection.sendall("".join(
                    f"GET /hit?id={i}&page=home%2Fnews&title=Caf%C3%A9+{i % 100}&lang=fr {head}"
                    f"{'' if i + 1 < first + count else 'Connection: close' + END}{END}"
                    for i in range(begin, min(begin + 1000, first + count))).encode())
            reader.join()

    def send_sample(self):
        """Has the core send the sample session; answers what was printed of each hit."""
        session = (SAMPLE / "session.tsv").read_text().replace("COLLECTOR", self.collector)
        return self.send_with_core(session)

    def send_with_core(self, lines, **environment):
        with tempfile.TemporaryDirectory() as container:
            return subprocess.run([SEND_HITS, "--assume-network", "--container", container],
                                  input=lines, text=True, capture_output=True, timeout=TIMEOUT,
                                  env=dict(os.environ, **environment)).stdout


@contextlib.contextmanager
def browser(width=1280, height=800):
    """A Chromium without a window, or the end of the program as skipped."""
    for path, package in (("/usr/bin/chromium", "chromium"), ("/usr/bin/chromedriver", "chromium-driver"),
                          ("/usr/lib/python3/dist-packages/selenium", "python3-selenium")):
        skip_unless(path, package)
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as directory:
        for option in ("headless", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run",
                       "disable-background-networking", "disable-component-update", "disable-sync",
                       "disable-dev-shm-usage", "enable-precise-memory-info", "lang=en",
                       f"user-data-dir={directory}/profile"):
            options.add_argument(f"--{option}")
        options.add_experimental_option("prefs", {"download.default_directory": directory})
        driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        driver.directory = Path(directory)
        try:
            resize(driver, width, height)
            yield driver
        finally:
            driver.quit()


def resize(driver, width, height):
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
        "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 600})
