#!/usr/bin/python3
"""Whether the completions of bash and zsh offer what the programs' --help names, and nothing else.

    completion_test.py PROGRAMS_FOLDER COMPLETIONS_FOLDER
"""
import os
import re
import shutil
import subprocess
import sys

CHOICES = {"--flv": ["standard", "strict"], "--proxy-type": ["http", "socks5"]}
COMMAND_LINES = (("mediaworker-ctl", "play"), ("mediaworker-ctl", "export"), ("mediaworker-view",))


def run(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


def check(actual, expected, *where):
    if sorted(actual) != sorted(expected):
        raise AssertionError("%s: offered %s, expected %s" % (" ".join(where), sorted(actual), sorted(expected)))


def options_of(text):
    """The options of a help text, each with the name of its value, or an empty one."""
    return dict(re.findall(r"^ +(?:-\w, )?(--[\w-]+)(?: <(\w+)>)?", text, re.MULTILINE))


def commands_of(text):
    return re.findall(r"^  ([a-z]+)", text.partition("Commands:\n")[2].partition("\n\n")[0], re.MULTILINE)


def bash(file, *words):
    """What the key Tab offers behind these words, the last of which is not complete."""
    script = ('. "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _mediaworker "$1"; '
              'printf "%s\\n" "${COMPREPLY[@]}"')
    return run("bash", "--norc", "-c", script, "bash", file, *words).split()


def zsh(file, *words):
    """What the shell's own functions are asked to offer there."""
    script = ('compadd() { shift; print -rl -- "$@"; }; _arguments() { print -rl -- "$@"; }; file=$1; shift; '
              'complete_it() { local -a words; words=("$@"); integer CURRENT=$#; . $file; }; complete_it "$@"')
    return run("zsh", "-f", "-c", script, "zsh", file, *words).splitlines()


def check_bash(programs, file):
    if not shutil.which("bash"):
        print("left out: there is no bash")
        return
    ctl = programs + "/mediaworker-ctl"
    commands = commands_of(run(ctl, "--help"))
    check(bash(file, ctl, ""), commands + ["--help", "--version"], ctl)
    check(bash(file, ctl, "help", ""), commands, ctl, "help")
    for name, *command in COMMAND_LINES:
        line = [programs + "/" + name] + command
        options = options_of(run(*line, "--help"))
        check(bash(file, *line, "--"), options, *line)
        for option, value in options.items():
            offered = bash(file, *line, option, "")
            if option in CHOICES:
                check(offered, CHOICES[option], *line, option)
            elif value == "DIR":
                check(offered, [each.name for each in os.scandir() if each.is_dir()], *line, option)
            elif value in ("FILE", ""):
                check(offered, os.listdir(), *line, option)
            else:
                check(offered, [], *line, option)


def check_zsh(programs, file):
    if not shutil.which("zsh"):
        print("left out: there is no zsh")
        return
    ctl = programs + "/mediaworker-ctl"
    check(zsh(file, ctl, ""), commands_of(run(ctl, "--help")) + ["--help", "--version"], ctl)
    for name, *command in COMMAND_LINES:
        line = [programs + "/" + name] + command
        expected = ["*:URL or file:_files"]
        for option, value in options_of(run(*line, "--help")).items():
            action = " "
            if option in CHOICES:
                action = "(%s)" % " ".join(CHOICES[option])
            elif value in ("DIR", "FILE"):
                action = {"DIR": "_files -/", "FILE": "_files"}[value]
            expected.append("%s:%s:%s" % (option, value, action) if value else option)
        check(zsh(file, *line, "--"), expected, *line)


def main(programs, completions):
    for choices in CHOICES.items():
        for name, *command in COMMAND_LINES:
            text = run(programs + "/" + name, *command, "--help")
            if choices[0] in options_of(text):
                for choice in choices[1]:
                    if not re.search(r"\b%s\b" % choice, text):
                        raise AssertionError("%s does not know %s" % (choices[0], choice))
    check_bash(programs, completions + "/mediaworker.bash")
    check_zsh(programs, completions + "/_mediaworker")


if __name__ == "__main__":
    main(os.path.realpath(sys.argv[1]), os.path.realpath(sys.argv[2]))
