"""Whether the pages of the tools agree with what the tools say of themselves. Each check returns what
is wrong."""
import re
import subprocess

from man_pages import Page

OPTION = re.compile(r"^  (?:-(\w),)?--([\w-]+)(?: ([A-Z]+))?(?:  |$)", re.MULTILINE)


def help_of(program: str, *subcommand: str) -> str:
    return subprocess.run([program, *subcommand, "--help"], check=True, capture_output=True,
                          text=True).stdout


def options_of_help(text: str) -> set[tuple[str, str]]:
    """Each with the name of its argument, in small letters."""
    found = set()
    for short, long, argument in OPTION.findall(text):
        found |= {(f"-{name}", argument.lower()) for name in (short, f"-{long}") if name}
    return found


def options_of_item(item: list[str]) -> set[tuple[str, str]]:
    """Of the words behind .It: Fl -server Ar name, or Fl h , -help."""
    argument = item[3] if item[2:3] == ["Ar"] else ""
    return {(f"-{name}", argument) for name in item[1:] if name not in (",", "Ar", argument)}


def options_of_page(part: list[list[str]]) -> set[tuple[str, str]]:
    return {option for macro in part if macro[:2] == ["It", "Fl"]
            for option in options_of_item(macro[1:])}


def options_of_synopsis(part: list[list[str]]) -> set[tuple[str, str]]:
    found = set()
    text = " ".join(" ".join(macro) for macro in part)
    for name, argument in re.findall(r"(?:Fl|\|) (-\w[\w-]*|h\b)(?: Ar (\w+))?", text):
        found.add((f"-{name}", argument))
    return found


def compare(what: str, of_page: set, of_help: set, source: str = "--help") -> list[str]:
    return [f"{what}: {which} is only {where}"
            for where, only in (("in the page", of_page - of_help), (f"in {source}", of_help - of_page))
            for which in sorted(only)]


def numbers(text: str) -> set[str]:
    return set(re.findall(r"\b\d+\b", text))


def exit_statuses(part: list[list[str]]) -> set[str]:
    return {number for macro in part if macro[0] == "It" for number in numbers(" ".join(macro))}


def check_prepare(page: Page, help_text: str) -> list[str]:
    options = options_of_help(help_text)
    statuses = help_text[help_text.index("Exit status:"):]
    of_help = set().union(*(numbers(line[:19]) for line in statuses.splitlines()))
    return [*compare("options", options_of_page(page.part("Sh DESCRIPTION")), options),
            *compare("synopsis", options_of_synopsis(page.part("Sh SYNOPSIS")), options),
            *compare("exit statuses", exit_statuses(page.part("Sh EXIT STATUS")), of_help)]


def check_ctl(page: Page, help_text: str, helps: dict[str, str]) -> list[str]:
    """With the help of each subcommand."""
    common = options_of_help(help_text)
    subcommands = {macro[2] for macro in page.macros if macro[:2] == ["Ss", "Subcommand"]}
    problems = compare("subcommands", subcommands, set(helps))
    every = common.copy()
    first = page.macros.index(["Ss", "Subcommand", "status"])
    problems += compare("options", options_of_page(page.macros[:first]), common)
    for name, text in helps.items():
        part = page.part(f"Ss Subcommand {name}")
        options = options_of_help(text)
        every |= options
        problems += compare(name, options_of_page(part), options - common)
        arguments = set(re.findall(r"^  (\w+) (\S+\|\S*)", text, re.MULTILINE))
        shown = {(macro[2], "|".join(form)) for macro in part if macro[:2] == ["It", "Ar"]
                 for form in positionals(page, name)}
        problems += compare(f"arguments of {name}", shown,
                            {(argument, form.lower()) for argument, form in arguments})
    problems += compare("synopsis", options_of_synopsis(page.part("Sh SYNOPSIS")), every)
    for text in (help_text, *helps.values()):
        of_help = numbers(text[text.index("Exit status:"):])
        problems += compare("exit statuses", exit_statuses(page.part("Sh EXIT STATUS")), of_help)
    return problems


def check_service(page: Page, unit: str) -> list[str]:
    """Its files."""
    files = set(re.findall(r"/[\w./-]*%i[\w.-]*", unit))
    shown = {macro[2].replace("<instance>", "%i") for macro in page.part("Sh FILES")
             if macro[:2] == ["It", "Pa"] and "<instance>" in macro[2]}
    return compare("files of the service", shown, files, "the unit")


def positionals(page: Page, subcommand: str) -> list[list[str]]:
    """What the synopsis has for the argument of a subcommand: .Ar status | line | Fl"""
    synopsis = page.part("Sh SYNOPSIS")
    at = synopsis.index(["Cm", subcommand])
    return [["-" if word == "Fl" else word for word in synopsis[at + 1][1:] if word != "|"]]


def check_loopback(page: Page, help_text: str) -> list[str]:
    """Its usage, the files that steer it, its answers and exit statuses."""
    usage = set(re.findall(r"ixfs-loopback (u?mount .*)", help_text.lower()))
    shown = subprocess.run(["mandoc", "-Tascii", "-Owidth=200"], input=page.source, check=True,
                           capture_output=True, text=True).stdout
    shown = re.sub(".\b", "", shown)
    steering = help_text[help_text.index(".control/mount/"):help_text.index(".control/calls")]
    files = re.findall(r"^    ([\w-]+)  |^  \.control/(umount)/", steering, re.MULTILINE)
    border = files.index(("", "umount"))
    of_help = {f"mount/{name}" for name, _ in files[:border]} | \
        {f"umount/{name}" for name, _ in files[border + 1:]} | {"umount/..."}
    answers, statuses = help_text[help_text.index("Answers "):].split("The exit status")
    return [*compare("synopsis", set(re.findall(r"^ +ixfs-loopback (u?mount .*)", shown, re.MULTILINE)),
                     usage),
            *compare("files", {macro[2] for macro in page.part("Ss The store")
                               if macro[:2] == ["It", "Pa"]}, of_help),
            *compare("answers", exit_statuses(page.part("Ss Answers")), numbers(answers)),
            *compare("exit statuses", exit_statuses(page.part("Sh EXIT STATUS")), numbers(statuses))]
