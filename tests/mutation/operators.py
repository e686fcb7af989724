"""Single changes of C++ sources, of the usual kinds: boundaries, conditions, arithmetic, constants, texts, removed statements,
empty results, calls of a function's opposite.

Works on the text alone, by what clang-format makes of it: binary operators stand between blanks, templates do not. A change
that does not compile is harmless, since nobody counts it.
"""

import dataclasses
import re
from typing import Iterator

_TOKEN = re.compile(r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<preprocessor>^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*)
  | (?P<string>"(?:[^"\\\n]|\\.)*")
  | (?P<character>'(?:[^'\\\n]|\\.)+')
  | (?P<number>(?:0[xX][0-9a-fA-F]+|\d+\.?\d*(?:[eE][+-]?\d+)?)[uUlL]*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<operator><<=|>>=|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|::|[-+*/%&|^!<>=?:;,.(){}\[\]~])
""", re.VERBOSE | re.DOTALL | re.MULTILINE)

_REPLACEMENTS = {
    "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"), "==": ("!=",), "!=": ("==",),
    "&&": ("||",), "||": ("&&",),
    "+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("*",),
    "<<": (">>",), ">>": ("<<",), "&": ("|",), "|": ("&",), "^": ("&",),
    "+=": ("-=",), "-=": ("+=",), "*=": ("/=",), "/=": ("*=",), "|=": ("&=",), "&=": ("|=",), "^=": ("|=",),
}
_OPPOSITES = dict(sum(([(one, other), (other, one)] for one, other in (
    ("qMin", "qMax"), ("first", "last"), ("startsWith", "endsWith"), ("toLower", "toUpper"), ("append", "prepend"),
    ("indexOf", "lastIndexOf"))), []))
_NOT_REMOVED = frozenset(("case", "default", "using", "typedef", "struct", "class", "enum", "public", "private", "else", "do",
                          "if", "for", "while", "switch", "static", "const", "{", "}", ";"))
_NO_TYPES = frozenset(("emit", "delete", "return", "break", "continue", "new"))
_LEFT_ALONE = re.compile(r"\b(Q_OBJECT|Q_ASSERT\w*|assert|static_assert|Q_DISABLE_COPY|Q_STATIC_ASSERT)\b")


_LARGE = 100  # from here on one more is enough, without one less
_WITHOUT_SHIFTS = re.compile(r"debugMessage\(\)|qWarning\(\)|QStringList|getAll")


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    begin: int

    @property
    def end(self) -> int:
        return self.begin + len(self.text)


@dataclasses.dataclass(frozen=True)
class Mutant:
    """The text from begin to end of a file, and what takes its place."""
    file: str
    begin: int
    end: int
    new: str
    kind: str
    line: int  # the first, from 1
    old_lines: str  # the whole lines before, each without the blanks around it
    new_lines: str

    def applied(self, source: str) -> str:
        return source[:self.begin] + self.new + source[self.end:]


def tokens(source: str) -> list:
    return [Token(match.lastgroup, match.group(), match.start()) for match in _TOKEN.finditer(source)
            if match.lastgroup not in ("comment", "preprocessor")]


def mutants(file: str, source: str) -> list:
    """Every change of a source, in the order of the places."""
    code = tokens(source)
    found = {}
    for kind, begin, end, new in _changes(source, code):
        mutant = _mutant(file, source, kind, begin, end, new)
        is_shift = source[begin:end] in ("<<", ">>")
        if not _LEFT_ALONE.search(mutant.old_lines) and not (is_shift and _WITHOUT_SHIFTS.search(mutant.old_lines)):
            found.setdefault((begin, end, new), mutant)
    return sorted(found.values(), key=lambda mutant: (mutant.begin, mutant.end, mutant.new))


def _mutant(file: str, source: str, kind: str, begin: int, end: int, new: str) -> Mutant:
    first = source.rfind("\n", 0, begin) + 1
    last = source.find("\n", end)
    last = len(source) if last == -1 else last
    before, after = source[first:last], source[first:begin] + new + source[end:last]
    return Mutant(file, begin, end, new, kind, source.count("\n", 0, begin) + 1, _stripped(before), _stripped(after))


def _stripped(lines: str) -> str:
    return "\n".join(line.strip() for line in lines.split("\n")).strip()


def _changes(source: str, code: list) -> Iterator:
    inside = _in_functions(code)
    for i, token in enumerate(code):
        yield from _of_token(source, code, i)
        if inside[i]:
            yield from _of_condition(source, code, i)
            yield from _of_statement(source, code, i)


def _of_token(source: str, code: list, i: int) -> Iterator:
    token = code[i]
    if token.text in _OPPOSITES and code[i + 1].text == "(":
        yield "call", token.begin, token.end, _OPPOSITES[token.text]
    elif token.kind == "number":
        yield from (("constant", token.begin, token.end, new) for new in _other_numbers(token.text))
    elif token.kind == "character":
        yield "constant", token.begin, token.end, _other_character(token.text)
    elif token.kind == "string":
        yield from (("text", token.begin, token.end, new) for new in _other_texts(token.text))
    elif token.text in ("true", "false"):
        yield "constant", token.begin, token.end, "false" if token.text == "true" else "true"
    elif token.text in ("++", "--"):
        yield "arithmetic", token.begin, token.end, "--" if token.text == "++" else "++"
    elif token.text == "!":
        yield "negation", token.begin, token.end, ""
    elif token.text in _REPLACEMENTS and source[token.begin - 1:token.begin] in " \n" and source[token.end:token.end + 1] in " \n":
        kind = {"&&": "logical", "||": "logical"}.get(token.text, "boundary" if token.text[0] in "<>=!" and
                                                      token.text not in ("<<", ">>") else "arithmetic")
        yield from ((kind, token.begin, token.end, new) for new in _REPLACEMENTS[token.text])


def _other_numbers(text: str) -> Iterator[str]:
    digits = text.rstrip("uUlL") if not text[:2].lower() == "0x" else re.match("0[xX][0-9a-fA-F]+", text).group()
    suffix = text[len(digits):]
    if re.search(r"[.eE]", digits) and not digits[:2].lower() == "0x":
        yield f"({text} + 1)"
        yield "0.0" if float(digits) else "2.0"
        return
    value = int(digits, 16) if digits[:2].lower() == "0x" else int(digits, 10)
    for other in sorted({value + 1, value - 1 if value < _LARGE else 0, 0} - {value}):
        number = hex(other) if digits[:2].lower() == "0x" and other >= 0 else str(other)
        yield number + suffix if other >= 0 else f"({number})"


def _other_character(text: str) -> str:
    if text[1] == "\\":
        return "'#'" if text != "'#'" else "'+'"
    return "'" + ("b" if text[1] == "a" else chr(ord(text[1]) + 1).replace("'", "\"").replace("\\", "]")) + "'"


def _other_texts(text: str) -> Iterator[str]:
    inner = text[1:-1]
    if not inner:
        yield '"mutant"'
        return
    yield '""'
    last = re.search(r"(\\[0-7]{1,3}|\\x[0-9a-fA-F]+|\\.|.)$", inner).group()
    yield f'"{inner[:-len(last)]}{"#" if last != "#" else "+"}"'


def _of_condition(source: str, code: list, i: int) -> Iterator:
    token = code[i]
    if token.text in ("if", "while") and code[i + 1].text == "(":
        close = _closing(code, i + 1)
        yield from _other_conditions(source, code[i + 1].end, code[close].begin, "if" if token.text == "if" else "while")
    elif token.text == "?":
        first = _begin_of_condition(code, i)
        if first < i:
            yield from _other_conditions(source, code[first].begin, code[i - 1].end, "?")
    elif token.text in ("&&", "||"):
        yield from _operands_removed(code, i)


def _other_conditions(source: str, begin: int, end: int, where: str) -> Iterator:
    condition = source[begin:end]
    is_declaration = re.match(r"(const )?[A-Za-z_][\w:<> ]*[ *&]+\w+ = ", condition) is not None
    if is_declaration:
        return
    if not (condition.startswith("!") or _RELATION.search(condition)) or "&&" in condition or "||" in condition:
        yield "condition", begin, end, f"!({condition})"  # the others are turned round by their operator
    yield "condition", begin, end, "false"
    if where != "while":
        yield "condition", begin, end, "true"


def _operands_removed(code: list, i: int) -> Iterator:
    left, right = _begin_of_operand(code, i), _end_of_operand(code, i)
    if left < i:
        yield "operand", code[left].begin, code[i + 1].begin, ""
    if right > i:
        yield "operand", code[i - 1].end, code[right].end, ""


_RELATION = re.compile(r" [=!<>]=? ")
_ENDS_CONDITION = frozenset(("=", ",", ";", "{", "}", "return", "?", ":", "<<", "(", "[", "+=", "case"))
_ENDS_OPERAND = _ENDS_CONDITION | {"&&", "||"}


def _begin_of_condition(code: list, i: int) -> int:
    return _begin(code, i, _ENDS_CONDITION)


def _begin_of_operand(code: list, i: int) -> int:
    return _begin(code, i, _ENDS_OPERAND)


def _begin(code: list, i: int, ends: frozenset) -> int:
    depth = 0
    j = i - 1
    while j >= 0:
        text = code[j].text
        if depth == 0 and text in ends:
            return j + 1
        depth += (text in (")", "]")) - (text in ("(", "["))
        j -= 1
    return 0


def _end_of_operand(code: list, i: int) -> int:
    depth = 0
    j = i + 1
    while j < len(code):
        text = code[j].text
        if depth == 0 and (text in (")", "]", ";", ",", "?", ":", "&&", "||")):
            return j - 1
        depth += (text in ("(", "[")) - (text in (")", "]"))
        j += 1
    return i


def _of_statement(source: str, code: list, i: int) -> Iterator:
    if not _begins_statement(code, i) or code[i].text in _NOT_REMOVED or _declares(code, i):
        return
    end = _end_of_statement(code, i)
    if end is None or any(token.text == "{" for token in code[i:end]):
        return
    if code[i].text == "return" and code[i + 1].text != ";":
        yield from _other_results(source, code[i + 1].begin, code[end].begin)
        return
    # The lines stay as many as they were, for what counts them.
    removed = source[code[i].begin:code[end].begin]
    yield "statement", code[i].begin, code[end].begin, "\n" * removed.count("\n")


# Empty already, or a constant, which has changes of its own.
_NO_OTHER_RESULT = re.compile(r"[A-Z][\w:<> ]*\(\)|[\w:.]*(false|true|nullptr)|-?[0-9.]+|\{.*|\"\"|'.*")


def _other_results(source: str, begin: int, end: int) -> Iterator:
    if not _NO_OTHER_RESULT.fullmatch(source[begin:end]):
        yield "result", begin, end, "{}"


def _declares(code: list, i: int) -> bool:
    """Without a declaration nothing compiles."""
    if code[i].kind != "word" or code[i].text in _NO_TYPES:
        return False
    j = i + 1
    while code[j].text == "::" and code[j + 1].kind == "word":
        j += 2
    return code[j].kind == "word" or code[j].text in ("*", "&", "<")


def _begins_statement(code: list, i: int) -> bool:
    before = code[i - 1].text if i else "{"
    if before in ("{", "}", ";", "else"):
        return True
    if before == ":":
        return i >= 2 and (code[i - 2].text == "default" or any(token.text == "case" for token in code[max(0, i - 6):i - 1]))
    return before == ")" and _is_head(code, i - 1)


def _is_head(code: list, close: int) -> bool:
    """Whether this parenthesis closes the head of an if, for or while."""
    depth = 0
    for j in range(close, -1, -1):
        depth += (code[j].text == ")") - (code[j].text == "(")
        if depth == 0:
            return j > 0 and code[j - 1].text in ("if", "for", "while")
    return False


def _end_of_statement(code: list, i: int):
    depth = 0
    for j in range(i, len(code)):
        text = code[j].text
        if depth == 0 and text == ";":
            return j
        depth += (text in ("(", "[", "{")) - (text in (")", "]", "}"))
        if depth < 0:
            return None
    return None


def _closing(code: list, i: int) -> int:
    depth = 0
    for j in range(i, len(code)):
        depth += (code[j].text == "(") - (code[j].text == ")")
        if depth == 0:
            return j
    return len(code) - 1


def _in_functions(code: list) -> list:
    """For each token whether it is in the body of a function."""
    inside = []
    braces = []
    for i, token in enumerate(code):
        if token.text == "{":
            braces.append(bool(braces and braces[-1]) or _opens_body(code, i))
        inside.append(bool(braces and braces[-1]) and not _in_parentheses_of_for(code, i))
        if token.text == "}" and braces:
            braces.pop()
    return inside


def _opens_body(code: list, i: int) -> bool:
    before = [token.text for token in code[max(0, i - 80):i]]
    for text in reversed(before):
        if text in ("namespace", "class", "struct", "enum", "="):
            return False
        if text in (";", "}", "{"):
            return ")" in before
        if text == ")":
            return True
    return False


def _in_parentheses_of_for(code: list, i: int) -> bool:
    """The semicolons of a for end no statement."""
    depth = 0
    for j in range(i, max(-1, i - 60), -1):
        text = code[j].text
        if text in ("{", "}") and j != i:
            return False
        if text == "(" and j != i:
            depth -= 1
            if depth < 0:
                return j > 0 and code[j - 1].text == "for" and code[i].text != "for"
        elif text == ")" and j != i:
            depth += 1
    return False
