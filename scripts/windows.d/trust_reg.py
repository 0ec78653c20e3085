"""Prints a registry file that adds a certificate (PEM) to the current user's trusted authorities.

    trust_reg.py CA_PEM
"""

import hashlib
import ssl
import struct
import sys

with open(sys.argv[1], encoding="ascii") as file:
    certificate = ssl.PEM_cert_to_DER_cert(file.read())
# One property: number 32 is the encoded certificate; 1 is reserved.
blob = struct.pack("<III", 32, 1, len(certificate)) + certificate
store = r"HKEY_CURRENT_USER\Software\Microsoft\SystemCertificates\Root\Certificates"
print("Windows Registry Editor Version 5.00\n")
print(rf"[{store}\{hashlib.sha1(certificate).hexdigest().upper()}]")
print('"Blob"=hex:' + ",".join(f"{byte:02x}" for byte in blob))
