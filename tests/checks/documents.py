"""Takes the blocks of commands and code, and the commands within sentences, out of documents.

A block is what Markdown indents by four spaces or fences, and what a manual page has between .nf
and .fi. A span is what Markdown has in backquotes, if it is a command with an argument.
"""
import collections
import re

Block = collections.namedtuple("Block", "document line lines")  # of a block, `lines` without indent
Span = collections.namedtuple("Span", "document line text")

ROFF = ((r"\-", "-"), (r"\e", "\\"), (r"\(aq", "'"), (r"\fB", ""), (r"\fI", ""), (r"\fR", ""),
        (r"\fP", ""), (r"\&", ""))


def markdown_blocks(document, text):
    lines = text.splitlines()
    at = 0
    while at < len(lines):
        begin = at
        if lines[at].startswith("```"):
            while not lines[at + 1].startswith("```"):
                at += 1
            yield Block(document, begin + 1, lines[begin + 1:at + 1])
            at += 2
        elif lines[at].startswith("    ") and (at == 0 or not lines[at - 1].strip()):
            while at < len(lines) and (lines[at].startswith("    ") or not lines[at].strip()):
                at += 1
            block = [line[4:] for line in lines[begin:at]]
            while not block[-1].strip():
                block.pop()
            yield Block(document, begin + 1, block)
        else:
            at += 1


def plain(text):
    """A line or a page without the escapes of roff."""
    for escape, meant in ROFF:
        text = text.replace(escape, meant)
    return text


def roff_blocks(document, text):
    block = None
    for number, line in enumerate(text.splitlines(), 1):
        if line == ".nf":
            begin, block = number, []
        elif line == ".fi":
            yield Block(document, begin, block)
            block = None
        elif block is not None and not line.startswith("."):
            block.append(plain(line))


def blocks_of(document, text):
    return list((roff_blocks if document.endswith(".1") else markdown_blocks)(document, text))


def spans_of(document, text, first_words):
    """Spans of Markdown whose first word is one of these, or a path in scripts/."""
    in_blocks = {line for block in blocks_of(document, text)
                 for line in range(block.line, block.line + len(block.lines) + 1)}
    for found in re.finditer(r"`([^`\n]+(?:\n[^`\n]+)?)`", text):
        line = text.count("\n", 0, found.start()) + 1
        words = re.sub(r"^\(", "", found.group(1)).split()
        if line in in_blocks or len(words) < 2:
            continue
        if words[0] in first_words or words[0].startswith("scripts/"):
            yield Span(document, line, " ".join(found.group(1).split()))
