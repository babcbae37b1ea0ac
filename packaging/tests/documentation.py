#!/usr/bin/env python3
"""documentation.py SOURCE LIBRARIES EXAMPLES CMAKE COMPILER: what the pages of the project tell a
reader to write and to type, used as it stands there.

C++ blocks become main.cpp and CMake blocks its CMakeLists.txt, are built with the installed package
and run, once with a collector that answers and once without. Shell blocks run where main.cpp lies.
Commands that build or test the project itself, in blocks and in the text, would run this very test:
of these, it is seen that the scripts, presets and groups of packages exist that they name.
"""

import http.server
import json
import os
import re
import subprocess
import sys
import tempfile
import threading
from pathlib import Path

source, libraries, examples = (Path(argument) for argument in sys.argv[1:4])
cmake, compiler = sys.argv[4:6]
OF_THE_PROJECT = r"(?:cmake|ctest|scripts/|build/)"
failures = []


def expect(is_true, what):
    if not is_true:
        failures.append(what)


class Collector(http.server.BaseHTTPRequestHandler):
    """Answers every request, being the proxy of all that is sent to a host of the examples."""

    requests = []

    def do_GET(self):
        self.requests.append(self.path)
        self.send_response(200)
        self.send_header("Content-Length", "7")
        self.end_headers()
        self.wfile.write(b"welcome")

    def log_message(self, *arguments):
        pass


def run(command, directory, proxy="", status=0):
    """What the command prints, in an environment in which the package is installed."""
    environment = dict(os.environ, http_proxy=proxy, no_proxy="127.0.0.1",
                       PATH=f"{examples}:{os.environ['PATH']}", LD_LIBRARY_PATH=str(libraries),
                       PKG_CONFIG_PATH=str(libraries / "pkgconfig"))
    try:
        done = subprocess.run(command, cwd=directory, env=environment, timeout=300, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    except OSError as error:
        expect(False, f"{command}: {error}")
        return ""
    expect(done.returncode == status, f"{command}: status {done.returncode}\n{done.stdout}")
    return done.stdout


def check_names(command):
    for script in re.findall(r"scripts/[a-z]+\.sh", command):
        expect(os.access(source / script, os.X_OK), f"{command}: no {script}")
    for group in re.findall(r"setup\.sh ([a-z ]+)", command):
        known = {line.split()[0] for line in open(source / "scripts/packages.txt") if line.strip()}
        expect(set(group.split()) <= known, f"{command}: no such group of packages")
    presets = json.loads((source / "CMakePresets.json").read_text())
    for step in command.split("&&"):
        kind = "test" if "ctest" in step else "build" if "--build" in step else "configure"
        known = {preset["name"] for preset in presets[f"{kind}Presets"]}
        for preset in re.findall(r"--preset (\S+)", step):
            expect(preset in known, f"{command}: no {kind} preset {preset}")


def run_program(program, directory, proxy):
    expect("answered: welcome" in run([program], directory, proxy), f"{program}: no answer told")
    expect("http://example.org/hit?id=1" in Collector.requests, f"{program}: not the hit")
    said = run([program], directory, "http://127.0.0.1:1", status=1)
    expect("failed: http://example.org/hit?id=1" in said, f"{program}: no failure told: {said}")


def use_page(page, directory, proxy):
    text = page.read_text()
    prose = re.sub(r"^```.*?^```$", "", text, flags=re.M | re.S)
    expect(not re.search(r"^(    |\t)\S", prose, re.M), f"{page}: a block without a language")
    for command in re.findall(rf"`({OF_THE_PROJECT}[^`]*)`", prose):
        check_names(command)
    blocks = re.findall(r"^```(\w*)\n(.*?)^```$", text, re.M | re.S)
    for language, block in blocks:
        if language in ("cpp", "cmake"):
            (directory / {"cpp": "main.cpp", "cmake": "CMakeLists.txt"}[language]).write_text(block)
        if language == "cmake":
            run([cmake, "-S", ".", "-B", "build", f"-DQVCore_DIR={libraries}/cmake/QVCore",
                 f"-DCMAKE_CXX_COMPILER={compiler}"], directory)
            run([cmake, "--build", "build"], directory)
            run_program("build/application", directory, proxy)
        elif language == "sh" and re.match(OF_THE_PROJECT, block):
            check_names(block)
        elif language == "sh":
            run(["bash", "-euc", block], directory, proxy)
            if block.startswith("c++"):
                run_program("./a.out", directory, proxy)
        else:
            expect(language == "cpp", f"{page}: nobody knows how to try {language or 'a'} block")
    return len(blocks)


if not Path("/proc/net/route").read_text().count("\t00000000\t"):
    print("Skipped: hits are held, since this machine has no default route")
    sys.exit(77)
collector = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Collector)
threading.Thread(target=collector.serve_forever, daemon=True).start()
pages = [source / "README.md", source / "examples/README.md", *(source / "docs").glob("*.md")]
with tempfile.TemporaryDirectory() as place:
    count = sum(use_page(page, Path(place), f"http://127.0.0.1:{collector.server_port}")
                for page in pages)
expect(count > 5, "there was next to nothing to try")
print("\n".join(failures) or f"{count} blocks")
sys.exit(1 if failures else 0)
