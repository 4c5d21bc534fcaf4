"""Whether the man pages agree with the headers and with one another. Each check returns what is
wrong."""
import re
from collections import Counter

from man_pages import Page, Prototype
from public_headers import Headers, tokens

# Pages of others to which ours refer.
FOREIGN = {("dlclose", "3"), ("execve", "2"), ("exit", "3"), ("fork", "2"), ("ipcs", "1"),
           ("link", "2"), ("malloc", "3"), ("mkdir", "2"), ("mount_namespaces", "7"),
           ("pkg-config", "1"), ("printf", "3"), ("sh", "1"), ("systemctl", "1"), ("sysvipc", "7"),
           ("unshare", "1")}
# They bound the type of the statuses, and are none.
NO_STATUS = {"EC_STATUS_LOWEST", "EC_STATUS_HIGHEST"}


def normal(prototype: Prototype) -> tuple[str, str, str, tuple[str, ...]]:
    return (prototype.header, tokens(prototype.result), prototype.name,
            tuple(map(tokens, prototype.arguments)))


def check_prototypes(pages: list[Page], headers: Headers) -> list[str]:
    documented = [prototype for page in pages for prototype in page.prototypes()]
    declared = {prototype.name: prototype for prototype in headers.prototypes()}
    times = Counter(prototype.name for prototype in documented)
    problems = [f"{name} is on {times[name]} pages" for name in declared if times[name] != 1]
    for prototype in documented:
        if prototype.name not in declared:
            problems.append(f"no header declares {prototype.name}")
        elif normal(prototype) != normal(declared[prototype.name]):
            problems.append(f"not as declared: {prototype}")
    variables = headers.variables()
    shown = {tokens(" ".join(macro[1:]).rstrip(";"))
             for page in pages for macro in page.part("Sh SYNOPSIS") if macro[0] == "Vt"}
    problems += [f"no page declares {name}" for name, text in variables.items()
                 if tokens(text) not in shown]
    return problems


def check_declarations(pages: list[Page], headers: Headers) -> list[str]:
    """Of what is quoted from a header, each declaration stands in it."""
    problems = []
    for page in pages:
        for display in page.displays():
            if display.kind != "Declares":
                continue
            for declaration in re.findall(r"\S[^{;]*(?:\{[^}]*\}[^;]*)?;", display.text):
                if not headers.declares(display.subject, declaration):
                    problems.append(f"{page.file_name}: {display.subject} has no: {declaration}")
    return problems


def check_names(pages: list[Page], headers: Headers) -> list[str]:
    """A page is named after itself and what it documents, so that man finds it by each."""
    problems = []
    classes = headers.classes()
    for page in pages:
        documented = {prototype.name for prototype in page.prototypes()}
        documented |= {name for name in headers.variables()
                       if any(name in " ".join(macro) for macro in page.part("Sh SYNOPSIS"))}
        names = set(page.names())
        if names - classes != documented | {page.name}:
            problems.append(f"{page.file_name}: documents {sorted(documented)}, "
                            f"is named {sorted(names)}")
    named = Counter(name for page in pages for name in page.names())
    problems += [f"{name} names {times} pages" for name, times in named.items() if times > 1]
    problems += [f"no page is named {name}" for name in classes - set(named)]
    return problems


def check_words(pages: list[Page], headers: Headers) -> list[str]:
    """Functions, arguments, constants and numbers of statuses in the text are real ones."""
    problems = []
    functions = {prototype.name for prototype in headers.prototypes()}
    functions |= set().union(*headers.framework.values())
    constants = headers.constants()
    known = constants.keys() | headers.macros
    for page in pages:
        shown = " ".join(" ".join(macro) for macro in page.part("Sh SYNOPSIS"))
        shown += " ".join(display.text for display in page.displays())
        arguments = set(re.findall(r"\w+", shown)) | {"status", "message"}  # of EcStatusException
        for macro in page.macros:
            for kind, word in zip(macro, macro[1:]):
                if kind == "Fn" and word not in functions:
                    problems.append(f"{page.file_name}: no function {word}")
                elif kind == "Fa" and not set(re.findall(r"\w+", word)) <= arguments:
                    problems.append(f"{page.file_name}: no argument {word}")
                elif kind == "Dv" and word not in known and not word.endswith("_"):
                    problems.append(f"{page.file_name}: no constant {word}")
            if macro[:2] == ["It", "Dv"] and macro[3:] != ["Pq", constants.get(macro[2])]:
                problems.append(f"{page.file_name}: not the number of a status: {macro}")
    return problems


def check_statuses(pages: list[Page], headers: Headers) -> list[str]:
    """libixfs(3) lists all."""
    page = next(page for page in pages if page.file_name == "libixfs.3")
    listed = {macro[2] for macro in page.part("Sh ERRORS") if macro[:2] == ["It", "Dv"]}
    statuses = {name for name in headers.constants() if name.startswith("EC_")} - NO_STATUS
    return [f"libixfs.3 does not list {name}" for name in sorted(statuses - listed)]


def check_framework(pages: list[Page], headers: Headers) -> list[str]:
    """libixfs(3) names all that the framework's headers export."""
    page = next(page for page in pages if page.file_name == "libixfs.3")
    named = {tuple(macro[:2]) for macro in page.macros}
    problems = [f"libixfs.3 does not name {header}" for header in sorted(headers.framework)
                if ("In", header) not in named]
    names = sorted(set().union(*headers.framework.values()))
    return problems + [f"libixfs.3 does not name {name}" for name in names
                       if not {("Vt", name), ("Fn", name)} & named]


def check_references(pages: list[Page], _headers: Headers) -> list[str]:
    ours = {(name, page.section) for page in pages for name in page.names()}
    problems = [f"{page.file_name}: no page {name}({section})" for page in pages
                for name, section in sorted(page.references() - ours - FOREIGN)]
    main = next(page for page in pages if page.file_name == "libixfs.3")
    table = {(macro[2], macro[3]) for macro in main.part("Ss Pages") if macro[:2] == ["It", "Xr"]}
    families = {(page.name, page.section) for page in pages if page.prototypes()}
    if table != families:
        problems.append(f"libixfs.3 lists {sorted(table)} instead of {sorted(families)}")
    return problems


ALL = (check_prototypes, check_declarations, check_names, check_words, check_statuses,
       check_framework, check_references)
