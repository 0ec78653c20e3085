"""Where a tired developer might err: plain rules on the text of a C++ source. See scripts/mutate."""

import collections
import re

# A fault wraps or replaces a part of a source: rule, start, end, text before, text after, text instead of the part,
# and another part that it replaces. %d becomes the number.
Fault = collections.namedtuple("Fault", "rule start end before after instead also", defaults=("", "", None, None))


def masked(text):
    """The text with all that is no code replaced by blanks, characters stay where they are."""
    noise = (r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])+\''
             r'|^[ \t]*#(?:\\\n|[^\n])*')
    code = re.sub(noise, lambda match: re.sub(r"[^\n]", "`" if match[0][0] in "\"'R" else " ", match[0]), text,
                  flags=re.S | re.M)
    elsewhere = r"^#if(?:def _WIN32| QT_VERSION_MAJOR >= 6)$.*?^#(?:else|endif)\b"  # not in the build that is run
    for match in re.finditer(elsewhere, text, re.S | re.M):
        code = code[:match.start()] + re.sub(r"[^\n]", " ", match[0]) + code[match.end():]
    return code


def end_of(code, start, stops):
    """Where one of the stops stands at or behind `start`, outside any brackets; None when they close before."""
    depth = 0
    for at in range(start, len(code)):
        if depth == 0 and any(code.startswith(stop, at) for stop in stops):
            return at
        depth += (code[at] in "([{") - (code[at] in ")]}")
        if depth < 0:
            return None
    return None


def start_of(code, end, stops):
    """Where the operand that ends at `end` begins."""
    depth = 0
    for at in range(end - 1, -1, -1):
        if code[at] in "([{" and depth == 0 or depth == 0 and any(code.startswith(stop, at) for stop in stops):
            stop = next((stop for stop in stops if code.startswith(stop, at)), code[at])
            return re.compile(r"\s*").match(code, at + len(stop)).end()
        depth += (code[at] in ")]}") - (code[at] in "([{")
        if depth < 0:
            return None
    return None


OPERANDS = ("&&", "||", ";", ",", " ? ", " : ", "return ", " = ")
STATEMENT = r"(?:Q_EMIT |delete |\+\+|--|\*)?[A-Za-z_](?:\w|::|\.|->|\[[^\]\n]*\]|<\w+>|\([^;{}]*?\)(?=\.|->))*(?:\(| [-+*/|&]?= |\+\+|--|;)"
HARMLESS = r"return|break|case|default|else|using|Q_UNUSED|Q_OBJECT|static_assert|(?:\w|\.|->)*\breserve\("


def faults_of(text):
    code = masked(text)

    def wrap(rule, start, end, call):
        return Fault(rule, start, end, f"mutated::{call}(%d, ", ")")

    for match in re.finditer(r"\b(if|while) \(", code):
        end = end_of(code, match.end(), (")",))
        start = max(match.end(), (end_of(code[:end], match.end(), (";",)) or 0) + 1)
        if re.compile(r"(?:const )?[\w:]+[ *&]+\w+ = ").match(code, start):
            continue  # it declares something
        yield wrap("never", start, end, "never")
        if match[1] == "if":
            yield wrap("negated", start, end, "negated")
    for match in re.finditer(r"&&|\|\|", code):
        for start, end in ((start_of(code, match.start(), OPERANDS), match.start()),
                           (match.end(), end_of(code, match.end(), OPERANDS[:-2] + (")", "}", "]")))):
            if start is not None and end is not None and start < end and code[start:end].strip():
                yield wrap("negated", start + (code[start] == " "), end - (code[end - 1] == " "), "negated")
    for match in re.finditer(r" \? ", code):
        start = start_of(code, match.start(), OPERANDS)
        if start is not None:
            yield wrap("negated", start, match.start(), "negated")
    for match in re.finditer(r"\breturn (?![{`\d]|nullptr|true|false)", code):
        end = end_of(code, match.end(), (";",))
        if end:
            yield wrap("returned", match.end(), end, "changed")
    for match in re.finditer(r"\b(?:true|false)\b", code):
        yield Fault("constant", *match.span(), "(", " != mutated::fault(%d))")
    for match in re.finditer(r"(?<![\w.'])(?:0x[\da-f]+|\d[\d']*)(?:[uU]|[lL]+)*(?![\w.'])", code):
        line = code.rfind("\n", 0, match.start()) + 1
        constant = re.compile(r"\s*(?:inline |static )*(constexpr)\b").match(code, line)
        yield Fault("constant", *match.span(), "(", " + mutated::fault(%d))", None,
                    (*constant.span(1), "const") if constant else None)
    for match in re.finditer(r" (<=?|>=?) ", code):
        sign = "" if match[1] in ("<", ">=") else "-"
        yield Fault("comparison", match.end(), match.end() + 1, f"{sign}int(mutated::fault(%d)) + ")
    for match in re.finditer(r"(?<=[;{})])\s+|\belse\s+", code):
        before = code[match.start() - 1]
        opening = start_of(code, match.start() - 1, ()) if before == ")" else None
        if before == ")" and (opening is None or not re.search(r"\b(if|for|while) \($", code[:opening])):
            continue
        at = match.end()
        end = end_of(code, at, (";",))
        if end and (re.compile(STATEMENT).match(code, at) or code.startswith("continue;", at)
                    ) and not re.compile(HARMLESS).match(code, at):
            yield Fault("removed", at, end + 1, "{ if (!mutated::fault(%d)) ", " }")
        if end and before == ")" and re.compile(r"return\b").match(code, at):
            yield Fault("removed", at, end + 1, "{ if (!mutated::fault(%d)) ", " }")
    for match in re.finditer(r"\bstd::move\(([^()]+)\)", code):
        yield Fault("dropped", *match.span(), "", "", f"mutated::dropped(%d, {match[1]})")
    for match in re.finditer(r"(?<=[(, ])([a-zA-Z_][\w.]*), ([a-zA-Z_][\w.]*)(?=[,)])", code):
        one, two = match.groups()
        if start_of(code, match.start(), (",",)) == match.start():
            yield Fault("swapped", *match.span(), "", "",
                        f"mutated::other(%d, {one}, {two}), mutated::other(%d, {two}, {one})")


def crosses(one, two):
    """Whether two faults cannot both stand in one text."""
    first, second = sorted((one, two), key=lambda fault: (fault.start, -fault.end))
    if second.start >= first.end:
        return False
    return second.end > first.end or first.instead is not None or (first[1:3] == second[1:3] and
                                                                   second.instead is not None)
