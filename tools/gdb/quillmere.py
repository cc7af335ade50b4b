"""Shows the objects of QuillmereLib in gdb by what they hold.

gdb loads this file with the library, from beside it or from its folder of such files;
docs/debugging.md tells when it has to be asked to. Whatever memory holds, printing never fails: an
object that is not whole, or not there, is <invalid>.
"""

import datetime
import functools
import re
import struct
import uuid

import gdb
import gdb.printing

# The printers read private parts, all by the names of their members: of the library's classes, of
# the platform's objects (platform/linux), whose texts and bytes follow them in place, and of
# libstdc++'s containers. tests/gdb compares what they show, and fails where a member is renamed. That
# a vtable leads to the whole object and its type is the rule of the Itanium ABI, here on 64 bits.

INVALID = "<invalid>"
UNKNOWN = "<no debug information>"
SHOWN = 200  # units of a text that is part of a longer line
FAILURES = (gdb.error, ArithmeticError, LookupError, ValueError, TypeError)


class Invalid(ValueError):
    """Memory does not hold what it should."""


class Unknown(ValueError):
    """No debug information tells of a class."""


def read(address, size):
    return bytes(gdb.selected_inferior().read_memory(address, size))


def unpack(form, address):
    return struct.unpack("<" + form, read(address, struct.calcsize(form)))[0]


def word(address):
    return unpack("Q", address)


def zero_terminated(address, limit):
    text = b""
    while len(text) < limit:
        text += read(address + len(text), 1)
        if text.endswith(b"\0"):
            return text[:-1]
    raise Invalid


@functools.lru_cache(maxsize=None)
def demangled(type_name):
    text = gdb.execute("demangle -- _ZTI" + type_name, to_string=True).strip()
    return text[len("typeinfo for "):]


def run_time_type(address):
    """Where the whole object begins that has a part at `address`, and the name of its class. Both
    come from the table of virtual functions, so that they need no debug information."""
    table = word(address)
    to_whole = unpack("q", table - 16)
    name = zero_terminated(word(word(table - 8) + 8), 1024).lstrip(b"*").decode("ascii")
    if not -(1 << 20) < to_whole <= 0 or not re.fullmatch(r"[0-9NSZ][\w.$]*", name):
        raise Invalid
    return address + to_whole, demangled(name)


def require_object(value):
    """Refuses an object whose constructor has not run, or which is gone."""
    if value.address is not None:
        run_time_type(int(value.address))


def counted(number, one, many):
    return f"{number} {one if number == 1 else many}"


def for_terminal(text):
    charset = gdb.host_charset() if hasattr(gdb, "host_charset") else "ascii"
    return text.encode(charset, "backslashreplace").decode(charset)


def typed(address, name):
    try:
        kind = gdb.lookup_type(name)
    except gdb.error:
        raise Unknown from None
    if kind.code == gdb.TYPE_CODE_STRUCT and not kind.fields():
        raise Unknown
    return gdb.Value(address).cast(kind.pointer())


# Objects of the platform, which stand at an address.

def platform_object(address, name):
    """The object, and where its payload begins."""
    if address % 8 != 0 or run_time_type(address) != (address, name):
        raise Invalid
    found = typed(address, name).dereference()
    if int(found["m_references"]["_M_i"]) < 1:
        raise Invalid
    return found, address + found.type.sizeof


def units_of(address):
    """Where the units of a string stand, all of them readable, how many, and the bytes of one."""
    string, units = platform_object(address, "__CFString")
    length, width = int(string["length"]), 2 if string["wide"] else 1
    if not 0 <= length < 1 << 48:
        raise Invalid
    if length > 0:
        read(units + (length - 1) * width, width)
    return units, length, width


def quoted_string(address):
    """The text, in gdb's own quotes and cut as gdb is set to."""
    units, length, width = units_of(address)
    if length == 0:
        return '""'
    unit, encoding = ("unsigned short", "UTF-16LE") if width == 2 else ("char", "ASCII")
    return typed(units, unit).lazy_string(encoding, length)


def short_text(address):
    units, length, width = units_of(address)
    text = read(units, min(length, SHOWN) * width)
    text = text.decode("utf-16-le" if width == 2 else "ascii", "replace")
    return for_terminal('"' + text + ('"' if length <= SHOWN else '"...'))


def held_text(string):
    """The text of a CUStringMac."""
    address = int(string["m_string"])
    return short_text(address) if address != 0 else "<null>"


def date_text(address):
    time = float(platform_object(address, "__CFDate")[0]["time"])
    try:
        moment = datetime.datetime(2001, 1, 1) + datetime.timedelta(seconds=time)
    except (OverflowError, ValueError):
        return f"{time!r} seconds from 2001"
    return moment.isoformat(" ") + " UTC"


def data_text(address):
    data, payload = platform_object(address, "__CFData")
    length = int(data["length"])
    if not 0 <= length < 1 << 48:
        raise Invalid
    shown = read(payload, min(length, 16)).hex(" ")
    return (counted(length, "byte", "bytes") + (": " if length > 0 else "") + shown +
            (" ..." if length > 16 else ""))


def uuid_text(address):
    identifier = platform_object(address, "__CFUUID")[0]
    return str(uuid.UUID(bytes=read(int(identifier["bytes"].address), 16))).upper()


PLATFORM_TEXTS = {
    "__CFString": quoted_string,
    "__CFDate": date_text,
    "__CFData": data_text,
    "__CFUUID": uuid_text,
}


# Containers of the standard library.

def vector_range(vector):
    parts = vector["_M_impl"]
    first, end = parts["_M_start"], parts["_M_finish"]
    first = first.cast(first.type.strip_typedefs())
    begin, size = int(first), first.type.target().sizeof
    used, room = int(end) - begin, int(parts["_M_end_of_storage"]) - begin
    if not 0 <= used <= room or used % size or room % size or (begin == 0) != (room == 0):
        raise Invalid
    if used > 0:
        read(begin, size)
        read(int(end) - size, size)
    return first, used // size


def tree_size(tree):
    parts = tree["_M_t"]["_M_impl"]
    size, root = int(parts["_M_node_count"]), parts["_M_header"]["_M_parent"]
    if (int(root) == 0) != (size == 0):
        raise Invalid
    if size > 0 and int(root["_M_parent"]) != int(parts["_M_header"].address):
        raise Invalid
    return size


def tree_values(tree):
    """The addresses of the values of a map or a set, in order."""
    node, above = tree["_M_t"]["_M_impl"]["_M_header"]["_M_parent"], []
    for _ in range(tree_size(tree)):
        while int(node) != 0:
            above.append(node)
            node = node["_M_left"]
            if len(above) > 128:  # deeper than a balanced tree can be
                raise Invalid
        node = above.pop()
        yield int(node) + node.dereference().type.sizeof
        node = node["_M_right"]


# Objects of the library.

class Pointer:
    """What a CUSharedPtr holds."""

    def __init__(self, value):
        require_object(value)
        self.is_null = int(value["m_ptr"]) == 0
        if self.is_null:
            return
        address, self.type_name = run_time_type(int(value["m_ptr"]))
        self.target = None
        try:
            self.target = typed(address, self.type_name).dereference()
        except Unknown:
            return
        self.count = int(self.target["m_refCount"]["_M_i"])
        if self.count < 1:
            raise Invalid


def shown_element(value):
    """In a container, a target stands for its pointer where it is shown by what it holds."""
    try:
        pointer = Pointer(value)
        if not pointer.is_null and printer_of(pointer.type_name) and pointer.target is not None:
            return pointer.target
    except FAILURES:
        pass
    return value


class Printer:
    """Says what an object is, in `text`, and lets nothing out."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        try:
            return "<optimized out>" if self.value.is_optimized_out else self.text()
        except Unknown:
            return UNKNOWN
        except FAILURES:
            return INVALID


class ContainerPrinter(Printer):
    """Of a container, also says the `elements`, for a map the keys and values in turn."""

    def children(self):
        if self.to_string() == INVALID:
            return
        index = 0
        try:
            for element in self.elements():
                yield f"[{index}]", element
                index += 1
        except FAILURES:
            # A map's children come by two.
            for _ in range(2 - index % 2 if self.display_hint() == "map" else 1):
                yield f"[{index}]", INVALID
                index += 1

    def display_hint(self):
        return "array"


class PlatformPrinter(Printer):
    """A platform object, or the reference by which the library has it."""

    def __init__(self, value):
        super().__init__(value)
        is_reference = value.type.strip_typedefs().code == gdb.TYPE_CODE_PTR
        self.name = (value.type.strip_typedefs().target() if is_reference else value.type).name
        self.address = value if is_reference else value.address

    def text(self):
        address = int(self.address)
        return PLATFORM_TEXTS[self.name](address) if address != 0 else "null"


class WrapperPrinter(Printer):
    """An object that owns one of the platform, in `member`, or none."""

    def text(self):
        require_object(self.value)
        address = int(self.value[self.member])
        return PLATFORM_TEXTS[self.name](address) if address != 0 else self.none


class StringPrinter(WrapperPrinter):
    member, name, none = "m_string", "__CFString", "<null>"


class DatePrinter(WrapperPrinter):
    member, name, none = "m_date", "__CFDate", "<no value>"


class UuidPrinter(WrapperPrinter):
    member, name, none = "m_uuid", "__CFUUID", "<no bytes>"


class PointerPrinter(Printer):
    def text(self):
        pointer = Pointer(self.value)
        if pointer.is_null:
            return "null"
        if pointer.target is None:
            return f"{pointer.type_name} {UNKNOWN}"
        return f"{pointer.type_name}, count {pointer.count}"

    def children(self):
        try:
            pointer = Pointer(self.value)
            if not pointer.is_null and pointer.target is not None:
                yield "target", pointer.target
        except FAILURES:
            pass  # the text says so


class EntryPrinter(Printer):
    """A file or directory, by its path."""

    def text(self):
        require_object(self.value)
        kind = self.value.type.strip_typedefs().unqualified().name
        return f'{kind} {held_text(self.value["fullName"])}'


class ArrayPrinter(ContainerPrinter):
    def text(self):
        require_object(self.value)
        return counted(vector_range(self.value["m_objects"])[1], "object", "objects")

    def elements(self):
        first, count = vector_range(self.value["m_objects"])
        return (shown_element((first + index).dereference()) for index in range(count))


class VectorPrinter(ContainerPrinter):
    def text(self):
        require_object(self.value)
        return counted(vector_range(self.value)[1], "number", "numbers")

    def elements(self):
        first, count = vector_range(self.value)
        narrow = first.type.target().sizeof == 1  # gdb would show characters
        for index in range(count):
            number = (first + index).dereference()
            yield number.cast(gdb.lookup_type("int")) if narrow else number


class DictionaryPrinter(ContainerPrinter):
    def text(self):
        require_object(self.value)
        return counted(tree_size(self.value["m_map"]), "entry", "entries")

    def elements(self):
        entries = self.value["m_map"]
        key, mapped = (entries.type.strip_typedefs().template_argument(i) for i in (0, 1))
        for address in tree_values(entries):
            yield gdb.Value(address).cast(key.pointer()).dereference()
            at = gdb.Value(address + key.sizeof)
            yield shown_element(at.cast(mapped.pointer()).dereference())

    def display_hint(self):
        return "map"


class IndexSetPrinter(ContainerPrinter):
    def text(self):
        require_object(self.value)
        return counted(tree_size(self.value["m_indexes"]), "index", "indexes")

    def elements(self):
        for address in tree_values(self.value["m_indexes"]):
            yield typed(address, "int").dereference()


class XmlNodePrinter(Printer):
    def text(self):
        require_object(self.value)
        if int(self.value["nodeType"]) > 12:
            raise Invalid
        name, value = Pointer(self.value["nodeName"]), Pointer(self.value["nodeValue"])
        text = f'{self.value["nodeType"]} ' + ("null" if name.is_null else held_text(name.target))
        if not value.is_null:
            text += ", value " + held_text(value.target)
        attributes, children = Pointer(self.value["attributes"]), Pointer(self.value["childNodes"])
        if not attributes.is_null:
            number = tree_size(attributes.target["m_map"])
            text += ", " + counted(number, "attribute", "attributes")
        if not children.is_null:
            number = vector_range(children.target["m_objects"])[1]
            text += ", " + counted(number, "child", "children")
        return text


PRINTERS = [
    (r"CUStringMac", StringPrinter),
    (r"CUSharedPtr<.*>", PointerPrinter),
    (r"CU(Mutable)?Array", ArrayPrinter),
    (r"CU(Mutable)?Dictionary", DictionaryPrinter),
    (r"CU(Mutable)?IndexSet", IndexSetPrinter),
    (r"CUVector<.*>", VectorPrinter),
    (r"CU(File|Directory|FileSysytem)Info", EntryPrinter),
    (r"CUDateTime", DatePrinter),
    (r"CUUUID", UuidPrinter),
    (r"CUXmlDom\w*Node", XmlNodePrinter),
    ("|".join(PLATFORM_TEXTS), PlatformPrinter),
]


def printer_of(type_name):
    for pattern, printer in PRINTERS:
        if re.fullmatch(pattern, type_name or ""):
            return printer
    return None


class QuillmerePrinters(gdb.printing.PrettyPrinter):
    """Picks the printer of a value: of an object, or of a reference on a platform object. Pointers
    to objects of the library stay pointers."""

    def __init__(self):
        super().__init__("QuillmereLib")

    def __call__(self, value):
        kind = value.type.strip_typedefs()
        if kind.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
            value = value.referenced_value()
            kind = value.type.strip_typedefs()
        is_reference = kind.code == gdb.TYPE_CODE_PTR
        if is_reference:
            kind = kind.target().strip_typedefs()
        if kind.code != gdb.TYPE_CODE_STRUCT or (not is_reference and not kind.fields()):
            return None
        printer = printer_of(kind.unqualified().name)
        if printer is None or (is_reference and printer is not PlatformPrinter):
            return None
        return printer(value)


gdb.printing.register_pretty_printer(gdb.current_objfile(), QuillmerePrinters(), replace=True)
