#!/usr/bin/env python3
"""What stack the module may need, from the call graph that g++ writes with -fcallgraph-info=su.

usage: footprint_stack.py DIRECTORY
  DIRECTORY  is searched for the module's .ci files; the sources that they name tell where calls through pointers go

A call through a pointer goes to every class that has a virtual function of that name, so a chain may be longer than any
that can happen, not shorter. Frames of the C library and of the player's functions are not known and count nothing.
"""
import pathlib
import re
import sys

# Recursion follows the tree of boxes, of which the module descends these:
# file, moov, trak, mdia, minf, stbl, stsd, entry, wave, esds.
LEVELS = 10
# What the module calls outside: the player's functions, which it names in lower case, and the function of its thread.
PLAYER = {"open", "close", "read", "getSize", "allocate", "free"}
THREAD = {"entry": "FileReader::FileStreamingThread"}


class Graph:
    def __init__(self, files):
        self.frames, self.names, self.calls, self.virtual = {}, {}, {}, set()
        indirect = []
        for file in files:
            for line in file.read_text().splitlines():
                line = re.sub(r"(_ZN\w+[CD])1E", r"\g<1>2E", line)  # two names of one constructor or destructor
                words = dict(re.findall(r'(title|label|sourcename|targetname): "([^"]*)"', line))
                if line.startswith("node:"):
                    self.add_node(words["title"], words["label"].split(r"\n"))
                elif line.startswith("edge:") and words["targetname"] == "__indirect_call":
                    indirect.append((words["sourcename"], words["label"]))
                elif line.startswith("edge:"):
                    self.calls.setdefault(words["sourcename"], set()).add(words["targetname"])
        for caller, place in indirect:
            self.calls.setdefault(caller, set()).update(self.targets(place))

    def add_node(self, title, label):
        frame = re.match(r"(\d+) bytes \((.*)\)", label[-1])
        if not frame:
            return
        if frame[2] not in ("static", "dynamic,bounded"):
            sys.exit(f"{label[0]}: a frame without a bound")
        self.frames[title] = int(frame[1])
        if label[0].startswith("virtual "):
            self.virtual.add(title)
        self.names[title] = re.sub(r"^(virtual|static|constexpr) ", "", label[0])

    def functions(self, pattern):
        """Those whose name ends so; "~" stands for every destructor."""
        end = re.compile(pattern.replace("~", r"~\w+") + r"\(")
        return {title for title, name in self.names.items() if end.search(name)}

    def targets(self, place):
        """Where the call at "file:line:column" may go; the column is that of the bracket after the name."""
        path, line, column = place.rsplit(":", 2)
        text = pathlib.Path(path).read_text().splitlines()[int(line) - 1]
        called = re.findall(r"(\w+)\($", text[:int(column)])
        name = "~" if "delete " in text else called[0] if called else "?"
        if name in PLAYER:
            return set()
        found = self.functions(THREAD[name]) if name in THREAD else self.functions("::" + name) & self.virtual
        if not found:
            sys.exit(f"{place}: where does this call go?")
        return found

    def short(self, title):
        return re.sub(r"kivmp4::|platform::|\{anonymous\}::", "", re.search(r"([^ ]+)\(", self.names[title])[1])

    def groups(self):
        """Functions that call each other in a circle stand together; callees come before callers."""
        index, low, stack, done = {}, {}, [], []

        def visit(node):
            index[node] = low[node] = len(index)
            stack.append(node)
            for callee in self.calls.get(node, ()):
                if callee not in index:
                    visit(callee)
                if callee in stack:
                    low[node] = min(low[node], low[callee])
            if low[node] == index[node]:
                at = stack.index(node)
                done.append(stack[at:])
                del stack[at:]

        for node in self.frames:
            if node not in index:
                visit(node)
        return done

    def chains(self):
        """Of each function the most stack from its call on, the functions on the way, and the circles."""
        worst, circles = {}, []
        for group in self.groups():
            members = set(group)
            circle = len(group) > 1 or group[0] in self.calls.get(group[0], ())
            own = sum(self.frames.get(node, 0) for node in group) * (LEVELS if circle else 1)
            if circle:
                circles.append(group)
            below = [worst[callee] for node in group for callee in self.calls.get(node, ()) if callee not in members]
            deepest = max(below, default=(0, []))
            for node in group:
                worst[node] = (own + deepest[0], [node] + deepest[1])
        return worst, circles


def main():
    sys.setrecursionlimit(10000)
    graph = Graph(sorted(pathlib.Path(sys.argv[1]).rglob("*.ci")))
    worst, circles = graph.chains()
    for title in sorted(graph.frames, key=graph.frames.get)[:-9:-1]:
        print("frame", graph.frames[title], graph.short(title))
    for thread, pattern in ("player", r"(^| )KivMp4\w+"), ("module", "Thread::Run"):
        total, chain = max(worst[title] for title in graph.functions(pattern))
        print("chain", thread, total, " > ".join(graph.short(title) for title in chain if title in graph.names))
    for circle in circles:
        print("circle", sum(graph.frames.get(title, 0) for title in circle), ", ".join(sorted(map(graph.short, circle))))


if __name__ == "__main__":
    main()
