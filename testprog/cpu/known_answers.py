#!/usr/bin/env python3
"""Prints the digests of the operations in operations.cpp.

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


def operands():
    state = 0x9E3779B97F4A7C15
    while True:
        three = []
        for _ in range(3):
            state ^= (state << 13) & MASK
            state ^= state >> 7
            state ^= (state << 17) & MASK
            three.append(state)
        yield three


def real(word):
    return Fraction((word >> 12) | 2**52, 2**52)


def single(word):
    return Fraction((word >> 41) | 2**23, 2**23)


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


def bits(value, digits=53):
    """The IEEE 754 double of a fraction, rounded to so many digits, as a whole number."""
    value = rounded(value, digits)
    if value == 0:
        return 0
    sign, value, exponent = (1 if value < 0 else 0), abs(value), 1023
    while value >= 2:
        value, exponent = value / 2, exponent + 1
    while value < 1:
        value, exponent = value * 2, exponent - 1
    return sign << 63 | exponent << 52 | int((value - 1) * 2**52)


def add(x, y, z):
    return (x + y - (z >> 3)) & MASK


def shift(x, y, z):
    return ((x << (y & 63)) & MASK) ^ (y >> (z & 63)) ^ rotate(z, y >> 58)


def mul(x, y, z):
    return ((x * y) & MASK) ^ ((x >> 32) * (z >> 32))


def div(x, y, z):
    divisor = (y >> (z & 31)) | 1
    return (x // divisor) ^ rotate(x % divisor, 32)


def signed_div(x, y, z):
    x = (x >> 1) - 2**62
    divisor = (y >> 40) - 2**23
    if divisor in (0, -1):
        divisor = 3
    quotient = abs(x) // abs(divisor) * (1 if (x < 0) == (divisor < 0) else -1)
    return (quotient & MASK) ^ rotate((x - quotient * divisor) & MASK, 32)


def logic(x, y, z):
    return (x & y) | (~x & MASK & z)


def scan(x, y, z):
    leading = 64 - ((x >> (z & 31)) | 1).bit_length()
    low = (y << (z & 31)) & MASK | 2**63
    trailing = (low & -low).bit_length() - 1
    return int.from_bytes(z.to_bytes(8, "little"), "big") ^ leading ^ (trailing << 8)


def fp_add(x, y, z):
    return bits(real(x) + real(y)) ^ rotate(bits(real(x) - real(z)), 32)


def fp_mul(x, y, z):
    return bits(real(x) * real(y))


def fp_div(x, y, z):
    return bits(real(x) / real(y))


def fp_sqrt(x, y, z):
    # The 53-bit root of m/2^52 is that of m*2^52, rounded; it is never halfway.
    m = int(real(x) * 2**52) * 2**52
    root = isqrt(m)
    root += 1 if m - root * root > root else 0
    return bits(Fraction(root, 2**52))


def single_fp(x, y, z):
    return bits(single(x) * single(y), 24) ^ rotate(bits(single(x) / single(z), 24), 32)


def convert(x, y, z):
    return bits(Fraction(x)) ^ int(real(y) * 2**32) ^ bits(real(z), 24)


def fma(x, y, z):
    return bits(real(x) * real(y) + real(z))


for operation in (add, shift, mul, div, signed_div, logic, scan, fp_add, fp_mul, fp_div,
                  fp_sqrt, single_fp, convert, fma):
    digest = 0
    for _, (x, y, z) in zip(range(OPERANDS), operands()):
        digest = ((digest + operation(x, y, z)) * 0x9E3779B97F4A7C15) & MASK
        digest ^= digest >> 32
    print(f"{operation.__name__.replace('_', ' ')}: 0x{digest:016x}")
