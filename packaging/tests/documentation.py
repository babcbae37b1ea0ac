#!/usr/bin/env python3
"""documentation.py SOURCE LIBRARIES EXAMPLES CMAKE COMPILER: what the pages of the project tell a
reader to write and to type, used as it stands there.

Each C++ or C block is compiled by itself with the installed package; one that has a main() becomes the
main.cpp or main.c of the CMake and shell blocks behind it, the others are run by the test suite. What
these make of it runs once with a collector that answers and once without, and so does each Python
block. Commands that build or test the project itself, in blocks and in the text, would run this very
test: of these, it is seen that all exists that they name.
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
# A reader finds the examples in the demo's build, this test in its own.
DEMO = "build/demo/examples"
OF_THE_PROJECT = rf"(?:cmake |ctest |scripts/|build/(?!{DEMO[6:]}/))"
has_route = "\t00000000\t" in Path("/proc/net/route").read_text()
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
                       PKG_CONFIG_PATH=str(libraries / "pkgconfig"),
                       PYTHONPATH=str(source / "python"), QVCORE_LIBRARY=str(libraries / "libQVCore.so.4"))
    environment.pop("LD_LIBRARY_PATH", None)
    try:
        done = subprocess.run(command, cwd=directory, env=environment, timeout=300, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    except (OSError, subprocess.TimeoutExpired) as error:
        expect(False, f"{command}: {error}")
        return ""
    expect(done.returncode == status, f"{command}: status {done.returncode}\n{done.stdout}")
    return done.stdout


def words_in(path, pattern):
    return {word for found in re.findall(pattern, (source / path).read_text(), re.M)
            for word in found.split()}


SCRIPTS = {
    "bench.sh": {"--quick"},
    "cross.sh": {"--quick", "arm64", "armhf", "s390x"},
    "demo.sh": set(),
    "docs.sh": set(),
    "faults.sh": {"--quick"},
    "fuzz.sh": {path.stem.removesuffix("Fuzzer") for path in source.glob("fuzz/*Fuzzer.cpp")},
    "inspect.sh": words_in("tools/inspector/Options.cpp", r'^ *"  (--[a-z-]+)'),
    "lint.sh": words_in("scripts/lint.sh", r"^  ([a-z]+)\) "),
    "mutate.sh": {"--quick"},
    "package.sh": {"--check"},
    "picture.sh": set(),
    "setup.sh": words_in("scripts/packages.txt", r"^([a-z]+) "),
    "soak.sh": {"--plot"} | words_in("tools/soak/Options.cpp", r'^ *"  (--[a-z-]+)'),
    "test.sh": words_in("scripts/test.sh", r"^known=\((.*)\)$") | {"all"},
}
PRESETS = {kind: {preset["name"] for preset in presets if not preset.get("hidden")}
           for kind, presets in json.loads((source / "CMakePresets.json").read_text()).items()
           if kind.endswith("Presets")}
PROGRAMS = {f"{path.parent.name}/{path.stem}"
            for kind in ("benchmarks/*Benchmark.cpp", "fuzz/*Fuzzer.cpp")
            for path in source.glob(kind)}
TESTS = {f"{suite}.{name}" for path in source.glob("tests/**/*.cpp")
         for suite, name in re.findall(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", path.read_text(), re.M)}
for path in ("packaging/tests", "tests", "tests/examples", "tests/faults", "tests/tools"):
    TESTS |= words_in(f"{path}/CMakeLists.txt", r"add_test\(NAME ([\w.]+)")
for path, kind in (("packaging/tests", "package"), ("tests/inspector", "inspector")):
    TESTS |= {f"{kind.title()}.{name}"
              for name in words_in(f"{path}/CMakeLists.txt", rf"^ *{kind}_test\((\w+)")}
for room in ("examples", "tools"):
    PROGRAMS |= {f"{room}/{name}"
                 for name in words_in(f"{room}/CMakeLists.txt", r"^add_executable\(([\w-]+)")}


def check_script(name, arguments, command):
    expect(os.access(source / "scripts" / name, os.X_OK), f"{command}: no scripts/{name}")
    for argument in arguments:
        expect(argument.isdigit() or argument in SCRIPTS.get(name, ()),
               f"{command}: {name} does not know {argument}")


def check_command(command):
    """Of one command: its script with the arguments, its presets, the program that it runs."""
    words = command.split()
    first = words[0]
    if first.startswith("scripts/") and first.endswith(".sh"):
        check_script(first[len("scripts/"):], words[1:], command)
    elif first.startswith("scripts/"):
        expect((source / first).exists(), f"{command}: no {first}")
    kind = "test" if first == "ctest" else "build" if "--build" in words else "configure"
    for preset in re.findall(r"--preset[ =](\S+)", command):
        expect(preset in PRESETS[f"{kind}Presets"], f"{command}: no {kind} preset {preset}")
    for pattern in re.findall(r"-R '?([^\s']+)", command if first == "ctest" else ""):
        for part in pattern.split("|"):
            expect(any(re.search(part, test) for test in TESTS), f"{command}: no test {part}")
    for preset, path in re.findall(r"\bbuild/([\w-]+)(?:/(\S+))?", command):
        expect(preset in PRESETS["configurePresets"], f"{command}: no preset {preset}")
        expect(not path or path in PROGRAMS or (source / path / "CMakeLists.txt").exists(),
               f"{command}: no program {path}")


def commands_of(text):
    lines = re.sub(r"\\\n", " ", re.sub(r"(^|\s)#.*", r"\1", text)).splitlines()
    between = r"(?:&&|\|\|?|;)(?=(?:[^']*'[^']*')*[^']*$)"  # and not within quotes
    return [command.strip() for line in lines for command in re.split(between, line)
            if command.strip()]


def check_text(page, prose):
    """What stands between the blocks: code in backticks, and in a table what follows a script."""
    expect(not re.search(r"^(    |\t)\S|```|~~~|<pre", prose, re.M),
           f"{page}: a block without a language, or without an end")
    for span in re.findall(rf"`({OF_THE_PROJECT}[^`]*)`", re.sub(r"\n(?=\S)", " ", prose)):
        for command in commands_of(span):
            check_command(command)
    for test in re.findall(r"`([A-Z]\w+\.[A-Z][a-z]\w+)`", prose):
        expect(test in TESTS, f"{page}: no test {test}")
    for row in re.findall(r"^\|.*", prose, re.M):
        spans = re.findall(r"`([^`]+)`", row)
        script = re.match(r"scripts/([a-z]+\.sh)", spans[0]) if spans else None
        for span in spans[1:] if script else ():
            if re.fullmatch(r"[a-z-]+", span):
                check_script(script[1], [span], row)


def blocks_of(page):
    """Checks the text around them, and answers (language, content) of each block."""
    text = page.read_text()
    fenced = r"^([ \t]*)(`{3,}|~{3,})[ \t]*([^\s`]*)[^`\n]*\n((?:.*\n)*?)[ \t]*\2[`~]*[ \t]*$"
    check_text(page, re.sub(fenced, "", text, flags=re.M))
    return [(language, re.sub(rf"^{indentation}", "", content, flags=re.M))
            for indentation, _, language, content in re.findall(fenced, text, re.M)]


def run_program(program, directory, proxy):
    if not has_route:
        return
    Collector.requests.clear()
    expect("answered: welcome" in run(program, directory, proxy), f"{program}: no answer told")
    expect("http://example.org/hit?id=1" in Collector.requests, f"{program}: not the hit")
    said = run(program, directory, "http://127.0.0.1:1", status=1)
    expect("failed: http://example.org/hit?id=1" in said, f"{program}: no failure told: {said}")


def use_cpp(block, directory, proxy):
    (directory / "main.cpp").write_text(block)
    output = "-o alone" if "int main(" in block else "-c"
    run(["bash", "-euc", f"'{compiler}' -std=c++20 main.cpp {output} "
         "$(pkg-config --cflags --libs qvcore)"], directory)


def use_cmake(block, directory, proxy):
    (directory / "CMakeLists.txt").write_text(block)
    run([cmake, "-S", ".", "-B", "build", f"-DQVCore_DIR={libraries}/cmake/QVCore",
         f"-DCMAKE_CXX_COMPILER={compiler}"], directory)
    run([cmake, "--build", "build"], directory)
    for program in re.findall(r"add_executable\((\w+)", block):
        run_program([f"build/{program}"], directory, proxy)


def use_sh(block, directory, proxy):
    commands = commands_of(block)
    for command in commands:
        check_command(command)
    if any(re.match(OF_THE_PROJECT, command) for command in commands):
        expect(all(re.match(OF_THE_PROJECT, command) for command in commands),
               f"{block}: builds the project, and does what can be tried besides")
    elif has_route or block.startswith(("c++", "cc")):
        run(["bash", "-euc", block], directory, proxy)
        if block.startswith(("c++", "cc")):
            run_program(["./a.out"], directory, proxy)


def use_c(block, directory, proxy):
    (directory / "main.c").write_text(block)
    run(["bash", "-euc", "cc -std=c89 -pedantic-errors -Wall -Wextra -Werror -fsyntax-only main.c "
         "$(pkg-config --cflags qvcore)"], directory)


def use_json(block, directory, proxy):
    json.loads(block)  # what it says is tried by the tests of what reads it


def use_python(block, directory, proxy):
    (directory / "main.py").write_text(block)
    run_program([sys.executable, "-X", "dev", "main.py"], directory, proxy)


USES = {"c": use_c, "cpp": use_cpp, "cmake": use_cmake, "json": use_json, "python": use_python,
        "sh": use_sh}


def use_page(page, proxy):
    blocks = blocks_of(page)
    with tempfile.TemporaryDirectory() as place:
        demo = Path(place, DEMO)
        demo.parent.mkdir(parents=True)
        demo.symlink_to(examples)
        for language, block in blocks:
            expect(language in USES, f"{page}: nobody knows how to try {language or 'a'} block")
            if language in USES:
                USES[language](block, Path(place), proxy)
    return len(blocks)


collector = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Collector)
threading.Thread(target=collector.serve_forever, daemon=True).start()
pages = [source / "README.md", source / "CONTRIBUTING.md", source / "SECURITY.md",
         source / "examples/README.md", *(source / "docs").glob("*.md")]
count = sum(use_page(page, f"http://127.0.0.1:{collector.server_port}") for page in pages)
expect(count > 5, "there was next to nothing to try")
print("\n".join(failures) or f"{count} blocks")
if failures or has_route:
    sys.exit(1 if failures else 0)
print("Skipped: what was built is not run: hits are held, since there is no default route")
sys.exit(77)
