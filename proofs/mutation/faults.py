"""Small faults in sources: one changed line each."""
import hashlib
import re
from collections import defaultdict
from typing import NamedTuple

# What is only compiled for another machine, and what is no code of the product.
OTHER_MACHINE = re.compile(r"ARM_NEON|aarch64|ANDROID")
NO_FAULTS = re.compile(r"\s*(static_assert|using|namespace|template|extern|struct|class|enum)\b")
DECLARATION = re.compile(r"[\w:<>]+(\s*[*&]\s*|\s+)[*&]?\w+")
TABLES = ("tables.cpp", "window_table.h", "twd576_values.inc")


class Fault(NamedTuple):
    """A line of a file, what it was and what becomes of it."""
    file: str
    line: int
    before: str
    after: str
    kind: str

    def key(self):
        return self.file, self.before.strip(), self.after.strip()


def code_only(text, strings=False):
    """The lines of a source with all blanked out that is no code for this machine; strings may stay."""
    def blank(match):
        return match.group() if strings and match[1] else re.sub(r"[^\n]", " ", match.group())

    text = re.sub(r'/\*.*?\*/|//[^\n]*|("(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\')', blank, text, flags=re.S)
    conditions = []
    for line in text.splitlines():
        directive = re.match(r"\s*#\s*(if|elif|else|endif)(.*)", line)
        if directive and directive[1] != "if":
            conditions.pop()
        if directive and directive[1] != "endif":
            conditions.append(directive[2])
        skipped = line.lstrip().startswith("#") or NO_FAULTS.match(line) or any(
            OTHER_MACHINE.search(c) for c in conditions)
        yield "" if skipped else line


def step(match, by):
    """An integer one more or less, written as it was."""
    base = 16 if match[1][:2] in ("0x", "0X") else 8 if re.match(r"0\d", match[1]) else 10
    value = int(match[1], base) + by
    return None if value < 0 else {16: hex(value), 8: f"0{value:o}", 10: str(value)}[base]


def swap(a, b):
    """Rules that put each of two texts in the other's place."""
    return [(re.escape(a), b), (re.escape(b), a)]


def swap_words(a, b):
    """The same for the words of a name."""
    word = r"(?<![a-zA-Z0-9]){}(?![a-zA-Z0-9])"
    return [(word.format(a), b), (word.format(b), a)]


INTEGER = r"(?<![\w.])(0[xX][0-9A-Fa-f]+|\d+)(?=[uU]?(?![\w.]))"
ARGUMENT = r"([^(),]+(?:\([^()]*\))?)"
ORDERED = (r"(sub_wrap|sub|greater|join|even_lanes|odd_lanes|zip_\w+|lower_halves|blend_halves|\w+_from|average"
           r"|first_of_cycle<\w+>|load_two_pairs|split|unsplit|_mm\w+(?:unpack|cmpgt|andnot|sub)_?\w*)")
# For each kind of fault patterns, and what stands in their place: a template, or a function of the match.
RULES = {
    "constant": [(INTEGER, lambda m: step(m, 1)), (INTEGER, lambda m: step(m, -1)),
                 (r"(?<![\w.])(\d+\.\d+(?:e-?\d+)?|\de-\d)(?!\w)", lambda m: repr(float(m[1]) * 1.01)),
                 *swap_words("true", "false")],
    "sign": [*swap(" + ", " - "), *swap(" += ", " -= "), *swap("add_wrap(", "sub_wrap("),
             *swap("_add_epi32", "_sub_epi32"), (r"\badd\(", "sub("), (r"\bsub\(", "add("),
             (r"\bneg_wrap\(", "("), (r"(?<=[(\[{<,=?:])(\s?)-(?=[\w(])", r"\1")],
    "shift": [*swap(">> ", "<< "), (">>= ", "<<= "), *swap("asr<", "lsr<"), (r"\bshl<", "asr<"),
              *swap("shl_each(", "asr_each("), *swap("_srai_", "_srli_"), ("_slli_", "_srli_")],
    "comparison": [*swap(" < ", " <= "), *swap(" > ", " >= "), *swap(" == ", " != "), *swap(" && ", " || "),
                   *swap("minimum(", "maximum("), *swap("std::min(", "std::max("), *swap("_min_", "_max_"),
                   (r"\bif \((.*)\) \{$", r"if (!(\1)) {")],
    "bound": [(r"; (\w+) < ([\w :*.]+); ", r"; \1 < \2 - 1; "), (r"(?<=[; ])(\w+) = 0; (?=\w+ <)", r"\1 = 1; ")],
    "dropped": [(r"^(\s*)(\w[^{}]*( [-+*|&>]*= |\()[^{}]*);$", r"\1;")],
    "operands": [(rf"\b{ORDERED}\({ARGUMENT}, {ARGUMENT}(?=[,)])", r"\1(\3, \2"),
                 (rf"\bselect\({ARGUMENT}, {ARGUMENT}, {ARGUMENT}\)", r"select(\1, \3, \2)"),
                 (r"(?<![-+*/%] )(?<![\w.\]])(\w+) - (\w+)(?![\w.([])", r"\2 - \1"),
                 (r"\? ([^?:]+) : ([^?:;,)]+)", r"? \2 : \1"), *swap("unpacklo", "unpackhi"), *swap("_and_", "_or_"),
                 *swap_words("re", "im"), *swap_words("ch0", "ch1"), *swap_words("cur", "oth"),
                 *swap_words("low", "high"), *swap_words("even", "odd"), *swap_words("rising", "falling")],
}
VALUE = r"(?!const |[\w:<>]+[&*]* [&*]?\w+[,)])([^(){},]+(?:\([^(){}]*\))?)"
TOOL = ("tools/", "segments/")
# What else the tool and the page's scripts are written with: words that decide, and calls of any name.
TOOL_RULES = {
    "text": [(r'"([\w.:-]+)[\w.:-]"', r'"\1"'), (r'"([a-z])([\w.:-]*)"', lambda m: f'"{m[1].upper()}{m[2]}"'),
             (r"(?<!\w)'([a-z])'", lambda m: f"'{m[1].upper()}'")],
    "comparison": [*swap(" === ", " !== "), *swap(" ?? ", " && "), (r"(?<=[(\s])!(?=[\w(])", "")],
    "sign": [*swap(" * ", " / "), *swap("Math.floor(", "Math.ceil("), *swap("Math.min(", "Math.max("),
             (r"Math\.round\(", "Math.floor(")],
    "dropped": [(r"^(\s*)(?:break|continue|return);$", r"\1;")],
    "call": [(rf"(?<=[\w>])\({VALUE}, {VALUE}(?=[,)])", r"(\2, \1"), (r"^(\s*)throw [^{}]*;$", r"\1;"),
             (r"(?<=[\w\])])\.(?:toFixed|trim|toLowerCase|filter|padStart|value_or)\([^()]*\)", ""),
             *swap(".front()", ".back()"), (r"\.findLast", ".find")],
    "operands": [*swap_words("start", "end"), *swap_words("from", "to"), *swap_words("first", "last"),
                 *swap_words("left", "right"), *swap_words("width", "height"), *swap_words("before", "after"),
                 *swap_words("rows", "columns")],
}


def rules_for(file):
    """Pairs of a kind and its rules."""
    if not file.startswith(TOOL):
        return RULES.items()
    rules = {kind: RULES.get(kind, []) + TOOL_RULES.get(kind, []) for kind in {**RULES, **TOOL_RULES}}
    if file.endswith(".h"):
        del rules["dropped"]  # those are declarations
    return rules.items()


def is_nonsense(file, kind, becomes, code, nearby):
    """Whether the compiler of the tool or the browser would not even know the names or types."""
    if not file.startswith(TOOL):
        return False
    if not file.endswith(".js") and (becomes == " ?? " or (kind == "sign" and ('"' in code or "text" in code))):
        return True
    if kind == "shift" and ">> " in code and not re.search(r"\s>>", code):
        return True  # two templates end there
    return kind == "operands" and becomes.isalpha() and not re.search(rf"\b{becomes}\b", nearby)


def faults_of(file, text):
    """All that the rules make of one source, each once."""
    found = {}
    previous = ";"
    all_code = list(code_only(text))
    for number, (line, code, words) in enumerate(zip(text.splitlines(), all_code, code_only(text, strings=True)), 1):
        code = code.rstrip()
        whole = previous[-1] in ";{}:>"  # a statement begins here
        previous = code or previous
        for kind, rules in rules_for(file):
            if kind == "dropped" and (not whole or DECLARATION.match(code.strip())):
                continue
            for pattern, becomes in rules:
                if is_nonsense(file, kind, becomes, words, "\n".join(all_code[max(0, number - 9):number])):
                    continue
                for match in re.finditer(pattern, words if kind == "text" else code):
                    new = becomes(match) if callable(becomes) else re.sub(
                        r"\\(\d)", lambda group: line[slice(*match.span(int(group[1])))], becomes)
                    if new is not None and new != match.group():
                        after = line[:match.start()] + new + line[match.end():]
                        found.setdefault((number, after), Fault(file, number, line, after, kind))
    return list(found.values())


def rank(fault, seed):
    """A place in an order that is random, but stays whatever changes elsewhere."""
    return hashlib.sha256("|".join([seed, *fault.key()]).encode()).digest()


def choose(files, count, seed):
    """At most `count` faults: for each file a share that grows with its code, slower than it; in a file the
    kinds take turns; which of a kind, and which come first, the seed says."""
    by_seed = lambda fault: rank(fault, seed)
    size = {}
    for file, text in files.items():
        lines = sum(1 for code in code_only(text) if re.search(r"\w", code))
        size[file] = min(lines, 12) ** 0.75 if file.endswith(TABLES) else lines ** 0.75
    scale = count / sum(size.values())
    chosen = []
    for file, text in files.items():
        by_kind = defaultdict(list)
        for fault in sorted(faults_of(file, text), key=by_seed):
            by_kind[fault.kind].append(fault)
        turns = [fault for at in range(count) for kind in by_kind.values() for fault in kind[at:at + 1]]
        chosen += turns[:max(2, round(scale * size[file]))]
    return sorted(chosen, key=by_seed)[:count]
