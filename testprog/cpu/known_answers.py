#!/usr/bin/env python3
"""Prints the digests of kKnownAnswers in instruction.cpp.

They are worked out with whole numbers of any size and with fractions that are rounded here, so
that no answer rests on the arithmetic of the machine that prints it. To be run, and its output
carried over, when an operation or the operands of the processor test change.
"""

from fractions import Fraction
from math import isqrt

MASK = 2**64 - 1
OPERANDS = 256


def rotate(value, count):
    count %= 64
    return ((value << count) | (value >> (64 - count))) & MASK


def signed(value):
    return value - 2**64 if value >> 63 else value


class Operands:
    def __init__(self):
        self.state = 0x9E3779B97F4A7C15

    def next(self):
        self.state ^= (self.state << 13) & MASK
        self.state ^= self.state >> 7
        self.state ^= (self.state << 17) & MASK
        return self.state

    def real(self):
        return Fraction((self.next() >> 12) | 2**52, 2**52)


def rounded(value, digits):
    """The fraction nearest to value with that many binary digits, ties to even."""
    if value == 0:
        return value
    scale = Fraction(1)
    while abs(value) * scale >= 2**digits:
        scale /= 2
    while abs(value) * scale < 2 ** (digits - 1):
        scale *= 2
    return round(value * scale) / scale  # round() of a fraction ties to even


def bits(value):
    """The IEEE 754 double of a fraction, as a whole number."""
    value = rounded(value, 53)
    if value == 0:
        return 0
    sign, value, exponent = (1 if value < 0 else 0), abs(value), 1023
    while value >= 2:
        value, exponent = value / 2, exponent + 1
    while value < 1:
        value, exponent = value * 2, exponent - 1
    return sign << 63 | exponent << 52 | int((value - 1) * 2**52)


def add(o):
    x, y, z = o.next(), o.next(), o.next()
    return (x + y - (z >> 3)) & MASK


def shift(o):
    x, y = o.next(), o.next()
    return ((x << (y & 63)) & MASK) ^ (y >> (x & 63)) ^ rotate(x, y >> 58)


def multiply(o):
    x, y = o.next(), o.next()
    return ((x * y) & MASK) ^ ((x >> 32) * (y >> 32))


def divide(o):
    x, y = o.next(), o.next()
    divisor = (y >> (y & 31)) | 1
    return (x // divisor) ^ rotate(x % divisor, 32)


def signed_divide(o):
    x = (o.next() >> 1) - 2**62
    divisor = (o.next() >> 40) - 2**23
    if divisor in (0, -1):
        divisor = 3
    quotient = abs(x) // abs(divisor) * (1 if (x < 0) == (divisor < 0) else -1)
    return (quotient & MASK) ^ rotate((x - quotient * divisor) & MASK, 32)


def bit_logic(o):
    x, y, z = o.next(), o.next(), o.next()
    return ((x & y) | (~x & MASK & z)) ^ bin(x ^ y).count("1")


def fp_add(o):
    x, y = o.real(), o.real()
    return bits(x + y) ^ rotate(bits(x - y), 32)


def fp_multiply(o):
    x = o.real()
    return bits(x * o.real())


def fp_divide(o):
    x = o.real()
    return bits(x / o.real())


def square_root(o):
    # The 53-bit root of m/2^52 is that of m*2^52, rounded; it is never halfway.
    m = int(o.real() * 2**52) * 2**52
    root = isqrt(m)
    root += 1 if m - root * root > root else 0
    return bits(Fraction(root, 2**52))


def convert(o):
    x = o.next()
    whole = int(rounded(o.real() * 2**32, 53))
    return bits(Fraction(x)) ^ whole ^ bits(rounded(o.real(), 24))


for operation in (add, shift, multiply, divide, signed_divide, bit_logic, fp_add,
                  fp_multiply, fp_divide, square_root, convert):
    operands, digest = Operands(), 0
    for _ in range(OPERANDS):
        digest = rotate(digest, 7) ^ operation(operands)
    print(f"{operation.__name__.replace('_', ' ')}: 0x{digest:016x}")
