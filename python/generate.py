"""Makes velmora/records.py from the library's headers: the fields and their JSON keys from the field tables, types,
defaults and descriptions from the records themselves.

    python3 generate.py     writes the file
"""

import pathlib
import re
import textwrap

ROOT = pathlib.Path(__file__).resolve().parents[1]
TARGET = ROOT / "python/velmora/records.py"
HEADERS = ["Records.h", "JobSubmit.h", "Callbacks.h", "ClientOptions.h"]
ENUMS = ["PortalTarget", "JobOperation", "SessionChange"]
LEFT_OUT = ["ApiError", "FileDownloadDetails", "DeleteFileDetails"]  # here an exception, and arguments of methods
HEAD = '''"""The records that cross the library's boundary. generate.py makes this from the library's headers."""

from dataclasses import dataclass, field
from enum import IntEnum
from typing import ClassVar, Mapping

from ._record import Record
'''
# Where Python differs: the words of the headers' descriptions.
WORDS = {
    "CloudAPI::generateNewJobID": "Session.new_job_id", "CloudAPI::submitNewJob": "Session.submit",
    "CloudAPI::uploadFile": "Session.upload", "CloudAPI::applyProxy": "Session.apply_proxy",
    "CloudAPI::cancelUpload": "Session.upload", "setClientOptions": "Session", "CloudAPI": "Session",
    "logUserIn": "Session.sign_in", "resumeSession": "Session.resume", "clearActiveAccount": "Session.sign_out",
    "lastNetworkError": "VelmoraError.message", "ClientOptions::keepAlive": "ClientOptions.keep_alive",
}
# JSON states an estimate per simulation. The others say what is of no use here.
DOCS = {
    "JobSubmit.coreHourEstimate": "core hours per simulation",
    "JobSubmit": "A job to run. Fill the fields, then pass it to `Session.submit`, which validates it first.",
    "SessionChange": "What happened to the session's token.",
    "FileUploadDetails": "An upload, as `Session.upload` returns it.",
    "FileUploadDetails.totalFileSize": "bytes, as found on disk",
}


def snake(name: str) -> str:
    return re.sub(r"(?<=[a-z0-9])(?=[A-Z])", "_", name).lower()


def description(name: str, comment: str) -> str:
    """The text of a comment in the words of Python."""
    text = DOCS.get(name, re.sub(r"\s*/// ?<? ?", " ", comment).strip()).replace('"', "'")
    return re.sub(r"`([\w:]+)`", lambda word: f"`{WORDS.get(word[1], snake(word[1]))}`", text)


def python_type(name: str) -> str:
    if listed := re.fullmatch(r"(?:std::)?list<(.+)>", name):
        return f"list[{python_type(listed[1])}]"
    plain = {"std::string": "str", "bool": "bool", "double": "float"}
    return plain.get(name) or ("int" if re.fullmatch(r"int|long long|std::int64_t", name) else name)


def default(kind: str, value: str | None) -> str:
    if kind.startswith("list"):
        return "field(default_factory=list)"
    if kind[0].isupper():
        return f"{kind}.{value.split('::')[1].upper()}" if value else f"field(default_factory={kind})"
    return {"true": "True", "false": "False", None: '""'}.get(value, value or "")


def filled(text: str, indent: str, behind: str = "") -> str:
    return textwrap.fill(text, 120, initial_indent=indent, subsequent_indent=indent + behind, break_long_words=False)


def docstring(text: str, fields: list[tuple[str, str]]) -> list[str]:
    """What `help` shows of a class: a comment, and those of its fields."""
    described = [filled(f"{name}: {about}", "    ", "    ") for name, about in fields if about]
    opening = filled(f'"""{text}', "    ")
    return [f'{opening}"""', ""] if not described else [opening, "", *described, '    """', ""]


def read_headers() -> tuple[str, str]:
    headers = "\n".join((ROOT / "include/velmora" / name).read_text(encoding="utf-8") for name in HEADERS)
    return headers, (ROOT / "src/model/Schema.h").read_text(encoding="utf-8")


def make_enum(name: str, headers: str) -> str:
    found = re.search(rf"((?:///[^\n]*\n)*)enum class {name}\b[^\n]*{{\n(.*?)}};", headers, re.S)
    assert found, f"no enumeration {name}"
    members = re.findall(r"((?: *///[^<].*\n)*) *(\w+) = (\d+),(.*)\n", found[2])
    fields = [(snake(member).upper(), description(f"{name}.{member}", before or behind))
              for before, member, _, behind in members]
    return "\n".join([f"class {name}(IntEnum):", *docstring(description(name, found[1]), fields),
                      *(f"    {snake(member).upper()} = {number}" for _, member, number, _ in members)])


def make_record(name: str, table: str, headers: str) -> str:
    found = re.search(rf"((?:///[^\n]*\n)*)(?:struct|class VELMORA_EXPORT) {name} {{\n(.*?)^}};", headers,
                      re.S | re.M)
    assert found, f"no record {name}"
    members = re.findall(r"((?:^ {4}///[^<].*\n)*)^ {4}([\w:<>]+(?: long)?) (\w+)(?: = (.+?))?;"
                         r"((?: *///<.*\n(?: {8,}///.*\n)*)?)", found[2], re.M)
    keys = {member: text or reply
            for member, reply, text in re.findall(rf'field\(&{name}::(\w+), "(\w+)"(?:, "(\w+)")?\)', table)}
    assert keys.keys() == {member[2] for member in members}, f"{name}: {keys.keys()} are not its members"
    fields = [(snake(member), description(f"{name}.{member}", before or behind))
              for before, _, member, _, behind in members]
    lines = ["@dataclass(kw_only=True)", f"class {name}(Record):", *docstring(description(name, found[1]), fields)]
    for _, kind, member, value, _ in members:
        lines.append(f"    {snake(member)}: {python_type(kind)} = {default(python_type(kind), value or None)}")
    lines += ["    _keys: ClassVar[Mapping[str, str]] = {",
              *(f'        "{snake(member)}": "{keys[member]}",' for _, _, member, *_ in members), "    }"]
    if list_key := re.search(r'listKey = "(\w+)"', table):
        lines.append(f'    _list_key: ClassVar[str] = "{list_key[1]}"')
    if advised := re.search(rf"///([^\n]*)\n *static {name} robust\(\)\n.*?{name} options;\n(.*?) *return", found[2],
                            re.S):
        values = ", ".join(f"{snake(member)}={default('bool', value)}"
                           for member, value in re.findall(r"options\.(\w+) = (.+);", advised[2]))
        lines += ["", "    @classmethod", f'    def robust(cls) -> "{name}":', f'        """{advised[1].strip()}"""',
                  f"        return cls({values})"]
    return "\n".join(lines)


def generate() -> str:
    headers, schema = read_headers()
    tables = {name: table for name, table in
              re.findall(r"template <> struct Schema<(\w+)> {\n(.*?)^};", schema, re.S | re.M) if name not in LEFT_OUT}
    names = textwrap.fill(", ".join(f'"{name}"' for name in sorted([*ENUMS, *tables])), 116)
    return "\n\n\n".join([f"{HEAD}\n__all__ = [\n{textwrap.indent(names, '    ')},\n]",
                          *(make_enum(name, headers) for name in ENUMS),
                          *(make_record(name, table, headers) for name, table in tables.items())]) + "\n"


if __name__ == "__main__":
    TARGET.write_text(generate(), encoding="utf-8")
