"""What `scripts/mutate` changes: text of a C++ source in, its mutants out."""

import re
from typing import NamedTuple


class Mutant(NamedTuple):
    start: int  # the text from here
    end: int  # to here
    text: str  # becomes this

    def of(self, source):
        return source[:self.start] + self.text + source[self.end:]

    def place(self, source):
        return f"{source.count(chr(10), 0, self.start) + 1}:{self.start - source.rfind(chr(10), 0, self.start)}"

    def describe(self, source):
        before = " ".join(source[self.start:self.end].split())
        return f"{before} -> {self.text}" if self.text not in ("", "{}") else f"without {before}"


# What is no code, or is code that only the compiler runs.
NO_CODE = re.compile(r'R"(?P<mark>\w*)\(.*?\)(?P=mark)"'
                     r'|"(?:\\.|[^"\\\n])*"'
                     r"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'"
                     r"|//[^\n]*|/\*.*?\*/"
                     r"|^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*"
                     r"|\bstatic_assert\s*\([^;]*;|\b(?:template|requires)\s*<[^;{]*?>(?=\s)|\[\[.*?\]\]", re.DOTALL | re.MULTILINE)


def code(source):
    """The source with spaces for all that is not code, at the same places."""
    def blank(found):
        return re.sub(r"[^\n]", " " if found.group()[0] not in "\"'R" else "_", found.group())
    return NO_CODE.sub(blank, source)


SWAPPED = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&",
    "+": "-", "-": "+", "*": "/", "/": "*", "+=": "-=", "-=": "+=", "++": "--", "--": "++",
}
# Between spaces, so that brackets of templates, references and pointers stay what they are.
OPERATOR = re.compile(r"(?<= )(?:[=!<>]=|[<>]|&&|\|\||[-+*/]|[-+]=)(?=\s)|\+\+|--")


def operators(text):
    for found in OPERATOR.finditer(text):
        operator = found.group()
        if operator == "&&" and re.search(r"\b(?:auto|T|\w+_t) $", text[:found.start()]):
            continue
        if not re.search(r"operator ?$", text[:found.start()]):
            yield Mutant(found.start(), found.end(), SWAPPED[operator])


NUMBER = re.compile(r"(?<![\w.'])(?P<digits>0[xX][0-9a-fA-F']+|\d[\d']*)(?P<rest>\.\d+)?(?P<suffix>[uUlLzZ]*)(?![\w.'])")
TRUTH = re.compile(r"\b(?:true|false)\b")


def constants(text):
    for found in NUMBER.finditer(text):
        digits = found["digits"].replace("'", "")
        value = int(digits, 16 if digits[:2] in ("0x", "0X") else 10) + 1
        yield Mutant(found.start(), found.end(), f"{value}{found['rest'] or ''}{found['suffix']}")
    for found in TRUTH.finditer(text):
        yield Mutant(found.start(), found.end(), "false" if found.group() == "true" else "true")


def closing(text, opening):
    """The place of the bracket that closes the one at `opening`; the end of the text without one."""
    depth = 0
    for place in range(opening, len(text)):
        depth += (text[place] in "([{") - (text[place] in ")]}")
        if depth == 0:
            return place
    return len(text)


CONDITION = re.compile(r"\b(?:if|while) ?(?=\()")
NEGATION = re.compile(r"(?<![=!])!(?=[\w(*])")
DECLARATION = re.compile(r"^[\w:<>,*& ]+[\w>*&][*&]* +[*&]*\w+ *=[^=]")


def conditions(text):
    for found in CONDITION.finditer(text):
        end = closing(text, found.end())
        start = text.rfind(";", found.end(), end) + 1 or found.end() + 1
        inside = text[start:end].strip()
        is_turned_otherwise = re.match(r"!|[^&|<>]* [=!]= [^&|<>]*$", inside)
        if inside and not DECLARATION.match(inside) and not is_turned_otherwise:
            start += len(text[start:end]) - len(text[start:end].lstrip())
            yield Mutant(start, end, "!(…)")
    for found in NEGATION.finditer(text):
        yield Mutant(found.start(), found.end(), "")


HEADER = re.compile(r"\s*(?:else\b|do\b|case\b[^:;{}]*:(?!:)|(?:default|public|private|protected)\s*:"
                    r"|(?:if|if constexpr|for|while|switch|catch) ?(?=\())")
# A call, a step, an assignment to what is there, or a leap; no declaration and no result.
REMOVABLE = re.compile(r"(?:[*(]*[\w:.\[\]]+(?:<[^;]*?>)?\s*(?:\(|->|\.|=[^=]|[-+*/|&^]=|\+\+|--|\[)|\+\+|--"
                       r"|(?:break|continue|return)\s*;)")
LEAP = re.compile(r"(?:break|continue|return)\s*;")
KEPT = re.compile(r"(?:return|throw)\b\s*[^;\s]|(?:using|static|const|auto|explicit|operator)\b|.*= *(?:default|delete|0) *;$")


class Statement(NamedTuple):
    start: int
    end: int
    block: int  # where the block around it begins

    def is_removable(self, text):
        inside = text[self.start:self.end]
        return REMOVABLE.match(inside) is not None and KEPT.match(inside) is None


def without_headers(text, start):
    """The place where the statement itself begins, after `if (…)`, `else` and labels."""
    while header := HEADER.match(text, start):
        start = header.end()
        if text[start:start + 1] == "(":
            start = closing(text, start) + 1
    return start + len(text[start:]) - len(text[start:].lstrip())


def statements(text):
    """The simple statements in blocks, those of closures among them."""
    start, opened = 0, []
    for place, letter in enumerate(text):
        if letter in "([{":
            opened.append((letter, place, start))
            start = place + 1
        elif letter in ")]}" and opened:
            _, _, outer = opened.pop()
            goes_on = letter != "}" or re.match(r"\s*[;,).?(\[&|+*/<=]", text[place + 1:])
            start = outer if goes_on else place + 1
        elif letter == ";" and opened and opened[-1][0] == "{":
            first = without_headers(text, start)
            if first < place:
                yield Statement(first, place + 1, opened[-1][1])
            start = place + 1


def removals(text):
    for one in statements(text):
        if one.is_removable(text):
            yield Mutant(one.start, one.end, "{}")


def swaps(text):
    """Neighbouring statements of one block that may change places."""
    found = list(statements(text))
    for first, second in zip(found, found[1:]):
        is_neighbour = first.block == second.block and not text[first.end:second.start].strip()
        if is_neighbour and not LEAP.match(text, second.start) and first.is_removable(text) and second.is_removable(text):
            yield first, second


def mutants(source):
    """All mutants of a source, in the order of their places."""
    text = code(source)
    found = [*operators(text), *constants(text), *removals(text), *conditions(text)]
    for first, second in swaps(text):
        swapped = source[second.start:second.end] + source[first.end:second.start] + source[first.start:first.end]
        found.append(Mutant(first.start, second.end, swapped))
    return [Mutant(one.start, one.end, one.text.replace("…", source[one.start:one.end])) for one in sorted(found)]
