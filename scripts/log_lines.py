"""What the sources can print: their string literals, and whether a quoted line can come of one."""

import re

LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
JOINT = re.compile(r'"[ \t]*\n[ \t]*"')  # one literal in two lines
ESCAPE = re.compile(r"\\(?:[rnt]|0?33|(.))")
CONVERSION = re.compile(r"%[-0-9.l]*([duxXsc])")
PRINTED = {"d": r"[-0-9]", "u": r"[0-9]", "x": r"[0-9a-f]", "X": r"[0-9A-F]", "s": r"[^\[\]]", "c": "."}
LARGEST_FILLED_IN = 0.75  # share of a quotation that conversions may stand for


def literals(source):
    """Each as a list of characters and of patterns of a character (of a conversion)."""
    for text in LITERAL.findall(JOINT.sub("", source)):
        text = ESCAPE.sub(lambda match: match[1] or "", text)
        pieces = CONVERSION.split(text)  # text, letter, text, letter, text
        yield [token for index, piece in enumerate(pieces)
               for token in ([re.compile(PRINTED[piece])] if index % 2 else list(piece))]


def could_print(literal, quotation):
    """Whether `quotation` can be a part of what this literal becomes."""
    fits = {start: 0 for start in range(len(literal))}  # next token: characters that are the same
    for character in quotation:
        following = {}
        for at, same in fits.items():
            token = literal[at] if at < len(literal) else None
            if token == character:
                following[at + 1] = max(following.get(at + 1, 0), same + 1)
            elif isinstance(token, re.Pattern) and token.match(character):
                for then in (at, at + 1):
                    following[then] = max(following.get(then, 0), same)
        fits = following
    return any(same >= len(quotation) * (1 - LARGEST_FILLED_IN) for same in fits.values())
