#!/usr/bin/env python3
"""Mutant generator for scripts/mutate.sh.

  mutate.py families                      list the families
  mutate.py sources FAMILY                its source files, one per line
  mutate.py list FAMILY --max N --seed S  the sample: "index<TAB>file:line<TAB>change"
  mutate.py apply FAMILY INDEX --max N --seed S
                                          write mutant INDEX of that sample into its file

A mutant changes one spot of code outside comments, string literals and
preprocessor lines. The sample depends only on the source text, the seed and
the cap, so two runs over the same sources test the same mutants.
"""
import os
import random
import re
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# Sources tested by another family's test program than their own name says.
EXTRA_SOURCES = {"https": ["https_nonblock"], "json": ["json_field"]}
NOT_FAMILIES = {"https_nonblock", "json_field"}


def families():
    found = {}
    for sub in sorted(os.listdir(os.path.join(ROOT, "src"))):
        d = os.path.join(ROOT, "src", sub)
        for f in sorted(os.listdir(d)):
            stem, ext = os.path.splitext(f)
            if ext == ".cpp" and stem not in NOT_FAMILIES:
                found[stem] = sub
    return found


def sources(family):
    fams = families()
    if family not in fams:
        sys.exit(f"mutate.py: no family {family}")
    sub = fams[family]
    return [f"src/{sub}/{stem}.cpp" for stem in [family] + EXTRA_SOURCES.get(family, [])]


def code_mask(lines):
    """Per line, a list of booleans: True where the character is code."""
    masks = []
    in_block = False
    for line in lines:
        mask = [False] * len(line)
        if not in_block and line.lstrip().startswith("#"):
            masks.append(mask)
            continue
        i = 0
        quote = None
        while i < len(line):
            c = line[i]
            if in_block:
                if line.startswith("*/", i):
                    in_block = False
                    i += 2
                    continue
            elif quote:
                if c == "\\":
                    i += 2
                    continue
                if c == quote:
                    quote = None
            elif line.startswith("//", i):
                break
            elif line.startswith("/*", i):
                in_block = True
                i += 2
                continue
            elif c in "\"'":
                # a digit separator (1'000) is not a quote
                if c == "'" and i > 0 and line[i - 1].isalnum() and i + 1 < len(line) and line[i + 1].isalnum():
                    mask[i] = True
                else:
                    quote = c
            else:
                mask[i] = True
            i += 1
        masks.append(mask)
    return masks


# (pattern, replacement, label). Patterns match at a code position; group
# "op" is what gets replaced.
OPERATORS = [
    (r"(?<![<>=!])(?P<op><=)(?!=)", "<", "<= to <"),
    (r"(?<![<>=!])(?P<op>>=)(?!=)", ">", ">= to >"),
    (r"(?<![<>\-=!])(?P<op><)(?![<=])", "<=", "< to <="),
    (r"(?<![<>\-=!])(?P<op>>)(?![>=])", ">=", "> to >="),
    (r"(?P<op>==)", "!=", "== to !="),
    (r"(?P<op>!=)", "==", "!= to =="),
    (r"(?P<op>&&)", "||", "&& to ||"),
    (r"(?P<op>\|\|)", "&&", "|| to &&"),
    (r"(?<=[\w)\]] )(?P<op>\+)(?= [\w(])", "-", "+ to -"),
    (r"(?<=[\w)\]] )(?P<op>-)(?= [\w(])", "+", "- to +"),
    (r"(?<=[\w)\]] )(?P<op>/)(?= [\w(])", "*", "/ to *"),
    (r"(?<=[\w)\]] )(?P<op>%)(?= [\w(])", "*", "% to *"),
    (r"(?P<op>\+=)", "-=", "+= to -="),
    (r"(?P<op>-=)", "+=", "-= to +="),
    (r"(?P<op>\+\+)", "--", "++ to --"),
    (r"(?P<op>--)", "++", "-- to ++"),
    (r"(?<![\w.])(?P<op>true)(?!\w)", "false", "true to false"),
    (r"(?<![\w.])(?P<op>false)(?!\w)", "true", "false to true"),
]

TEMPLATE = re.compile(r"<[\w:\s\*,&]*>")
NUMBER = re.compile(r"(?<![\w.])(?P<op>\d+)(?![\w.'])")
IF_COND = re.compile(r"\b(?:if|while) \(")
RETURN = re.compile(r"^\s*return (?P<op>-?\d+|true|false|nullptr)\s*;")
DECLARATION = re.compile(r"^\s*(?:const\s+|static\s+|constexpr\s+|auto\s+)*[\w:<>,\s]+[\s\*&]+\w+\s*(?:=|;|\[|\{|\()")
STATEMENT = re.compile(r"^\s*[\w][\w.\->\[\]\s\*]*(?:\(.*\)|\s*[-+*/|&^]?=\s*.+|\+\+|--)\s*;\s*$")
SKIP_STATEMENT = re.compile(r"^\s*(?:return|break|continue|goto|case|default|using|typedef|static_assert)\b")


def template_spans(line):
    return [(m.start(), m.end()) for m in TEMPLATE.finditer(line)
            if m.start() > 0 and (line[m.start() - 1].isalnum() or line[m.start() - 1] == "_")]


def matching_paren(line, open_at):
    depth = 0
    for i in range(open_at, len(line)):
        if line[i] == "(":
            depth += 1
        elif line[i] == ")":
            depth -= 1
            if depth == 0:
                return i
    return -1


def mutants_of(path):
    with open(os.path.join(ROOT, path)) as f:
        lines = f.read().split("\n")
    masks = code_mask(lines)
    out = []  # (line number, start, end, replacement, label)

    def is_code(n, a, b):
        return all(masks[n][a:b])

    for n, line in enumerate(lines):
        if not any(masks[n]):
            continue
        spans = template_spans(line)

        def in_template(pos):
            return any(a <= pos < b for a, b in spans)

        for pattern, repl, label in OPERATORS:
            for m in re.finditer(pattern, line):
                a, b = m.span("op")
                if not is_code(n, a, b) or in_template(a):
                    continue
                if line[a:b] in ("<", ">") and ("<<" in line[a - 1:a + 2] or ">>" in line[a - 1:a + 2]):
                    continue
                out.append((n, a, b, repl, label))
        for m in NUMBER.finditer(line):
            a, b = m.span("op")
            if not is_code(n, a, b) or in_template(a) or re.search(r"\[\s*$", line[:a]):
                continue
            value = int(m.group("op"))
            out.append((n, a, b, str(value + 1), f"{value} to {value + 1}"))
            if value > 0:
                out.append((n, a, b, str(value - 1), f"{value} to {value - 1}"))
        for m in IF_COND.finditer(line):
            open_at = m.end() - 1
            close = matching_paren(line, open_at)
            if close < 0 or not is_code(n, m.start(), m.end()):
                continue
            cond = line[open_at + 1:close]
            out.append((n, open_at + 1, close, f"!({cond})", f"negate condition ({cond})"))
            if m.group(0).startswith("if"):
                out.append((n, open_at + 1, close, "false", f"drop check ({cond})"))
        m = RETURN.match(line)
        if m and is_code(n, *m.span("op")):
            value = m.group("op")
            swapped = {"true": "false", "false": "true", "nullptr": None, "0": "-1"}.get(value, "0")
            if swapped is not None:
                a, b = m.span("op")
                out.append((n, a, b, swapped, f"return {value} to return {swapped}"))
        if (STATEMENT.match(line) and not SKIP_STATEMENT.match(line) and not DECLARATION.match(line)
                and is_code(n, len(line) - len(line.lstrip()), len(line.rstrip()))):
            a = len(line) - len(line.lstrip())
            out.append((n, a, len(line.rstrip()), ";", f"drop statement `{line.strip()}`"))
    # Number and true/false rules can both hit one spot: keep one mutant per change.
    seen = set()
    unique = []
    for mut in out:
        key = (mut[0], mut[1], mut[2], mut[3])
        if key not in seen:
            seen.add(key)
            unique.append((path,) + mut)
    return unique


def sample(family, cap, seed):
    every = [m for src in sources(family) for m in mutants_of(src)]
    rng = random.Random(f"{seed}:{family}")
    chosen = every if cap <= 0 or cap >= len(every) else rng.sample(every, cap)
    return sorted(chosen, key=lambda m: (m[0], m[1], m[2], m[4])), len(every)


def describe(m):
    path, n, a, b, repl, label = m
    return f"{path}:{n + 1}\t{label}"


def apply(m):
    path, n, a, b, repl, _ = m
    full = os.path.join(ROOT, path)
    with open(full) as f:
        lines = f.read().split("\n")
    lines[n] = lines[n][:a] + repl + lines[n][b:]
    with open(full, "w") as f:
        f.write("\n".join(lines))


def main(argv):
    args = list(argv)
    cap, seed = 0, 1

    def take(flag, default):
        if flag in args:
            i = args.index(flag)
            value = args[i + 1]
            del args[i:i + 2]
            return value
        return default

    cap = int(take("--max", cap))
    seed = take("--seed", seed)
    if not args:
        sys.exit(__doc__)
    cmd = args[0]
    if cmd == "families":
        print("\n".join(families()))
    elif cmd == "sources":
        print("\n".join(sources(args[1])))
    elif cmd == "list":
        chosen, total = sample(args[1], cap, seed)
        print(f"# {len(chosen)} of {total}", file=sys.stderr)
        for i, m in enumerate(chosen):
            print(f"{i}\t{describe(m)}")
    elif cmd == "apply":
        chosen, _ = sample(args[1], cap, seed)
        apply(chosen[int(args[2])])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
