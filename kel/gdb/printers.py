# gdb printers for libkel and libCliSession: strings, handles, entities, collections, reflective objects, edit logs.
#
# gdb loads this file with libkel (docs/debugging.md). Nothing is called in the program: everything is read from memory,
# guided by the program's own type records, so that core files and libraries without debug information print as well.
# What lies where is told by Kel::DebugLayout; only 64-bit little-endian programs are understood.

import re
import struct

import gdb
import gdb.printing

KIND_BUILTIN, KIND_ENUM, KIND_VALUE, KIND_ENTITY, KIND_OBJECT = range(5)
# By KelType::Builtin: how a value is packed; None stands for a string.
BUILTINS = [None, "?", "c", "b", "B", "h", "H", "i", "I", "q", "q", "Q", "f", "d", "Q", "Q", None]
BUILTIN_BOOL, BUILTIN_CHAR, BUILTIN_CHAR_PTRS, BUILTIN_STRING = 1, 2, (14, 15), 16
FLAG_OWN, FLAG_PTR, FLAG_FUNCTION, FLAG_PARAM = 4, 8, 16, 32
COLLECTION_NONE, COLLECTION_HASH, COLLECTION_ORDERED, COLLECTION_QUEUE = range(4)
NOWHERE = 0xffffffff
EDIT_LOG, EDIT_ENTRY = "Cli::Session::AttributeEditLog", "attributeEditEntry"


# --- Memory ---

def read(address, size):
    return gdb.selected_inferior().read_memory(address, size).tobytes()


def unpack(form, address):
    return struct.unpack("<" + form, read(address, struct.calcsize("<" + form)))[0]


def pointer(address):
    return unpack("Q", address)


def quoted(data):
    text = data.decode("utf-8", "backslashreplace")
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n") + '"'


class Known:
    """What was found out about the program; forgotten when it goes on."""

    def forget(self, _event=None):
        self.layout = None
        self.types = {}

    def at(self, member):
        if self.layout is None:
            self.layout = dict(layout_members())
        return self.layout[member]

    def type_by_class(self, info):
        """The type record of the class with that type information, or of its nearest base that has one."""
        if info not in self.types:
            self.types[info] = find_type(info)
        return self.types[info]


def symbol(name):
    return int(gdb.parse_and_eval("(unsigned long)&'%s'" % name))


def layout_members():
    address = symbol("Kel::DebugLayout::members")
    while True:
        name = read(address, 28).rstrip(b"\0").decode()
        if not name:
            return
        yield name, unpack("I", address + 28)
        address += 32


known = Known()
known.forget()
at = known.at


def pointers(vector):
    """The elements of a std::vector of pointers."""
    begin, end = pointer(vector), pointer(vector + 8)
    return [pointer(element) for element in range(begin, end, 8)]


def tree_members(tree):
    """The addresses of the members of a std::map, in order."""
    header = tree + 8
    node = pointer(header + 16)  # the leftmost one
    while node != header:
        yield node + 32
        if pointer(node + 24):
            node = pointer(node + 24)
            while pointer(node + 16):
                node = pointer(node + 16)
        else:
            while node == pointer(pointer(node + 8) + 24):
                node = pointer(node + 8)
            if pointer(node + 24) != pointer(node + 8):
                node = pointer(node + 8)


def table_members(table):
    """The addresses of the members of a std::unordered_map."""
    node = pointer(table + 16)
    while node:
        yield node + 8
        node = pointer(node)


def hash_members(rep, size):
    """The addresses of the slots with a member, in the order of the slots."""
    if not rep:
        return
    used, cap = unpack("I", rep + at("Hash.used")), unpack("I", rep + at("Hash.cap"))
    hashes = rep + at("Hash")
    slots = hashes + (cap * 4 + 7) // 8 * 8
    for slot in range(used):
        if unpack("I", hashes + 4 * slot):
            yield slots + slot * size


def string_bytes(address):
    """The bytes of the String8 at an address."""
    rep = pointer(address)
    return read(rep + at("String.text"), unpack("I", rep + at("String.size"))) if rep else b""


def name_at(address):
    return string_bytes(address).decode("utf-8", "backslashreplace")


# --- Type records ---

class Type:
    """A Kel::KelType."""

    def __init__(self, address):
        self.address = address
        self.name = name_at(address + at("Type.fullName"))
        self.kind = unpack("B", address + at("Type.kind"))
        self.builtin = unpack("B", address + at("Type.builtin"))

    def attrs(self):
        return [Attr(attr) for attr in pointers(self.address + at("Type.attrs"))]

    def attr(self, number):
        return dict(enumerate(self.attrs())).get(number)

    def has_params(self):
        params = self.address + at("Type.ctorArgs")
        return pointer(params) != pointer(params + 8)

    def fields(self):
        """Of a value type: name, type and offset of each field. They lie in the order of their declaration."""
        offset = 0
        for attr in self.attrs():
            size, align = attr.type().room()
            offset = aligned(offset, align)
            yield attr.name, attr.type(), offset
            offset += size

    def room(self):
        """Size and alignment of a value."""
        if self.kind == KIND_ENUM:
            return 4, 4
        if self.kind == KIND_VALUE:
            end, most = 0, 1
            for _, field, offset in self.fields():
                size, align = field.room()
                end, most = offset + size, max(most, align)
            return aligned(end, most), most
        form = BUILTINS[self.builtin]
        size = struct.calcsize(form) if form else 8
        return size, size

    def text(self, address):
        """The value at an address as it prints."""
        if self.kind == KIND_ENUM:
            return self.enumerator(unpack("i", address))
        if self.kind == KIND_VALUE:
            return "{" + ", ".join("%s = %s" % (n, t.text(address + o)) for n, t, o in self.fields()) + "}"
        if self.builtin == BUILTIN_STRING:
            return quoted(string_bytes(address))
        value = unpack(BUILTINS[self.builtin], address)
        if self.builtin == BUILTIN_BOOL:
            return "true" if value else "false"
        if self.builtin == BUILTIN_CHAR:
            return ascii(value)[1:]
        return hex(value) if self.builtin in BUILTIN_CHAR_PTRS else str(value)

    def enumerator(self, value):
        enumerators = self.address + at("Type.enumerators")
        for e in range(pointer(enumerators), pointer(enumerators + 8), at("Enumerator")):
            if unpack("i", e + at("Enumerator.value")) == value:
                return name_at(e + at("Enumerator.name"))
        return str(value)


class Pointer:
    """Stands for the type of keys and members that are handles."""
    room = staticmethod(lambda: (8, 8))
    text = staticmethod(lambda address: object_line(pointer(address)))


class Attr:
    """A Kel::KelAttr."""

    def __init__(self, address):
        self.address = address
        self.name = name_at(address + at("Attr.name"))
        self.flags = unpack("B", address + at("Attr.flags"))
        self.collection = unpack("B", address + at("Attr.collection"))
        self.offset = unpack("I", address + at("Attr.offset"))
        self.initial = pointer(address + at("Attr.initial"))

    def type(self):
        """The type of the values or members, or None for one that the program has not looked up yet."""
        return Pointer() if self.flags & (FLAG_PTR | FLAG_OWN) else self.linked("Attr.type")

    def key_type(self):
        return Pointer() if unpack("?", self.address + at("Attr.keyIsPtr")) else self.linked("Attr.keyType")

    def linked(self, link):
        address = pointer(self.address + at(link))
        return Type(address) if address else None

    def set_text(self, address):
        """The content at an address as it prints; None for what is as it was made."""
        if self.collection == COLLECTION_NONE:
            return self.single_text(address)
        members = list(self.members(address))
        if not members:
            return None
        shown = members[:gdb.parameter("print elements")]  # None: all
        text = ", ".join(key if value is None else "[%s] = %s" % (key, value) for key, value in shown)
        return "{" + text + (", ..." if len(shown) < len(members) else "") + "}"

    def single_text(self, address):
        kind = self.type()
        if kind is None:
            return None
        if self.initial:
            size = kind.room()[0]
            text = kind.text(address)
            return None if text == kind.text(self.initial) else text
        return kind.text(address) if pointer(address) else None

    def members(self, address):
        """Key and value of each member as they print; no value for owned ones."""
        if self.flags & FLAG_OWN:
            for entity in self.owned(address):
                yield entity_key(entity, self, address), None
        elif self.collection == COLLECTION_QUEUE:
            for index, member in self.queued(address):
                yield str(index), self.type().text(member)
        elif unpack("?", self.address + at("Attr.counts")):
            yield from self.counts(address)
        else:
            yield from self.keyed(address)

    def owned(self, address):
        if self.collection == COLLECTION_QUEUE:
            return [pointer(member) for _, member in self.queued(address)]
        if self.collection == COLLECTION_HASH:
            return [pointer(slot) for slot in hash_members(pointer(address), 8)]
        offset = aligned(self.key_type().room()[0], 8)
        return [pointer(member + offset) for member in tree_members(address)]

    def queued(self, address):
        """Index and address of each member of a queue."""
        size, _ = self.type().room()
        form = BUILTINS[self.key_type().builtin]
        for slot in hash_members(pointer(address), 8 + aligned(size, 8)):
            yield unpack(form, slot), slot + 8  # the index is the low bits of the sequence number

    def keyed(self, address):
        key, value = self.key_type(), self.type()
        (key_size, key_align), (size, align) = key.room(), value.room()
        offset = aligned(key_size, align)
        slot_size = aligned(offset + size, max(key_align, align))
        ordered = self.collection == COLLECTION_ORDERED
        for member in tree_members(address) if ordered else hash_members(pointer(address), slot_size):
            yield key.text(member), value.text(member + offset)

    def counts(self, address):
        """The counts and those that were not added up yet, which lie in front of them in a vector."""
        key = self.key_type()
        size = aligned(key.room()[0] + 1, key.room()[1])
        counts = {}
        slots = list(hash_members(pointer(address + 24), size))
        for slot in slots + list(range(pointer(address), pointer(address + 8), size)):
            text = key.text(slot)
            counts[text] = (counts.get(text, 0) + unpack("B", slot + key.room()[0])) & 0xff
        return counts.items()


def aligned(offset, align):
    return (offset + align - 1) // align * align


def class_name(info):
    """The qualified name in a std::type_info; None for one that no type of a model can have."""
    address = pointer(info + 8)
    mangled = bytearray()
    while len(mangled) < 1000 and (byte := read(address + len(mangled), 1)) != b"\0":
        mangled += byte
    rest = mangled.decode("ascii", "replace").lstrip("*")
    nested = re.fullmatch(r"N(.*)E", rest)
    rest, names = nested.group(1) if nested else rest, []
    while found := re.match(r"(\d+)", rest):
        end = found.end() + int(found.group())
        names.append(rest[found.end():end])
        rest = rest[end:]
    return "::".join(names) if names and not rest else None


def first_base(info):
    """The type information of a class's first base, or None."""
    kind = class_name(pointer(pointer(info) - 8))
    if kind == "__cxxabiv1::__si_class_type_info":
        return pointer(info + 16)
    return pointer(info + 24) if kind == "__cxxabiv1::__vmi_class_type_info" else None


def find_type(info):
    registry = pointer(symbol("Kel::DebugLayout::types"))
    while info and registry:
        name = class_name(info)
        for member in table_members(registry):
            length, text, record = struct.unpack("<QQQ", read(member, 24))
            if name and length == len(name) and read(text, length).decode() == name:
                return Type(record)
        info = first_base(info)
    return None


# --- Objects ---

def class_of(address):
    return pointer(pointer(address) - 8)


def entity_type(address):
    """The type record of an entity, or None for another object."""
    try:
        kind = known.type_by_class(class_of(address))
    except gdb.MemoryError:
        return None
    return kind if kind and kind.kind == KIND_ENTITY else None


def entity_name(address):
    """The name. One that the program has not made yet shows as the key that it will be made from."""
    if not unpack("?", address + at("Entity.nameIsDue")):
        return name_at(address + at("Entity.name"))
    kind = entity_type(address)
    key = name_at(pointer(kind.address + at("Type.ctorArgs")))
    return next(a.type().text(address + a.offset) for a in kind.attrs() if a.name == key)


def entity_path(address):
    path = ""
    while parent := pointer(address + at("Entity.parent")):
        path = path_step(address, parent) + path
        address = parent
    return path


def path_step(address, parent):
    """As Entity::fullName has it."""
    holder = entity_type(parent)
    attr = holder.attr(unpack("H", address + at("Entity.parentAttrId")))
    if attr is None:
        return ""
    if holder.name == "Kel::Dir" and entity_type(address).name != "Kel::Dir::EntryState":
        return "/" + entity_name(address)
    if attr.collection == COLLECTION_NONE:
        return "." + attr.name
    return ".%s/%s" % (attr.name, entity_key(address, attr, parent + attr.offset))


def entity_key(address, attr, collection):
    """The key of an owned entity: its name, or the index of one that its queue gives none."""
    if attr.collection == COLLECTION_QUEUE and not entity_type(address).has_params():
        return next(str(index) for index, member in attr.queued(collection) if pointer(member) == address)
    return entity_name(address)


def entity_line(address):
    line, name, path = entity_type(address).name, entity_name(address), entity_path(address)
    return line + (" " + quoted(name.encode()) if name else "") + (" at " + path if path else "")


def object_line(address):
    """One line about what a handle holds."""
    if not address:
        return "null"
    if entity_type(address):
        return entity_line(address)
    name = class_name(class_of(address))
    return RECORDS[name](address) if name in RECORDS else "(%s *) 0x%x" % (name, address)


def entity_content(address):
    """Name and printed content of each attribute that is not as it was made."""
    for attr in entity_type(address).attrs():
        if attr.flags & (FLAG_FUNCTION | FLAG_PARAM) or attr.offset == NOWHERE:
            continue
        text = attr.set_text(address + attr.offset)
        if text is not None:
            yield attr.name, text


def edit_log_content(address):
    """Each edit with its counts by path, then what else is set."""
    for attr in entity_type(address).attrs():
        if attr.name == EDIT_ENTRY:
            for entry in attr.owned(address + attr.offset):
                yield edit_text(entry), dict(entity_content(entry)).get("pathCounter", "{}")
    for name, text in entity_content(address):
        if name != EDIT_ENTRY:
            yield name, text


def edit_text(entry):
    """The edit of an entry: its only constructor parameter, which lies behind what every entity has."""
    fields = entity_type(entry).attr(0).type().fields()
    name, kind, edit = [field.text(entry + at("Entity") + offset).strip('"') for _, field, offset in fields]
    return "%s %s : %s" % (edit, name, kind)


def generic_line(address):
    """What a Kel::GenericIf stands for."""
    if entity := pointer(address + at("Generic.entity")):
        return entity_line(entity)
    if members := pointer(address + at("Generic.list")):
        return "(" + ", ".join(object_line(o) for o in pointers(members + at("List.objects"))) + ")"
    kind = Type(pointer(address + at("Generic.type")))
    held = pointer(address + at("Generic.object"))
    if kind.kind == KIND_OBJECT:
        return object_line(held)
    where = "Generic.string" if kind.builtin == BUILTIN_STRING else "Generic.scalar"
    return "%s %s" % (kind.name, kind.text(held + at("Holder.value") if held else address + at(where)))


# --- Printers ---

RECORDS = {
    "Kel::KelType": lambda address: "type " + name_at(address + at("Type.fullName")),
    "Kel::KelAttr": lambda address: "attribute " + name_at(address + at("Attr.fullName")),
    "Kel::GenericIf": generic_line,
}


class ObjectPrinter:
    """An object of the framework by its address: a line, and what an entity has set."""

    def __init__(self, address):
        self.address = address

    def to_string(self):
        return object_line(self.address)

    def children(self):
        kind = entity_type(self.address) if self.address else None
        if not kind:
            return iter(())
        return (edit_log_content if kind.name == EDIT_LOG else entity_content)(self.address)


class StringPrinter:
    def __init__(self, value):
        self.rep = int(value["rep_"])

    def to_string(self):
        if not self.rep:
            return ""
        text = gdb.Value(self.rep + at("String.text")).cast(gdb.lookup_type("char").pointer())
        return text.lazy_string(length=unpack("I", self.rep + at("String.size")))

    def display_hint(self):
        return "string"


def typed(address, kind):
    return gdb.Value(address).cast(kind.pointer()).dereference()


class MapPrinter:
    """Members by key, as gdb's own types have them."""
    def __init__(self, value):
        self.value = value
        self.kind = value.type.strip_typedefs()

    def to_string(self):
        return str(self.kind.unqualified())

    def display_hint(self):
        return "map"

    def children(self):
        for number, (key, value) in enumerate(self.members()):
            yield "key%d" % number, key
            yield "value%d" % number, value

    def pairs(self, addresses, key, value):
        offset = aligned(key.sizeof, value.alignof)
        for address in addresses:
            yield typed(address, key), typed(address + offset, value)

    def slots(self, rep, key, value):
        size = aligned(aligned(key.sizeof, value.alignof) + value.sizeof, max(key.alignof, value.alignof))
        return self.pairs(hash_members(int(rep), size), key, value)


class HashMapPrinter(MapPrinter):
    def members(self):
        return self.slots(self.value["rep_"], self.kind.template_argument(0), self.kind.template_argument(1))


class TreeMapPrinter(MapPrinter):
    def members(self):
        key, value = self.kind.template_argument(0), self.kind.template_argument(1)
        return self.pairs(tree_members(int(self.value["map_"].address)), key, value)


class CounterMapPrinter(MapPrinter):
    def members(self):
        key, count = self.kind.template_argument(0), gdb.lookup_type("unsigned char")
        size, begin = aligned(key.sizeof + 1, key.alignof), int(self.value.address)
        deferred = range(pointer(begin), pointer(begin + 8), size)
        counts = {}
        for k, v in list(self.slots(self.value["counts_"]["rep_"], key, count)) + list(self.pairs(deferred, key, count)):
            first, n = counts.get(k.format_string(), (k, 0))
            counts[k.format_string()] = first, (n + int(v)) & 0xff
        return ((k, str(n)) for k, n in counts.values())


class EntityMapPrinter(MapPrinter):
    """Owned entities by name."""
    def members(self):
        handle = gdb.lookup_type("Kel::Ptr<%s>" % self.kind.template_argument(0))
        for slot in self.handles():
            yield quoted(entity_name(pointer(slot)).encode()), typed(slot, handle)

    def handles(self):
        return hash_members(int(self.value["rep_"]), 8)


class EntityTreePrinter(EntityMapPrinter):
    def handles(self):
        tree = self.value["map_"]
        offset = aligned(tree.type.strip_typedefs().template_argument(0).sizeof, 8)
        return (member + offset for member in tree_members(int(tree["map_"].address)))


class QueuePrinter(MapPrinter):
    """Members by index, oldest first."""
    def members(self):
        value, index = self.kind.template_argument(0), self.kind.template_argument(1)
        for slot in hash_members(int(self.value["rep_"]), 8 + aligned(value.sizeof, 8)):
            yield typed(slot, index), typed(slot + 8, value)


def handle_printer(value):
    held = value["p_"]  # of a ValidPtr: another handle
    return ObjectPrinter(int(held)) if held.type.code == gdb.TYPE_CODE_PTR else handle_printer(held)


def object_printer(value):
    return ObjectPrinter(int(value.address))


PRINTERS = {
    "String8": StringPrinter,
    "Ptr": handle_printer,
    "ValidPtr": handle_printer,
    "HashMap": HashMapPrinter,
    "RbTreeMap": TreeMapPrinter,
    "CounterMap": CounterMapPrinter,
    "EntityMap": EntityMapPrinter,
    "EntityTree": EntityTreePrinter,
    "LinkQueue": QueuePrinter,
}


def is_entity_class(kind):
    while kind.code == gdb.TYPE_CODE_STRUCT:
        if kind.name == "Kel::Entity":
            return True
        bases = [field.type for field in kind.fields() if field.is_base_class]
        if not bases:
            return False
        kind = bases[0].strip_typedefs()
    return False


class Printers(gdb.printing.PrettyPrinter):
    def __call__(self, value):
        kind = value.type.strip_typedefs().unqualified()
        if kind.code != gdb.TYPE_CODE_STRUCT or not kind.name:
            return None
        found = re.match(r"Kel::(\w+)(<.*>)?$", kind.name)
        if found and found.group(1) in PRINTERS:
            return PRINTERS[found.group(1)](value)
        return object_printer(value) if kind.name in RECORDS or is_entity_class(kind) else None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers("kel"), replace=True)
for event in (gdb.events.stop, gdb.events.exited, gdb.events.new_objfile, gdb.events.clear_objfiles):
    event.connect(known.forget)
