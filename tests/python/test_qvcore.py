#!/usr/bin/env python3
"""What the Python package promises, with the library that QVCORE_LIBRARY names.

There is one core in a process, so each case is a program of its own, which ends well when it printed
what is expected of it, and nothing on standard error.
"""

import http.server
import os
import re
import signal
import subprocess
import sys
import tempfile
import textwrap
import threading
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "python"))
from qvcore import _library, keys, names, variables  # noqa: E402


class Server(http.server.BaseHTTPRequestHandler):
    """Answers 404 for /gone, nothing at all for /cut, and "welcome" for the rest."""

    protocol_version = "HTTP/1.1"
    requests = []

    def do_GET(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0))).decode()
        self.requests.append(f"{self.command} {self.path} {body}")
        if self.path == "/cut":
            self.close_connection = True
            return
        self.send_response(404 if self.path == "/gone" else 200)
        self.send_header("Content-Length", "7")
        self.end_headers()
        self.wfile.write(b"welcome")

    do_POST = do_GET

    def log_message(self, *arguments):
        pass


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        http.server.ThreadingHTTPServer.handle_error = lambda *_: None  # clients that end
        cls.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Server)
        cls.url = f"http://127.0.0.1:{cls.server.server_port}"
        threading.Thread(target=cls.server.serve_forever, daemon=True).start()

    @classmethod
    def tearDownClass(cls):
        cls.server.shutdown()
        cls.server.server_close()

    def setUp(self):
        Server.requests.clear()
        place = tempfile.TemporaryDirectory()
        self.addCleanup(place.cleanup)
        self.container = Path(place.name)

    def run_program(self, program, *arguments):
        """What the program prints. It finds a kit that is not started, and the server's URL."""
        begin = textwrap.dedent(f"""
            import asyncio, atexit, logging, os, sys, threading, time
            logging.getLogger("asyncio").setLevel(logging.ERROR)  # it tells of slowness, on a busy machine
            at_the_very_end = []
            atexit.register(lambda: [call() for call in at_the_very_end])
            import qvcore
            from qvcore import keys, names
            def make(**options):
                return qvcore.Kit("org.example.test", container={str(self.container)!r},
                                  resources={str(self.container)!r}, assume_network=True, **options)
            url = {self.url!r}
            """)
        done = subprocess.run(
            [sys.executable, "-X", "dev", "-c", begin + textwrap.dedent(program), *arguments],
            env=dict(os.environ, PYTHONPATH=str(SOURCE / "python")), timeout=60, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        return done.stdout.splitlines()

    def test_awaits_answers_and_errors(self):
        printed = self.run_program("""
            async def main():
                async with make() as kit:
                    answer = await kit.request(url + "/a", "b=\\u00fc", mine=1.5, flag=True)
                    print(answer.info["content"], answer.info["mine"], answer.info["flag"])
                    print(sorted(answer.request), answer.status)
                    for bad in (url + "/gone", url + "/cut", "bare"):
                        try:
                            await kit.request(bad)
                        except qvcore.RequestError as error:
                            print(str(error).replace(url, ""), error.notification.status)
                    answers = await asyncio.gather(*(kit.request(f"{url}/{i}") for i in range(9)))
                    print([answer.info["url"][-1] for answer in answers])
                    kit.block_hits = True
                    try:
                        await asyncio.wait_for(kit.request(url), 0.05)
                    except asyncio.TimeoutError:
                        print("late", kit.block_hits)
            asyncio.run(main())
            """)
        self.assertEqual(printed, [
            "welcome 1.5 True", "['POSTData', 'flag', 'mine', 'qvcore.request', 'url'] 200",
            "/gone: 404 404", "/cut: no answer None", "bare: Error : invalid URL None",
            str([str(i) for i in range(9)]), "late True"])
        self.assertEqual(Server.requests[0], "POST /a b=\u00fc")

    def test_listens_until_it_is_told_to_stop(self):
        printed = self.run_program("""
            with make() as kit:
                heard = threading.Semaphore(0)
                def hear(answer):
                    print(answer.name, answer.info.get("own"), threading.current_thread().name[:5])
                    heard.release()
                listener = kit.listen("own name", hear)
                with kit.listen(names.SEGMENT_RESPONSE, hear):
                    kit.post("own name", {"own": "\\u00e4", "none": 3})
                    kit.post(names.SEGMENT_REQUEST, {keys.URL: url, "own": 2})
                    heard.acquire(), heard.acquire()
                listener.stop()
                kit.post("own name")
                for bad in (lambda: kit.post("a\\0b"), lambda: kit.post("\\ud800"),
                            lambda: kit.post(7), lambda: kit.post("n", {"a": []}),
                            lambda: kit.set_queue_limits(-1, 1), lambda: kit.listen(None, hear)):
                    try:
                        bad()
                        print("taken")
                    except qvcore.Error:
                        pass
            """)
        self.assertEqual(printed, ["own name \u00e4 MainT", f"{names.SEGMENT_RESPONSE} 2 Dummy"])

    def test_keeps_variables_configurations_and_hits(self):
        (self.container / "menu.json").write_text('{"version": 2, "list": {"on": true, "n": [1]}}')
        printed = self.run_program("""
            with make(consent=True, log_level=4) as kit:
                told = []
                kit.set_log_sink(lambda *line: told.append(line))
                kit.log("x", 5), kit.log("y", 3)
                kit.set_log_sink(None)
                print(told)
                kit.set_variable("#OWN#", "x")
                kit.add_configuration("menu", "version", url + "/menu")
                print(kit.variable("#OWN#"), kit.variable("#NONE#"), kit.log_level, kit.version)
                print(kit.configuration("menu", "list"), kit.configuration("menu", "no/where"),
                      kit.configuration("none"))
                kit.send(url + "/held", "a=1")
            """)
        version = re.search(r'^version = "(.+)"', (SOURCE / "python/pyproject.toml").read_text(), re.M)[1]
        self.assertIn(f"x None 4 {version}", printed)
        self.assertIn("{'n': [1], 'on': True} 0 None", printed)
        self.assertIn("[('x', 5)]", printed)
        self.run_program("""
            with make() as kit:
                answered = threading.Event()
                kit.listen(names.HTTP_RESPONSE, lambda answer: answered.set())
                answered.wait(20)
            """)
        self.assertEqual([line for line in Server.requests if "held" in line], ["POST /held a=1"])

    def test_ends_whatever_callbacks_are_under_way(self):
        for end in ("", "sys.exit(0)", "os._exit(0)", "kit.close()", "kit.block_hits = True"):
            for _ in range(3):
                self.run_program(f"""
                    kit = make()
                    kit.start()
                    def hear(answer):
                        for _ in range(2000):
                            pass
                        kit.send(url + "/again")
                    kit.listen(names.HTTP_RESPONSE, hear)
                    kit.listen(names.HTTP_REQUEST_SENT, hear)
                    def post():
                        while True:
                            kit.post(names.HTTP_REQUEST_SENT, None) if kit.block_hits else kit.send(url)
                            time.sleep(0.001)
                    threading.Thread(target=post, daemon=True).start()
                    time.sleep(0.02)
                    {end}
                    """)

    def test_calls_nothing_any_more_when_the_interpreter_ends(self):
        printed = self.run_program("""
            kit = make()
            kit.listen("n", lambda notification: print(notification.info))
            def end():
                kit.post("n", {"is": "late"})
                try:
                    kit.listen("n", print)
                except qvcore.Error as error:
                    print(error)
            at_the_very_end.append(end)
            kit.post("n", {"is": "early"})
            """)
        self.assertEqual(printed, ["{'is': 'early'}", "the program is ending"])

    def test_has_a_kiosk_that_tells_what_it_shows(self):
        def run_kiosk(collector, lines, end=None):
            program = [sys.executable, str(SOURCE / "examples/kiosk/kiosk.py"), collector,
                       str(self.container)]
            with subprocess.Popen(program, env=dict(os.environ, PYTHONPATH=str(SOURCE / "python")),
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as kiosk:
                kiosk.stdin.write(lines)
                kiosk.stdin.flush()
                printed = [kiosk.stdout.readline() for _ in lines.splitlines()]
                if end is None:
                    kiosk.stdin.close()
                else:
                    kiosk.send_signal(end)
                self.assertEqual(kiosk.wait(20), 0)
                return "".join(printed) + kiosk.stdout.read()

        self.assertEqual(run_kiosk(self.url, "home\nm\u00e4p\n"), "home: welcome\nm\u00e4p: welcome\n")
        self.assertEqual(run_kiosk(self.url, "end\n", signal.SIGTERM), "end: welcome\n")
        self.assertEqual(run_kiosk("http://127.0.0.1:1", "lost\n"), "lost: no answer\n")
        self.assertEqual(Server.requests, ["POST /hit screen=home", "POST /hit screen=m%C3%A4p",
                                           "POST /hit screen=end"])


class InterfaceTest(unittest.TestCase):
    """The package, the header and the core's constants say the same."""

    header = (SOURCE / "QVCore/QVCore/qvcore.h").read_text()

    def test_declares_each_function_with_its_arguments(self):
        declared = {name: 0 if arguments == "void" else arguments.count(",") + 1
                    for name, arguments in re.findall(r"^QV_API [^;]*?(qv_\w+)\(([^;]*)\);",
                                                      self.header, re.M)}
        self.assertEqual(declared, {name: len(types) - 1
                                    for name, types in _library.FUNCTIONS.items()})
        numbers = dict(re.findall(r"#define QV_([A-Z_]+) \(?(-?\d)\)?", self.header))
        self.assertEqual({name: str(getattr(_library, name)) for name in numbers}, numbers)

    def test_names_each_constant_as_the_core_does(self):
        constants = {re.sub(r"Key$", "", name).upper(): text for name, text in re.findall(
            r'constexpr String kQV(?:Notification|UserInfo|PredefinedVariable)_(\w+) =\s*"(.*)"_string',
            (SOURCE / "QVCore/QVCore/QVCoreConstants.cpp").read_text())}
        for kind, module in (("NAME", names), ("KEY", keys), ("VARIABLE", variables)):
            macros = dict(re.findall(rf'#define QV_{kind}_(\w+) "(.*)"', self.header))
            self.assertEqual(macros, {name: text for name, text in vars(module).items()
                                      if name.isupper()})
            for name, text in macros.items():
                self.assertEqual(constants[name.replace("_", "")], text)


if __name__ == "__main__":
    unittest.main()
