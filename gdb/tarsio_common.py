"""Pretty-printers for gdb that show the library's values in terms of their interface.

    (gdb) print path
    $1 = "C:\\\\data\\\\a.txt" (Windows, absolute)
    (gdb) print queue
    $2 = BlockingQueue: 2 of 64 elements, open = {1, 2}

They call no function in the debugged program, so they also work with core files. gdb loads this file
automatically with an installed library; otherwise use `source gdb/tarsio_common.py`. They rely on the
standard library's printers for its types.
"""

import gdb
import gdb.printing

# The members that the printers read.
MEMBERS = {
    "Path": ("tokens", "type", "absolute", "smb"),
    "TsString": ("data",),
    "BlockingQueue": ("items", "capacity", "closed"),
    "ThreadPool": ("name", "runningThreadNumber", "maxThreadNumber", "queue"),
}


class Unknown(Exception):
    """A value does not have the expected layout; gdb then prints its members."""


def members(value, class_name):
    """Returns the members listed in MEMBERS, in that order."""
    for name in MEMBERS[class_name]:
        if name not in [field.name for field in value.type.strip_typedefs().fields()]:
            raise Unknown(class_name + "::" + name)
    return [value[name] for name in MEMBERS[class_name]]


def number(value):
    """Returns an integer, or the one in a std::atomic."""
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
    """Returns the elements of a standard container."""
    return [element for _, element in standard_printer(container).children()]


def text(string):
    """Returns the content of a std::string, without gdb's limit on printed characters."""
    shown = standard_printer(string).to_string()
    if hasattr(shown, "address"):  # a lazy string
        begin = gdb.Value(shown.address).cast(gdb.lookup_type("char").pointer())
        return begin.string("utf-8", "replace", shown.length)
    return str(shown)


def pointee(shared):
    """Returns the object that a std::shared_ptr points to."""
    return shared["_M_ptr"].dereference()


def quoted(string):
    return '"' + string.replace("\\", "\\\\").replace('"', '\\"') + '"'


class PathPrinter:
    """Prints the path as Str() does with the type that it was parsed with, and its flags."""

    LONGEST_PLAIN = 260  # in bytes, with the terminator; longer paths get the long-path prefix

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
    """Prints the string up to its terminator."""

    def __init__(self, value):
        (self.data,) = members(value, "TsString")

    def to_string(self):
        return "null" if int(self.data) == 0 else self.data.lazy_string()

    def display_hint(self):
        return None if int(self.data) == 0 else "string"


class BlockingQueuePrinter:
    """Prints the number of elements, the capacity, and the elements in order."""

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
    """Prints the name, the number of workers and queued tasks, and their limits."""

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
        except (Unknown, gdb.error):  # the layout of another version, or unreadable memory
            return None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers(), replace=True)
