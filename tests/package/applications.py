"""The library as applications get it: installed, moved elsewhere, built against by CMake and by pkg-config, and
used by the example applications and by a reader of README.md against the local portal.

    applications.py BUILD_FOLDER [UNITTEST ARGUMENT...]
"""

import functools
import glob
import json
import os
import pathlib
import re
import shlex
import shutil
import ssl
import subprocess
import sys
import tempfile
import unittest
import urllib.request

SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
BUILD = os.path.abspath(sys.argv.pop(1))
QT = 6 if glob.glob(f"{BUILD}/libvelmora-qt6.so") else 5
TASKS = f"{SOURCE}/examples/tasks"
LISTED = "job-wing0001  FINISHED", "Error Authenticating Credentials: "  # what sign_in prints; when it is refused
MONO = QT == 5 and shutil.which("mcs") and shutil.which("mono")


def run(*command, code=0, part="", cwd=None, **environment):
    """The command ends with that code, and its output contains the part. Returns the output and errors."""
    done = subprocess.run(command, env={**os.environ, **environment}, text=True, stdin=subprocess.DEVNULL, cwd=cwd,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=600)
    assert done.returncode == code and part in done.stdout, f"{shlex.join(command)}: {done.returncode}: {done.stdout}"
    return done.stdout


class ApplicationsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.environment = {**cls.start_portal(), "PYTHONDONTWRITEBYTECODE": "1",
                           "PYTHONPATH": f"{SOURCE}/python"}
        for component in ("Library", "Development"):
            run("cmake", "--install", BUILD, "--prefix", f"{cls.folder}/first", "--component", component)
        os.rename(f"{cls.folder}/first", f"{cls.folder}/moved")
        (library,) = glob.glob(f"{cls.folder}/moved/**/libvelmora*.so", recursive=True)
        cls.libraries, name = os.path.split(library)
        cls.package = name[len("lib"):-len(".so")]  # one for each Qt
        cls.environment["VELMORA_LIBRARY"] = f"{library}.1"

    @classmethod
    def start_portal(cls, command="build/bin/velmora-portal --job-duration 1"):
        """Returns the environment of an application that uses it."""
        portal = subprocess.Popen(command.replace("build", BUILD, 1).split(), text=True, stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        cls.addClassCleanup(portal.communicate)  # the end of its input stops it
        facts = json.loads(portal.stdout.readline())
        user = facts["users"][0]
        return {"VELMORA_API_URL": facts["host"], "VELMORA_CA": facts["ca"], "VELMORA_USER": user["email"],
                "VELMORA_PASSWORD": user["password"]}

    def expect(self, command, code, part, **changes):
        run(*command, code=code, part=part, **{**self.environment, "LD_LIBRARY_PATH": self.libraries, **changes})

    def built_by_cmake(self, program, project="examples/tasks", prefix="moved"):
        folder = f"{self.folder}/{os.path.basename(project)}-{prefix}"
        run("cmake", "-S", f"{SOURCE}/{project}", "-B", folder, f"-DCMAKE_PREFIX_PATH={self.folder}/{prefix}")
        run("cmake", "--build", folder, "-j2")
        return f"{folder}/{program}"

    @staticmethod
    def blocks(page):
        text = pathlib.Path(SOURCE, page).read_text(encoding="utf-8")
        return [block for _, block in re.findall(r"^```(cpp|cmake|sh)\n(.*?)^```$", text, re.M | re.S)]

    def type_in(self, home, facts, text, code, part, **environment):
        """Runs the commands of a page as its reader would, with the values that the portal has printed."""
        shutil.copytree(f"{SOURCE}/examples", f"{home}/examples", dirs_exist_ok=True,  # runs leave journals there
                        ignore=shutil.ignore_patterns("*.journal"))
        values = {"HOST": facts["VELMORA_API_URL"], "CA.pem": facts["VELMORA_CA"], "EMAIL": facts["VELMORA_USER"],
                  "PASSWORD": facts["VELMORA_PASSWORD"], "build": BUILD, "examples": f"{home}/examples"}
        filled = re.sub(rf"(?<![\w/-])({'|'.join(values)})(?=[\s/])", lambda match: values[match[0]],
                        text.replace("$PWD/", ""))
        run("bash", "-euc", filled, code=code, part=part, cwd=home, HOME=home, **environment)

    def check(self, source, language, part, refusal, prefix="moved"):
        """Builds a program by CMake and by pkg-config; runs both, also with a wrong password. Returns the first."""
        by_cmake = self.built_by_cmake(os.path.splitext(source)[0], prefix=prefix)
        by_pkg_config = f"{by_cmake}-by-pkg-config"
        (packages,) = glob.glob(f"{self.folder}/{prefix}/**/pkgconfig", recursive=True)
        flags = run("pkg-config", "--cflags", "--libs", self.package, PKG_CONFIG_PATH=packages)
        run(*f"{language} -Wall -Wextra -Wpedantic -Werror -o {by_pkg_config} {TASKS}/{source} {flags}".split())
        for program, environment in ((by_cmake, {"LD_LIBRARY_PATH": ""}), (by_pkg_config, {})):
            self.expect([program], 0, part, **environment)
            self.expect([program], 1, refusal, VELMORA_PASSWORD="wrong", **environment)
        return by_cmake

    def csharp(self):
        run("mcs", "-warnaserror", f"-out:{self.folder}/Host.exe", f"{SOURCE}/examples/csharp_host/Host.cs")
        return ["mono", f"{self.folder}/Host.exe"]

    def python(self, content, *arguments):
        source = pathlib.Path(self.folder, "beam.trninp")
        source.write_text(content, encoding="ascii")
        return [sys.executable, f"{SOURCE}/examples/python_host/main.py", source, f"{self.folder}/results", *arguments]

    def test_cpp_seededUser_listsItsJobs(self):
        program = self.check("sign_in.cpp", "c++ -std=c++17", *LISTED)
        self.expect([program], 1, "The certificate of", VELMORA_CA="")  # an authority that is not trusted

    def test_tasks_commandsOfTheirPage_takeAnInputToItsResults(self):
        home = self.enterContext(tempfile.TemporaryDirectory())
        os.symlink(f"{self.folder}/moved", f"{home}/velmora")
        portal, commands = self.blocks("docs/tasks/local-portal.md")
        facts = self.start_portal(portal)
        self.type_in(home, facts, commands, 0, f"{home}/results/sim-2/results.dat")
        self.assertEqual(sorted(os.listdir(f"{home}/results")), ["sim-1", "sim-2"], "the input is no result")
        for command, code, part in (("upload ACC-1001", 2, "usage: upload ACCOUNT FILE"),
                                    ("upload ACC-1001 none", 1, "File Failed to Upload: "),
                                    ("submit ACC-1001 job-1 ''", 1, "No main input file"),
                                    ("follow job-none", 1, "Error Following Job: "),
                                    ("download job-none .", 1, "Error Retrieving File List for Job: ")):
            with self.subTest(command):
                self.type_in(home, facts, f"tasks/{command}", code, part, **facts)

    def test_partOfABuild_asTyped_staticLibraryAlone_isLinkedAndInstalled(self):
        project, commands = self.blocks("docs/tasks/part-of-your-build.md")
        home = f"{self.folder}/own"
        made = f"{home}/made"
        os.mkdir(home)
        for name, text in (("CMakeLists.txt", project), ("main.cpp", self.blocks("README.md")[0])):
            pathlib.Path(home, name).write_text(text, encoding="utf-8")
        unneeded = [f"CMAKE_DISABLE_FIND_PACKAGE_{name}=ON" for name in
                    ("Boost", "CLI11", "nlohmann_json", "GTest", "benchmark", "Python3")]
        launcher = shutil.which("ccache") or ""
        settings = ["Debug", f"FETCHCONTENT_SOURCE_DIR_VELMORA={SOURCE}", "BUILD_SHARED_LIBS=OFF", "VELMORA_INSTALL=ON",
                    f"VELMORA_QT={QT}", f"CMAKE_CXX_COMPILER_LAUNCHER={launcher}", *unneeded]
        self.type_in(home, self.environment, commands.replace("Release", " -D".join(settings)), 0, "Signed in.",
                     CCACHE_DIR=os.environ.get("CCACHE_DIR") or os.path.expanduser("~/.cache/ccache"),
                     CCACHE_BASEDIR=home, CCACHE_NOHASHDIR="1",  # the folder is another one each time
                     **self.environment)
        self.assertEqual(glob.glob(f"{made}/**/*portal*", recursive=True), [], "the library is all that is built")
        run("cmake", "--install", made, "--prefix", f"{self.folder}/static")
        self.check("sign_in.cpp", "c++ -std=c++17", *LISTED, "static")

    def test_c_newJob_runsToItsEnd(self):
        self.check("from_c.c", "cc -std=c11", '"simulationStatus": "FINISHED"', '"errorCode": 401')

    @unittest.skipUnless(MONO, "no Mono: mono-mcs, mono-runtime; or Qt 6, whose library has another name")
    def test_csharp_newJob_runsAndListsItsFiles(self):
        self.expect(self.csharp(), 0, '"fileName": "sim-1/run.log"')
        self.expect(self.csharp(), 1, '"errorCode": 401', VELMORA_PASSWORD="wrong")

    def test_python_inputFile_comesBackInTheResults(self):
        self.expect(self.python("beam " * 100000), 0, "sim-1/results.dat")
        results = pathlib.Path(self.folder, "results/sim-1/results.dat").read_text(encoding="ascii")
        self.assertEqual(results.split("\n", 1)[1], "beam " * 100000, "the input, as the solver read it")
        self.expect(self.python("", "ACC-NONE"), 1, "Error Requesting Job ID")

    def test_everyExample_failedJob_endsWithAnError(self):
        portal = self.start_portal("build/bin/velmora-portal --job-duration 1 --require-inputs")
        # The storage confirms the upload without keeping it: the job fails because its input is missing.
        fault = {"kind": "raw", "path": "storage", "times": 0, "body": "HTTP/1.1 204 No Content\r\n\r\n"}
        urllib.request.urlopen(f"https://{portal['VELMORA_API_URL']}/control/faults", json.dumps(fault).encode(),
                               context=ssl.create_default_context(cafile=portal["VELMORA_CA"])).close()
        for command in ([self.built_by_cmake("from_c")], self.python("beam"), *([self.csharp()] if MONO else [])):
            with self.subTest(command):
                self.expect(command, 1, "Job status is FAILED", **portal)

    @unittest.skipUnless(QT == 5, "the project of the README finds the package of Qt 5")
    def test_readme_commandsAndExampleAsTyped_haveTheirResults(self):
        example, install, project, portal, by_hand, trusting = self.blocks("README.md")
        home = self.enterContext(tempfile.TemporaryDirectory())
        for name, text in (("main.cpp", example), ("CMakeLists.txt", project)):
            pathlib.Path(home, name).write_text(text, encoding="utf-8")
        facts = self.start_portal(portal)
        type_in = functools.partial(self.type_in, home, facts)
        type_in(install, 0, "")
        type_in("cmake -S . -B made -DCMAKE_PREFIX_PATH=$HOME/velmora && cmake --build made && mv made/app .", 0, "")
        type_in(by_hand, 0, "finished", VELMORA_PASSWORD=facts["VELMORA_PASSWORD"])  # typed at the prompt
        self.assertIn("summary.json", os.listdir(f"{home}/results/sim-1"))
        user = {name: facts[name] for name in ("VELMORA_USER", "VELMORA_PASSWORD")}
        type_in(trusting, 0, "Signed in.", **user)
        type_in(trusting, 1, "Error Authenticating Credentials: ", **{**user, "VELMORA_PASSWORD": "wrong"})
        type_in("VELMORA_API_URL=HOST ./app", 1, "The certificate of", **user)
        type_in("unset VELMORA_USER; ./app", 2, "Set VELMORA_USER")

    def test_desktop_actionsOfAUser_haveTheirResults(self):
        program = self.built_by_cmake("drive", "tests/package/desktop")
        self.expect([program], 0, "Totals: ", QT_QPA_PLATFORM="offscreen", **self.start_portal())


unittest.main()
