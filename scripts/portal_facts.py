"""Prints of the portal's line (standard input) what a client needs, one a line: host with port, the file of its
authority, e-mail address and password of the first user who signs in without a code."""

import json
import sys

portal = json.load(sys.stdin)
user = next(user for user in portal["users"] if not user.get("mfaCode"))
print(portal["host"], portal["ca"], user["email"], user["password"], sep="\n")
