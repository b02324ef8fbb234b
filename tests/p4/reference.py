"""Calculations on bytes that expected packets are worked out with. Written from the definitions."""


def packed(*fields):
    """Bytes of (value, width) pairs, big endian without padding; negatives as two's complement."""
    total = sum(width for _, width in fields)
    assert total % 8 == 0, f"{total} bits are no whole bytes"
    number = 0
    for value, width in fields:
        number = number << width | value & (1 << width) - 1
    return number.to_bytes(total // 8, "big")


def packed_right(*fields):
    """As packed(), with zero bits on the right up to a whole byte."""
    return packed(*fields, (0, -sum(width for _, width in fields) % 8))


def words(data):
    """Big-endian words of 16 bits; an odd last byte is the high half of its word."""
    data = data + bytes(len(data) % 2)
    return [data[i] << 8 | data[i + 1] for i in range(0, len(data), 2)]


def csum16(data):
    """The complement of the one's complement sum."""
    total = sum(words(data))
    while total >> 16:
        total = (total & 0xffff) + (total >> 16)
    return total ^ 0xffff


def xor16(data):
    result = 0
    for word in words(data):
        result ^= word
    return result


def reflected_crc(data, width, polynomial, start, end):
    """A CRC, bit by bit, lowest bit first; `polynomial` is written highest bit first."""
    mirrored = int(f"{polynomial:0{width}b}"[::-1], 2)
    state = start
    for byte in data:
        state ^= byte
        for _ in range(8):
            state = state >> 1 ^ (mirrored if state & 1 else 0)
    return state ^ end


def crc16(data):
    return reflected_crc(data, 16, 0x8005, 0, 0)


def crc32(data):
    return reflected_crc(data, 32, 0x04c11db7, 0xffffffff, 0xffffffff)


def identity(data):
    """The first eight bytes, or all of fewer, as a number."""
    return int.from_bytes(data[:8], "big")


CHECK_TEXT = b"123456789"
assert csum16(CHECK_TEXT) == 0xf62a
assert crc16(CHECK_TEXT) == 0xbb3d
assert crc32(CHECK_TEXT) == 0xcbf43926
assert xor16(CHECK_TEXT) == 0x3908
assert identity(CHECK_TEXT) == 0x3132333435363738
