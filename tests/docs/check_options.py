#!/usr/bin/env python3
"""Holds all that tells of the options against the parser's own tables.

    check_options.py SOURCE-FOLDER PROGRAM

The README's table, the manual page, both completions and the page of --help have to know the same
letters, the same arguments and the same ranges. The first complaint of each place is printed.
"""
import os
import re
import subprocess
import sys

root, program = sys.argv[1:]
complaints = []


def text_of(path):
    with open(os.path.join(root, path), encoding="utf-8") as file:
        return file.read()


def expect(good, place, what):
    if not good:
        complaints.append(f"{place}: {what}")


def expect_same(place, what, found, expected):
    expect(found == expected, place, f"{what}: {found} instead of {expected}")


def one(pattern, text, flags=0):
    match = re.search(pattern, text, flags)
    if not match:
        sys.exit(f"check_options.py: nothing looks like {pattern} any more")
    return match


# The parser: letter -> takes an argument, and letter -> range as the documents put it.
string = one(r'k_option_string = "([^"]+)"', text_of("src/run/options.cpp"))[1]
letters = {letter: bool(colon) for letter, colon in re.findall(r"(\w)(:?)", string)}
without_effect = set("lnp")

# Where two options are told of by one letter, the value's name tells them apart.
rows = re.findall(r"\{given_\w+, (check_\w+), '(\w)', &run_options::(\w+), ([-.\d]+), ([-.\d]+)\}",
                  text_of("src/run/options_check.cpp"))
letter_of_value = dict((value, letter) for letter, value in re.findall(
    r"\{'(\w)', given_\w+, &run_options::(\w+)\}", text_of("src/run/options.cpp")))
ranges = {}
for kind, _, value, low, high in rows:
    ranges[letter_of_value[value]] = (
        "> 0" if kind == "check_tolerance" else f"{float(low):g} to {float(high):g}")
expect(len(rows) >= 9, "options_check.cpp", f"only {len(rows)} rows of checks were found")


def check_letters(place, found, but=frozenset()):
    """found: letter -> has an argument."""
    for letter in sorted(set(letters) - but - set(found)):
        expect(False, place, f"-{letter} is missing")
    for letter in sorted(set(found) - set(letters)):
        expect(False, place, f"there is no -{letter}")
    for letter in sorted(set(found) & set(letters)):
        expect_same(place, f"-{letter} has an argument", found[letter], letters[letter])


def check_ranges(place, text_by_letter, words=lambda text: text, but=frozenset()):
    for letter in sorted(set(ranges) - but):
        text = " ".join(text_by_letter.get(letter, "").lower().split())
        expect(words(ranges[letter]) in text, place,
               f"-{letter} does not tell its range {words(ranges[letter])}")


# README: | `-r` | mm | > 0 | ...
found, told = {}, {}
for line in text_of("README.md").splitlines():
    cells = [cell.strip() for cell in line.split("|")[1:-1]]
    names = re.findall(r"`-(\w)`", cells[0]) if len(cells) == 6 else []
    for name in names:
        expect(name not in found, "README", f"-{name} stands there twice")
        found[name] = cells[1] != ""
        told[name] = cells[2]
check_letters("README", found)
check_ranges("README", told, but={"p"})

# Manual page: .It Fl r Ar mm
page = text_of("man/velmora.1")
items = re.split(r"^\.It Fl ", page, flags=re.M)[1:]
items = {item[0]: item for item in items if item[1] in " \n"}
check_letters("man page", {k: " Ar " in item.split("\n")[0] for k, item in items.items()})
check_ranges("man page", items,
             lambda told: "greater than 0" if told == "> 0" else f"from {told}")

# The program's own page.
help_page = subprocess.run([program, "--help"], capture_output=True, text=True, check=True).stdout
lines = [line for line in help_page.splitlines() if re.match(r"  -\w ", line)]
check_letters("--help", {line[3]: bool(re.match(r"  -\w [A-Z0-9]", line)) for line in lines},
              but=without_effect)
check_ranges("--help", {line[3]: line for line in lines}, but=without_effect)

# zsh: '-r+[distance tolerance, > 0]:mm: '
zsh = re.findall(r"""^ +['"]-(\w)(\+?)(\[.*?\])""", text_of("completions/_velmora"), re.M)
check_letters("zsh completion", {letter: bool(plus) for letter, plus, _ in zsh})
check_ranges("zsh completion", {letter: told for letter, _, told in zsh})


# bash: the function itself is asked.
def bash_offers(*words):
    script = (f". {root}/completions/velmora.bash; COMP_WORDS=(\"$@\"); "
              'COMP_CWORD=$(($# - 1)); _velmora; printf "%s\\n" "${COMPREPLY[@]}"')
    done = subprocess.run(["bash", "-c", script, "bash", "velmora", *words],
                          capture_output=True, text=True, check=True)
    return set(done.stdout.split())


offered = bash_offers("-P", "-")
expect_same("bash completion", "letters", sorted(offered), sorted("-" + k for k in letters))
expect_same("bash completion", "first word", bash_offers("-") - offered, {"--help", "--version"})
for letter, takes_argument in letters.items():
    offered_behind = bash_offers("-" + letter, "-") & offered
    expect(not (takes_argument and offered_behind), "bash completion",
           f"-{letter} is followed by options")
forms = {letter: {x for x in "abm" if "is_" + {"a": "ascii", "b": "binary", "m": "kvd"}[x] in row}
         for letter, row in re.findall(r"\{'([EFO])', (\w+_is_ascii, [^}]*)\}",
                                       text_of("src/run/options.cpp"))}
modes = {str(i + 1) for i in range(4)}
for letter, values in {**forms, "q": modes}.items():
    expect_same("bash completion", f"-{letter}", bash_offers("-" + letter, ""), values)
    told = one(rf"""['"]-{letter}\+\[.*?\]:\w+:(.*)""", text_of("completions/_velmora"))[1]
    told = one(r"forms='(.*)'", text_of("completions/_velmora"))[1] if "$forms" in told else told
    expect_same("zsh completion", f"-{letter}", set(re.findall(r"(\w)\\+:", told)), values)

# One version everywhere.
version = one(r'k_version_id = "VELMORA version ([\d.]+)"', text_of("src/run/options.h"))[1]
built = one(r"project\(velmora VERSION ([\d.]+)", text_of("CMakeLists.txt"))[1]
expect_same("CMakeLists.txt", "version", built, version)

print("\n".join(complaints) or f"{len(letters)} options agree in all places")
sys.exit(1 if complaints else 0)
