#!/usr/bin/env python3
"""Follows the links of the pages, and types their examples.

    check_pages.py SOURCE-FOLDER PROGRAM-FOLDER

In a block marked as "console" each line after "$ " is a command, and what stands below it is what
it has to say; a line "..." stands for any lines. The commands of one page run in one folder that
holds nothing but build/release/bin. Numbers in lines that tell times are not compared.
"""
import glob
import os
import re
import subprocess
import sys
import tempfile

root, programs = (os.path.abspath(path) for path in sys.argv[1:])
complaints = []


def heading_anchor(line):
    text = re.sub(r"[^\w\- ]", "", line.lstrip("#").strip().lower())
    return text.replace(" ", "-")


def check_links(page, text):
    without_code = re.sub(r"^```.*?^```", "", text, flags=re.M | re.S)
    for target in re.findall(r"\]\(([^)\s]+)\)|<img src=\"([^\"]+)\"", without_code):
        target = target[0] or target[1]
        if re.match(r"\w+:", target):
            continue
        path, _, anchor = target.partition("#")
        file = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
        if not os.path.exists(file):
            complaints.append(f"{page}: {target} leads nowhere")
        elif anchor and file.endswith(".md"):
            with open(file, encoding="utf-8") as there:
                heads = [heading_anchor(line) for line in there if line.startswith("#")]
            if anchor not in heads:
                complaints.append(f"{page}: there is no heading for {target}")


def without_times(line):
    return re.sub(r"\d+(\.\d+)?", "#", line) if "time (u+s)" in line or "rate is" in line else line


def is_as_told(said, told):
    said = "".join(without_times(line) + "\n" for line in said.splitlines())
    pattern = "".join(r"(.*\n)*?" if line == "..." else re.escape(without_times(line)) + r"\n"
                      for line in told)
    return re.fullmatch(pattern, said) is not None


def type_examples(page, text, folder):
    for block in re.findall(r"^```console\n(.*?)^```", text, flags=re.M | re.S):
        for example in re.split(r"^\$ ", block, flags=re.M)[1:]:
            command, *told = example.splitlines()
            said = subprocess.run(["bash", "-c", command], cwd=folder, text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT).stdout
            if not is_as_told(said, told):
                complaints.append(f"{page}: {command}\nsays:\n{said}instead of:\n"
                                  + "\n".join(told))


for page in [f"{root}/README.md", *sorted(glob.glob(f"{root}/docs/**/*.md", recursive=True))]:
    with open(page, encoding="utf-8") as file:
        text = file.read()
    check_links(page, text)
    with tempfile.TemporaryDirectory() as folder:
        os.makedirs(f"{folder}/build/release")
        os.symlink(programs, f"{folder}/build/release/bin")
        os.environ["PATH"] = f"{folder}/build/release/bin:" + os.environ["PATH"]
        type_examples(page, text, folder)

print("\n".join(complaints) or "all links and examples hold")
sys.exit(1 if complaints else 0)
