"""Keeps of abidw's description of a library (standard input) what is the library's own: the exported functions,
and the layout of the types that the public headers declare. All other types, the standard library's first of
all, become a name and a size; what nothing refers to any more goes.

    abi_trim.py [--like OLD_TRIMMED] HEADER... <dump >trimmed

--like leaves out what is new: types that an old description does not name.
"""

import re
import sys
import xml.etree.ElementTree as xml

DECLARATION = r"\b(?:class|struct|enum)(?: class)?(?: VELMORA_EXPORT)? (\w+)[^;\n]*\{"
ALIAS = r"\btemplate <class \w+> using (\w+) ="
FORWARD = r"\b(?:class|struct) (\w+);"
CONTAINERS = ("abi-corpus", "abi-instr", "namespace-decl")
SYMBOLS = ("elf-function-symbols", "elf-variable-symbols", "elf-symbol")


def named(pattern, paths):
    """The names in the headers that the pattern finds."""
    names = set()
    for path in paths:
        with open(path, encoding="utf-8") as file:
            names.update(re.findall(pattern, file.read()))
    return names


def close(types, own, hidden):
    """Empties the types that are not ours. Those inside one of ours are its own, too. Of those that the headers only
    name, nobody outside knows the size."""
    for node in types:
        node.attrib.pop("is-non-reachable", None)  # `prune` says it
        if node.tag == "namespace-decl":
            close(node, own, hidden)
        elif node.tag == "class-decl" and node.get("name") in hidden:
            for part in list(node):
                node.remove(part)
            node.attrib.pop("size-in-bits", None)
            node.set("is-declaration-only", "yes")
        elif node.tag in ("class-decl", "union-decl", "enum-decl") and node.get("name") not in own:
            for part in list(node) if node.tag != "enum-decl" else node.findall("enumerator"):
                node.remove(part)


def rename(corpus, aliases):
    """One instance of an alias template stands for all, and the order of the sources says which: it gets the alias's
    name. The symbols of the functions distinguish the instances."""
    instances = {node.get("type-id"): node.get("name") for node in corpus.iter("typedef-decl")
                 if node.get("name") in aliases}
    for node in corpus.iter("class-decl"):
        node.set("name", instances.get(node.get("id"), node.get("name")))


def prune(corpus, own):
    """Removes the types that neither an exported function nor a type of ours reaches, and other functions."""
    defining = {}
    for node in corpus.iter():
        if node.get("id"):
            defining.setdefault(node.get("id"), []).append(node)
    parents = {child: parent for parent in corpus.iter() for child in parent}
    exported = [node for node in corpus.iter("function-decl") if node.get("elf-symbol-id")]

    def reached(waiting):
        kept = set()
        while waiting:
            node = waiting.pop()
            if node in kept:
                continue
            kept.add(node)
            # A class that holds the node stays, and a type stays with all that it consists of.
            if node in parents:
                waiting.append(parents[node])
            if node.tag not in CONTAINERS:
                waiting.extend(child for child in node if child.tag not in ("member-function", "member-type"))
            for key in ("type-id", "naming-typedef-id", "def-of-decl-id"):
                waiting.extend(defining.get(node.get(key), []))
        return kept

    by_functions = reached(list(exported))
    types = [node for node in corpus.iter() if node.tag in ("class-decl", "enum-decl") and node.get("name") in own]
    for node in types:
        if node not in by_functions:  # only by std::function and std::list, which are closed
            node.set("is-non-reachable", "yes")
    kept = reached(exported + types)
    described = set()
    for parent in list(corpus.iter()):
        for child in list(parent):
            # Two units may describe one enumeration. How many do depends on the build, and abidiff counts them.
            again = child.tag == "enum-decl" and child.get("id") in described
            if (child not in kept and child.tag not in SYMBOLS) or again:
                parent.remove(child)
            elif child.tag == "enum-decl":
                described.add(child.get("id"))


corpus = xml.parse(sys.stdin).getroot()
like = sys.argv[2] if sys.argv[1] == "--like" else None
headers = sys.argv[3 if like else 1:]
own = named(DECLARATION, headers)
hidden = named(FORWARD, headers) - own
if like:
    own &= {node.get("name") for node in xml.parse(like).iter()}
for number, unit in enumerate(corpus.findall("abi-instr")):
    unit.set("path", str(number))  # must differ, but not when a source moves
    close(unit, own, hidden)
rename(corpus, named(ALIAS, headers))
prune(corpus, own)
xml.indent(corpus, " ")
print(xml.tostring(corpus, encoding="unicode"))
