"""The small faults that can be put into a C++ source file: where, and what would stand there instead.

A site is found by the shape of the source alone; whether a mutant compiles is seen when it is compiled.
"""
import collections
import re

from cpp_tokens import Source

# Stands for the text between two offsets of a file: `text` is what the mutant has there.
Mutant = collections.namedtuple("Mutant", "path line column kind start end text old")

KINDS = {
    "drop": "a statement is left out",
    "exit": "an early return, break or continue is left out",
    "skip": "a call whose result code is returned is left out",
    "guard": "a variable that only lives (a lock, a scope guard) is left out",
    "negate": "a condition is turned round",
    "logic": "&& for ||, & for |, true for false, FAILED for SUCCEEDED, and the other way",
    "bound": "< for <=, > for >=, a number one more, + 1 and - 1 left out",
    "code": "another result code",
    "order": "two statements change places",
    "trace": "a failure isn't traced on its way",
    "ignore": "a step's failure is ignored",
}

_NOT_EXPRESSIONS = {
    "using", "typedef", "static_assert", "class", "struct", "enum", "union", "goto", "friend", "template",
    "namespace", "public", "private", "protected", "if", "while", "for", "switch", "do", "try", "else", "catch",
    "case", "default", "{"}
_DECLARATION_STARTS = {"const", "constexpr", "static", "auto", "volatile", "unsigned", "signed", "thread_local"}
_EXITS = {"return", "break", "continue", "throw"}
_SWAPPED = {
    "<": ("bound", "<="), "<=": ("bound", "<"), ">": ("bound", ">="), ">=": ("bound", ">"),
    "==": ("negate", "!="), "!=": ("negate", "=="), "&&": ("logic", "||"), "||": ("logic", "&&"),
    "&": ("logic", "|"), "|": ("logic", "&"),
    "true": ("logic", "false"), "false": ("logic", "true"),
    "FAILED": ("logic", "SUCCEEDED"), "SUCCEEDED": ("logic", "FAILED")}
_CODE = re.compile(r"(?:E|[A-Z]+_[EW])_[A-Z][A-Z0-9_]*$")
_CAST = re.compile(r"\w+_cast<[^;]*?>\(|sizeof\b\s*\(?")
_CALL = re.compile(r"[\w>\]]\s*\(")
_COUNTING = {"+", "-", "<", ">", "<=", ">=", "==", "!=", "[", "]", "=", "+=", "-="}
_MOST_SHIFTED = 64
_LONGEST_SHOWN = 100


def _short(text):
    text = " ".join(text.split())
    return text if len(text) <= _LONGEST_SHOWN else text[:_LONGEST_SHOWN - 3] + "..."


def describe(mutant):
    """One line: where the mutant is, and what it changes."""
    change = f"{_short(mutant.old)}  ->  {_short(mutant.text)}" if mutant.text else _short(mutant.old)
    return f"{mutant.path}:{mutant.line}:{mutant.column}: {mutant.kind}: {change}"


def apply(text, mutant):
    """The file's text with the fault in it."""
    return text[:mutant.start] + mutant.text + text[mutant.end:]


def find(path, text):
    """All mutants of a file, in the order of their places."""
    found = _Finder(path, text).find()
    return sorted(set(found), key=lambda mutant: (mutant.start, mutant.end, mutant.kind, mutant.text))


class _Finder:
    def __init__(self, path, text):
        self.path = path
        self.source = Source(text)
        self.openings = {end: begin for begin, end in self.source.closing.items()}
        self.found = []
        self.negated = set()
        self.returns_code = False

    def find(self):
        for brace in self.source.blocks():
            self.returns_code = "HRESULT" in self._head(brace)
            self._block(brace)
            inside = range(brace + 1, self.source.closing[brace])
            for number in inside:
                if self.source.word(number) == "?":
                    self._choice(number)
            for number in inside:
                self._token(number)
        return self.found

    def _head(self, brace):
        """What stands in front of the body of a function, back to the end of what is before it."""
        first = brace
        while first > 0 and self.source.word(first - 1) not in (";", "}", "{", ":"):
            first = self.openings.get(first - 1, first - 1)
        return self.source.span(first, brace)

    def _add(self, kind, first, last, text):
        old = self.source.span(first, last)
        tokens = self.source.tokens
        line, column = self.source.place(first)
        self.found.append(Mutant(self.path, line, column, kind, tokens[first].start, tokens[last].end, text, old))

    # Statements. Each of these takes the number of a token and gives that behind the statement.

    def _block(self, brace, within=None):
        end = self.source.closing[brace]
        number = brace + 1
        before = None
        while number < end:
            after = self._statement(number, end, within, brace)
            plain = self._is_expression(number, after - 1)
            if before and plain:
                self._swap(before, (number, after - 1))
            before = (number, after - 1) if plain else None
            number = after
        return end + 1

    def _statement(self, number, end, within, block):
        word = self.source.word(number)
        if word == "{":
            return self._block(number, within)
        if word in ("if", "while", "for", "switch", "catch"):
            return self._controlled(number, end, block)
        if word in ("else", "do", "try"):
            return self._statement(number + 1, end, "else" if word == "else" else within, block)
        if word in ("case", "default") or self.source.word(number + 1) == ":":
            while self.source.word(number) != ":":
                number += 1
            return number + 1
        return self._simple(number, end, within, block)

    def _controlled(self, number, end, block):
        word = self.source.word(number)
        head = number + 1
        if self.source.word(head) == "constexpr":
            return self._statement(self.source.closing[head + 1] + 1, end, None, block)
        close = self.source.closing[head]
        if word in ("if", "while"):
            self._condition(head, close)
        for brace in self.source.blocks_between(head, close):
            self._block(brace)
        return self._statement(close + 1, end, word, block)

    def _condition(self, head, close):
        first = head + 1
        for number in range(head + 1, close):
            if self.source.word(number) == ";":
                first = number + 1
        declares = any(self.source.word(number) == "=" for number in range(first, close))
        if not declares:
            self._negate(first, close - 1)

    def _negate(self, first, last):
        """Turns a condition round. The one comparison that a condition consists of isn't turned round once more."""
        self._add("negate", first, last, f"!({self.source.span(first, last)})")
        outer, number = [], first
        while number <= last:
            outer.append(number)
            number = self.source.closing.get(number, number) + 1
        if not {"&&", "||"} & {self.source.word(number) for number in outer}:
            self.negated.update(number for number in outer
                                if self.source.word(number) in ("==", "!=", "FAILED", "SUCCEEDED", "true", "false"))

    def _simple(self, number, end, within, block):
        last = number
        while last < end and self.source.word(last) != ";":
            last = self.source.closing.get(last, last) + 1
        if last >= end:
            return end
        for brace in self.source.blocks_between(number, last):
            self._block(brace)
        word = self.source.word(number)
        if word in _EXITS:
            # What ends a switch may end its function, which has to return something.
            ends_switch = within == "switch" and self.source.word(last + 1) == "}"
            if within in ("if", "while", "for", "switch") and not ends_switch:
                self._add("exit", number, last, ";")
            calls = "(" in self.source.span(number, last)
            if word == "return" and self.returns_code and calls and not _CODE.match(self.source.word(last - 2)):
                self._add("skip", number, last, "return S_OK;")
        elif self._is_expression(number, last):
            self._add("drop", number, last, ";")
            self._step(number, last)
        elif self._only_lives(number, last, block):
            self._add("guard", number, last, ";")
        return last + 1

    def _is_expression(self, first, last):
        """Whether a statement is an expression with an effect; not a declaration, and no jump."""
        word = self.source.word(first)
        if first >= last or self.source.word(last) != ";" or word in _NOT_EXPRESSIONS or word in _EXITS:
            return False
        return not self._declared_name(first, last)

    def _declared_name(self, first, last):
        """The number of the token that a declaration names; None when the statement is an expression."""
        number, words = first, 0
        if self.source.word(first) == "delete":
            return None
        certain = self.source.word(first) in _DECLARATION_STARTS
        while number < last:
            token = self.source.tokens[number]
            following = self.source.word(number + 1)
            if token.kind == "name":
                words += 1
                if words > 1 and (following in ("(", "{", "=", ";", "[", ",") or certain and following == ")"):
                    return number
                if following == "::":
                    words -= 1
                    number += 1
            elif token.text == "<":
                number = self._end_of_arguments(number, last)
                if number is None:
                    return None
            elif token.text == "[" and certain:
                return number + 1
            elif token.text not in ("*", "&", "&&", "const") or words == 0:
                return None
            number += 1
        return None

    def _end_of_arguments(self, number, last):
        depth = 0
        for place in range(number, last):
            word = self.source.word(place)
            depth += {"<": 1, ">": -1, ">>": -2}.get(word, 0)
            if depth <= 0:
                return place
        return None

    def _only_lives(self, first, last, block):
        name = self._declared_name(first, last)
        if name is None or self.source.word(name + 1) not in ("(", "{", "="):
            return False
        used = range(last + 1, self.source.closing[block])
        return all(self.source.word(number) != self.source.word(name) for number in used)

    def _step(self, first, last):
        """HR_TRY(traced, f()): the failure passes untraced, or doesn't end the function."""
        if self.source.word(first) not in ("HR_TRY", "HR_TRY_QUIET", "QV_RETURN_IF_FAILED", "CFB_TRY"):
            return
        argument = first + 2
        if self.source.word(first) == "HR_TRY":
            while self.source.word(argument) != ",":
                argument = self.source.closing.get(argument, argument) + 1
            argument += 1
            self._add("trace", first, last, f"HR_TRY_QUIET({self.source.span(argument, last - 2)});")
        self._add("ignore", first, last, f"static_cast<void>({self.source.span(argument, last - 2)});")

    def _swap(self, one, other):
        tokens = self.source.tokens
        first, second = self.source.span(*one), self.source.span(*other)
        if first == second or self._are_independent(first, second):
            return
        between = self.source.text[tokens[one[1]].end:tokens[other[0]].start]
        self._add("order", one[0], other[1], second + between + first)

    @staticmethod
    def _are_independent(first, second):
        """Whether two statements call nothing, and neither mentions what the other one sets."""
        def target(statement):
            return re.split(r"[-+*/%&|^]?=(?!=)|\+\+|--|;", statement.strip("+-*(; "))[0].strip()

        calls = any(_CALL.search(_CAST.sub("", statement)) for statement in (first, second))
        return not calls and target(first) not in second and target(second) not in first

    # Single tokens.

    def _token(self, number):
        token = self.source.tokens[number]
        if token.text in _SWAPPED:
            self._swap_token(number)
        elif token.kind == "number":
            self._shift(number)
        elif token.kind == "name":
            self._name(number)

    def _swap_token(self, number):
        if number in self.negated:
            return
        kind, text = _SWAPPED[self.source.word(number)]
        if self.source.tokens[number].kind == "sign":
            before, after = self.source.tokens[number - 1], self.source.tokens[number + 1]
            spaced = before.end < self.source.tokens[number].start and after.start > self.source.tokens[number].end
            if not spaced or self._names_type(number):
                return
        self._add(kind, number, number, text)

    def _names_type(self, number):
        """`Type&& name` is spelt with the space on one side only; `template <` stands in front of a list."""
        return self.source.word(number - 1) in ("template", "operator")

    def _shift(self, number):
        text = self.source.word(number)
        before, after = self.source.word(number - 1), self.source.word(number + 1)
        if not text.isdigit() or int(text) > _MOST_SHIFTED or not {before, after} & _COUNTING:
            return
        if text == "1" and before in ("+", "-"):
            self._add("bound", number - 1, number, f"{before} 0")
        else:
            self._add("bound", number, number, str(int(text) + 1))

    def _name(self, number):
        word = self.source.word(number)
        if _CODE.match(word):
            self._add("code", number, number, "E_UNEXPECTED" if word == "E_FAIL" else "E_FAIL")
        elif word == "S_OK" and self.source.word(number - 1) == "return":
            self._add("code", number, number, "E_FAIL")
        elif word == "traced" and self.source.word(number + 1) == "(":
            self._add("trace", number, number, "")

    def _choice(self, number):
        first = number
        while self.source.word(first - 1) not in ("=", "return", "(", ",", ";", "{", "?", ":", "+=", "|=", "<<", "["):
            first = self.openings.get(first - 1, first - 1)
        if first < number:
            self._negate(first, number - 1)
