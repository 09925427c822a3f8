"""Many mutants in one text: each behind a switch that a variable of the environment throws when the program runs."""
import collections

from cpp_tokens import Source

# What a mutant's switch has to stand around: an expression, or one or more statements. Offsets into the file.
_Frame = collections.namedtuple("_Frame", "start end statements number mutant")

# A switch in the text that `switched` gives: whose it is, and where.
Place = collections.namedtuple("Place", "number start end")

_STATEMENT_KINDS = {"drop", "exit", "skip", "guard", "order", "ignore"}
_ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>="}
# They bind less than whatever is mutated within an expression.
_ENDS_OF_EXPRESSION = {"(", ")", "[", "]", "{", "}", ",", ";", "?", ":", "return", "case", "throw"} | _ASSIGNMENTS
_HEADS = {"if", "while", "for", "switch", "catch"}
_NO_INITIALISER = {"else", "do", "try", "const", "noexcept", "override", "mutable"}

# The variable that names the mutant which is on; the other one names a file with a byte for each mutant, which is set
# when the place is reached. By plain system calls: some tests stand in front of the library's.
HEADER = """#pragma once
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
namespace quorvane_mutants {
struct State {
    long on = 0;
    char* reached = nullptr;
    State() noexcept
    {
        if (const char* const number = std::getenv("QUORVANE_MUTANT"))
            on = std::atol(number);
        const char* const path = std::getenv("QUORVANE_MUTANTS_REACHED");
        const long file = path ? ::syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC) : -1;
        if (file < 0)
            return;
        const long size = ::syscall(SYS_lseek, file, 0, SEEK_END);
        const long map = ::syscall(SYS_mmap, nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        reached = map == -1 ? nullptr : reinterpret_cast<char*>(map);
        ::syscall(SYS_close, file);
    }
};
}
inline bool QuorvaneMutant(long number) noexcept
{
    static const quorvane_mutants::State state;
    if (state.reached)
        state.reached[number] = 1;
    return state.on == number;
}
"""


def switched(text, numbered):
    """The text with all of a file's mutants in it, given with their numbers; and where each switch is."""
    source = Source(text)
    frames = [_frame(source, number, mutant) for number, mutant in numbered]
    writer = _Writer(text)
    writer.write(0, len(text), _uncrossed(frames))
    return "".join(writer.pieces), writer.places


def innermost(places, offset):
    """The number of the mutant whose switch an offset of the switched text is in, or None."""
    around = [place for place in places if place.start <= offset < place.end]
    return min(around, key=lambda place: place.end - place.start).number if around else None


class _Writer:
    def __init__(self, text):
        self.text = text
        self.pieces = []
        self.places = []
        self.length = 0

    def write(self, start, end, frames):
        """A part of the text, with the switches of these frames, which lie in it."""
        frames = sorted(frames, key=lambda frame: (frame.start, -frame.end))
        while frames:
            outer = frames[0]
            inner = [frame for frame in frames[1:] if frame.start < outer.end]
            frames = frames[1 + len(inner):]
            self._put(self.text[start:outer.start])
            self._switch(outer, inner)
            start = outer.end
        self._put(self.text[start:end])

    def _switch(self, frame, inner):
        """The mutant's side is without the others: one at a time is on."""
        begin = self.length
        mutant = frame.mutant
        broken = self.text[frame.start:mutant.start] + mutant.text + self.text[mutant.end:frame.end]
        call = f"QuorvaneMutant({frame.number})"
        if frame.statements:
            opening, closing = f"{{ if ({call}) {{ {broken}\n}} else {{ ", "\n} }"
        elif _is_turned(mutant):  # what is no bool may still be a condition
            opening, closing = f"({call} != !!(", "))"
        else:
            opening, closing = f"({call} ? ({broken}) : (", "))"
        self._put(opening)
        self.write(frame.start, frame.end, inner)
        self._put(closing)
        self.places.append(Place(frame.number, begin, self.length))

    def _put(self, piece):
        self.pieces.append(piece)
        self.length += len(piece)


def _is_turned(mutant):
    return mutant.text == f"!({mutant.old})"


def _frame(source, number, mutant):
    first, last = _tokens_of(source, mutant)
    statements = mutant.kind in _STATEMENT_KINDS or mutant.kind == "trace" and mutant.old.endswith(";")
    if mutant.kind == "guard":
        last = _end_of_block(source, last)
    elif not statements:
        first, last = _expression(source, first, last, mutant)
    return _Frame(source.tokens[first].start, source.tokens[last].end, statements, number, mutant)


def _tokens_of(source, mutant):
    within = [number for number, token in enumerate(source.tokens)
              if mutant.start <= token.start and token.end <= mutant.end]
    return within[0], within[-1]


def _end_of_block(source, number):
    """The last token of the statements that follow in a block: as long as a variable of it lives."""
    while source.word(number + 1) != "}":
        number = source.closing.get(number + 1, number + 1)
    return number


def _expression(source, first, last, mutant):
    if mutant.old in ("FAILED", "SUCCEEDED", "traced"):
        return first, source.closing[last + 1]
    if first == last and source.tokens[first].kind in ("name", "number") or _is_turned(mutant):
        return first, last
    openings = {end: begin for begin, end in source.closing.items()}
    while not _begins_expression(source, openings, first):
        first = openings.get(first - 1, first - 1)
    while source.word(last + 1) not in _ENDS_OF_EXPRESSION or last + 1 in source.closing:
        last = source.closing.get(last + 1, last + 1)
    return first, last


def _begins_expression(source, openings, number):
    before = source.word(number - 1)
    if before == ")":
        return source.word(openings[number - 1] - 1) in _HEADS
    if before == "}":
        head = openings[number - 1] - 1
        return source.tokens[head].kind != "name" and source.word(head) != ">" or source.word(head) in _NO_INITIALISER
    return before in _ENDS_OF_EXPRESSION and before != "]"


def _uncrossed(frames):
    """Frames that overlap lie one in the other: who doesn't gets what both need."""
    changed = True
    while changed:
        changed = False
        for index, frame in enumerate(frames):
            for other in frames:
                if other.start < frame.start < other.end < frame.end:
                    frames[index] = frames[index]._replace(start=other.start)
                    changed = True
                elif frame.start < other.start < frame.end < other.end:
                    frames[index] = frames[index]._replace(end=other.end)
                    changed = True
    return frames
