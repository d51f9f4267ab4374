#!/usr/bin/env python3
"""Shows what a saved store holds, without any code of the library: docs/store-file.md is all it is made from.

    tools/inspect_store.py FILE            every resource: its ID, its datatype, its Turtle literal
    tools/inspect_store.py --frame FILE    the header, the counters and the sections

Columns are separated by tabs, resources come in the order of their IDs. Where the library and this program disagree
about a file, one of them or the document is wrong.

Exit status: 0 fine; 1 the file cannot be read, is no store, or is damaged (a message on standard error, and no resource
is printed); 2 wrong usage.
"""

import argparse
import os
import struct
import sys

# ---- The format.

MAGIC = b"\x8bKAVI\r\n\x1a"
FORMAT_VERSION = 1
BYTE_ORDER_MARK = 0x01020304
MAX_NUMBER_OF_SECTIONS = 64

HEADER = struct.Struct("<8sIIIIQQ")
SECTION = struct.Struct("<16sQQQ")
CHECKSUM = struct.Struct("<Q")
COUNTERS = struct.Struct("<QQQQ")

MIN_MAX_RESOURCE_ID = 2048
LARGEST_MAX_RESOURCE_ID = {32: 2**32 - 2, 64: 2**40}
FIRST_POOL_OFFSET = 64
SHARED_SECTIONS = ("counters", "datatypes", "data", "pool")
DICTIONARY_PREFIX = "dictionary-"

RECORD = {32: struct.Struct("<IqB"), 64: struct.Struct("<QqB")}
MAX_FRACTION_DIGITS = 19

SMALLEST, LARGEST = -(2**63), 2**63 - 1
XSD_DECIMAL, XSD_INTEGER = 22, 23
INTEGER_DATATYPES = {  # datatype ID: name, smallest and largest value
    23: ("xsd:integer", SMALLEST, LARGEST),
    24: ("xsd:nonNegativeInteger", 0, LARGEST),
    25: ("xsd:nonPositiveInteger", SMALLEST, 0),
    26: ("xsd:negativeInteger", SMALLEST, -1),
    27: ("xsd:positiveInteger", 1, LARGEST),
    28: ("xsd:long", SMALLEST, LARGEST),
    29: ("xsd:int", -(2**31), 2**31 - 1),
    30: ("xsd:short", -(2**15), 2**15 - 1),
    31: ("xsd:byte", -(2**7), 2**7 - 1),
    32: ("xsd:unsignedLong", 0, LARGEST),
    33: ("xsd:unsignedInt", 0, 2**32 - 1),
    34: ("xsd:unsignedShort", 0, 2**16 - 1),
    35: ("xsd:unsignedByte", 0, 2**8 - 1),
}


class Damage(Exception):
    """What makes a file no sound store; the message is a clause without a full stop."""


# ---- XXH3, 64 bits, seed 0, with the default secret. All arithmetic is modulo 2^64.

MASK = 2**64 - 1
PRIME32_1, PRIME32_2, PRIME32_3 = 0x9E3779B1, 0x85EBCA77, 0xC2B2AE3D
PRIME64_1, PRIME64_2, PRIME64_3 = 0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9
PRIME64_4, PRIME64_5 = 0x85EBCA77C2B2AE63, 0x27D4EB2F165667C5
AVALANCHE_PRIME, RRMXMX_PRIME = 0x165667919E3779F9, 0x9FB21C651E98DF25

SECRET = bytes.fromhex(
    "b8fe6c3923a44bbe7c01812cf721ad1cded46de9839097db7240a4a4b7b3671fcb79e64eccc0e578825ad07dccff7221"
    "b8084674f743248ee03590e6813a264c3c2852bb91c300cb88d0658b1b532ea371644897a20df94e3819ef46a9deacd8"
    "a8fa763fe39c343ff9dcbbc7c70b4f1d8a51e04bcdb45931c89f7ec9d9787364eac5ac8334d3ebc3c581a0fffa1363eb"
    "170ddd51b7f0da49d316552629d4689e2b16be587d47a1fc8ff8b8d17ad031ce45cb3a8f95160428afd7fbcabb4b407e"
)

STRIPE_LENGTH = 64
STRIPES_IN_BLOCK = (len(SECRET) - STRIPE_LENGTH) // 8  # each stripe moves on by 8 bytes of the secret
BLOCK_LENGTH = STRIPE_LENGTH * STRIPES_IN_BLOCK

STRIPE = struct.Struct("<8Q")
STRIPE_KEYS = tuple(STRIPE.unpack_from(SECRET, 8 * stripe) for stripe in range(STRIPES_IN_BLOCK))
SCRAMBLE_KEYS = STRIPE.unpack_from(SECRET, len(SECRET) - STRIPE_LENGTH)
LAST_STRIPE_KEYS = STRIPE.unpack_from(SECRET, len(SECRET) - STRIPE_LENGTH - 7)


def read32(data, offset):
    return int.from_bytes(data[offset:offset + 4], "little")


def read64(data, offset):
    return int.from_bytes(data[offset:offset + 8], "little")


def multiply_and_fold(first, second):
    product = first * second
    return (product & MASK) ^ (product >> 64)


def avalanche(value):
    value = ((value ^ value >> 37) * AVALANCHE_PRIME) & MASK
    return value ^ value >> 32


def avalanche_of_xxh64(value):
    value = ((value ^ value >> 33) * PRIME64_2) & MASK
    value = ((value ^ value >> 29) * PRIME64_3) & MASK
    return value ^ value >> 32


def rotate_left(value, bits):
    return (value << bits | value >> 64 - bits) & MASK


def mix16(data, offset, secret_offset):
    return multiply_and_fold(
        read64(data, offset) ^ read64(SECRET, secret_offset),
        read64(data, offset + 8) ^ read64(SECRET, secret_offset + 8),
    )


def checksum_to_16(data):
    length = len(data)
    if length == 0:
        return avalanche_of_xxh64(read64(SECRET, 56) ^ read64(SECRET, 64))
    if length <= 3:
        combined = data[0] << 16 | data[length >> 1] << 24 | data[-1] | length << 8
        return avalanche_of_xxh64(combined ^ read32(SECRET, 0) ^ read32(SECRET, 4))
    if length <= 8:
        value = (read32(data, length - 4) + (read32(data, 0) << 32)) ^ read64(SECRET, 8) ^ read64(SECRET, 16)
        value ^= rotate_left(value, 49) ^ rotate_left(value, 24)
        value = value * RRMXMX_PRIME & MASK
        value ^= (value >> 35) + length
        value = value * RRMXMX_PRIME & MASK
        return value ^ value >> 28
    low = read64(data, 0) ^ read64(SECRET, 24) ^ read64(SECRET, 32)
    high = read64(data, length - 8) ^ read64(SECRET, 40) ^ read64(SECRET, 48)
    swapped = int.from_bytes(low.to_bytes(8, "little"), "big")
    return avalanche((length + swapped + high + multiply_and_fold(low, high)) & MASK)


def checksum_to_128(data):
    length = len(data)
    value = length * PRIME64_1
    for pair in range((length - 1) // 32 + 1):
        value += mix16(data, 16 * pair, 32 * pair)
        value += mix16(data, length - 16 * (pair + 1), 32 * pair + 16)
    return avalanche(value & MASK)


def checksum_to_240(data):
    length = len(data)
    value = length * PRIME64_1
    for index in range(8):
        value += mix16(data, 16 * index, 16 * index)
    value = avalanche(value & MASK)
    for index in range(8, length // 16):
        value += mix16(data, 16 * index, 16 * (index - 8) + 3)
    value += mix16(data, length - 16, 136 - 17)
    return avalanche(value & MASK)


def accumulate(lanes, data, offset, keys):
    """Adds a stripe to the lanes, which may exceed 64 bits until the caller cuts them."""
    for index, (word, key) in enumerate(zip(STRIPE.unpack_from(data, offset), keys)):
        keyed = word ^ key
        lanes[index ^ 1] += word
        lanes[index] += (keyed & 0xFFFFFFFF) * (keyed >> 32)


def checksum_beyond_240(data):
    length = len(data)
    lanes = [PRIME32_3, PRIME64_1, PRIME64_2, PRIME64_3, PRIME64_4, PRIME32_2, PRIME64_5, PRIME32_1]
    number_of_blocks = (length - 1) // BLOCK_LENGTH
    for block in range(number_of_blocks):
        for stripe in range(STRIPES_IN_BLOCK):
            accumulate(lanes, data, block * BLOCK_LENGTH + stripe * STRIPE_LENGTH, STRIPE_KEYS[stripe])
        for index, key in enumerate(SCRAMBLE_KEYS):
            lane = lanes[index] & MASK
            lanes[index] = (lane ^ lane >> 47 ^ key) * PRIME32_1 & MASK
    start = number_of_blocks * BLOCK_LENGTH
    for stripe in range((length - 1 - start) // STRIPE_LENGTH):
        accumulate(lanes, data, start + stripe * STRIPE_LENGTH, STRIPE_KEYS[stripe])
    accumulate(lanes, data, length - STRIPE_LENGTH, LAST_STRIPE_KEYS)
    value = length * PRIME64_1
    for index in range(4):
        value += multiply_and_fold(
            lanes[2 * index] & MASK ^ read64(SECRET, 11 + 16 * index),
            lanes[2 * index + 1] & MASK ^ read64(SECRET, 11 + 16 * index + 8),
        )
    return avalanche(value & MASK)


def get_checksum(data):
    """The XXH3-64 checksum of bytes, seed 0."""
    if len(data) <= 16:
        return checksum_to_16(data)
    if len(data) <= 128:
        return checksum_to_128(data)
    if len(data) <= 240:
        return checksum_to_240(data)
    return checksum_beyond_240(data)


# ---- The frame.


class Section:
    def __init__(self, name, offset, length, checksum):
        self.name, self.offset, self.length, self.checksum = name, offset, length, checksum


class Store:
    """The frame of a store, checked in the order of the document; sections are cut out when they are asked for."""

    def __init__(self, data, verifies_checksums):
        self.data = data
        self.verifies_checksums = verifies_checksums
        self.sections = []
        self.read_header()
        self.read_table_of_sections()

    def read_header(self):
        if self.data[:len(MAGIC)] != MAGIC:
            raise Damage("not a Kavix store")
        if len(self.data) < HEADER.size:
            raise Damage("the file ends in the middle of its header")
        (_, self.format_version, byte_order_mark, self.library_version, self.resource_id_width, self.page_size,
         self.number_of_sections) = HEADER.unpack_from(self.data)
        if byte_order_mark != BYTE_ORDER_MARK:
            raise Damage("written on a machine with a different byte order")
        if self.format_version != FORMAT_VERSION:
            raise Damage(f"format version {self.format_version} is not supported (this program reads version {FORMAT_VERSION})")
        if self.resource_id_width not in RECORD:
            raise Damage(f"unsupported resource ID width of {self.resource_id_width} bits")
        if self.number_of_sections > MAX_NUMBER_OF_SECTIONS:
            raise Damage(f"invalid number of sections, {self.number_of_sections}")

    def read_table_of_sections(self):
        table_end = HEADER.size + self.number_of_sections * SECTION.size
        if len(self.data) < table_end + CHECKSUM.size:
            raise Damage("the file ends in the middle of its table of sections")
        (self.header_checksum,) = CHECKSUM.unpack_from(self.data, table_end)
        if self.verifies_checksums and get_checksum(self.data[:table_end]) != self.header_checksum:
            raise Damage("the checksum of its header is wrong")
        end = table_end + CHECKSUM.size
        for name, offset, length, checksum in SECTION.iter_unpack(self.data[HEADER.size:table_end]):
            section = Section(name.split(b"\0")[0].decode("ascii", "backslashreplace"), offset, length, checksum)
            if offset != end:
                raise Damage(f"the position of section '{section.name}' is wrong")
            end += length
            self.sections.append(section)
        if len(self.data) < end:
            raise Damage("the file is shorter than its sections")
        if len(self.data) > end:
            raise Damage("there is data after the last section")

    def get_content(self, section):
        return self.data[section.offset:section.offset + section.length]

    def is_checksum_right(self, section):
        return get_checksum(self.get_content(section)) == section.checksum

    def read_section(self, name, length=None):
        """The bytes of a section whose length, if given, and checksum are right."""
        section = next((section for section in self.sections if section.name == name), None)
        if section is None:
            raise Damage(f"section '{name}' is missing")
        if length is not None and section.length != length:
            raise Damage(f"section '{name}' has {section.length} bytes instead of {length}")
        if self.verifies_checksums and not self.is_checksum_right(section):
            raise Damage(f"the checksum of section '{name}' is wrong")
        return self.get_content(section)


class Counters:
    def __init__(self, store):
        (self.next_resource_id, self.max_resource_id, self.pool_end,
         self.number_of_resources) = COUNTERS.unpack(store.read_section("counters", COUNTERS.size))
        if not MIN_MAX_RESOURCE_ID <= self.max_resource_id <= LARGEST_MAX_RESOURCE_ID[store.resource_id_width]:
            raise Damage(f"the bound of resource IDs, {self.max_resource_id}, is not possible")
        if not 1 <= self.next_resource_id <= self.max_resource_id:
            raise Damage(f"invalid next resource ID {self.next_resource_id}")
        if not FIRST_POOL_OFFSET <= self.pool_end <= min(2**45, 2**30 + 40 * self.max_resource_id):
            raise Damage(f"invalid end of the data pool, {self.pool_end}")


# ---- The resources.


def format_decimal(unscaled_value, fraction_digits):
    digits = str(abs(unscaled_value)).rjust(fraction_digits + 1, "0")
    whole, fraction = digits[:len(digits) - fraction_digits], digits[len(digits) - fraction_digits:]
    return ("-" if unscaled_value < 0 else "") + whole + "." + (fraction or "0")


def read_decimal(store, counters, pool, resource_id, offset):
    record = RECORD[store.resource_id_width]
    if offset < FIRST_POOL_OFFSET or offset + record.size > counters.pool_end:
        raise Damage(f"resource {resource_id}: its record at offset {offset} is outside the data pool")
    recorded_id, unscaled_value, fraction_digits = record.unpack_from(pool, offset - FIRST_POOL_OFFSET)
    if recorded_id != resource_id:
        raise Damage(f"resource {resource_id}: its record belongs to resource {recorded_id}")
    if fraction_digits > MAX_FRACTION_DIGITS or (fraction_digits != 0 and unscaled_value % 10 == 0):
        raise Damage(f"resource {resource_id}: its decimal is not normalised, or has more than 19 fraction digits")
    return format_decimal(unscaled_value, fraction_digits)


def read_integer(resource_id, datatype_id, value):
    name, minimum, maximum = INTEGER_DATATYPES[datatype_id]
    if not minimum <= value <= maximum:
        raise Damage(f"resource {resource_id}: its value {value} is not in the range of {name}")
    return str(value) if datatype_id == XSD_INTEGER else f'"{value}"^^{name}'


def read_resources(store):
    """A list of (resource ID, name of the datatype, Turtle literal), in the order of the IDs."""
    counters = Counters(store)
    datatype_ids = store.read_section("datatypes", counters.next_resource_id)
    data_words = store.read_section("data", 8 * counters.next_resource_id)
    pool = store.read_section("pool", counters.pool_end - FIRST_POOL_OFFSET)
    for section in store.sections:
        if section.name not in SHARED_SECTIONS:
            store.read_section(section.name)  # its tables only repeat what the arrays say, but they must be undamaged
    store.read_section(f"{DICTIONARY_PREFIX}{XSD_DECIMAL}")
    if datatype_ids[0] != 0:
        raise Damage("resource ID 0, which is reserved, has a datatype")
    resources = []
    for resource_id, datatype_id in enumerate(datatype_ids):
        if datatype_id == 0:
            continue
        if datatype_id == XSD_DECIMAL:
            (offset,) = struct.unpack_from("<Q", data_words, 8 * resource_id)
            resources.append((resource_id, "xsd:decimal", read_decimal(store, counters, pool, resource_id, offset)))
        elif datatype_id in INTEGER_DATATYPES:
            (value,) = struct.unpack_from("<q", data_words, 8 * resource_id)
            resources.append((resource_id, INTEGER_DATATYPES[datatype_id][0], read_integer(resource_id, datatype_id, value)))
        else:
            raise Damage(f"resource {resource_id} has the unknown datatype ID {datatype_id}")
    if len(resources) != counters.number_of_resources:
        raise Damage(f"it has {len(resources)} resources and counts {counters.number_of_resources}")
    return resources


# ---- The program.


def print_resources(store):
    for resource_id, datatype, literal in read_resources(store):
        print(resource_id, datatype, literal, sep="\t")


def print_frame(store):
    """Lists every section, the damaged ones too, before it complains of these."""
    version = store.library_version
    print("format version", store.format_version, sep="\t")
    print("library version", f"{version >> 16 & 255}.{version >> 8 & 255}.{version & 255}", sep="\t")
    print("resource ID width", store.resource_id_width, sep="\t")
    print("page size", store.page_size, sep="\t")
    print("number of sections", store.number_of_sections, sep="\t")
    print("header checksum", f"{store.header_checksum:016x}", sep="\t")
    damaged = []
    for section in store.sections:
        state = "not verified"
        if store.verifies_checksums:
            state = "right" if store.is_checksum_right(section) else "wrong"
        if state == "wrong":
            damaged.append(f"'{section.name}'")
        print("section", section.name, section.offset, section.length, f"{section.checksum:016x}", state, sep="\t")
    if damaged:
        raise Damage("the checksum of section " + ", ".join(damaged) + " is wrong")
    counters = Counters(store)
    print("next resource ID", counters.next_resource_id, sep="\t")
    print("bound of resource IDs", counters.max_resource_id, sep="\t")
    print("end of the data pool", counters.pool_end, sep="\t")
    print("number of resources", counters.number_of_resources, sep="\t")


def parse_arguments():
    parser = argparse.ArgumentParser(description="Shows the resources of a saved store: ID, datatype, Turtle literal.")
    parser.add_argument("--frame", action="store_true", help="list the header, the sections and the counters instead")
    parser.add_argument("--no-checksums", action="store_true", help="do not verify checksums: saves a second for 10 MB")
    parser.add_argument("file", metavar="FILE", help="the store")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    try:
        with open(arguments.file, "rb") as file:
            store = Store(file.read(), not arguments.no_checksums)
        if arguments.frame:
            print_frame(store)
        else:
            print_resources(store)
        sys.stdout.flush()
    except Damage as damage:
        sys.stdout.flush()
        print(f"{arguments.file}: {damage}.", file=sys.stderr)
        return 1
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())  # or the interpreter complains when it ends
        return 1
    except OSError as error:
        print(f"{arguments.file}: {error.strerror}.", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
