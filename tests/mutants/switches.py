"""Gives a C++ source switches: all its changes that mutants.py tries, of which a program that is running makes one.

A change is a relation, an operator, a constant, a condition, an answer or a statement that it replaces, see `Source`. What
is written for it calls switches.h, in the same line, with the number of the change. clang tells where expressions begin
and end; expressions that come from macros are left alone.
"""
import pathlib
import re

import clang.cindex
from clang.cindex import CursorKind, TypeKind

RELATIONS = {"<": ("less", "<="), "<=": ("lessOrEqual", "<"), ">": ("greater", ">="), ">=": ("greaterOrEqual", ">"),
             "==": ("equal", "!="), "!=": ("unequal", "==")}
ARITHMETIC = {"+": ("plus", "-"), "-": ("minus", "+"), "*": ("times", "/"), "/": ("divided", "*"), "%": ("rest", "*")}
ASSIGNMENTS = {"+=": ("add", "-="), "-=": ("subtract", "+=")}
STEPS = {"++": ("increment", "postIncrement", "--"), "--": ("decrement", "postDecrement", "++")}
NUMBERS = {TypeKind.BOOL, TypeKind.CHAR_U, TypeKind.UCHAR, TypeKind.USHORT, TypeKind.UINT, TypeKind.ULONG,
           TypeKind.ULONGLONG, TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.SHORT, TypeKind.INT, TypeKind.LONG,
           TypeKind.LONGLONG, TypeKind.FLOAT, TypeKind.DOUBLE, TypeKind.LONGDOUBLE}
STATEMENTS = {CursorKind.CALL_EXPR, CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR,
              CursorKind.UNARY_OPERATOR, CursorKind.UNEXPOSED_EXPR}
FUNCTIONS = {CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.FUNCTION_TEMPLATE}
EMPTY = {b"0", b"0.0", b"false", b"nullptr", b"std::nullopt", b'""', b"std::string()"}  # answers
LOOPS = {CursorKind.FOR_STMT, CursorKind.WHILE_STMT, CursorKind.CXX_FOR_RANGE_STMT}


def is_number(cursor):
    return cursor.type.get_canonical().kind in NUMBERS


def begin(cursor):
    return cursor.extent.start.offset


def end(cursor):
    return cursor.extent.end.offset


class Source:
    """A source and its changes, numbered from `first` on. Those in `left_out` keep their numbers and get no switch."""

    def __init__(self, path, arguments, first=0, left_out=frozenset()):
        self.path = str(path)
        self.bytes = pathlib.Path(path).read_bytes()
        self.first, self.left_out = first, left_out
        self.changes = []  # of each: number, line, column, kind, code, and whether it is in a constant with a name
        self.constants = set()  # where declarations of constants begin whose values have switches
        self.edits = []  # of each: offset, rank and order among those of the same offset, text, offset behind it
        unit = clang.cindex.Index.create().parse(
            self.path, args=arguments, options=clang.cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [str(note) for note in unit.diagnostics if note.severity >= clang.cindex.Diagnostic.Error]
        if errors:
            raise ValueError(errors[0])
        cursors = [cursor for cursor in unit.cursor.get_children() if self.is_here(cursor)]
        self.macros = [(begin(cursor), end(cursor)) for cursor in cursors
                       if cursor.kind == CursorKind.MACRO_INSTANTIATION]
        for cursor in cursors:
            if not cursor.kind.is_preprocessing():
                self.visit(cursor)

    # --- the changed text --------------------------------------------------------------------------------------------

    def text(self):
        """The source with its switches. Constants with a name become variables where their values have some."""
        edits = list(self.edits)
        for place in self.constants:
            keyword = re.match(rb"(?:(?:static|inline)\s+)*(constexpr)\b", self.bytes[place:place + 80])
            if keyword:
                edits.append((place + keyword.start(1), 2, 0, "const", place + keyword.end(1)))
        parts, at = [], 0
        for offset, _, _, text, behind in sorted(edits):
            parts += [self.bytes[at:offset], text.encode()]
            at = behind
        return b"".join(parts + [self.bytes[at:]])

    def before(self, offset, text):
        """What encloses more was written first, and stays further outside."""
        self.edits.append((offset, 1, len(self.edits), text, offset))

    def behind(self, offset, text):
        self.edits.append((offset, 0, -len(self.edits), text, offset))

    def instead(self, start, stop, text):
        self.edits.append((start, 2, 0, text, stop))

    def change(self, offset, kind, constant=None):
        """The number of a new change, or None if it gets no switch."""
        number = self.first + len(self.changes)
        line_begin = self.bytes.rfind(b"\n", 0, offset) + 1
        line_end = self.bytes.find(b"\n", offset)
        self.changes.append({"number": number, "line": self.bytes.count(b"\n", 0, offset) + 1,
                             "column": offset - line_begin + 1, "kind": kind,
                             "code": self.bytes[line_begin:line_end].decode().strip(), "named": constant is not None})
        if number in self.left_out:
            return None
        if constant is not None:
            self.constants.add(constant)
        return number

    # --- where they are ----------------------------------------------------------------------------------------------

    def is_here(self, cursor):
        file = cursor.extent.start.file
        return file is not None and file.name == self.path

    def in_macro(self, *offsets):
        return any(start <= offset < stop for start, stop in self.macros for offset in offsets)

    def between(self, left, right):
        """The operator between two operands, as (text, begin, end); None if it cannot be seen."""
        start, stop = end(left), begin(right)
        if not 0 < stop - start < 80:
            return None
        code = re.sub(rb"//.*", lambda comment: b" " * len(comment.group()), self.bytes[start:stop])
        operator = code.strip()
        start += code.find(operator)
        return (operator.decode(), start, start + len(operator)) if operator and not self.in_macro(start) else None

    # --- which changes -----------------------------------------------------------------------------------------------

    def visit(self, cursor, constant=None, in_lambda=False):
        """`constant` is where the declaration of the constant begins whose value this is a part of."""
        kind, children = cursor.kind, list(cursor.get_children())
        if not self.is_here(cursor) or kind in (CursorKind.STATIC_ASSERT, CursorKind.ENUM_CONSTANT_DECL):
            return
        if kind in FUNCTIONS:
            constant, in_lambda = None, False
        elif kind == CursorKind.LAMBDA_EXPR:
            in_lambda = True
        elif kind == CursorKind.VAR_DECL and constant is None:
            declaration = self.bytes[begin(cursor):begin(cursor) + 80]
            is_constant = re.match(rb"(?:(?:static|inline)\s+)*const(expr)?\b", declaration)
            if is_constant or cursor.semantic_parent.kind in (CursorKind.TRANSLATION_UNIT, CursorKind.NAMESPACE):
                constant = begin(cursor)  # the compiler computes what it can; this is to be computed at the start

        if kind == CursorKind.COMPOUND_STMT:
            for child in children:
                self.statement(child)
        elif kind in LOOPS:
            self.statement(children[-1])
        elif kind == CursorKind.IF_STMT:
            self.condition(cursor, children)
            for child in children[-2:] if len(children) > 2 else children[1:]:
                self.statement(child)
        elif kind == CursorKind.RETURN_STMT and children and not in_lambda:
            self.answer(cursor, children[0])
        elif kind == CursorKind.CASE_STMT:
            children = children[1:]
        if not self.in_macro(begin(cursor), end(cursor) - 1):
            self.expression(cursor, children, constant)
        for child in children:
            self.visit(child, constant, in_lambda)

    def expression(self, cursor, children, constant):
        kind = cursor.kind
        if kind == CursorKind.BINARY_OPERATOR and len(children) == 2:
            self.operation(cursor, *children, constant)
        elif kind == CursorKind.CALL_EXPR and cursor.spelling.startswith("operator") and len(children) in (2, 3):
            self.operation(cursor, children[0], children[-1], constant)
        elif kind == CursorKind.COMPOUND_ASSIGNMENT_OPERATOR and len(children) == 2 and is_number(cursor):
            self.assignment(*children)
        elif kind == CursorKind.UNARY_OPERATOR and is_number(cursor):
            self.step(cursor)
        elif kind == CursorKind.INTEGER_LITERAL:
            self.number(cursor, constant)
        elif kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
            self.truth(cursor, constant)

    def operation(self, cursor, left, right, constant):
        found = self.between(left, right)
        if not found:
            return
        operator, start, stop = found
        if operator in RELATIONS:
            name, other = RELATIONS[operator]
            number = self.change(start, f"relation {operator} to {other}", constant)
        elif operator in ARITHMETIC and all(map(is_number, (cursor, left, right))):
            name, other = ARITHMETIC[operator]
            number = self.change(start, f"arithmetic {operator} to {other}", constant)
        elif operator in ("&&", "||") and cursor.kind == CursorKind.BINARY_OPERATOR:
            self.logic(left, right, *found, constant)
            return
        else:
            return
        if number is not None:
            self.before(begin(left), f"switches::{name}({number}, ")
            self.instead(start, stop, ",")
            self.behind(end(right), ")")

    def logic(self, left, right, operator, start, stop, constant):
        """The right side is evaluated as the changed operator would, too."""
        number = self.change(start, f"logic {operator} to {'||' if operator == '&&' else '&&'}", constant)
        if number is None:
            return
        unless, otherwise = ("!=", "") if operator == "&&" else ("==", "!")
        self.before(begin(left), "((bool(")
        self.instead(start, stop, f") {unless} switches::on({number})) ? bool(")
        self.behind(end(right), f") : {otherwise}switches::on({number}))")

    def assignment(self, left, right):
        operator, start, stop = self.between(left, right) or ("", 0, 0)
        if operator not in ASSIGNMENTS:
            return
        name, other = ASSIGNMENTS[operator]
        number = self.change(start, f"arithmetic {operator} to {other}")
        if number is not None:
            self.before(begin(left), f"switches::{name}({number}, ")
            self.instead(start, stop, ",")
            self.behind(end(right), ")")

    def step(self, cursor):
        start, stop = begin(cursor), end(cursor)
        for operator, (prefix, postfix, other) in STEPS.items():
            if self.bytes.startswith(operator.encode(), start):
                number = self.change(start, f"arithmetic {operator} to {other}")
                if number is not None:
                    self.instead(start, start + 2, f"switches::{prefix}({number}, ")
                    self.behind(stop, ")")
            elif self.bytes.endswith(operator.encode(), start, stop):
                number = self.change(stop - 2, f"arithmetic {operator} to {other}")
                if number is not None:
                    self.before(start, f"switches::{postfix}({number}, ")
                    self.instead(stop - 2, stop, ")")

    def number(self, cursor, constant):
        text = self.bytes[begin(cursor):end(cursor)].decode()
        if re.fullmatch(r"[0-9']+", text):
            value = int(text.replace("'", ""))
            self.literal(cursor, f"constant {value} to {value + 1}", constant)

    def truth(self, cursor, constant):
        text = self.bytes[begin(cursor):end(cursor)].decode()
        if text in ("true", "false"):
            self.literal(cursor, f"constant {text} to {'false' if text == 'true' else 'true'}", constant)

    def literal(self, cursor, kind, constant):
        number = self.change(begin(cursor), kind, constant)
        if number is not None:
            name = "constant" if constant is None else "constantAtStart"
            self.before(begin(cursor), f"switches::{name}({number}, ")
            self.behind(end(cursor), ")")

    def statement(self, cursor):
        start, stop = begin(cursor), end(cursor)
        if (cursor.kind not in STATEMENTS or not self.is_here(cursor) or self.in_macro(start) or
                not self.bytes[stop:].lstrip().startswith(b";") or self.bytes.startswith((b"throw", b"delete"), start)):
            return
        number = self.change(start, "statement removed")
        if number is not None:
            self.before(start, f"(switches::on({number}) ? void() : void(")
            self.behind(stop, "))")

    def condition(self, cursor, children):
        start = begin(cursor) + len("if (")
        for child in children[:2]:
            if begin(child) == start and child.kind.is_expression() and self.bytes.startswith(b")", end(child)):
                number = None if self.in_macro(start, end(child) - 1) else self.change(start, "condition negated")
                if number is not None:
                    self.before(start, f"switches::on({number}) != bool(")
                    self.behind(end(child), ")")
                return

    def answer(self, cursor, value):
        start, stop = begin(cursor), end(value)
        if (self.in_macro(start, stop - 1) or self.bytes.startswith(b"{", begin(value)) or
                not self.bytes.startswith(b";", stop) or self.bytes[begin(value):stop] in EMPTY):
            return
        number = self.change(start, "answer empty")
        if number is not None:
            self.before(start, f"{{ if (switches::on({number})) return {{}}; ")
            self.behind(stop + 1, " }")
