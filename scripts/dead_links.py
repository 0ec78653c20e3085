"""Names the links between the pages in a folder that lead nowhere, and fails when there is one.

    dead_links.py HTML_FOLDER
"""

import pathlib
import re
import sys
import urllib.parse

folder = pathlib.Path(sys.argv[1])
pages = {path: path.read_text(encoding="utf-8") for path in folder.glob("*.html")}
anchors = {path: {"", *re.findall(r'\b(?:id|name)="([^"]+)"', text)} for path, text in pages.items()}
dead, count = set(), 0
for path, text in pages.items():
    for link in re.findall(r'<a [^>]*\bhref="([^"]+)"', text):
        target = urllib.parse.urlsplit(link)
        if target.scheme or target.netloc:
            continue
        count += 1
        page = folder / urllib.parse.unquote(target.path) if target.path else path
        if urllib.parse.unquote(target.fragment) not in anchors.get(page, ()):
            dead.add(f"{path.name}: {link}")
if count < 100:
    sys.exit(f"only {count} links found: the pages were not read")
for link in sorted(dead):
    print(link, "leads nowhere")
sys.exit(bool(dead))
