# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""The C++ of a document: whole programs, and pieces that become functions of one program."""

import json
import re

LIMIT_SECONDS = 120

PROJECT = """cmake_minimum_required(VERSION 3.16)
project(blocks CXX)
set(CMAKE_CXX_STANDARD 17)
find_package(Qt5 REQUIRED COMPONENTS Core Sql)
"""

PIECES_HEAD = """#include <QtCore>
#include <QtSql>
#include <cstdio>

// What a piece says that an expression gives; booleans as the language writes them.
template<typename T>
void tell(const char *line, const T &value)
{
    std::printf("%s %s\\n", line, qPrintable(QVariant::fromValue(value).toString()));
}

"""

PIECES_MAIN = """int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QSqlDatabase db = QSqlDatabase::addDatabase("DORVY");
    db.setHostName("localhost");
    db.setDatabaseName(argv[1]);
    if (!db.open()) {
        qFatal("%s", qPrintable(db.lastError().text()));
    }
    PIECES[atoi(argv[2])](db);
    return 0;
}
"""

# An expression whose outcome its comment tells.
TOLD = re.compile(r'^(\s*)([^\s/{}][^{}=]*?(?:==[^{}=]*?)?);\s*//\s*((?:-?\d|"|true\b|false\b).*)$')


def is_program(block):
    return re.search(r"\bmain\(", block.text) is not None


def piece_function(number, block):
    """The function of one piece, and what its lines are to give: line -> comment."""
    lines, told = [], {}
    for offset, line in enumerate(block.text.splitlines()):
        match = TOLD.match(line)
        if match:
            key = str(block.line + 1 + offset)
            told[key] = match[3]
            line = f"{match[1]}tell({json.dumps(key)}, {match[2]});"
        lines.append(line)
    body = "\n".join(lines)
    return f"static void piece{number}(QSqlDatabase &db)\n{{\n(void)db;\n{body}\n}}\n", told


def says(comment, value):
    """Whether a comment begins with a value: a text in quotes whole, another value as a word."""
    if comment.startswith('"'):
        return json.loads(re.match(r'"(?:[^"\\]|\\.)*"', comment)[0]) == value
    return value != "" and re.match(rf"{re.escape(value)}(?![\w.]*\w)", comment) is not None


class Programs:
    """Builds the C++ blocks of a document in one go, and runs them one by one."""

    def __init__(self, world, blocks, database):
        self.world = world
        self.database = database
        self.pieces = {}
        self.told = {}
        project = PROJECT
        functions = []
        for number, block in enumerate(blocks):
            if is_program(block):
                project += self._program(number, block)
            else:
                function, self.told[block.line] = piece_function(number, block)
                self.pieces[block.line] = len(functions)
                functions.append((f"piece{number}", function))
        if functions:
            project += self._pieces(functions)
        (world.build / "CMakeLists.txt").write_text(project, encoding="utf-8")
        tree = world.build / "tree"
        world.run(["cmake", "-G", "Ninja", "-S", str(world.build), "-B", str(tree)])
        world.run(["cmake", "--build", str(tree)])

    def _program(self, number, block):
        (self.world.build / f"program{number}.cpp").write_text(block.text, encoding="utf-8")
        self.told[block.line] = f"program{number}"
        return (f"add_executable(program{number} program{number}.cpp)\n"
                f"target_link_libraries(program{number} Qt5::Core Qt5::Sql)\n")

    def _pieces(self, functions):
        names = ", ".join(name for name, _ in functions)
        source = (PIECES_HEAD + "".join(text for _, text in functions)
                  + f"static void (*const PIECES[])(QSqlDatabase &) = {{{names}}};\n" + PIECES_MAIN)
        (self.world.build / "pieces.cpp").write_text(source, encoding="utf-8")
        return "add_executable(pieces pieces.cpp)\ntarget_link_libraries(pieces Qt5::Core Qt5::Sql)\n"

    def run(self, block):
        tree = self.world.build / "tree"
        if block.line not in self.pieces:
            return self.world.run([str(tree / self.told[block.line])], seconds=LIMIT_SECONDS)
        output = self.world.run(
            [str(tree / "pieces"), self.database, str(self.pieces[block.line])], seconds=LIMIT_SECONDS)
        return self._check(output, dict(self.told[block.line]))

    @staticmethod
    def _check(output, told):
        """What the piece printed itself; raises where an expression gave something else than told. A
        line that runs more than once must give the same each time."""
        own = []
        seen = set()
        for line in output.splitlines():
            key, _, value = line.partition(" ")
            if key not in told:
                own.append(line)
                continue
            seen.add(key)
            if not says(told[key], value):
                raise RuntimeError(f"line {key} gives {value!r}, and says: {told[key]}")
        missing = sorted(set(told) - seen)
        if missing:
            raise RuntimeError(f"not reached: lines {', '.join(missing)}")
        return "\n".join(own) + "\n" if own else ""
