#!/usr/bin/env python3
"""Draws docs/report.svg, the picture of README.md: the upper part of a report of velmora-tool.

    scripts/report_picture.py VELMORA_TOOL > docs/report.svg

The report is a page; the picture holds it as it is, so it is the same at each run.
"""

import os
import re
import subprocess
import sys
import tempfile

SECOND = 1_700_000_000
WIDTH, HEIGHT = 900, 590
ORDER = "status = 'new' --> 'shipped' @ 8 h --> 'delivered' @ 3 d"
OFFER = "price = 24.5 --> 19.9 @ 2 d open = true --> false @ 8 h --> false @ 8 h c"
COMMANDS = f"""
CREATE TABLE customers id ApexInt name string
INSERT INTO customers name = 'Ada'
INSERT INTO customers name = 'Grace'
CREATE TABLE orders id ApexInt customer int status string 3
LINK orders.customer --> customers.id
INSERT INTO orders customer = 1 {ORDER} #TIME# 1699900000
INSERT INTO orders customer = 2 {ORDER}
CREATE TABLE offers item string price double 2 open bool 3
INSERT INTO offers item = 'lamp' {OFFER}
"""


def report_of(tool):
    """The page that the companion makes of the commands."""
    with tempfile.TemporaryDirectory() as directory:
        for verb, *options in (["run", "--create"], ["report", "-o", "shop.html"]):
            subprocess.run([tool, verb, "shop", *options, "--now", str(SECOND)], cwd=directory,
                           input=COMMANDS, text=True, check=True, stdout=sys.stderr)
        with open(directory + "/shop.html", encoding="utf-8") as file:
            return file.read()


def picture_of(page):
    """The page as a picture, without what folds out and the sections behind the timed values."""
    page = re.sub(r"<details>.*?</details>\n?", "", page, flags=re.DOTALL)
    style = re.search(r"<style>.*?</style>", page, re.DOTALL)[0]
    body = re.search(r"<body.*?>(.*?)</body>", page, re.DOTALL)[1]
    body = body[:body.index("<section", body.index("</section>"))] + "</main>\n"
    inside = (style + body).replace("<svg ", '<svg xmlns="http://www.w3.org/2000/svg" ')
    return f"""<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" \
width="{WIDTH}" height="{HEIGHT}">
<title>A report of velmora-tool: the timed values of a shop over the days to come</title>
<foreignObject width="{WIDTH}" height="{HEIGHT}"><body xmlns="http://www.w3.org/1999/xhtml">
{inside}</body></foreignObject>
</svg>"""


if __name__ == "__main__":
    print(picture_of(report_of(os.path.abspath(sys.argv[1]))))
