"""Which changes are made of a piece of source."""

import operators

import pytest


def changes(body: str, kind: str = None) -> list:
    """What becomes of the body of a function, each with the blanks around it taken away."""
    source = "void f()\n{\n    " + body + "\n}\n"
    made = [mutant.applied(source) for mutant in operators.mutants("scan/x.cpp", source) if kind in (None, mutant.kind)]
    return ["\n".join(line.strip() for line in text.split("\n")[2:-2]) for text in made]


@pytest.mark.parametrize("body, kind, expected", [
    pytest.param("x = a < b;", "boundary", ["x = a <= b;", "x = a >= b;"], id="less"),
    pytest.param("x = a >= b;", "boundary", ["x = a < b;", "x = a > b;"], id="not less"),
    pytest.param("x = a == b;", "boundary", ["x = a != b;"], id="equal"),
    pytest.param("x = a && b;", "logical", ["x = a || b;"], id="and"),
    pytest.param("x = a - b;", "arithmetic", ["x = a + b;"], id="minus"),
    pytest.param("x += a;", "arithmetic", ["x -= a;"], id="add to"),
    pytest.param("++x;", "arithmetic", ["--x;"], id="increment"),
    pytest.param("x = a >> b;", "arithmetic", ["x = a << b;"], id="shift"),
    pytest.param("x = !a;", "negation", ["x = a;"], id="not"),
    pytest.param("x = 1;", "constant", ["x = 0;", "x = 2;"], id="one"),
    pytest.param("x = 0;", "constant", ["x = (-1);", "x = 1;"], id="zero"),
    pytest.param("x = 7u;", "constant", ["x = 0u;", "x = 6u;", "x = 8u;"], id="a suffix stays"),
    pytest.param("x = 0x10;", "constant", ["x = 0x0;", "x = 0x11;", "x = 0xf;"], id="hexadecimal"),
    pytest.param("x = 1000;", "constant", ["x = 0;", "x = 1001;"], id="large"),
    pytest.param("x = 1e3;", "constant", ["x = (1e3 + 1);", "x = 0.0;"], id="fraction"),
    pytest.param("x = true;", "constant", ["x = false;"], id="true"),
    pytest.param("x = 'a';", "constant", ["x = 'b';"], id="character"),
    pytest.param("x = '\\n';", "constant", ["x = '#';"], id="escaped character"),
    pytest.param('x = "ab";', "text", ['x = "";', 'x = "a#";'], id="text"),
    pytest.param('x = "a\\r\\n";', "text", ['x = "";', 'x = "a\\r#";'], id="text that ends with an escape"),
    pytest.param('x = "";', "text", ['x = "mutant";'], id="empty text"),
    pytest.param("if (a && b)\nreturn;", "operand", ["if (b)\nreturn;", "if (a)\nreturn;"], id="operands"),
    pytest.param("if (f(a, b))\nreturn;", "condition", ["if (!(f(a, b)))\nreturn;", "if (false)\nreturn;", "if (true)\nreturn;"], id="if"),
    pytest.param("if (a < b)\nreturn;", "condition", ["if (false)\nreturn;", "if (true)\nreturn;"], id="relation, turned round by its operator"),
    pytest.param("while (a)\nf();", "condition", ["while (!(a))\nf();", "while (false)\nf();"], id="while, not for ever"),
    pytest.param("x = a ? b : c;", "condition", ["x = !(a) ? b : c;", "x = false ? b : c;", "x = true ? b : c;"], id="choice"),
    pytest.param("f(a);", "statement", [";"], id="call"),
    pytest.param("f(a,\nb);", "statement", ["\n;"], id="call of two lines"),
    pytest.param("return;", "statement", [";"], id="return"),
    pytest.param("return f(a);", "result", ["return {};"], id="value that is returned"),
    pytest.param("return a < b;", "result", ["return {};"], id="relation that is returned"),
    pytest.param("return QByteArray();", "result", [], id="empty result"),
    pytest.param("return false;", "result", [], id="constant result"),
    pytest.param("return { a, b };", "result", [], id="result put together"),
    pytest.param("x = qMin(a, b);", "call", ["x = qMax(a, b);"], id="least"),
    pytest.param("x = list.last();", "call", ["x = list.first();"], id="last"),
    pytest.param("x = first;", "call", [], id="no call"),
    pytest.param("break;", "statement", [";"], id="break"),
    pytest.param("emit changed();", "statement", [";"], id="signal"),
])
def test_changes(body, kind, expected):
    assert sorted(changes(body, kind)) == sorted(expected)


@pytest.mark.parametrize("body", [
    pytest.param("// if (a < 1) return;", id="comment"),
    pytest.param("/* f(1);\n g(2); */", id="long comment"),
    pytest.param("\n#define X 1\n", id="preprocessor"),
    pytest.param("Q_ASSERT(a < 1);", id="assertion"),
    pytest.param("QList<int> x;", id="template and declaration"),
    pytest.param("const char *const x = y;", id="pointer"),
    pytest.param('debugMessage() << x;', id="stream"),
])
def test_what_is_left_alone(body):
    made = changes(body)
    if "debugMessage" in body:  # only as a whole
        assert made == [";"]
    else:
        assert made == []


def test_semicolons_of_a_for_end_no_statement():
    assert changes("for (i = a; i != b; i = c)\nf();", "statement") == ["for (i = a; i != b; i = c)\n;"]


def test_outside_of_functions_only_values_are_changed():
    source = "static const int x = 5;\nint f(int a);\nclass X\n{\n    int y;\n};\n"
    assert {mutant.kind for mutant in operators.mutants("scan/x.h", source)} == {"constant"}


def test_a_change_leaves_the_number_of_lines():
    source = "void f()\n{\n    g(a,\n        b);\n    h();\n}\n"
    assert {mutant.applied(source).count("\n") for mutant in operators.mutants("scan/x.cpp", source)} == {source.count("\n")}


def test_a_mutant_knows_its_place():
    mutant = [one for one in operators.mutants("scan/x.cpp", "void f()\n{\n    x = a + b;\n}\n") if one.kind == "arithmetic"][0]
    assert (mutant.file, mutant.line, mutant.old_lines, mutant.new_lines) == ("scan/x.cpp", 3, "x = a + b;", "x = a - b;")
