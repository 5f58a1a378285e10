"""Where a fault can be planted in a C++ source, and how: read from its tokens, without a compiler.

What comes out must not always compile, only nearly always: whoever plants the faults leaves out those that do not. The
sources are formatted by clang-format, so that blanks tell `a < b` from `Task<void>`.
"""

import re
from dataclasses import dataclass

_TOKEN = re.compile(r"""
    (?P<skipped>\s+|//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*)
  | (?P<string>"(?:[^"\\\n]|\\.)*")
  | (?P<character>'(?:[^'\\\n]|\\.)+')
  | (?P<number>(?:0x[0-9A-Fa-f]+|\d+(?:\.\d+)?)[uUlLfFzZ]*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<sign><=>|->\*?|::|\+\+|--|<<=|>>=|<<|[-+*/%&|^=!<>]=|&&|\|\||\.\.\.|.)
""", re.VERBOSE | re.DOTALL | re.MULTILINE)

_INSTEAD = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&", "+": "-", "-": "+",
    "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "<<": ">>", "+=": "-=", "-=": "+=",
}
_OPENING, _CLOSING = "([{", ")]}"
# What a statement begins with that says something and does nothing.
_NO_DEED = {"const", "constexpr", "static", "auto", "using", "struct", "class", "enum", "typename", "static_assert",
            "friend", "goto"}
_ENDING = {"return", "co_return", "throw", "break", "continue"}


@dataclass(frozen=True)
class Fault:
    """Put `text` in the place of the source's characters from `start` to `end`."""

    start: int
    end: int
    text: str
    name: str  # what it does, in words
    line: str  # the line it begins in, without the blanks at its ends
    number: int  # of that line
    count: int = 1  # it is the count-th of this name on such a line

    def planted_in(self, source):
        return source[:self.start] + self.text + source[self.end:]


def enums_in(source):
    """{name: its values in order}"""
    code = re.sub(r"//[^\n]*", "", source)
    return {name: re.findall(r"(\w+)\s*(?:=[^,]*)?(?:,|$)", values.strip())
            for name, values in re.findall(r"\benum class (\w+)[^{;]*\{([^}]*)\}", code)}


def faults_in(source, enums):
    """In the order of the source, each of its own."""
    tokens = _tokens(source)
    found = [*_of_tokens(source, tokens, enums), *_Statements(source, tokens).faults]
    known, faults = {}, []
    for start, end, text, name in sorted(found):
        line_start = source.rfind("\n", 0, start) + 1
        line = source[line_start:source.find("\n", line_start)].strip()
        count = known[line, name] = known.get((line, name), 0) + 1
        faults.append(Fault(start, end, text, name, line, source.count("\n", 0, start) + 1, count))
    return faults


@dataclass
class _Token:
    kind: str
    text: str
    start: int
    end: int
    partner: int = -1  # of a bracket: the index of the one that closes or opens it
    spaced: bool = False  # blanks on both sides

    def __eq__(self, text):
        return self.kind in ("sign", "word") and self.text == text


def _tokens(source):
    tokens, opened = [], []
    for match in _TOKEN.finditer(source):
        if match.lastgroup == "skipped":
            continue
        token = _Token(match.lastgroup, match.group(), match.start(), match.end())
        around = source[max(0, token.start - 1):token.start] + source[token.end:token.end + 1]
        token.spaced = around.isspace() and len(around) == 2
        if token.kind == "sign" and token.text in _OPENING:
            opened.append(len(tokens))
        elif token.kind == "sign" and token.text in _CLOSING:
            token.partner = opened.pop()
            tokens[token.partner].partner = len(tokens)
        tokens.append(token)
    return tokens


def _of_tokens(source, tokens, enums):
    for at, token in enumerate(tokens):
        before = tokens[at - 1] if at else _Token("sign", ";", 0, 0)
        after = tokens[at + 1] if at + 1 < len(tokens) else _Token("sign", ";", 0, 0)
        instead = None
        if token.kind == "sign":
            if token.text in _INSTEAD and token.spaced and before != "operator" and before != "template":
                # Texts and paths know `+` and `/` alone.
                if "string" not in (before.kind, after.kind) or token.text not in "+/":
                    instead = _INSTEAD[token.text]
            elif token.text in ("++", "--") and before != "operator":
                instead = "--" if token == "++" else "++"
            elif token == "!":
                yield token.start, token.end, "", "`!` is left out"
            elif token == "?":
                start, end = _condition_before(tokens, at)
                yield from _negation(source, tokens[start:end + 1])
        elif token.kind == "number":
            if not (before == "=" and any(tokens[at - 2] == word for word in (")", "const", "noexcept"))):
                yield token.start, token.end, _one_more(token.text), f"`{token.text}` becomes one more"
        elif token.kind == "string" and not (after == ")" and tokens[after.partner - 1] == "static_assert"):
            changed = token.text[:-1] + '~"'
            yield token.start, token.end, changed, f"{token.text} becomes {changed}"
        elif token.kind == "character":
            instead = "'~'" if token.text != "'~'" else "'#'"
        elif token.text in ("true", "false"):
            instead = "false" if token == "true" else "true"
        elif token.text in ("if", "while") and after == "(":
            condition = tokens[at + 2:after.partner]
            if not any(part == "=" or part == ";" for part in condition):
                yield from _negation(source, condition)
        elif token.text in enums and after == "::" and at + 2 < len(tokens):
            values, value = enums[token.text], tokens[at + 2]
            if value.text in values and len(values) > 1 and not _is_case(tokens, at):
                other = values[(values.index(value.text) + 1) % len(values)]
                yield value.start, value.end, other, f"`{value.text}` becomes `{other}`"
        if instead is not None:
            yield token.start, token.end, instead, f"`{token.text}` becomes `{instead}`"


def _negation(source, condition):
    """None where another fault does the same: a lone `!` is left out, a lone `==` becomes `!=`."""
    signs = {token.text for token in condition if token.kind == "sign"}
    if signs & {"&&", "||"} or not (condition[0] == "!" or signs & {"==", "!="}):
        start, end = condition[0].start, condition[-1].end
        yield start, end, f"!({source[start:end]})", "the condition is negated"


def _condition_before(tokens, question):
    """The first and the last token of the condition that ends before the question mark."""
    at = question - 1
    while at > 0:
        token = tokens[at]
        if token.kind == "sign" and token.text in _CLOSING:
            at = token.partner
        elif token.kind == "sign" and token.text in ("(", "[", "{", "}", ";", ",", "=", "+=", "-=", "?", ":"):
            break
        elif token == "return" or token == "co_return":
            break
        at -= 1
    return at + 1, question - 1


def _is_case(tokens, at):
    while at > 0 and (tokens[at - 1] == "::" or tokens[at - 1].kind == "word"):
        at -= 1
        if tokens[at] == "case":
            return True
    return False


def _one_more(number):
    digits = re.match(r"0x[0-9A-Fa-f]+|\d+", number).group()
    if digits.startswith("0x"):
        return f"0x{int(digits, 16) + 1:0{len(digits) - 2}X}{number[len(digits):]}"
    return f"{int(digits) + 1}{number[len(digits):]}"


class _Statements:
    """Walks through the bodies of functions; every statement that does something can be left out."""

    def __init__(self, source, tokens):
        self._source, self._tokens = source, tokens
        self.faults = []
        at = 0
        while at < len(tokens):
            at = self._block(at) if tokens[at] == "{" and self._opens_function(at) else at + 1

    def _opens_function(self, at):
        if not self._source[self._tokens[at].start - 1].isspace():
            return False
        if any(self._tokens[at - 1] == sign for sign in ("=", "(", ",", "return")):
            return False
        while at > 0:
            at -= 1
            token = self._tokens[at]
            if token == ")":
                return True
            if any(token == sign for sign in (";", "{", "}")):
                return False
        return False

    def _opens_lambda(self, at):
        if not self._source[self._tokens[at].start - 1].isspace():
            return False
        before = self._tokens[at - 1]
        if any(before == sign for sign in ("]", ")", "mutable", "noexcept")):
            return True
        return any(token == "->" for token in self._tokens[max(0, at - 10):at]) and (before.kind == "word" or
                                                                                   before == ">")

    def _block(self, at):
        """From an opening brace to behind the one that closes it."""
        closing = self._tokens[at].partner
        at += 1
        while at < closing:
            at = self._statement(at, False)
        return closing + 1

    def _behind_brackets(self, at):
        return self._tokens[at].partner + 1

    def _statement(self, at, chosen):
        """`chosen`: only an if decides that it runs, so that the function goes on without it."""
        token = self._tokens[at]
        if token == "{":
            closing = token.partner
            at += 1
            while at < closing:
                at = self._statement(at, chosen)
            return closing + 1
        if token == "if":
            at += 1
            if self._tokens[at] == "constexpr":
                at += 1
            at = self._statement(self._behind_brackets(at), True)
            if at < len(self._tokens) and self._tokens[at] == "else":
                at = self._statement(at + 1, chosen)
            return at
        if token == "for" or token == "while" or token == "switch" or token == "catch":
            return self._statement(self._behind_brackets(at + 1), token == "switch")
        if token == "try" or token == "do":
            return self._statement(at + 1, False)
        if token == "case" or token == "default":
            while self._tokens[at] != ":":
                at += 1
            return at + 1
        return self._simple(at, chosen)

    def _simple(self, at, chosen):
        start = at
        while self._tokens[at] != ";":
            token = self._tokens[at]
            if token == "}":
                return at + 1
            if token == "{" and self._opens_lambda(at):
                at = self._block(at)
            elif any(token == sign for sign in _OPENING):
                at = self._inside(at)
            else:
                at += 1
        if self._does_something(start, chosen):
            words = {"return": "the return", "co_return": "the return", "throw": "the throw", "break": "the break",
                     "continue": "the continue"}
            what = words.get(self._tokens[start].text, "the statement")
            self.faults.append((self._tokens[start].start, self._tokens[at].end, ";", f"{what} is left out"))
        return at + 1

    def _inside(self, at):
        """From a bracket to behind its partner; lambdas in it have statements."""
        closing = self._tokens[at].partner
        at += 1
        while at < closing:
            at = self._block(at) if self._tokens[at] == "{" and self._opens_lambda(at) else at + 1
        return closing + 1

    def _does_something(self, at, chosen):
        token = self._tokens[at]
        if token == ";" or token.text in _NO_DEED:
            return False
        if token == "break" and self._tokens[at + 2] == "}":
            return False  # the last of its switch
        if token.text in _ENDING:
            return chosen
        return not self._declares(at)

    def _declares(self, at):
        """Whether it begins with a type and a name."""
        while self._tokens[at].kind == "word" and self._tokens[at].text not in ("co_await", "delete", "throw"):
            at += 1
            if self._tokens[at] == "<":
                depth = 1
                while depth:
                    at += 1
                    depth += (self._tokens[at] == "<") - (self._tokens[at] == ">")
                at += 1
            if self._tokens[at] == "::":
                at += 1
                continue
            while any(self._tokens[at] == sign for sign in ("&", "*", "&&")) and not self._tokens[at].spaced:
                at += 1
            return self._tokens[at].kind == "word"
        return False
