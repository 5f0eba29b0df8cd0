#!/usr/bin/env python3
"""Call circles and include direction of the library and the tools.

Reads the call graphs GCC writes with -fcallgraph-info (one .ci file per translation
unit, VCG format), gives each function the file that defines it (an inline function
belongs to its header), and finds the strongly connected components of the graph of
calls between files: a component of more than one file is a call circle. Functions
that call themselves, directly or through others of the same file, are listed apart.
Only direct calls are in GCC's graph: calls through virtual functions or function
pointers are not seen.

Then the quoted #includes: the library's folders include only folders below them,
the library includes nothing of tools/ or tests/, tools/common nothing of another
tool, and no file includes itself through others.

Usage: call_circles.py REPO_ROOT CI_DIR
Exit status 1 when a call circle, an include cycle or an upward include is found.
"""
import os
import re
import sys
from collections import defaultdict

LIBRARY = ("driver", "tag_index", "dictionary", "unity", "net", "wire", "trace", "guard")
# A folder may include its own files and those of folders of a lower rank.
RANK = {"include": 0, "net": 0, "guard": 0, "wire": 1, "trace": 1, "dictionary": 2,
        "unity": 3, "tag_index": 3, "driver": 4}

QUOTED = r'"((?:[^"\\]|\\.)*)"'
NODE = re.compile(r'^node: \{ title: ' + QUOTED + r' label: ' + QUOTED + r'( shape : ellipse)?')
EDGE = re.compile(r'^edge: \{ sourcename: ' + QUOTED + r' targetname: ' + QUOTED)
GRAPH = re.compile(r'^graph: \{ title: ' + QUOTED)
STRUCTOR = re.compile(r'([CD])[0-3](?=E|I)')


def in_scope(rel):
    top = rel.split("/", 1)[0]
    return top in LIBRARY or rel.startswith("tools/") or rel.startswith("include/")


def component(rel):
    """The library, or the tool a file belongs to."""
    parts = rel.split("/")
    return "/".join(parts[:2]) if parts[0] == "tools" else "library"


class Files:
    def __init__(self, root):
        self.root = os.path.realpath(root)
        self.cache = {}

    def rel(self, path, base):
        """The repository-relative path of an in-scope source file, else None."""
        key = (path, base)
        if key not in self.cache:
            full = os.path.realpath(os.path.join(base, path))
            rel = os.path.relpath(full, self.root)
            ok = not rel.startswith("..") and not rel.startswith("build/") and in_scope(rel)
            self.cache[key] = rel if ok else None
        return self.cache[key]


def location(label):
    """The file of a node's label: its last line is file:line:column."""
    where = label.split("\\n")[-1]
    return where.rsplit(":", 2)[0] if where.count(":") >= 2 else None


def read_units(ci_dir, files):
    """Per translation unit: its nodes (title -> (file, defined)) and its edges."""
    units = []
    for dirpath, _, names in os.walk(ci_dir):
        for name in names:
            if not name.endswith(".ci"):
                continue
            nodes, edges, unit = {}, [], None
            with open(os.path.join(dirpath, name), encoding="utf-8", errors="replace") as ci:
                for line in ci:
                    if m := NODE.match(line):
                        where = location(m.group(2))
                        rel = files.rel(where, dirpath) if where else None
                        nodes[m.group(1)] = (rel, m.group(3) is None, m.group(2).split("\\n")[0])
                    elif m := EDGE.match(line):
                        edges.append((m.group(1), m.group(2)))
                    elif m := GRAPH.match(line):
                        unit = m.group(1)
            if unit and os.path.exists(os.path.join(dirpath, unit)):  # not a removed source's
                units.append((unit, nodes, edges))
    return units


def mangled(title):
    """A node's symbol: local and inline functions carry their unit's name in front."""
    return title.split(":", 1)[1] if ":" in title and not title.startswith("_Z") else title


def definitions(units):
    """Symbol -> files defining it, for every function defined out of line in scope."""
    defined = defaultdict(set)
    for _, nodes, _ in units:
        for title, (rel, is_defined, _) in nodes.items():
            if rel and is_defined:
                defined[mangled(title)].add(rel)
                defined[STRUCTOR.sub(r"\1?", mangled(title))].add(rel)
    return defined


def callee_file(title, node, caller_rel, defined):
    rel, is_defined, _ = node
    if is_defined:
        return rel
    symbol = mangled(title)
    found = defined.get(symbol) or defined.get(STRUCTOR.sub(r"\1?", symbol))
    if not found:
        return None  # the standard library, Boost, the system
    if len(found) > 1:  # the same name in two programs: the caller's own program
        own = [f for f in found if component(f) == component(caller_rel)]
        found = own or found
    return sorted(found)[0]


def strongly_connected(graph):
    """Tarjan's algorithm, iterative: the components of the graph."""
    index, low, on_stack, stack, result, counter = {}, {}, set(), [], [], [0]
    for start in list(graph):
        if start in index:
            continue
        work = [(start, iter(sorted(graph.get(start, ()))))]
        index[start] = low[start] = counter[0]
        counter[0] += 1
        stack.append(start)
        on_stack.add(start)
        while work:
            node, children = work[-1]
            child = next(children, None)
            if child is not None:
                if child not in index:
                    index[child] = low[child] = counter[0]
                    counter[0] += 1
                    stack.append(child)
                    on_stack.add(child)
                    work.append((child, iter(sorted(graph.get(child, ())))))
                elif child in on_stack:
                    low[node] = min(low[node], index[child])
                continue
            work.pop()
            if work:
                low[work[-1][0]] = min(low[work[-1][0]], low[node])
            if low[node] == index[node]:
                members = []
                while True:
                    top = stack.pop()
                    on_stack.discard(top)
                    members.append(top)
                    if top == node:
                        break
                result.append(sorted(members))
    return result


def call_graphs(units, defined):
    """The graph of calls between files, and that between functions of one file."""
    file_calls = defaultdict(lambda: defaultdict(list))
    function_calls = defaultdict(set)
    names = {}
    for _, nodes, edges in units:
        for source, target in edges:
            if source not in nodes or target not in nodes:
                continue
            caller = nodes[source]
            if not caller[0] or not caller[1]:
                continue
            callee = callee_file(target, nodes[target], caller[0], defined)
            if not callee:
                continue
            if callee != caller[0]:
                file_calls[caller[0]][callee].append((caller[2], nodes[target][2]))
            else:
                key = (caller[0], mangled(source))
                function_calls[key].add((callee, mangled(target)))
                names[key] = caller[2]
                names[(callee, mangled(target))] = nodes[target][2]
    return file_calls, function_calls, names


def report_calls(units, defined):
    file_calls, function_calls, names = call_graphs(units, defined)
    files = {f for caller in file_calls for f in (caller, *file_calls[caller])}
    print(f"call graph: {len(units)} translation units, {len(files)} files, "
          f"{sum(len(v) for v in file_calls.values())} calls between files")
    circles = [c for c in strongly_connected(file_calls) if len(c) > 1]
    for circle in circles:
        print("call circle between files: " + " <-> ".join(circle))
        for a in circle:
            for b in circle:
                for caller, callee in file_calls[a].get(b, [])[:3]:
                    print(f"  {a} -> {b}: {caller} calls {callee}")
    if not circles:
        print("no call circle between files")
    recursive = [c for c in strongly_connected(function_calls)
                 if len(c) > 1 or c[0] in function_calls.get(c[0], ())]
    for group in recursive:
        print(f"recursion inside {group[0][0]}: " + " -> ".join(names[k] for k in group))
    return len(circles)


def quoted_includes(root):
    """(including file, included file) for every quoted #include in scope that resolves."""
    include = re.compile(r'^\s*#\s*include\s+"([^"]+)"')
    files = Files(root)
    found = []
    for top in (*LIBRARY, "tools", "include"):
        for dirpath, _, names in os.walk(os.path.join(root, top)):
            for name in names:
                if not name.endswith((".h", ".hpp", ".cpp", ".cc")):
                    continue
                source = os.path.relpath(os.path.join(dirpath, name), root)
                with open(os.path.join(dirpath, name), encoding="utf-8") as text:
                    for line in text:
                        if m := include.match(line):
                            target = next((t for t in (
                                os.path.join(os.path.dirname(source), m.group(1)), m.group(1),
                                os.path.join("include", m.group(1)))
                                if os.path.exists(os.path.join(root, t))), None)
                            if target:
                                found.append((source, os.path.normpath(target)))
                            elif m.group(1).split("/")[0] in ("tests", "tools", *LIBRARY):
                                found.append((source, m.group(1)))
    return found


def upward(source, target):
    """Why an include points the wrong way, or None."""
    s, t = source.split("/")[0], target.split("/")[0]
    if s in RANK and t in ("tools", "tests"):
        return "the library includes a tool or a test"
    if s in RANK and t in RANK and s != t and RANK[t] >= RANK[s]:
        return f"{s}/ may include only folders below it"
    if source.startswith("tools/common/") and t == "tools" and not target.startswith("tools/common/"):
        return "tools/common includes another tool"
    return None


def report_includes(root):
    edges = quoted_includes(root)
    graph = defaultdict(set)
    problems = 0
    for source, target in edges:
        graph[source].add(target)
        if reason := upward(source, target):
            print(f"upward include: {source} includes {target} ({reason})")
            problems += 1
    cycles = [c for c in strongly_connected(graph) if len(c) > 1]
    for cycle in cycles:
        print("include cycle: " + " <-> ".join(cycle))
    print(f"includes: {len(edges)} quoted includes, {problems} upward, {len(cycles)} cycles")
    return problems + len(cycles)


def main():
    root, ci_dir = sys.argv[1], sys.argv[2]
    units = read_units(ci_dir, Files(root))
    if not units:
        sys.exit(f"no .ci files under {ci_dir}")
    failures = report_calls(units, definitions(units)) + report_includes(root)
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
