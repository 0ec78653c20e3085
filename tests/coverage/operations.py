"""Every operation of the class has its rows: what it sends, how it stands faults, how the flat layer passes it on.

An operation is a member function of CloudAPI.h that takes a completion callback.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
HEADER = "include/velmora/CloudAPI.h"

# For each table: the file; how the row of an operation NAME begins; the operations that need none, and why.
TRANSFER = "sends several requests: see tests/transfer/FailureTest.cpp"
TABLES = [
    ("tests/transport/Operations.cpp", r'\{"NAME[" ]', {
        "uploadFile": TRANSFER, "uploadInputFile": TRANSFER, "downloadFile": TRANSFER,
        "subscribeToJob": "opens a socket: see tests/notify/SubscriptionTest.cpp",
        "followJob": "asks until the job has ended: see tests/notify/FollowTest.cpp"}),
    ("tests/torture/Operations.cpp", r'(\{|simple(<.*>)?\()\s*"NAME[" ]', {}),
    ("tests/flat/FlatTest.cpp", r"\bNAME(_Json)?(\(api|, api|, NAME_Json)", {}),
]


def code(path):
    """The file's text without comments."""
    return re.sub(r"(^|\s)//.*", "", (ROOT / path).read_text(encoding="utf-8"))


operations = set(re.findall(r"\bvoid (\w+)\([^;]*&on(?:Complete|Finished|End)\b", code(HEADER)))
problems = [] if len(operations) > 20 else [f"{HEADER}: only {len(operations)} operations found; see {__file__}"]
for path, row, exceptions in TABLES:
    text = code(path)
    found = {name for name in operations if re.search(row.replace("NAME", name), text)}
    problems += [f"{name} has no row in {path}" for name in sorted(operations - found - set(exceptions))]
    problems += [f"{name} needs no exception for {path} in tests/coverage/operations.py"
                 for name in sorted(set(exceptions) - (operations - found))]
for problem in problems:
    print(problem)
print(f"{len(operations)} operations, {len(TABLES)} tables")
sys.exit(bool(problems))
