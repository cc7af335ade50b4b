"""Compares what gdb shows of the objects in objects.cpp. To be run by gdb itself:

    gdb -nx -batch -iex "add-auto-load-safe-path FOLDER" -x printers.py PROGRAM

where FOLDER holds the library with the printers that gdb loads by themselves.
"""

import traceback

import gdb

EXPECTED = r"""
ascii           "say \"a\\b\"\n"
wide            "Grüße, 🎬"
null            <null>
unpaired        "a\xd800\000b"
longText        'x' <repeats 200 times>...

text            CUStringMac, count 6 = {target = "scene"}
object          CUStringMac, count 6 = {target = "scene"}
nothing         null
unknown         (anonymous namespace)::Reel, count 3 = {target = {<CUObject> = {...}, number = 7}}
list            CUMutableArray, count 3 = {target = 3 objects = {"scene", null, (anonymous namespace)::Reel, count 3 = {...}}}
*list.m_ptr     3 objects = {"scene", null, (anonymous namespace)::Reel, count 3 = {target = {...}}}
dictionary      3 entries = {["b"] = null, ["c"] = "scene", ["d"] = 3 objects = {"scene", null, (anonymous namespace)::Reel, count 3 = {...}}}
indexes         6 indexes = {1, 2, 3, 5, 7, 8}

moment          2001-01-01 00:00:00.250000 UTC
ancient         0020-06-15 08:53:20 UTC
beyond          1e+20 seconds from 2001
noMoment        <no value>
uuid            30313233-3435-3637-3839-616263646566

document        Node_Document "#document", 0 children
*element.m_ptr  Node_Element "reel", 1 attribute, 1 child
*element.m_ptr->childNodes.m_ptr  1 object = {Node_Text "#text", value "text"}
entries         2 objects = {CUFileInfo "/films/reel.mov", CUDirectoryInfo "/films"}

cfString        "Grüße, 🎬"
*cfString       "Grüße, 🎬"
cfDate          2000-12-31 23:59:59.500000 UTC
cfData          17 bytes: 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 ...
cfUuid          30313233-3435-3637-3839-616263646566

wild            <invalid>
notAString      <invalid>
*gone           <invalid>
goneText        <invalid>
overrun         <invalid>
torn            <invalid>
cyclic          6 indexes = {<invalid>}
"""

UNMADE = ("String", "Pointer", "Array", "Dictionary", "Indexes", "Vector", "Moment", "Uuid",
          "Entry")


def cases():
    """An expression, the value that it has, and what is to be shown of that."""
    for line in filter(None, EXPECTED.splitlines()):
        expression, expected = line.split(None, 1)
        yield expression, gdb.parse_and_eval(expression), expected
    for name in UNMADE:
        unmade = gdb.parse_and_eval(f"unmade{name}")
        kind = unmade.type.strip_typedefs().template_argument(0)
        for fill in ("raw", "zero"):
            value = unmade[fill].address.cast(kind.pointer()).dereference()
            yield f"unmade{name}.{fill}", value, "<invalid>"


def compare():
    faults = 0
    for expression, value, expected in cases():
        actual = value.format_string(max_depth=2)
        if actual != expected:
            faults += 1
            print(f"{expression}:\n  expected {expected}\n  shown    {actual}")
    return faults


def main():
    gdb.execute("set host-charset UTF-8")
    gdb.execute("break Stop", to_string=True)
    try:
        gdb.execute("run", to_string=True)
        gdb.execute("up", to_string=True)
    except gdb.error as reason:
        print(f"Skipped: gdb cannot run a program here: {reason}")
        return 0
    if gdb.lookup_global_symbol("CFRetain") is None:
        print("Skipped: the library is built without debug information.")
        return 0
    return compare()


# gdb ends with status 0 where a script fails, unless told otherwise.
status = 1
try:
    status = 1 if main() else 0
except Exception:
    traceback.print_exc()
gdb.execute(f"quit {status}")
