#!/usr/bin/env python3
"""Writes the manual pages and the bash completion of the program from its own help.

usage: manual.py PROGRAM FOLDER
"""
import pathlib
import re
import shutil
import subprocess
import sys

PROGRAM, FOLDER = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
LISTS = ("Positionals:", "Options:", "Subcommands:")


class Help:
    """What `keelstone WORDS --help` says."""

    def __init__(self, *words):
        self.words = words
        text = subprocess.run([PROGRAM, *words, "--help"], check=True, text=True,
                              stdout=subprocess.PIPE).stdout
        head, _, rest = text.partition("\nUsage: ")
        self.summary = " ".join(head.split())
        self.usage, _, rest = rest.partition("\n")
        self.lists, self.notes = {}, []
        for paragraph in re.split(r"\n{2,}", rest.strip("\n")):
            title, _, body = paragraph.partition("\n")
            if title in LISTS and not self.notes:
                self.lists[title] = list(entries(body))
            else:
                self.notes.append(paragraph)
        self.children = [Help(*words, name) for name, _ in self.lists.get("Subcommands:", [])]

    @property
    def name(self):
        return "-".join(("keelstone", *self.words))

    def all(self):
        yield self
        for child in self.children:
            yield from child.all()


def entries(body):
    """(what, text) of each entry of a list; text goes on in lines that are indented far."""
    found = []
    for line in body.splitlines():
        if line.startswith(" " * 20):
            found[-1][1] = (found[-1][1] + " " + line.strip()).strip()
        else:
            what, _, text = re.match(r"  (.*?)(\s{2,}|$)(.*)", line).groups()
            found.append([what, text])
    return found


def argument(what):
    """(names, argument, choices, note) of an option as the help shows it."""
    names, _, rest = what.partition(" ")
    note = []
    if rest.endswith(" REQUIRED"):
        rest = rest[:-len(" REQUIRED")]
        note.append("Required.")
    value = re.search(r"=([^=\]}]*)$", rest)
    if value:
        rest = rest[:value.start()]
        note.append(f"Default: {value[1]}.")
    within = re.search(r":?\w* in \[(\S+) - (\S+)\]", rest)
    if within:
        rest = rest[:within.start()]
        note.append(f"From {within[1]} to {within[2]}.")
    choices = re.search(r":\{(.*)\}", rest)
    if choices:
        rest = rest[:choices.start()]
    return names.split(","), rest.strip(), choices[1].split(",") if choices else [], " ".join(note)


def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("`", "\\(ga").replace("'", "\\(aq")
    return re.sub(r"^\.", "\\&.", text, flags=re.M)


def option(what, text):
    names, value, choices, note = argument(what)
    value = "|".join(choices) or value
    term = ", ".join(f"\\fB{roff(name)}\\fR" for name in names)
    if value:
        term += f" \\fI{roff(value)}\\fR"
    text = text if not note else f"{text.rstrip('.')}. {note}"
    return f".TP\n{term}\n{roff(text)}\n"


def note(paragraph):
    title, _, body = paragraph.partition("\n")
    heads = {"Examples:": "EXAMPLES", "Exit codes:": "EXIT STATUS"}
    for start, head in heads.items():
        if paragraph.startswith(start):
            title, body = head, paragraph[len(start):].lstrip("\n")
            break
    else:
        title, body = None, paragraph
    out = f".SH {title}\n" if title else ".PP\n"
    open_block = False
    for line in body.splitlines():
        if line.startswith("  ") and not open_block:
            out += ".PP\n.nf\n.RS 2\n" if not out.endswith("\n.PP\n") else ".nf\n.RS 2\n"
            open_block = True
        elif not line.startswith("  ") and open_block:
            out += ".RE\n.fi\n.PP\n"
            open_block = False
        out += roff(line[2:] if open_block else line.strip()) + "\n"
    return out + (".RE\n.fi\n" if open_block else "")


def page(help_, root, version):
    synopsis = help_.usage.replace("[OPTIONS]", "[OPTION...]").replace("SUBCOMMAND", "COMMAND")
    out = f'.TH {roff(help_.name.upper())} 1 "" "Keelstone {version}" "Keelstone"\n'
    out += f".SH NAME\n{roff(help_.name)} \\- {roff(lower(help_.summary))}\n"
    out += f".SH SYNOPSIS\n.B {roff(synopsis)}\n"
    positionals = help_.lists.get("Positionals:", [])
    if positionals:
        out += ".SH ARGUMENTS\n"
        for what, text in positionals:
            out += f".TP\n.I {roff(what.split()[0])}\n{roff(text)}\n"
    if help_.children:
        out += ".SH COMMANDS\n"
        for child in help_.children:
            out += (f".TP\n.B {roff(' '.join(child.words))}\n{roff(child.summary)}; see\n"
                    f".BR {roff(child.name)} (1).\n")
    out += ".SH OPTIONS\n" + "".join(option(*entry) for entry in help_.lists["Options:"])
    own = [paragraph for paragraph in help_.notes
           if help_ is root or paragraph not in root.notes]
    plain = [paragraph for paragraph in own if not re.match("Examples:|Exit codes:", paragraph)]
    if plain:
        out += ".SH NOTES\n" + "".join(note(paragraph) for paragraph in plain).replace(
            ".PP\n", "", 1)
    out += "".join(note(paragraph) for paragraph in own if paragraph not in plain)
    others = [other.name for other in root.all() if other is not help_ and not other.children]
    out += ".SH SEE ALSO\n" + ",\n".join(f".BR {roff(name)} (1)" for name in others) + "\n"
    return out


def lower(text):
    return text[:1].lower() + text[1:].rstrip(".")


def completion(root):
    cases = ""
    for help_ in root.all():
        words = [child.words[-1] for child in help_.children]
        values = ""
        for what, _ in help_.lists["Options:"]:
            names, value, choices, _ = argument(what)
            pattern = "|".join(names)
            words += [name for name in names if name.startswith("--")]
            if choices:
                values += f"      {pattern}) COMPREPLY=($(compgen -W '{' '.join(choices)}' -- \"$cur\")); return ;;\n"
            elif value in ("DIR",):
                values += f"      {pattern}) COMPREPLY=($(compgen -d -- \"$cur\")); return ;;\n"
            elif value == "FILE":
                values += f"      {pattern}) COMPREPLY=($(compgen -f -- \"$cur\")); return ;;\n"
            elif value:
                values += f"      {pattern}) return ;;\n"
        cases += f"  '{' '.join(help_.words)}')\n"
        if values:
            cases += f"    case $prev in\n{values}    esac\n"
        cases += f"    words='{' '.join(words)}'\n    ;;\n"
    groups = "|".join(" ".join(help_.words) for help_ in root.all() if help_.children and help_.words)
    return f"""# Completes the command line of keelstone in bash.
_keelstone() {{
  local cur=${{COMP_WORDS[COMP_CWORD]}} prev=${{COMP_WORDS[COMP_CWORD-1]}} command='' words='' word
  COMPREPLY=()
  for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
    case $command in
      '') case $word in {"|".join(child.words[0] for child in root.children)}) command=$word ;; esac ;;
      {groups}) case $word in [a-z]*) command="$command $word" ;; esac ;;
    esac
  done
  case $command in
{cases}  esac
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
  else
    local names=''
    for word in $words; do [[ $word == -* ]] || names+=" $word"; done
    COMPREPLY=($(compgen -W "$names" -- "$cur"))
    [[ -n $names ]] || COMPREPLY=($(compgen -f -- "$cur"))
  fi
}}
complete -o filenames -F _keelstone keelstone
"""


def main():
    root = Help()
    version = subprocess.run([PROGRAM, "--version"], check=True, text=True,
                             stdout=subprocess.PIPE).stdout.split()[-1]
    shutil.rmtree(FOLDER, ignore_errors=True)
    FOLDER.mkdir(parents=True)
    for help_ in root.all():
        (FOLDER / f"{help_.name}.1").write_text(page(help_, root, version))
    (FOLDER / "keelstone.bash").write_text(completion(root))


if __name__ == "__main__":
    main()
