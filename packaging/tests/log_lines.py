#!/usr/bin/env python3
"""log_lines.py SOURCE: docs/log.md names each line that the libraries tell, and none that they do not.

Of a line in the source counts what stands between the places that are filled in. It stands in the
call that tells it, or in what a name in that call was given in the same file.
"""

import re
import sys
from pathlib import Path

source = Path(sys.argv[1])
TELLING = (r"(?<!void )(?<!bool )(?<!::)\b"
           r"(?:consoleLog|printLine|logMessageWithLevel|logToConsole|logCount|log|failToStart)\(")
LITERAL = r'"(?:[^"\\]|\\.)*"'
# Calls that pass on what was told to them.
PASSING_ON = {"message", "message, level", "text, level",
              "message.description(), level", "message.description()",
              "stringWithFormat(format, arguments), level",
              "stringWithFormat(format, {number, reason}), QVLogLevelTraffic",
              "stringWithFormat(format, {count}), QVLogLevelOfflineHits"}


def texts_in(code):
    """Literals, those beside each other joined, without the places to fill in."""
    for literals in re.findall(rf"(?:{LITERAL}\s*)+", code):
        text = "".join(literal[1:-1] for literal in re.findall(LITERAL, literals))
        for part in text.replace('\\"', '"').split("%@"):
            if len(part.strip()) > 3:
                yield part.strip()


def arguments_at(code, begin):
    """What stands between the bracket before `begin` and its partner."""
    depth, end = 1, begin
    for token in re.finditer(rf"{LITERAL}|[()]", code[begin:]):
        depth += {"(": 1, ")": -1}.get(token[0], 0)
        if depth == 0:
            end = begin + token.start()
            break
    return code[begin:end]


def lines_told(code):
    for call in re.finditer(TELLING, code):
        arguments = arguments_at(code, call.end())
        found = list(texts_in(arguments))
        for name in re.findall(r"\b[a-zA-Z]\w*\b", re.sub(LITERAL, "", arguments)):
            for value in re.findall(rf"\b{name}\s*=\s*([^;]+);", code):
                found += texts_in(value)
        plain = " ".join(arguments.split())
        yield plain, found


page = " ".join((source / "docs/log.md").read_text().split())
failures = []
known = []
for file in sorted(source.glob("QV*/**/*.cpp")):
    code = re.sub(rf"({LITERAL})|//[^\n]*", r"\1", file.read_text())
    known.append(" ".join(texts_in(code)))
    for call, texts in lines_told(code):
        if not texts and '"' not in call and call not in PASSING_ON and "name, " not in call:
            failures.append(f"{file.relative_to(source)}: what does this tell: {call}")
        failures += [f'{file.relative_to(source)}: docs/log.md has no "{text}"'
                     for text in texts if text not in page]
everything = " ".join(known) + " ".join(
    texts for file in source.glob("QVCore/QVCore/QVCoreConstants.cpp")
    for texts in texts_in(file.read_text()))
listed = (source / "docs/log.md").read_text().split("## Lines", 1)[1]
rows = re.findall(r"^\| (`.*?`) \|", listed, re.M)
for line in (line for row in rows for line in re.findall(r"`([^`]+)`", row)):
    for part in re.split(r"<[^>]*>", line.replace("\\|", "|")):
        if len(part.strip()) > 3 and not all(
                piece.strip() in everything for piece in re.split(r"\(\) |: ", part)):
            failures.append(f'docs/log.md: nothing tells "{part.strip()}"')
if len(rows) < 30:
    failures.append("docs/log.md has next to no lines")
print("\n".join(failures) or f"{len(rows)} rows")
sys.exit(1 if failures else 0)
