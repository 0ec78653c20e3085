"""Puts what scripts/bench prints into the page of figures, each part between the comments that name it.

    scripts/bench crypto | python3 scripts/figures.py docs/figures.md
"""

import datetime
import re
import sys

path = sys.argv[1]
with open(path, encoding="utf-8") as file:
    page = file.read()
machine, *parts = re.split(r"^## (\w+)\n", sys.stdin.read(), flags=re.M)
if not parts:
    sys.exit("no part of scripts/bench was read")
for name, output in zip(parts[::2], parts[1::2]):
    rows = [line for line in output.splitlines() if not re.match(r"(seconds|\d+),", line)]  # samples of an hour
    text = f"{datetime.date.today()}. {machine.strip()}\n" + "\n".join(rows).rstrip() + "\n"
    marks = re.compile(rf"(?<=<!-- {name} -->\n).*?(?=<!-- end -->)", re.S)
    if not marks.search(page):
        sys.exit(f"{path} has no place for {name}")
    page = marks.sub(lambda _: text, page)
with open(path, "w", encoding="utf-8") as file:
    file.write(page)
