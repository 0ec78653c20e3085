"""Names what has no description in Doxygen's XML, and fails when there is such a thing.

    undescribed.py XML_FOLDER
"""

import glob
import sys
import xml.etree.ElementTree as xml

count, bare = 0, []
for path in glob.glob(sys.argv[1] + "/*.xml"):
    for node in xml.parse(path).getroot().iter():
        if node.tag == "compounddef" and node.get("kind") in ("class", "struct", "namespace"):
            name = node.findtext("compoundname")
        elif node.tag == "memberdef" and node.get("kind") in ("function", "enum") and node.get("prot") == "public":
            name = node.findtext("definition") or node.findtext("name")
        else:
            continue
        count += 1
        texts = node.findall("briefdescription") + node.findall("detaileddescription")
        # "= default" needs none.
        defaulted = "=default" in (node.findtext("argsstring") or "")
        if not defaulted and not any("".join(text.itertext()).strip() for text in texts):
            bare.append(name)
if count < 150:
    sys.exit(f"only {count} entities found: the headers were not read")
for name in sorted(bare):
    print(f"{name} has no description")
sys.exit(1 if bare else 0)
