#!/usr/bin/env python3
"""Keeps the manual pages, completions and guides true to the programs.

  check_docs.py options --talvex FILE --sample FILE
      The options in manual pages, completions and --help are the same, and take a value or none as
      the programs do; manual pages carry the version of the program.
  check_docs.py links
      Links in the documents lead to files and headings that are there.
  check_docs.py excerpts --talvex FILE --sample FILE --llvm-objdump FILE
      The excerpts in docs/reading-a-report.md stand in the reports of the sample dumps.
"""

import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent

problems = []


def problem(text):
    problems.append(text)


def read(path):
    return (ROOT / path).read_text(encoding='utf-8')


def output_of(program, *arguments, cwd=None):
    result = subprocess.run([program, *arguments], cwd=cwd, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, timeout=60, check=False)
    return result.stdout


# --------------------------------------------------------------------------------------------------
# Options. Each source gives {option: whether it takes a value}.


def options_in_help(program):
    """The options of --help, which begin its indented lines. Whether one takes a value is for the
    program to say: run with that option alone it asks for one."""
    names = set()
    for line in output_of(program, '--help').splitlines():
        match = re.match(r'  (--[a-z][a-z_-]*)(?:, (-[a-z]))?', line)
        if match:
            names.update(filter(None, match.groups()))
    with tempfile.TemporaryDirectory() as empty:
        return {name: asks_for_value(output_of(program, name, cwd=empty)) for name in names}


def asks_for_value(text):
    return bool(re.search(r'error: Bad \w+( \w+)? argument$|needs a value', text, re.MULTILINE))


def options_in_manual(program):
    """The tags of the section OPTIONS: "\\fB\\-\\-input\\fR \\fIfile\\fR, \\fB\\-i\\fR \\fIfile\\fR"."""
    section = re.search(r'^\.SH OPTIONS\n(.*?)^\.SH ', read(f'man/{program}.1'), re.M | re.S).group(1)
    options = {}
    for tag in re.findall(r'^\.TP\n(.*)$', section, re.MULTILINE):
        plain = re.sub(r'\\f[BIR]|^\.B ', '', tag).replace('\\-', '-')
        for word in plain.split(', '):
            name, *value = word.split()
            if name.startswith('-'):
                options[name] = bool(value)
    return options


def options_in_bash(program):
    """What the completion itself offers: of an option it does not offer options behind it when that
    takes a value."""
    function = '_' + program.replace('-', '_')
    script = f'''source {ROOT}/completions/{program}.bash
      cd "$(mktemp -d)"
      COMPREPLY=(); {function} {program} "" {program}; all=("${{COMPREPLY[@]}}")
      for option in "${{all[@]}}"; do
        COMPREPLY=(); {function} {program} "" "$option"
        echo "$option ${{COMPREPLY[*]}}"
      done
      rmdir "$PWD"'''
    options = {}
    for line in output_of('/bin/bash', '--norc', '-c', script).splitlines():
        name, *offered = line.split()
        options[name] = '--help' not in offered
    return options


def options_in_zsh(program):
    """What _arguments is told: "'(--input -i)'{--input,-i}'[core file]:core file:_files'"."""
    options = {}
    for line in read(f'completions/_{program}').splitlines():
        match = re.search(r"(?:\{(\S+)\}'|(--[\w-]+))\[[^]]*\](:)?", line)
        if match:
            for name in (match.group(1) or match.group(2)).split(','):
                options[name] = match.group(3) is not None
    return options


def options_in_fish(program):
    options = {}
    for line in read(f'completions/{program}.fish').splitlines():
        takes_value = bool(re.search(r' -(r|x)\b', line))
        for flag, name in re.findall(r' -(l|s) ([\w-]+)', line):
            options[('--' if flag == 'l' else '-') + name] = takes_value
    return options


def compare_options(program, source, expected, found):
    for name in sorted(expected.keys() | found.keys()):
        if name not in found:
            problem(f'{program}: {source} lacks {name}')
        elif name not in expected:
            problem(f'{program}: {source} has {name}, which the program does not know')
        elif expected[name] != found[name]:
            problem(f'{program}: {source} and the program differ on whether {name} takes a value')


def check_options(arguments):
    for program, binary in (('talvex', arguments.talvex), ('talvex-sample', arguments.sample)):
        expected = options_in_help(binary)
        if '--help' not in expected or not any(expected.values()):
            problem(f'{program}: no options found in --help')
        compare_options(program, 'the manual page', expected, options_in_manual(program))
        compare_options(program, 'the bash completion', expected, options_in_bash(program))
        compare_options(program, 'the zsh completion', expected, options_in_zsh(program))
        compare_options(program, 'the fish completion', expected, options_in_fish(program))
    version = output_of(arguments.talvex, '--version').replace('version: ', '').strip()
    for page in ('man/talvex.1', 'man/talvex-sample.1'):
        if f'"talvex {version}"' not in read(page).splitlines()[0]:
            problem(f'{page}: its first line does not name version {version}')


# --------------------------------------------------------------------------------------------------
# Links


def anchors_of(text):
    """The anchors of a document's headings, as Markdown viewers make them."""
    anchors = set()
    for heading in re.findall(r'^#+ (.*)$', without_code(text), re.MULTILINE):
        anchors.add(re.sub(r'[^\w\- ]', '', heading.lower()).replace(' ', '-'))
    return anchors


def without_code(text):
    return re.sub(r'^( *)```.*?^\1```$', '', text, flags=re.MULTILINE | re.DOTALL)


def check_links(_):
    documents = [*ROOT.glob('*.md'), *ROOT.glob('docs/*.md'), *ROOT.glob('tests/golden/*.md')]
    links = 0
    for document in documents:
        text = document.read_text(encoding='utf-8')
        for link in re.findall(r'\]\(([^)\s]+)\)', without_code(text)):
            if link.startswith('http'):
                continue
            links += 1
            path, _, anchor = link.partition('#')
            target = document.parent / path if path else document
            if not target.exists():
                problem(f'{document.relative_to(ROOT)}: no file at the link {link}')
            elif anchor and anchor not in anchors_of(target.read_text(encoding='utf-8')):
                problem(f'{document.relative_to(ROOT)}: no heading at the link {link}')
    if links == 0:
        problem('no links found')


# --------------------------------------------------------------------------------------------------
# Excerpts: a code block behind "<!-- excerpt: DUMP/FILE -->". A line "[...]" stands for any lines,
# "[...]" inside a line for anything.

DUMPS = {
    'vm-fault': ('vm-fault', '2'),
    'illegal-instruction': ('queue-error', '2'),
    'out-of-scratch': ('queue-error', '1'),
    'hang': ('signal', '1'),
}

EXCERPT = re.compile(r'^( *)<!-- excerpt: ([\w-]+)/(\S+) -->\n\1```\n(.*?)^\1```$', re.M | re.S)


def make_reports(arguments, work):
    tool = work / 'rocm/llvm/bin/llvm-objdump'
    tool.parent.mkdir(parents=True)
    tool.symlink_to(os.path.realpath(arguments.llvm_objdump))
    for name, (reason, seed) in DUMPS.items():
        dump = work / name
        subprocess.run([arguments.sample, '--output', dump, '--reason', reason, '--seed', seed],
                       check=True, stdout=subprocess.DEVNULL)
        subprocess.run([arguments.talvex, '-i', dump / 'core_0', '-m', dump / 'mems',
                        '-o', dump / 'report', '-r', work / 'rocm'], check=True)


def excerpt_pattern(excerpt, indent):
    pattern = ''
    for line in excerpt.splitlines():
        line = line.removeprefix(indent)
        if line == '[...]':
            pattern += r'(?:.*\n)*?'
        else:
            pattern += r'.*'.join(map(re.escape, line.split('[...]'))) + '\n'
    return re.compile('^' + pattern, re.MULTILINE)


def check_excerpts(arguments):
    excerpts = EXCERPT.findall(read('docs/reading-a-report.md'))
    if not excerpts:
        problem('no excerpts found')
    with tempfile.TemporaryDirectory() as directory:
        work = pathlib.Path(directory)
        make_reports(arguments, work)
        for indent, dump, name, excerpt in excerpts:
            report = (work / dump / 'report' / name).read_text(encoding='utf-8')
            if not excerpt_pattern(excerpt, indent).search(report):
                problem(f'not in {dump}/{name}:\n{excerpt}')


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    checks = {'options': check_options, 'links': check_links, 'excerpts': check_excerpts}
    parser.add_argument('check', choices=checks)
    parser.add_argument('--talvex', type=os.path.abspath)
    parser.add_argument('--sample', type=os.path.abspath)
    parser.add_argument('--llvm-objdump')
    arguments = parser.parse_args()
    checks[arguments.check](arguments)
    for text in problems:
        print('check_docs: ' + text)
    return 1 if problems else 0


if __name__ == '__main__':
    sys.exit(main())
