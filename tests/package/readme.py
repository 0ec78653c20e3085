"""The commands and the example of README.md, as a reader types them, against a portal of their own.

    readme.py BUILD_FOLDER
"""

import json
import os
import re
import subprocess
import sys
import tempfile

SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
BUILD = os.path.abspath(sys.argv[1])


def blocks(language):
    with open(f"{SOURCE}/README.md", encoding="utf-8") as file:
        return re.findall(rf"^```{language}\n(.*?)^```$", file.read(), re.M | re.S)


def shell(text, folder, expected=0, **environment):
    """Runs commands in the source tree, what they write below `folder`. Returns their output."""
    here = {"build": BUILD, "examples": f"{SOURCE}/examples"}
    text = re.sub(r"(?<!\S)(build|examples)(?=[/ ])", lambda match: here[match[0]], text)
    done = subprocess.run(["bash", "-euc", text], cwd=folder, text=True, stdin=subprocess.DEVNULL, timeout=120,
                          env={**os.environ, "HOME": folder, **environment}, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT)
    if done.returncode != expected:
        sys.exit(f"{text}\nended with {done.returncode}, not {expected}:\n{done.stdout}")
    return done.stdout


def expect(text, output):
    if text not in output:
        sys.exit(f"'{text}' is not in:\n{output}")


def main():
    (example,), (project,) = blocks("cpp"), blocks("cmake")
    install, portal_command, by_hand, trusting = blocks("sh")
    with tempfile.TemporaryDirectory() as folder:
        shell(install, folder)
        for name, text in (("main.cpp", example), ("CMakeLists.txt", project)):
            with open(f"{folder}/{name}", "w", encoding="utf-8") as file:
                file.write(text)
        shell("cmake -S . -B app.build -DCMAKE_PREFIX_PATH=$HOME/velmora && cmake --build app.build && "
              "mv app.build/app .", folder)

        command = portal_command.replace("build", BUILD, 1).split()
        portal = subprocess.Popen(command, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL)
        try:
            facts = json.loads(portal.stdout.readline())
            user = facts["users"][0]
            values = {"HOST": facts["host"], "CA.pem": facts["ca"], "EMAIL": user["email"],
                      "PASSWORD": user["password"]}

            def filled(text):
                return re.sub(r"(?<![\w_])(HOST|CA\.pem|EMAIL|PASSWORD)\b", lambda match: values[match[0]], text)

            expect("finished", shell(filled(by_hand), folder))
            expect("summary.json", "\n".join(os.listdir(f"{folder}/results/sim-1")))

            credentials = {"VELMORA_USER": user["email"], "VELMORA_PASSWORD": user["password"]}
            expect("Signed in.", shell(filled(trusting), folder, **credentials))
            wrong = {**credentials, "VELMORA_PASSWORD": "wrong"}
            expect("Error Authenticating Credentials: ", shell(filled(trusting), folder, expected=1, **wrong))
            untrusted = filled("VELMORA_API_URL=HOST ./app")
            expect("The certificate of", shell(untrusted, folder, expected=1, **credentials))
            expect("Set VELMORA_USER", shell("unset VELMORA_USER; ./app", folder, expected=2))
        finally:
            portal.communicate()  # the end of its input ends it


main()
