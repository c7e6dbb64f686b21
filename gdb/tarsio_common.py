"""gdb shows the library's values in the words of their interface.

    (gdb) print path
    $1 = "C:\\\\data\\\\a.txt" (Windows, absolute)
    (gdb) print queue
    $2 = BlockingQueue: 2 of 64 elements, open = {1, 2}

Nothing runs in the debugged program, so a core file will do. gdb loads this file by itself with an
installed library; `source gdb/tarsio_common.py` loads it by hand. The standard library's own
printers show what is inside.
"""

import gdb
import gdb.printing

# The members that are read, and nothing else of a class is known here.
MEMBERS = {
    "Path": ("tokens", "type", "absolute", "smb"),
    "TsString": ("data",),
    "BlockingQueue": ("items", "capacity", "closed"),
    "ThreadPool": ("name", "runningThreadNumber", "maxThreadNumber", "queue"),
}


class Unknown(Exception):
    """A value is not what this file takes it for; gdb then shows it as it stands."""


def members(value, class_name):
    """The members of MEMBERS, in their order. A template's name comes without its arguments."""
    for name in MEMBERS[class_name]:
        if name not in [field.name for field in value.type.strip_typedefs().fields()]:
            raise Unknown(class_name + "::" + name)
    return [value[name] for name in MEMBERS[class_name]]


def number(value):
    """An integer, also one inside a std::atomic."""
    while value.type.strip_typedefs().code == gdb.TYPE_CODE_STRUCT:
        data = [field for field in value.type.strip_typedefs().fields() if hasattr(field, "bitpos")]
        if len(data) != 1:
            raise Unknown(str(value.type))
        value = value[data[0]]
    return int(value)


def standard_printer(value):
    printer = gdb.default_visualizer(value)
    if printer is None:
        raise Unknown("no printer for " + str(value.type))
    return printer


def elements(container):
    """The elements of a standard container."""
    return [element for _, element in standard_printer(container).children()]


def text(string):
    """A std::string, whole."""
    shown = standard_printer(string).to_string()
    if hasattr(shown, "address"):  # not read yet
        begin = gdb.Value(shown.address).cast(gdb.lookup_type("char").pointer())
        return begin.string("utf-8", "replace", shown.length)
    return str(shown)


def pointee(shared):
    """What a std::shared_ptr points at."""
    return shared["_M_ptr"].dereference()


def quoted(string):
    return '"' + string.replace("\\", "\\\\").replace('"', '\\"') + '"'


class PathPrinter:
    """The text of Str() in the type that the path was parsed with, and the two flags."""

    LONGEST_PLAIN = 260  # the printed bytes and their terminator

    def __init__(self, value):
        tokens, kind, absolute, self.share = members(value, "Path")
        self.tokens = [text(token) for token in elements(tokens)]
        self.posix = int(kind) != 0
        self.absolute = bool(absolute)

    def prefix(self):
        if not self.absolute:
            return ""
        if self.posix:
            return "/"
        length = sum(len(token.encode()) + 1 for token in self.tokens) + (2 if self.share else 0)
        if length > self.LONGEST_PLAIN:
            return "\\\\?\\UNC\\" if self.share else "\\\\?\\"
        return "\\\\" if self.share else ""

    def to_string(self):
        printed = self.prefix() + ("/" if self.posix else "\\").join(self.tokens)
        words = ["POSIX" if self.posix else "Windows", "absolute" if self.absolute else "relative"]
        if self.share:
            words.append("share")
        return "%s (%s)" % (quoted(printed), ", ".join(words))


class TsStringPrinter:
    """The text up to its terminator, whatever stands in the buffer behind."""

    def __init__(self, value):
        (self.data,) = members(value, "TsString")

    def to_string(self):
        return "null" if int(self.data) == 0 else self.data.lazy_string()

    def display_hint(self):
        return None if int(self.data) == 0 else "string"


class BlockingQueuePrinter:
    """The number of elements and the most there may be, then the elements from the first on."""

    def __init__(self, value):
        items, capacity, closed = members(value, "BlockingQueue")
        self.items = elements(items)
        self.capacity = int(capacity)
        self.closed = bool(closed)

    def summary(self, things):
        state = "closed" if self.closed else "open"
        return "%d of %d %s, %s" % (len(self.items), self.capacity, things, state)

    def to_string(self):
        return "BlockingQueue: " + self.summary("elements")

    def children(self):
        return (("[%d]" % index, item) for index, item in enumerate(self.items))

    def display_hint(self):
        return "array"


class ThreadPoolPrinter:
    """The name, the workers that live and may live, and the tasks that wait and may wait."""

    def __init__(self, value):
        name, running, limit, queue = members(value, "ThreadPool")
        self.name = text(name)
        self.running = number(running)
        self.limit = number(limit)
        self.queue = BlockingQueuePrinter(pointee(queue))

    def to_string(self):
        tasks = self.queue.summary("tasks queued")
        return "ThreadPool %s: %d of %d workers, %s" % (
            quoted(self.name), self.running, self.limit, tasks)


PRINTERS = {
    "Path": PathPrinter,
    "TsString": TsStringPrinter,
    "BlockingQueue": BlockingQueuePrinter,
    "ThreadPool": ThreadPoolPrinter,
}


class Printers(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("tarsio-common", [gdb.printing.SubPrettyPrinter(n) for n in PRINTERS])

    def __call__(self, value):
        name = str(value.type.unqualified().strip_typedefs().name).split("<")[0]
        namespace, _, class_name = name.rpartition("::")
        if namespace != "tarsio" or class_name not in PRINTERS:
            return None
        if not all(p.enabled for p in self.subprinters if p.name == class_name):
            return None
        try:
            return PRINTERS[class_name](value)
        except (Unknown, gdb.error):  # another version's layout, or memory that is not there
            return None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers(), replace=True)
