"""C++ source as a list of tokens, with the bracket that closes each bracket and the blocks that hold statements."""
import bisect
import collections
import re

Token = collections.namedtuple("Token", "kind text start end")

_PATTERN = re.compile(
    r"""(?P<space>\s+|//[^\n]*|/\*.*?\*/)
      |(?P<directive>^[ \t]*\#(?:\\\n|[^\n])*)
      |(?P<text>(?:u8|[uUL])?R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|(?:u8|[uUL])?"(?:\\.|[^"\\\n])*"|[uUL]?'(?:\\.|[^'\\\n])*')
      |(?P<number>\.?\d(?:[eEpP][+-]|'\w|[\w.])*)
      |(?P<name>[A-Za-z_]\w*)
      |(?P<sign><<=|>>=|<=>|->\*|\.\.\.|::|->|\+\+|--|<<|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)""",
    re.VERBOSE | re.DOTALL | re.MULTILINE)

_CLOSERS = {"(": ")", "[": "]", "{": "}"}
_BEFORE_BODY = {"const", "noexcept", "override", "final", "mutable", "else", "do", "try"}
_TYPE_WORDS = {"class", "struct", "union", "enum"}


class Source:
    """A source file. Tokens are numbered; `closing` gives for an opening bracket the number of its end."""

    def __init__(self, text):
        self.text = text
        self.tokens = []
        for match in _PATTERN.finditer(text):
            if match.lastgroup not in ("space", "directive"):
                kind = "text" if match.lastgroup == "mark" else match.lastgroup
                self.tokens.append(Token(kind, match.group(), match.start(), match.end()))
        self._lines = [0] + [match.end() for match in re.finditer("\n", text)]
        self.closing = {}
        self._pair_brackets()

    def place(self, number):
        """The line and the column, from 1, in which a token begins."""
        start = self.tokens[number].start
        line = bisect.bisect_right(self._lines, start)
        return line, start - self._lines[line - 1] + 1

    def word(self, number):
        return self.tokens[number].text if 0 <= number < len(self.tokens) else ""

    def span(self, first, last):
        """The text from one token to another, both included."""
        return self.text[self.tokens[first].start:self.tokens[last].end]

    def blocks(self):
        """The numbers of the braces that open the body of a function or of a lambda, outermost only."""
        number = 0
        while number < len(self.tokens):
            if self.word(number) == "{" and self._opens_block(number):
                yield number
                number = self.closing[number]
            number += 1

    def blocks_between(self, first, last):
        """The bodies of lambdas in an expression, outermost only."""
        number = first
        while number <= last:
            if self.word(number) == "{" and self._opens_block(number):
                yield number
                number = self.closing[number]
            number += 1

    def _pair_brackets(self):
        open_ = []
        for number, token in enumerate(self.tokens):
            if token.kind != "sign":
                continue
            if token.text in _CLOSERS:
                open_.append(number)
            elif token.text in _CLOSERS.values():
                if not open_ or _CLOSERS[self.word(open_[-1])] != token.text:
                    raise ValueError(f"unpaired bracket in line {self.place(number)[0]}")
                self.closing[open_.pop()] = number
        if open_:
            raise ValueError(f"unpaired bracket in line {self.place(open_[-1])[0]}")

    def _opens_block(self, brace):
        before = self.word(brace - 1)
        if before in _BEFORE_BODY or before in (")", "]"):
            return not self._heads_type(brace)
        return self._ends_return_type(brace)

    def _heads_type(self, brace):
        """Whether `class X : public Base(...) {` and the like stands in front of a brace."""
        number = brace - 1
        while number >= 0 and self.word(number) not in (";", "{", "}"):
            number -= 1
        return self.word(number + 1) in _TYPE_WORDS and "(" not in self.span(number + 1, brace)

    def _ends_return_type(self, brace):
        """Whether `) -> Type {` stands in front of a brace."""
        for number in range(brace - 1, max(brace - 12, 0), -1):
            if self.word(number) == "->":
                return self.word(number - 1) in (")", "]", "noexcept", "mutable")
            if self.word(number) in (";", "{", "}", "(", "=", "return"):
                return False
        return False
