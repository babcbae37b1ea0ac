#!/usr/bin/env python3
"""What the inspector does with requests, without its page."""

import base64
import contextlib
import http.client
import json
import os
import re
import socket
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

from support import PROGRAM, SAMPLE, TIMEOUT, Inspector, eventually, run_tests

MODIFIED = "2026-01-15T08:00:00Z"
LAST_MODIFIED = "Thu, 15 Jan 2026 08:00:00 GMT"
CONFIGURATION = {"answer": {"configuration": {"version": 3}, "modified": MODIFIED}}


class Rules(unittest.TestCase):
    def test_decide_what_the_client_gets(self):
        """Each rule with what is sent, what the client meets, and what is told of the hit."""
        since = {"If-Modified-Since": LAST_MODIFIED}
        long_ago = {"If-Modified-Since": "Thu, 01 Jan 1970 00:00:00 GMT"}
        cases = (
            ({"answer": {"status": 503, "body": "down", "headers": {"Retry-After": "5"}}}, {},
             (503, b"down", "5"), ("answered", 503)),
            ({"answer": {"delay": 300}}, {}, (200, b"", None), ("answered", 200)),
            ({"answer": {"action": "cut"}}, {}, http.client.RemoteDisconnected, ("cut", 0)),
            ({"answer": {"action": "cut", "delay": 50}}, {}, http.client.RemoteDisconnected, ("cut", 0)),
            ({"answer": {"action": "truncate", "body": "0123456789"}}, {},
             http.client.IncompleteRead, ("cut", 200)),
            ({"answer": {"action": "truncate"}}, {}, http.client.IncompleteRead, ("cut", 200)),
            ({"answer": {"action": "silence"}}, {}, TimeoutError, ("left", 0)),
            ({"answer": {"delay": 60000}}, {}, TimeoutError, ("left", 0)),
            (CONFIGURATION, {}, (200, b'{"version":3}', None), ("answered", 200)),
            (CONFIGURATION, long_ago, (200, b'{"version":3}', None), ("answered", 200)),
            (CONFIGURATION, since, (304, b"", None), ("answered", 304)),
            ({"answer": {"configuration": []}}, since, (200, b"[]", None), ("answered", 200)),
            ({"match": {"method": "POST"}, "answer": {"status": 500}}, {}, (200, b"ok", None), ("answered", 200)),
            ({"match": {"path": "/h?t", "kind": "hit"}, "answer": {"status": 500}}, {}, (500, b"", None),
             ("answered", 500)),
            ({"match": {"parameters": {"id": "8"}}, "answer": {"status": 500}}, {}, (200, b"ok", None),
             ("answered", 200)),
            ({"match": {"parameters": {"id": "7", "page": "h*e/1"}}, "answer": {"status": 500}}, {},
             (500, b"", None), ("answered", 500)),
            ({"match": {"headers": {"if-modified-since": "*1970*"}}, "answer": {"status": 500}}, long_ago,
             (500, b"", None), ("answered", 500)),
            ({"match": {"text": "%2F"}, "answer": {"status": 500}}, {}, (500, b"", None), ("answered", 500)),
            ({"match": {"text": "absent"}, "answer": {"status": 500}}, {}, (200, b"ok", None), ("answered", 200)),
            ({"enabled": False, "answer": {"status": 500}}, {}, (200, b"ok", None), ("answered", 200)),
        )
        with Inspector() as inspector:
            for i, (rule, headers, outcome, told) in enumerate(cases, 1):
                with self.subTest(rule=rule, headers=headers):
                    inspector.set_rules(rule)
                    begin = time.monotonic()
                    if isinstance(outcome, type):
                        with self.assertRaises(outcome):
                            inspector.send("/hit?id=7&page=home%2F1", headers=headers,
                                           timeout=0.3 if outcome is TimeoutError else TIMEOUT)
                    else:
                        answer = inspector.send("/hit?id=7&page=home%2F1", headers=headers)
                        self.assertEqual((answer.status, answer.text, answer.getheader("Retry-After")), outcome)
                    self.assertGreaterEqual(time.monotonic() - begin,
                                            rule.get("answer", {}).get("delay", 0) / 1000 * (told[0] != "left"))
                    eventually(lambda: [(hit["outcome"], hit["status"]) for hit in inspector.hits(i)] == [told],
                               f"{told} for hit {i}")

    def test_are_taken_in_order_and_as_often_as_they_say(self):
        with Inspector("--rules", SAMPLE / "rules.json") as inspector:
            inspector.set_rules({"times": 2, "answer": {"status": 500}}, {"answer": {"status": 404}})
            self.assertEqual([inspector.send("/hit").status for _ in range(4)], [500, 500, 404, 404])
            told = json.loads(inspector.ask("/api/rules").text)
            self.assertEqual([rule["taken"] for rule in told], [2, 2])
            inspector.set_rules(*told)  # what the page sends back when something else has changed
            self.assertEqual(inspector.send("/hit").status, 404)

    def test_of_the_documentation_are_understood(self):
        text = (SAMPLE.parents[2] / "docs/inspector.md").read_text()
        with Inspector() as inspector:
            for block in re.findall(r"(?s)```json\n(.*?)```", text):
                inspector.set_rules(*json.loads(block))
            self.assertEqual(inspector.send("/vendors.json").text, b'{"version":4}')
            with tempfile.TemporaryDirectory() as directory:
                Path(directory, "rules.json").write_text("[]")
                for command in re.findall(r"(?m)^\| `(curl [^`]*)`", text):
                    command = command.replace("http://127.0.0.1:8788", inspector.page)
                    done = subprocess.run(["bash", "-c", f"{command} --fail --silent --max-time 1"], cwd=directory,
                                          capture_output=True, timeout=TIMEOUT)
                    self.assertEqual(done.returncode, 28 if "/live" in command else 0, command)
            self.assertIn(b"event: state", done.stdout)
            self.assertEqual(inspector.hits(), [])

    def test_that_are_wrong_change_nothing_and_say_why(self):
        cases = {
            "{}": "the rules are no array",
            "[": "this is no JSON",
            '[{}, {"answer": {"status": 99}}]': "rule 2: status is no whole number from 200 to 599",
            '[{"answer": {"delay": -1}}]': "rule 1: delay is no whole number from 0 to 600000",
            '[{"answer": {"action": "explode"}}]': "rule 1: there is no action explode",
            '[{"answer": {"headers": {"A": "b\\r\\nC: d"}}}]': "rule 1: a header cannot be A: b\r\nC: d",
            '[{"match": {"kind": "beat"}}]': "rule 1: there is no kind beat",
            '[{"match": {"path": 7}}]': "rule 1: path is of a wrong type",
            '[{"mach": {}}]': "rule 1: there is no member mach",
            '[{"answer": {"configuration": 1, "modified": "today"}}]':
                "rule 1: modified is no time like 2026-11-21T20:40:00Z",
        }
        with Inspector() as inspector:
            inspector.set_rules({"answer": {"status": 418}})
            for text, error in cases.items():
                with self.subTest(text=text):
                    answer = inspector.ask("/api/rules", text, method="PUT")
                    self.assertEqual((answer.status, answer.text.decode()), (400, error))
            self.assertEqual(inspector.send("/hit").status, 418)

    def test_reach_the_core(self):
        """The core's own program meets the sample's rules, the cut connection included."""
        with Inspector("--rules", SAMPLE / "rules.json") as inspector:
            printed = inspector.send_sample()
            statuses = {(hit["status"], hit.get("rule")) for hit in inspector.hits()}
            self.assertLessEqual({(503, "The shop is down"), (404, "Nobody knows this path"),
                                  (0, "The network fails once"), (200, "A slow answer"),
                                  (200, "Version 3 of the vendors"), (200, None)}, statuses)
            self.assertEqual(printed.count("answered: "), len(inspector.hits()) - 2, printed)
            self.assertEqual(printed.count("failed: status 404"), 1, printed)
            self.assertIn("answered: ok", inspector.send_with_core(
                "http://nowhere.example/hit?id=99\n", http_proxy=inspector.collector, no_proxy=""))
            self.assertEqual(inspector.hits()[-1]["url"], "http://nowhere.example/hit?id=99")


class Hits(unittest.TestCase):
    def test_are_told_by_kind_and_marked_by_number(self):
        cases = (
            ("GET", "/hit?id=1", None, "hit", "1", None),
            ("POST", "/hit", "id=3&x=y", "hit", "3", None),
            ("GET", "/hit?id=2", None, "hit", "2", "late"),
            ("GET", "/hit?id=3", None, "hit", "3", 2),
            ("GET", "/hit?id=03&id=4", None, "hit", "3", 4),
            ("GET", "/other?id=1", None, "hit", "1", None),
            ("GET", "/hit?id=x", None, "hit", None, None),
            ("GET", "/hit?id=18446744073709551615", None, "hit", "18446744073709551615", None),
            ("GET", "/v2/segment?id=5", None, "segment", "5", None),
            ("GET", "/mobile/1/2/vendors.json", None, "configuration", None, None),
            ("GET", "/", None, "other", None, None),
            ("DELETE", "/hit?id=9", None, "other", "9", "late"),
            ("POST", "/hit", '{"id=7"}', "hit", None, None),
        )
        with Inspector() as inspector:
            for method, target, body, *_ in cases:
                inspector.send(target, body, method=method)
            told = [(hit["kind"], hit.get("number"), hit.get("repeats") or ("late" if hit.get("outOfOrder") else None))
                    for hit in inspector.hits()]
        self.assertEqual(told, [tuple(expected) for *_, kind, number, mark in cases
                                for expected in [(kind, number, mark)]])

    def test_survive_every_kind_of_file(self):
        sent = (
            ("GET", "/hit?id=1&t=%C3%A9%0A'\"$(echo)`x`&b=%", None, {"X-Empty": "", "X-Quote": "it's \"$HOME\" \\"}),
            ("POST", "/hit", "a=1&b=it's\n\t\x01 \\ @file".encode(), {"Content-Type": "text/x-own"}),
            ("POST", "/hit", bytes(range(256)), {}),
            ("HEAD", "/hit?id=3", None, {}),
            ("PUT", "/segment", "{\"é\": [1]}".encode(), {}),
        )
        def essence(hit):
            own = sorted(header for header in map(tuple, hit["headers"])
                         if header[0] not in ("Host", "Content-Length", "Accept-Encoding", "Accept", "User-Agent"))
            return (hit["kind"], hit["method"], hit["url"], own, hit.get("body"), hit.get("body64"))
        with Inspector() as inspector, tempfile.TemporaryDirectory() as directory:
            for method, target, body, headers in sent:
                inspector.send(target, body, headers, method)
            originals = inspector.hits()
            self.assertEqual(originals[2]["body64"], base64.b64encode(bytes(range(256))).decode())
            files = {name: inspector.ask(f"/api/export?format={name}").text for name in ("jsonl", "har", "curl")}
            for name, content in files.items():
                with self.subTest(file=name):
                    before = len(inspector.hits())
                    self.assertEqual(inspector.ask(f"/api/import?name={name}", content).status, 200)
                    read = inspector.hits()[before:]
                    self.assertEqual([essence(hit) for hit in read], [essence(hit) for hit in originals])
                    self.assertEqual({(hit["source"], hit["outcome"], hit["status"]) for hit in read},
                                     {(name, "answered", 200)})
                    self.assertEqual([hit["time"] for hit in read], [hit["time"] for hit in originals])
            with self.subTest("the commands send the same again"):
                before = len(inspector.hits())
                script = Path(directory, "hits.sh")
                script.write_bytes(files["curl"])
                subprocess.run(["bash", "-e", script], check=True, capture_output=True, timeout=TIMEOUT)
                self.assertEqual([essence(hit) for hit in inspector.hits()[before:]],
                                 [essence(hit) for hit in originals])
            with self.subTest("an archive is valid"):
                self.validate_archive(files["har"])

    def validate_archive(self, archive):
        if not os.path.exists("/usr/share/nodejs/har-validator"):
            self.skipTest("there is no package node-har-validator")
        done = subprocess.run(
            ["node", "-e", "require('har-validator').har(JSON.parse(require('fs').readFileSync(0)))"
             ".then(har => console.log(har.log.entries.length))"
             ".catch(error => { console.log(JSON.stringify(error.errors ?? String(error))); process.exit(1) })"],
            input=archive, capture_output=True, timeout=TIMEOUT, env=dict(os.environ, NODE_PATH="/usr/share/nodejs"))
        self.assertEqual((done.returncode, done.stdout.decode().strip()), (0, "5"), done.stderr)

    def test_are_not_read_from_other_files(self):
        deep = "[" * 100_000
        with Inspector() as inspector:
            for content in ("no hits", "{}", '{"log": 7}{', "curl 'http://a/", deep, '{"log":' + deep,
                            '{"method": 1, "url": 2, "time": 3}', '{"time":"2026","method":"GET","url":"x"}'):
                with self.subTest(content=content[:40]):
                    self.assertEqual(inspector.ask("/api/import?name=x", content).status, 400)
            self.assertEqual(inspector.hits(), [])

    def test_are_recorded_as_they_come(self):
        with tempfile.TemporaryDirectory() as directory:
            record = Path(directory, "record.jsonl")
            with Inspector("--record", record) as inspector:
                inspector.set_rules({"match": {"path": "/slow"}, "answer": {"action": "silence"}})
                inspector.send("/hit?id=1")
                eventually(lambda: len(record.read_text().splitlines()) == 1, "the first line")
                with contextlib.suppress(TimeoutError):
                    inspector.send("/slow?id=2", timeout=0.2)
                eventually(lambda: len(record.read_text().splitlines()) == 3, "the outcome's line")
            with Inspector(record) as inspector:
                self.assertEqual([(hit["number"], hit["outcome"], hit["source"]) for hit in inspector.hits()],
                                 [("1", "answered", "record.jsonl"), ("2", "left", "record.jsonl")])
        with Inspector("--record", "/dev/full") as inspector:
            inspector.send("/hit")
            self.assertEqual(inspector.send("/hit").status, 200)
        self.assertIn("/dev/full: No space left on device", inspector.said)

    def test_are_kept_within_the_limits(self):
        with Inspector("--keep", 100) as inspector:
            inspector.send_many(3)
            self.assertEqual(inspector.ask("/api/pins/2", method="PUT").status, 200)
            inspector.send_many(200, first=3)
            self.assertEqual([hit["sequence"] for hit in inspector.hits()], [2, *range(104, 204)])
            inspector.ask("/api/hits", method="DELETE")
            inspector.send("/hit?id=150", headers={"Host": "kiosk.example"})  # of the same path as those before
            self.assertEqual([(hit["sequence"], hit.get("outOfOrder"), hit.get("repeats"))
                              for hit in inspector.hits()], [(2, None, None), (204, None, None)])
            self.assertEqual(inspector.ask("/api/pins/2", method="DELETE").status, 200)
            self.assertEqual([hit["sequence"] for hit in inspector.hits()], [204])
            self.assertEqual(inspector.ask("/api/pins/2", method="PUT").status, 409)
        with Inspector("--memory", 1) as inspector:
            for _ in range(6):
                inspector.send("/hit", b"x" * 300_000)
            inspector.send("/hit", b"y" * 2_000_000)
            kept = inspector.hits()
            self.assertEqual([(hit["sequence"], len(hit["body"]), hit.get("bodySize")) for hit in kept],
                             [(7, 1 << 20, 2_000_000)])
            self.assertEqual(inspector.ask("/api/pins/7", method="PUT").status, 409)  # more than pins may take


class Control(unittest.TestCase):
    def test_is_for_the_page_alone(self):
        with Inspector() as inspector:
            own = inspector.page.removeprefix("http://")
            port = own.split(":")[1]
            cases = (
                ({}, 200), ({"Host": f"localhost:{port}"}, 200), ({"Host": f"[::1]:{port}"}, 200),
                ({"Host": "collector.example"}, 403), ({"Host": f"127.0.0.1.example:{port}"}, 403),
                ({"Origin": inspector.page}, 200), ({"Origin": "http://evil.example"}, 403),
                ({"Origin": "null"}, 403), ({"Origin": inspector.collector}, 403),
                ({"Sec-Fetch-Site": "same-origin"}, 200), ({"Sec-Fetch-Site": "cross-site"}, 403),
                ({"Sec-Fetch-Site": "same-site"}, 403),
            )
            for headers, status in cases:
                with self.subTest(headers=headers):
                    self.assertEqual(inspector.ask("/api/rules", headers=headers).status, status)
            page = inspector.ask("/", headers={"Sec-Fetch-Site": "cross-site"})
            self.assertEqual(page.status, 200)
            policy = page.getheader("Content-Security-Policy")
            self.assertIn("default-src 'none'; script-src 'self';", policy)
            self.assertNotIn("unsafe", policy)
            for target, status in (("/api/none", 404), ("/none.js", 404), ("/api/export?format=x", 400),
                                   ("/api/export?format=har&hits=1-x", 400)):
                self.assertEqual(inspector.ask(target).status, status, target)
            # The collector's port knows none of this: what comes there is a hit.
            self.assertEqual(inspector.send("/api/hits", method="DELETE").status, 200)
            self.assertEqual([hit["method"] for hit in inspector.hits()], ["DELETE"])

    def test_listens_on_this_machine_alone_unless_told(self):
        with Inspector() as inspector, Inspector("--listen", "0.0.0.0", "--page-listen", "::1") as told:
            port = int(inspector.page.rsplit(":", 1)[1])
            with self.assertRaises(ConnectionRefusedError):
                socket.create_connection(("127.0.0.2", port), TIMEOUT)
            socket.create_connection(("127.0.0.2", int(told.collector.rsplit(":", 1)[1])), TIMEOUT).close()
            self.assertTrue(told.page.startswith("http://[::1]:"))
            self.assertEqual(told.ask("/").status, 200)

    def test_says_why_it_does_not_start(self):
        with Inspector() as inspector, tempfile.NamedTemporaryFile() as file:
            port = inspector.page.rsplit(":", 1)[1]
            for options, status, said in (
                (["--port", port], 1, "Address already in use"), (["--listen", "host"], 1, "Invalid argument"),
                (["--rules", "/none"], 1, "No such file"), (["--record", "/none/x"], 1, "No such file"),
                (["--rules", "/proc/self/status"], 1, "this is no JSON"), (["/none"], 1, "No such file"),
                (["--port", "70000"], 2, "usage:"), (["--keep", "0"], 2, "usage:"), (["--what"], 2, "usage:"),
            ):
                with self.subTest(options=options):
                    ports = [] if "--port" in options else ["--port", "0"]
                    done = subprocess.run([PROGRAM, *ports, "--page-port", "0", *options], text=True,
                                          capture_output=True, timeout=TIMEOUT)
                    self.assertEqual(done.returncode, status)
                    self.assertIn(said, done.stderr)

    def test_stands_what_is_no_request(self):
        with Inspector() as inspector:
            for data in (b"\0" * 1000, b"GET\r\n\r\n", b"GET / HTTP/1.1\r\nHost: a\r\nContent-Length: -1\r\n\r\n",
                         b"GET /" + b"a" * 3_000_000, b"POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 9\r\n\r\n123",
                         b"POST / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"):
                with contextlib.suppress(ConnectionError), inspector.connect() as connection:
                    connection.sendall(data)
            for data in (b"GET /\xff\xfe?id=1&x=\xe9 HTTP/1.0\r\nX-\xff: \x80\r\n\r\n",
                         b"GET http://example.org/proxied?id=2 HTTP/1.0\r\n\r\n"):
                with inspector.connect() as connection:
                    connection.sendall(data)
                    self.assertIn(b" 200 OK", connection.recv(1000))
            self.assertEqual(inspector.send("example.org:443", method="CONNECT").status, 501)
            with inspector.connect() as connection:
                connection.sendall(b"GET /bad?id=3 HTTP/1.1\r\nno field\r\n\r\n")
                self.assertIn(b" 400 ", connection.recv(1000))
            told = eventually(lambda: [hit for hit in inspector.hits() if hit["status"]][5:] and
                              [(hit["method"], hit["url"], hit["status"]) for hit in inspector.hits()
                               if hit["status"]], "the last request")
        self.assertEqual(told, [("?", "http://unknown/", 400), ("POST", "http://a/", 400),
                                ("GET", "http://unknown/\u00ff\u00fe?id=1&x=\u00e9", 200),
                                ("GET", "http://example.org/proxied?id=2", 200),
                                ("CONNECT", "https://example.org:443/", 501),
                                ("?", "http://unknown/bad?id=3", 400)])


if __name__ == "__main__":
    run_tests()
