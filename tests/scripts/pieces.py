"""The programs that the scripts call: each on a small input, by its output and exit code."""

import os
import re
import ssl
import subprocess
import sys
import tempfile
import unittest

SCRIPTS = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", "scripts"))


def run(program, *arguments, text=""):
    """Returns (exit code, lines of output)."""
    done = subprocess.run([sys.executable, "-B", f"{SCRIPTS}/{program}", *arguments], input=text, text=True,
                          stdout=subprocess.PIPE, timeout=30)
    return done.returncode, done.stdout.splitlines()


class Pieces(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def file(self, name, text):
        with open(f"{self.folder}/{name}", "w", encoding="utf-8") as file:
            file.write(text)
        return file.name

    def test_mutate_rules(self):
        sys.path.insert(0, SCRIPTS)
        from mutate_rules import faults_of

        rows = {  # text: what may be wrong in it
            "if (a && b < 2)\n    return c;\n": {("never", "a && b < 2"), ("negated", "a && b < 2"), ("negated", "a"),
                                              ("negated", "b < 2"), ("constant", "2"), ("comparison", "2"),
                                              ("returned", "c"), ("removed", "return c;")},
            'f(x, y); // if (a)\n"1";\n': {("swapped", "x, y")},
            "{ f(std::move(x)); T y(z); }": {("removed", "f(std::move(x));"), ("dropped", "std::move(x)")},
            "if (const auto p = f())\n    g();": {("removed", "g();")},
        }
        for text, expected in rows.items():
            self.assertEqual({(fault.rule, text[fault.start:fault.end]) for fault in faults_of(text)}, expected, text)

    def test_trust_reg(self):
        pem = self.file("ca.pem", ssl.DER_cert_to_PEM_cert(b"abc"))
        _, lines = run("windows.d/trust_reg.py", pem)
        sha1 = "A9993E364706816ABA3E25717850C26C9CD0D89D"  # of "abc", as FIPS 180 has it
        self.assertRegex(lines[2], rf"\\Root\\Certificates\\{sha1}\]$")
        self.assertEqual(lines[3], '"Blob"=hex:20,00,00,00,01,00,00,00,03,00,00,00,61,62,63')

    def test_undescribed(self):
        member = ('<memberdef kind="function" prot="public"><name>{}</name>'
                  '<briefdescription>{}</briefdescription></memberdef>')
        described = [member.format(f"f{number}", "text") for number in range(200)]
        for members, expected in ((described, (0, [])), (described + [member.format("bare", " ")],
                                                         (1, ["bare has no description"])), (described[:9], (1, []))):
            self.file("all.xml", f"<doxygen>{''.join(members)}</doxygen>")
            self.assertEqual(run("undescribed.py", self.folder), expected)

    def test_dead_links(self):
        self.file("b.html", '<h1 id="top"></h1>' + '<a class="x" href="#top"></a>' * 99)
        for link, expected in (("b.html#top", (0, [])), ("https://c.example/d", (1, [])),
                               ("b.html#end", (1, ["a.html: b.html#end leads nowhere"])), ("c.html", (1, ["a.html: c.html leads nowhere"]))):
            self.file("a.html", f'<a href="{link}"></a>')
            self.assertEqual(run("dead_links.py", self.folder), expected)

    def test_figures(self):
        page = self.file("figures.md", "A\n<!-- soak -->\nold\n<!-- end -->\nB\n<!-- scale -->\nsame\n<!-- end -->\n")
        for text, code in ("2 processors\n\n## soak\n\nseconds,KiB\n1,5\n| a |\n", 0), ("## other\n", 1), ("", 1):
            self.assertEqual(run("figures.py", page, text=text)[0], code)
            with open(page, encoding="utf-8") as file:
                self.assertRegex(file.read(), r"^A\n<!-- soak -->\n[\d-]{10}\. 2 processors\n\n\| a \|\n<!-- end -->\n"
                                              r"B\n<!-- scale -->\nsame\n<!-- end -->\n$")

    def test_abi_trim(self):
        header = self.file("Own.h", "struct Own {\n};\nstruct New {\n};\ntemplate <class T> using Alias = Foreign<T>;\n")
        dump = """<abi-corpus><elf-function-symbols><elf-symbol name="run"/></elf-function-symbols>
<abi-instr path="src/A.cpp"><type-decl name="int" id="i"/><type-decl name="char" id="c"/>
<class-decl name="Own" id="o"><data-member><var-decl name="field" type-id="i"/></data-member></class-decl>
<class-decl name="New" id="n"><data-member><var-decl name="other" type-id="i"/></data-member></class-decl>
<class-decl name="Foreign" id="f"><data-member><var-decl name="inner" type-id="c"/></data-member></class-decl>
<typedef-decl name="Alias" type-id="f" id="a"/><class-decl name="Unused" id="u"/><function-decl name="hidden"><return type-id="u"/></function-decl>
<function-decl name="run" elf-symbol-id="run"><parameter type-id="a"/></function-decl></abi-instr></abi-corpus>"""
        code, lines = run("abi_trim.py", header, text=dump)
        old = self.file("old.abi", re.sub("New", "Older", "\n".join(lines)))
        for added, output in (["New", "other"], lines), ([], run("abi_trim.py", "--like", old, header, text=dump)[1]):
            names = re.findall(r' name="(\w+)"', "\n".join(output))
            self.assertEqual((code, names), (0, ["run", "int", "Own", "field", *added, "Alias", "Alias", "run"]))
        self.assertNotIn("src/", "\n".join(lines))


unittest.main()
