"""Reads what callgrind wrote: who calls whom how often, and what each function itself costs."""
import collections
import re

BOARD = re.compile(r"/lib(vboard|vpu|x264)[.-]")  # the board's objects: what they cost is not the program's


class Profile:
    """Functions are (object, name)."""

    def __init__(self, path):
        self.self_cost = collections.Counter()
        self.calls = collections.defaultdict(collections.Counter)  # caller -> callee -> times
        self.called = collections.Counter()
        names = {}
        ob = cob = fn = None
        callee = times = None

        def name_of(kind, text):
            match = re.match(r"\((\d+)\)(?: (.*))?", text)
            if match is None:
                return text
            if match[2] is not None:
                names[kind, match[1]] = match[2]
            return names[kind, match[1]]

        with open(path, errors="replace") as lines:
            for line in lines:
                line = line.rstrip("\n")
                key, equals, value = line.partition("=")
                if equals and key in ("ob", "fn", "cob", "cfn", "calls", "fl", "fi", "fe", "cfi", "cfl"):
                    if key == "ob":
                        ob = name_of("ob", value)
                    elif key == "cob":
                        cob = name_of("ob", value)
                    elif key == "fn":
                        fn = (ob, name_of("fn", value))
                        cob = None
                    elif key == "cfn":
                        callee = (cob or ob, name_of("fn", value))
                        cob = None
                    elif key == "calls":
                        times = int(value.split()[0])
                elif line and (line[0].isdigit() or line[0] in "+-*") and fn is not None:
                    cost = int(line.split()[1]) if len(line.split()) > 1 else 0
                    if times is not None:
                        self.calls[fn][callee] += times
                        self.called[callee] += times
                        times = None
                    else:
                        self.self_cost[fn] += cost
        self.cache = {}

    def find(self, pattern):
        return [function for function in set(self.self_cost) | set(self.called) if re.search(pattern, function[1])]

    def own(self, function, seen=()):
        """Instructions for one call of a function, those of the functions it calls included, the board's left out."""
        if BOARD.search(function[0] or "") or function in seen:
            return 0.0
        if function not in self.cache:
            times = max(self.called[function], 1)
            cost = self.self_cost[function] / times
            for callee, count in self.calls[function].items():
                cost += count / times * self.own(callee, (*seen, function))
            self.cache[function] = cost
        return self.cache[function]

    def board_calls(self, function, seen=()):
        """Calls into the board for one call of a function, by name."""
        found = collections.Counter()
        if function in seen:
            return found
        times = max(self.called[function], 1)
        for callee, count in self.calls[function].items():
            if BOARD.search(callee[0] or ""):
                found[callee[1]] += count / times
            else:
                for name, inner in self.board_calls(callee, (*seen, function)).items():
                    found[name] += inner * count / times
        return found
