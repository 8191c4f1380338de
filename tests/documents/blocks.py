# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""The code blocks of a document, and what its comments say of them."""

import dataclasses
import re

from markdown_it import MarkdownIt

COMMENT = re.compile(r"<!--\s*(.*?)\s*-->", re.DOTALL)
DIRECTIVES = ("file", "in the source tree", "output", "run by", "not run")
# One that holds a whole page to tests of its own (docs/behaviour.md).
HELD = re.compile(r"tst_\w+:")


@dataclasses.dataclass
class Block:
    """A fenced block: where it begins, its language, its text, and its directives with what each says."""

    line: int
    language: str
    text: str
    directives: dict


def directives_of(comments, line):
    """The directives in the comments that stand directly above a block."""
    found = {}
    for comment in comments:
        name = next((name for name in DIRECTIVES if re.match(rf"{name}(:|$)", comment)), None)
        if name is None:
            raise ValueError(f"line {line}: a comment that says nothing of the block: {comment}")
        found[name] = comment[len(name):].lstrip(": \n")
    return found


def directly_above(tokens, at):
    """The comments of the HTML block that ends on the line above the token, if one does."""
    before = tokens[at - 1] if at else None
    if before is None or before.type != "html_block" or before.map[1] != tokens[at].map[0]:
        return []
    comments = COMMENT.findall(before.content)
    return [comment for comment in comments if not HELD.match(comment) and comment[0] != "/"]


def blocks_of(text):
    """Every fenced block of a document, in order."""
    tokens = MarkdownIt("commonmark").parse(text)
    found = []
    for at, token in enumerate(tokens):
        if token.type != "fence":
            continue
        line = token.map[0] + 1
        if not token.info:
            raise ValueError(f"line {line}: a block without a language")
        found.append(Block(line, token.info.split()[0], token.content,
                           directives_of(directly_above(tokens, at), line)))
    return found


def runs_in_source_tree(text):
    """Whether the document's commands are for the root of the source."""
    return "<!-- blocks run in the source tree -->" in "\n".join(text.splitlines()[:5])
