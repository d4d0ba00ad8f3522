"""Finds the places of a C++ source where one token can be changed so that the behaviour changes.

A light-weight scanner, not a parser: it knows comments, preprocessor lines, literals and operators.
A change that it proposes in the wrong place (a template's bracket, a pointer's star) does not
compile, and the caller draws another.
"""

import re
from dataclasses import dataclass

TOKEN = re.compile(r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ \t]*\#(?:[^\n\\]|\\.|\\\n)*)
  | (?P<raw>R"(?P<delimiter>[^(\s]*)\(.*?\)(?P=delimiter)")
  | (?P<string>(?:u8|u|U|L)?"(?:[^"\\\n]|\\.)*")
  | (?P<char>'(?:[^'\\\n]|\\.)+')
  | (?P<number>\b(?:0[xX][0-9a-fA-F']+|\d[\d']*)(?:\.\d+)?[uUlLfF]*\b)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<operator><<=|>>=|->|\+\+|--|&&|\|\||[-+*/%&|^=!<>]=|<<|>>|::|[-+*/%&|^=!<>?:;,.(){}\[\]~])
""", re.VERBOSE | re.MULTILINE | re.DOTALL)

OPERATOR_SWAPS = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "+": "-", "-": "+",
    "*": "+", "/": "*", "%": "*", "&&": "||", "||": "&&", "&": "|", "|": "&", "^": "&",
    "<<": ">>", ">>": "<<", "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=", "++": "--",
    "--": "++", "<<=": ">>=", ">>=": "<<=", "!": "",
}
# Also brackets of templates, stars of pointers and marks of references, unless blanks surround them.
AMBIGUOUS = {"<", ">", "*", "&", "&&"}
WORD_SWAPS = {"true": "false", "false": "true", "break": "", "continue": "break"}
# Words that begin a statement which is no call, or a call that cannot be left out.
NO_CALL = {"return", "if", "for", "while", "switch", "do", "else", "case", "default", "delete",
           "new", "throw", "using", "typedef", "static_assert", "goto", "namespace", "template",
           "class", "struct", "enum", "extern", "operator", "sizeof", "try", "catch"}


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int

    @property
    def end(self):
        return self.start + len(self.text)


@dataclass(frozen=True)
class Place:
    """One change: bytes [start, end) of the text become `new`."""
    kind: str
    start: int
    end: int
    new: str

    def apply(self, text):
        return text[:self.start] + self.new + text[self.end:]

    def line(self, text):
        return text.count("\n", 0, self.start) + 1


def tokens_of(text):
    return [Token(match.lastgroup if match.lastgroup != "delimiter" else "raw", match[0],
                  match.start())
            for match in TOKEN.finditer(text)
            if match.lastgroup not in ("comment", "directive")]


def is_binary(text, token):
    """Whether the layout (blanks on both sides) says that an operator stands between operands."""
    return text[token.start - 1:token.start].isspace() and text[token.end:token.end + 1].isspace()


def other_number(token, choice):
    """The number one above or below, in the same notation; None for what is no plain integer."""
    match = re.fullmatch(r"(0[xX][0-9a-fA-F']+|\d[\d']*)([uUlL]*)", token)
    if not match:
        return None
    digits = match[1].replace("'", "")
    base = 16 if digits[:2].lower() == "0x" else 8 if len(digits) > 1 and digits[0] == "0" else 10
    try:
        value = int(digits, base)
    except ValueError:
        return None
    value = value + 1 if value == 0 or choice else value - 1
    text = f"0x{value:0{len(digits) - 2}X}" if base == 16 else str(value)
    return text + match[2]


def other_string(token):
    """A text with one character changed; an empty one gets one."""
    start = token.index('"') + 1
    body = token[start:-1]
    # The last letter or digit that belongs to no escape sequence and no conversion.
    plain = [m.start() for m in re.finditer(r"\\.|%[-+ #0-9.l]*[a-zA-Z]|[A-Za-z0-9]", body)
             if len(m[0]) == 1]
    if not plain:
        return token[:start] + body + 'x"'
    at = start + plain[-1]
    return token[:at] + ("x" if token[at] != "x" else "y") + token[at + 1:]


def other_char(token):
    body = token[1:-1]
    if len(body) != 1:
        return None
    return "'x'" if body != "x" else "'y'"


def closing(tokens, index):
    """Index of the bracket that closes tokens[index], or None."""
    pairs = {"(": ")", "{": "}", "[": "]"}
    depth = 0
    for i in range(index, len(tokens)):
        if tokens[i].text in pairs:
            depth += 1
        elif tokens[i].text in pairs.values():
            depth -= 1
            if depth == 0:
                return i
    return None


def negated_condition(tokens, index):
    """`if (X)` -> `if (!(X))`, the same for while."""
    if tokens[index].text not in ("if", "while") or index + 1 >= len(tokens):
        return None
    if tokens[index + 1].text != "(":
        return None
    end = closing(tokens, index + 1)
    if end is None or any(t.text == ";" for t in tokens[index + 1:end]):
        return None
    return tokens[index + 1].start, tokens[end].end


def left_out_call(tokens, index):
    """The span of a call statement (`object->name(...)`) without its semicolon, or None."""
    if index and tokens[index - 1].text not in (";", "{", "}"):
        return None
    first = tokens[index]
    if first.kind != "word" or first.text in NO_CALL:
        return None
    i = index
    while i < len(tokens) and (tokens[i].kind == "word" or tokens[i].text in ("::", ".", "->")):
        # Two words in a row declare something.
        if i > index and tokens[i].kind == tokens[i - 1].kind == "word":
            return None
        i += 1
    if i >= len(tokens) or tokens[i].text != "(":
        return None
    end = closing(tokens, i)
    if end is None or end + 1 >= len(tokens) or tokens[end + 1].text != ";":
        return None
    return first.start, tokens[end].end


def places(text, random):
    """All places of `text`, in order. `random` (a random.Random) chooses between +1 and -1."""
    tokens = tokens_of(text)
    found = []

    def add(kind, token, new):
        if new is not None and new != token.text:
            found.append(Place(kind, token.start, token.end, new))

    for i, token in enumerate(tokens):
        if token.kind == "operator" and token.text in OPERATOR_SWAPS:
            if token.text in AMBIGUOUS and not is_binary(text, token):
                continue
            add("operator", token, OPERATOR_SWAPS[token.text])
        elif token.kind == "number":
            add("constant", token, other_number(token.text, random.random() < 0.5))
        elif token.kind == "string" and (i == 0 or tokens[i - 1].text != "extern"):
            add("text", token, other_string(token.text))
        elif token.kind == "char":
            add("constant", token, other_char(token.text))
        elif token.kind == "word":
            if token.text in WORD_SWAPS:
                add("word", token, WORD_SWAPS[token.text])
            span = negated_condition(tokens, i)
            if span:
                found.append(Place("condition", span[0], span[1],
                                   f"(!{text[span[0]:span[1]]})"))
            span = left_out_call(tokens, i)
            if span:
                found.append(Place("call", span[0], span[1], ""))
    return found
