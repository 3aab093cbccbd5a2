#!/usr/bin/env python3
"""Every function that an installed header declares can be linked: compares what the compiler reads there with what the
library exports. Usage: check_symbols.py PREFIX, with clang++ in PATH."""
import json
import pathlib
import subprocess
import sys
import tempfile

FUNCTIONS = {"FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl", "CXXConversionDecl"}
SCOPES = {"NamespaceDecl", "LinkageSpecDecl", "FriendDecl", "CXXRecordDecl", "ClassTemplateSpecializationDecl"}
NEEDS_NO_SYMBOL = ("isImplicit", "explicitlyDeleted", "explicitlyDefaulted", "pure", "inline", "constexpr")


def namespaces(include):
    """What namespace pex holds in all installed headers together, as the compiler's trees."""
    with tempfile.NamedTemporaryFile("w", suffix=".cpp") as source:
        for header in sorted((include / "peximage").rglob("*.h")):
            source.write(f'#include "{header.relative_to(include)}"\n')
        source.flush()
        command = ["clang++", "-std=c++20", f"-I{include}", "-fsyntax-only", "-Xclang", "-ast-dump=json", "-Xclang",
                   "-ast-dump-filter=pex", source.name]
        text = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    decoder, at = json.JSONDecoder(), text.find("{")
    while at >= 0:
        tree, end = decoder.raw_decode(text, at)
        yield tree
        at = text.find("{", end)


def declared(node, defined, access="public"):
    """Mangled names of the functions that only a library can define; those that a header defines go to `defined`."""
    kind, children = node.get("kind"), node.get("inner", [])
    if kind in FUNCTIONS and "mangledName" in node:
        if any(child.get("kind") in ("CompoundStmt", "CXXTryStmt") for child in children):
            defined.add(node["mangledName"])
        elif access != "private" and not any(node.get(mark) for mark in NEEDS_NO_SYMBOL):
            yield node["mangledName"]
    elif kind in SCOPES and not (kind == "CXXRecordDecl" and access == "private"):
        if "Record" in kind or "Class" in kind:
            access = "private" if node.get("tagUsed") == "class" else "public"
        for child in children:
            access = child.get("access", access) if child.get("kind") == "AccessSpecDecl" else access
            yield from declared(child, defined, access)


def main():
    prefix, defined = pathlib.Path(sys.argv[1]), set()
    library = next(prefix.rglob("libpeximage.so"))
    wanted = {name for tree in namespaces(prefix / "include") for name in declared(tree, defined)} - defined
    listed = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout
    missing = wanted - {line.split()[-1] for line in listed.splitlines()}
    if len(wanted) < 100 or missing:
        names = subprocess.run(["c++filt"], input="\n".join(sorted(missing)), capture_output=True, text=True).stdout
        sys.exit(f"of {len(wanted)} declared functions these are not exported:\n{names}")


main()
