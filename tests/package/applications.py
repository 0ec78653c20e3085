"""The library as applications get it: installed, moved elsewhere, built against by CMake and by pkg-config, and
used by the example applications against the local portal.

    applications.py BUILD_FOLDER [UNITTEST ARGUMENT...]
"""

import glob
import json
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
BUILD = os.path.abspath(sys.argv.pop(1))
MONO = shutil.which("mcs") and shutil.which("mono")


def run(*command, **settings):
    """Returns (exit code, output and errors)."""
    environment = dict(os.environ, **settings.pop("environment", {}))
    done = subprocess.run(command, env=environment, text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, timeout=100, **settings)
    return done.returncode, done.stdout


class ApplicationsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.must("cmake", "-S", f"{SOURCE}/examples/local_trust", "-B", f"{cls.folder}/trust")
        cls.must("cmake", "--build", f"{cls.folder}/trust")
        cls.environment = {
            **cls.start_portal(),
            "PYTHONDONTWRITEBYTECODE": "1",
            "LD_PRELOAD": f"{cls.folder}/trust/libvelmora_local_trust.so",
        }
        for component in ("Library", "Development"):
            cls.must("cmake", "--install", BUILD, "--prefix", f"{cls.folder}/first", "--component", component)
        os.rename(f"{cls.folder}/first", f"{cls.folder}/moved")
        (cls.libraries,) = (os.path.dirname(path) for path in glob.glob(f"{cls.folder}/moved/**/libvelmora.so",
                                                                       recursive=True))

    @classmethod
    def start_portal(cls):
        """Returns the environment of an application that uses it."""
        portal = subprocess.Popen([f"{BUILD}/bin/velmora-portal", "--job-duration", "1"], text=True,
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        cls.addClassCleanup(portal.communicate)  # the end of its input stops it
        facts = json.loads(portal.stdout.readline())
        user = facts["users"][0]
        return {"VELMORA_API_URL": facts["host"], "SSL_CERT_FILE": facts["ca"], "VELMORA_USER": user["email"],
                "VELMORA_PASSWORD": user["password"]}

    @classmethod
    def must(cls, *command, **settings):
        code, output = run(*command, **settings)
        if code != 0:
            raise AssertionError(f"{shlex.join(command)}: {output}")
        return output

    def launch(self, *command, **changes):
        return run(*command, environment={**self.environment, **changes})

    def built_by_cmake(self, name, source="examples"):
        folder = f"{self.folder}/{name}"
        self.must("cmake", "-S", f"{SOURCE}/{source}/{name}", "-B", folder,
                  f"-DCMAKE_PREFIX_PATH={self.folder}/moved")
        self.must("cmake", "--build", folder, "-j2")
        return f"{folder}/{name}"

    def check(self, name, language, output_part, error_part):
        """Builds an example by CMake and by pkg-config, and runs both, then with a wrong password. Returns the first."""
        by_cmake, by_pkg_config = self.built_by_cmake(name), f"{self.folder}/{name}-by-pkg-config"
        flags = self.must("pkg-config", "--cflags", "--libs", "velmora",
                          environment={"PKG_CONFIG_PATH": f"{self.libraries}/pkgconfig"})
        self.must(*f"{language} -Wall -Wextra -Wpedantic -Werror -o {by_pkg_config} {flags}".split())
        for program, environment in ((by_cmake, {}), (by_pkg_config, {"LD_LIBRARY_PATH": self.libraries})):
            code, output = self.launch(program, **environment)
            self.assertEqual((code, output_part in output), (0, True), output)
            code, output = self.launch(program, VELMORA_PASSWORD="wrong", **environment)
            self.assertEqual((code, output.count(error_part)), (1, 1), output)
        return by_cmake

    def test_cpp_seededUser_listsItsJobs(self):
        program = self.check("cpp_host", f"c++ -std=c++17 {SOURCE}/examples/cpp_host/main.cpp",
                             "job-wing0001  FINISHED", "sign-in: Error Authenticating Credentials")
        code, output = self.launch(program, LD_PRELOAD="")
        self.assertEqual((code, output.count("sign-in: no answer came")), (1, 1), "an authority that is not trusted: " + output)

    def test_c_newJob_runsAndListsItsFiles(self):
        self.check("c_host", f"cc -std=c11 {SOURCE}/examples/c_host/main.c",
                   '"fileName": "sim-2/run.log"', '"errorCode": 401')

    def csharp(self):
        program = f"{self.folder}/Host.exe"
        self.must("mcs", "-warnaserror", f"-out:{program}", f"{SOURCE}/examples/csharp_host/Host.cs")
        return ["mono", program]

    @unittest.skipUnless(MONO, "no Mono: mono-mcs, mono-runtime")
    def test_csharp_newJob_runsAndListsItsFiles(self):
        command, library = self.csharp(), {"LD_LIBRARY_PATH": self.libraries}
        code, output = self.launch(*command, **library)
        self.assertEqual((code, '"fileName": "sim-1/run.log"' in output), (0, True), output)
        code, output = self.launch(*command, VELMORA_PASSWORD="wrong", **library)
        self.assertEqual((code, output.count('"errorCode": 401')), (1, 1), output)

    def test_python_inputFile_comesBackInTheResults(self):
        source = f"{self.folder}/beam.trninp"
        with open(source, "w", encoding="ascii") as file:
            file.write("beam " * 100000)
        command = (sys.executable, f"{SOURCE}/examples/python_host/main.py", source, self.folder)
        library = {"VELMORA_LIBRARY": f"{self.libraries}/libvelmora.so.1"}
        code, output = self.launch(*command, **library)
        self.assertEqual(code, 0, output)
        self.assertIn("Job status is FINISHED", output)
        with open(f"{self.folder}/sim-1-results.dat", encoding="ascii") as file:
            self.assertEqual(file.read().split("\n", 1)[1], "beam " * 100000, "the input, as the solver read it")
        code, output = self.launch(*command, "ACC-NONE", **library)
        self.assertEqual((code, "Error Requesting Job ID" in output), (1, True), output)

    def test_desktop_actionsOfAUser_haveTheirResults(self):
        program = os.path.dirname(self.built_by_cmake("desktop", "tests/package")) + "/drive"
        code, output = self.launch(program, QT_QPA_PLATFORM="offscreen", **self.start_portal())
        self.assertEqual(code, 0, output)


unittest.main()
