#!/usr/bin/env python3
"""picture.py FILE: has the core send the sample session and takes a picture of the page."""

import sys
import time
from itertools import islice

from support import SAMPLE, Inspector, browser, eventually

lines = iter((SAMPLE / "session.tsv").read_text().splitlines(keepends=True))
with Inspector("--rules", SAMPLE / "rules.json") as inspector, browser() as driver:
    driver.get(inspector.page)
    count = 0
    while part := list(islice(lines, 4)):
        count += len(part)
        inspector.send_with_core("".join(part).replace("COLLECTOR", inspector.collector))
        time.sleep(1)  # for the plot to have more than one bar
    shown = "return document.querySelectorAll('#rows > :not([hidden])').length"
    eventually(lambda: len(inspector.hits()) >= count and driver.execute_script(shown) > 10, "the hits")
    driver.find_element("css selector", "#list").send_keys("j")
    driver.execute_script("document.activeElement.blur()")
    time.sleep(1)  # for the plot and the counts to be drawn
    driver.save_screenshot(sys.argv[1])
