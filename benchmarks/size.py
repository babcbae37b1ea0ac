"""What takes the room in the two libraries of an optimised build, without debug information."""

import re
import subprocess
import tempfile
from pathlib import Path

LIBRARIES = ("QVPlatform", "QVCore")
GOAL = 500
CEILING = 700  # of both files, in kB, where a build fails; rises with a feature, or not at all
PARTS = (
    ("code", r"\.(text|init|fini|plt.*)$"),
    ("what exceptions need to find their way", r"\.(eh_frame.*|gcc_except_table)$"),
    ("names of symbols, and how they are found", r"\.(dynsym|dynstr|gnu\.hash|gnu\.version.*)$"),
    ("relocations, and what they fill in", r"\.(rel.*|data\.rel\.ro|got.*|init_array|fini_array|dynamic)$"),
    ("constants", r"\.rodata$"),
)


def sections_of(library):
    """The size of each section that the file holds, and the file's own."""
    with tempfile.NamedTemporaryFile() as stripped:
        subprocess.run(["strip", "-o", stripped.name, library], check=True)
        listed = subprocess.run(["readelf", "-SW", stripped.name], stdout=subprocess.PIPE, text=True,
                                check=True).stdout
        size = Path(stripped.name).stat().st_size
    found = re.findall(r"^ *\[ *\d+\] (\.\S+) +(\S+) +\S+ +\S+ +(\S+)", listed, re.M)
    return {name: int(length, 16) for name, kind, length in found if kind != "NOBITS"}, size


def measure(build):
    """For each part, and the files at last: its text, and kB in either library."""
    measured = [sections_of(build / library / f"lib{library}.so") for library in LIBRARIES]
    rows = [(text, [sum(size for name, size in sections.items() if re.match(pattern, name)) / 1000
                    for sections, _ in measured]) for text, pattern in PARTS]
    return [*rows, ("the file", [size / 1000 for _, size in measured])]


def table(rows):
    lines = ["| kB | " + " | ".join(f"`{library}`" for library in LIBRARIES) + " | both |",
             "|---|---|---|---|"]
    lines += [f"| {text} | " + " | ".join(f"{size:.0f}" for size in [*sizes, sum(sizes)]) + " |"
              for text, sizes in rows]
    return "\n".join(lines)


def total(rows):
    return sum(rows[-1][1])
