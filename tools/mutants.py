"""Where a C++ file can be changed, and how it reads with all changes to choose from."""
import bisect
import collections
import ctypes
import difflib
import hashlib
import re

from clang import cindex

# Steps of the protocol's rules (model/detail/Rule.h). They tell their arguments as text,
# so a whole step is chosen, not a part of it.
STEPS = ("TRUE_IF", "FALSE_IF", "FALSE_UNLESS", "RESULT_IF", "RESULT", "FACT")

BOUNDARY = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}
EQUALITY = {"==": "!=", "!=": "=="}
JUNCTION = {"&&": "||", "||": "&&"}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "^": "&",
              "<<": ">>", ">>": "<<", "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=",
              "|=": "&=", "&=": "|=", "<<=": ">>=", ">>=": "<<=", "++": "--", "--": "++"}

FUNCTIONS = {"FUNCTION_DECL", "CXX_METHOD", "CONSTRUCTOR", "DESTRUCTOR",
             "CONVERSION_FUNCTION", "FUNCTION_TEMPLATE"}
SCOPES = {"NAMESPACE", "CLASS_DECL", "STRUCT_DECL", "CLASS_TEMPLATE", "UNION_DECL",
          "CLASS_TEMPLATE_PARTIAL_SPECIALIZATION"}
EXITS = {"RETURN_STMT", "CONTINUE_STMT", "BREAK_STMT", "CXX_THROW_EXPR"}
LOOPS = {"WHILE_STMT", "FOR_STMT", "DO_STMT", "CXX_FOR_RANGE_STMT"}

# One change. `form` says how it is chosen at run time: as a value, as a truth, as an
# expression for its effect, as a whole statement, or as what a declared name means.
# `constant`: in a function that may serve the compiler alone.
Site = collections.namedtuple("Site",
                              "path line name hash constant form start end before after")

_file_location = cindex.conf.lib.clang_getFileLocation
_file_location.argtypes = [cindex.SourceLocation] + [ctypes.c_void_p] * 3 + [
    ctypes.POINTER(ctypes.c_uint)]
_file_location.restype = None


def offset(location):
    """Where a token stands in the file, a macro's argument too."""
    found = ctypes.c_uint()
    _file_location(location, None, None, None, ctypes.byref(found))
    return found.value


def squeeze(code):
    """The code in one line, without comments."""
    parts = re.findall(r'"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|//[^\n]*|/\*.*?\*/|\s+|.',
                       code, re.S)
    return "".join(" " if part.isspace() or part.startswith(("//", "/*")) else part
                   for part in parts).strip()


def parse(path, text, flags):
    return cindex.Index.create().parse(
        path, ["-x", "c++", "-std=c++20", *flags], unsaved_files=[(path, text)],
        options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)


def errors(unit):
    """Line and column of each error in the file itself."""
    return [(d.location.line, d.location.column) for d in unit.diagnostics
            if d.severity >= cindex.Diagnostic.Error and d.location.file
            and d.location.file.name == unit.spelling]


class Finder:
    """Finds the sites of one file; `path` is its name in the results."""

    def __init__(self, path, unit, text):
        # Offsets of libclang count bytes.
        self.path, self.text = path, text.encode()
        self.lines = [m.start() for m in re.finditer(rb"\n", self.text)]
        self.sites, self.seen, self.count = [], set(), collections.Counter()
        self.macros = []
        self.function, self.hash, self.truth, self.fixed = "", "", False, False
        self.asked = set(re.findall(r"\bBool (\w+)\(\) const", text))
        own = [c for c in unit.cursor.get_children()
               if c.location.file and c.location.file.name == unit.spelling]
        for cursor in own:
            if cursor.kind.name == "MACRO_INSTANTIATION":
                self.macros.append((*self.extent(cursor), cursor.spelling))
        self.macros.sort()
        for cursor in own:
            self.scope(cursor, "")
        self.sites.sort(key=lambda site: (site.start, -site.end))

    def extent(self, cursor):
        return offset(cursor.extent.start), offset(cursor.extent.end)

    def source(self, start, end):
        return self.text[start:end].decode()

    def of(self, cursor):
        return self.source(*self.extent(cursor))

    def scope(self, cursor, outer):
        kind = cursor.kind.name
        if kind in SCOPES:
            inner = outer if kind == "NAMESPACE" else cursor.spelling + "::"
            for child in cursor.get_children():
                self.scope(child, inner)
        elif kind in FUNCTIONS:
            children = list(cursor.get_children())
            if not children or children[-1].kind.name not in ("COMPOUND_STMT", "CXX_TRY_STMT"):
                return
            code = self.of(cursor)
            head = code.split("{")[0]
            if "consteval" in head:
                return
            self.fixed = "constexpr" in head
            parent = cursor.semantic_parent
            if not outer and parent.kind.name in SCOPES - {"NAMESPACE"}:
                outer = parent.spelling + "::"
            self.function = outer + re.sub(r"^(\w+)<.*", r"\1", cursor.spelling)
            self.hash = hashlib.sha1(code.encode()).hexdigest()[:8]
            self.truth = cursor.result_type.spelling.split("::")[-1] in ("bool", "Bool")
            self.steps(*self.extent(cursor))
            for child in children:
                if child.kind.name != "PARM_DECL":
                    self.visit(child, cursor)

    # ---- what is recorded

    def macro_of(self, start, end):
        """The macro whose argument holds this, or None."""
        at = bisect.bisect(self.macros, (start, 0, "")) - 1
        while at >= 0:
            first, last, name = self.macros[at]
            if first < start and end <= last:
                return self.macros[at]
            if start - first > 5000:
                return None
            at -= 1
        return None

    def add(self, kind, form, start, end, after, before=None):
        before = squeeze(self.source(start, end)) if before is None else before
        if not before or any(first == start and end <= last for first, last, _ in self.macros):
            return  # The text of a macro's own body.
        macro = self.macro_of(start, end)
        changed = (form, start, end, after)
        if macro:
            if macro[2] not in STEPS:
                return
            first, last = macro[0], macro[1]
            line = self.source(first, start) + after + self.source(end, last)
            changed = ("statement", first, last + 1, squeeze(line) + ";")
        self.put(kind, before, after, start, *changed)

    def put(self, kind, before, after, at, form, start, end, instead):
        key = (form, start, end, instead)
        if key in self.seen:
            return
        self.seen.add(key)
        short = lambda code: code if len(code) <= 100 else code[:70] + " ... " + code[-25:]
        name = f"{self.path} {self.function} {kind}: {short(before)} -> {short(squeeze(after))}"
        self.count[name] += 1
        if self.count[name] > 1:
            name = name.replace(f" {kind}:", f" {kind} {self.count[name]}:", 1)
        self.sites.append(Site(self.path, bisect.bisect_left(self.lines, at) + 1, name, self.hash,
                               self.fixed, form, start, end, before, instead))

    # ---- what can be changed

    def steps(self, start, end):
        """The steps of a rule: negated, dropped, with the other answer."""
        for first, last, name in self.macros:
            if name not in STEPS or not start <= first < end:
                continue
            step = squeeze(self.source(first, last))
            body = step[step.index("(") + 1:-1].strip()
            comma = next((i for i, c in enumerate(body) if c == "," and
                          body[:i].count("(") == body[:i].count(")")), len(body))
            condition, outcome = body[:comma], body[comma + 1:].strip()
            changes = []
            if name in ("RESULT", "FACT"):
                # A single comparison is changed below.
                single = re.search(r" [!=]= ", body) and not re.search(r"&&|\|\|", body)
                if self.truth and not single:
                    changes.append(("negated", f"{name}( !( {body} ) )"))
            else:
                tail = f", {outcome}" if outcome else ""
                changes += [("negated", f"{name}( !( {condition} ){tail} )"), ("dropped", "")]
                if outcome and self.truth:
                    changes.append(("answer", f"{name}( {condition}, !( {outcome} ) )"))
                if name in ("TRUE_IF", "FALSE_IF"):
                    other = "FALSE_IF" if name == "TRUE_IF" else "TRUE_IF"
                    changes.append(("answer", f"{other}( {condition} )"))
            for kind, after in changes:
                self.put(kind, step, after or ";", first, "statement", first, last + 1, after + ";")

    def visit(self, node, parent):
        kind = node.kind.name
        start, end = self.extent(node)
        children = list(node.get_children())
        if kind in ("STATIC_ASSERT", "TYPE_REF", "TEMPLATE_REF", "NAMESPACE_REF", "PARM_DECL"):
            return
        if kind == "IF_STMT":
            self.branch(node, children)
            if re.match(r"if constexpr", self.source(start, end)):
                children = children[1:]
        elif kind in ("WHILE_STMT", "DO_STMT"):
            condition = children[0 if kind == "WHILE_STMT" else -1]
            if condition.kind.name not in ("VAR_DECL", "CXX_BOOL_LITERAL_EXPR"):
                self.condition(condition)
        elif kind == "CONDITIONAL_OPERATOR":
            self.condition(children[0])
        elif kind == "RETURN_STMT" and children and (
                self.truth and parent.kind.name != "LAMBDA_EXPR"
                and children[0].type.spelling == "bool"):
            self.condition(children[0])
        elif kind == "CASE_STMT":
            children = children[1:]
        elif kind in ("VAR_DECL", "FIELD_DECL"):
            children = self.initializers(node, children)
        elif kind in ("BINARY_OPERATOR", "COMPOUND_ASSIGNMENT_OPERATOR") and len(children) == 2:
            left, right = self.extent(children[0]), self.extent(children[1])
            between = squeeze(self.source(left[1], right[0]))
            self.operator(node, between, left, right)
        elif kind == "CALL_EXPR":
            self.call(node, children)
        elif kind == "UNARY_OPERATOR":
            self.unary(node, parent, children)
        elif kind in ("INTEGER_LITERAL", "CXX_BOOL_LITERAL_EXPR", "DECL_REF_EXPR"):
            self.constant(node, start, end)
        body = children
        if kind == "IF_STMT":
            body = self.branches(node, children)[1:]
        elif kind in LOOPS:
            body = children[:1] if kind == "DO_STMT" else children[-1:]
        if kind in LOOPS | {"COMPOUND_STMT", "IF_STMT", "CASE_STMT", "DEFAULT_STMT"}:
            for child in body:
                self.statement(child)
        for child in children:
            # A loop that does not step never ends.
            stepping = kind == "FOR_STMT" and child.kind.name == "UNARY_OPERATOR" \
                and child != children[-1]
            if not stepping:
                self.visit(child, node)

    def plain(self, node):
        """The expression inside what only converts it."""
        while node.kind.name == "UNEXPOSED_EXPR":
            inner = list(node.get_children())
            if len(inner) != 1 or self.extent(inner[0]) != self.extent(node):
                break
            node = inner[0]
        return node

    def branches(self, node, children):
        """The condition of an if and its branches."""
        has_else = len(children) >= 3 and re.search(
            r"[;}]\s*(//[^\n]*\s*)*else\b\s*$",
            self.source(self.extent(node)[0], self.extent(children[-1])[0]))
        return children[-3:] if has_else else children[-2:]

    def branch(self, node, children):
        condition, then, *other = self.branches(node, children)
        start = self.extent(node)[0]
        if self.source(start, start + 12) == "if constexpr":
            return
        inner = list(then.get_children())
        leaves = then.kind.name in EXITS or (
            then.kind.name == "COMPOUND_STMT" and inner and inner[-1].kind.name in EXITS)
        drop = leaves and not other
        declared = [c for c in children[:-2] if c.kind.name == "VAR_DECL"]
        if declared:
            end = self.extent(declared[0])[1]
            name = declared[0].spelling
            before = squeeze(self.of(declared[0]))
            self.add("negated", "declared", end, end, f"!{name}", before)
            if drop:
                self.add("exit dropped", "declared", end, end, "false", before)
            return
        self.condition(condition)
        if drop:
            self.add("exit dropped", "truth", *self.extent(condition), "false")

    def condition(self, node):
        node = self.plain(node)
        start, end = self.extent(node)
        code = self.source(start, end)
        if node.kind.name == "CXX_BOOL_LITERAL_EXPR":
            return
        comparison = node.kind.name in ("BINARY_OPERATOR", "CALL_EXPR") and re.search(
            r" (==|!=) ", code) and not re.search(r"&&|\|\|", code)
        if not comparison:
            self.add("negated", "truth", start, end, f"!( {squeeze(code)} )")

    def operator(self, node, sign, left, right):
        start, end = self.extent(node)
        a, b = squeeze(self.source(*left)), squeeze(self.source(*right))
        if sign in ("<", ">") and node.kind.name == "CALL_EXPR":
            # There may be no other order of such values.
            self.add("operands swapped", "truth", start, end, f"{b} {sign} {a}")
            return
        for table, kind, form in ((BOUNDARY, "boundary", "truth"), (EQUALITY, "equality", "truth"),
                                  (JUNCTION, "junction", "truth"),
                                  (ARITHMETIC, "operator", "value")):
            if sign in table:
                whole = f"( {a} )" if sign in JUNCTION and re.search(r"&&|\|\|", a) else a
                self.add(kind, form, start, end, f"{whole} {table[sign]} {b}")
        if sign in JUNCTION:
            self.add("operand dropped", "truth", start, end, a)
            self.add("operand dropped", "truth", start, end, b)

    def call(self, node, children):
        if node.spelling.startswith("operator") and len(children) == 3:
            (start, end), (at, after) = self.extent(node), self.extent(children[1])
            self.operator(node, squeeze(self.source(at, after)), (start, at), (after, end))
        elif self.source(*self.extent(node)).endswith("()"):
            self.other_call(node)

    def other_call(self, node):
        """A question answered by the one whose name is most like it."""
        end = self.extent(node)[1]
        code = self.source(self.extent(node)[0], end)
        name = re.search(r"(\w+)\(\)$", code)
        if not name:
            return
        name = name.group(1)
        method = node.referenced
        if name in self.asked:
            others = self.asked
        elif method and method.kind.name == "CXX_METHOD" and method.is_const_method():
            others = {m.spelling for m in method.semantic_parent.get_children()
                      if m.kind.name == "CXX_METHOD" and m.is_const_method()
                      and m.result_type.spelling == method.result_type.spelling
                      and not list(m.get_arguments()) and m.spelling.isidentifier()
                      and m.access_specifier == cindex.AccessSpecifier.PUBLIC}
        else:
            return
        like = difflib.get_close_matches(name, sorted(others - {name, self.function}), 1, 0.5)
        if like:
            start = self.extent(node)[0]
            self.add("other call", "value", start, end,
                     squeeze(code[:-len(name) - 2] + like[0] + "()"))

    def unary(self, node, parent, children):
        start, end = self.extent(node)
        code = self.source(start, end)
        if re.match(r"!(?!=)", code):
            if parent.kind.name not in ("IF_STMT", "WHILE_STMT", "RETURN_STMT"):
                self.add("negated", "truth", start, end, squeeze(code[1:]))
        elif code.startswith(("++", "--")):
            self.add("operator", "value", start, end, ARITHMETIC[code[:2]] + squeeze(code[2:]))
        elif code.endswith(("++", "--")):
            self.add("operator", "value", start, end, squeeze(code[:-2]) + ARITHMETIC[code[-2:]])

    def constant(self, node, start, end):
        code = self.source(start, end)
        if self.text[start - 1:start] in (b"<", b"["):
            # A template's argument, or a bound; an index is not worth the doubt.
            return
        if node.kind.name == "CXX_BOOL_LITERAL_EXPR":
            if code in ("true", "false"):
                self.add("constant", "value", start, end, "false" if code == "true" else "true")
        elif node.kind.name == "INTEGER_LITERAL":
            if code[:1].isdigit():
                self.add("constant", "value", start, end, f"{code} + 1")
        elif node.referenced is not None and node.referenced.kind.name == "ENUM_CONSTANT_DECL":
            names = [c.spelling for c in node.referenced.semantic_parent.get_children()
                     if c.kind.name == "ENUM_CONSTANT_DECL"]
            other = names[(names.index(node.spelling) + 1) % len(names)]
            if other != node.spelling and code.endswith(node.spelling):
                self.add("constant", "value", start, end, code[:-len(node.spelling)] + other)
        elif node.referenced is not None and node.referenced.kind.name == "VAR_DECL" \
                and re.search(r"\bconstexpr\b", "".join(
                    t.spelling + " " for _, t in zip(range(4), node.referenced.get_tokens()))) \
                and node.type.get_canonical().spelling.replace("const ", "") in (
                    "int", "unsigned int", "unsigned char", "unsigned short", "unsigned long",
                    "long"):
            self.add("constant", "value", start, end, f"{code} + 1")

    def initializers(self, node, children):
        """What a variable begins with, where that is found at run time."""
        start = self.extent(node)[0]
        name = offset(node.location)
        head = self.source(start, name)
        values = [c for c in children if self.extent(c)[0] >= name]
        if re.search(r"\bconstexpr\b|\bstatic\b|\bconstinit\b", head):
            return []
        if re.search(r"\bconst\b", head) and not any(
                n.kind.name in ("DECL_REF_EXPR", "CALL_EXPR", "LAMBDA_EXPR", "MEMBER_REF_EXPR")
                for value in values for n in value.walk_preorder()):
            return []
        return values

    def statement(self, node):
        node = self.plain(node)
        start, end = self.extent(node)
        code = self.source(start, end)
        kind = node.kind.name
        if kind == "UNEXPOSED_EXPR":
            inner = [self.plain(c) for c in node.get_children()]
            kind = inner[0].kind.name if len(inner) == 1 else kind
        if kind == "CALL_EXPR" or kind == "COMPOUND_ASSIGNMENT_OPERATOR":
            self.add("call dropped" if kind == "CALL_EXPR" else "assignment dropped", "effect",
                     start, end, "void()")
        elif kind == "BINARY_OPERATOR" and re.search(r"[^=!<>]=[^=]", code):
            self.add("assignment dropped", "effect", start, end, "void()")
        elif kind == "UNARY_OPERATOR" and re.match(r"\+\+|--", code):
            self.add("assignment dropped", "effect", start, end, "void()")


def render(text, chosen):
    """The file with the sites of `chosen`, by number, put in; its lines stay where they are."""
    text = text.encode()
    groups = collections.defaultdict(list)
    for number, site in chosen.items():
        groups[site.start, site.end].append((number, site))
    spots = sorted(groups, key=lambda spot: (spot[0], -spot[1]))

    def among(some, original):
        """One spot: each form takes in the one before it."""
        for form, each, kept in (("value", "( {} )", "( {} )"), ("truth", "bool( {} )", "bool( {} )"),
                                 ("effect", "{}", "void( {} )")):
            choices = "".join(f"pimsmMutant( {n} ) ? {each.format(s.after)} : "
                              for n, s in some if s.form == form)
            if choices:
                original = f"( {choices}{kept.format(original)} )"
        for n, s in some:
            if s.form == "statement":
                original = f"if ( pimsmMutant( {n} ) ) {{ {s.after} }} else {original}"
        declared = [(n, s) for n, s in some if s.form == "declared"]
        if declared:
            name = re.search(r"(\w+)\s*(=|\{|\()", declared[0][1].before).group(1)
            original = "; " + "".join(f"pimsmMutant( {n} ) ? {s.after} : " for n, s in declared)
            original += f"bool( {name} )"
        return original

    def emit(low, high, inside):
        out, at = "", low
        while inside:
            start, end = inside[0]
            rest = next((i for i, spot in enumerate(inside) if i and spot[0] >= end),
                        len(inside))
            out += text[at:start].decode() + among(
                groups[start, end], emit(start, end, inside[1:rest]))
            at, inside = end, inside[rest:]
        return out + text[at:high].decode()

    return emit(0, len(text), spots)


def blamed(text, line, column):
    """The number of the mutant that an error at this place belongs to, or None."""
    lines = text.split("\n")
    for back in range(0, min(6, line)):
        found = list(re.finditer(r"pimsmMutant\( (\d+) \)", lines[line - 1 - back]))
        if found:
            before = [m for m in found if back or m.start() < column]
            return int((before[-1] if before else found[0]).group(1))
    return None
