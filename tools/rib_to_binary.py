#!/usr/bin/env python3
"""Encodes an ASCII RIB file in the binary encoding of RIB.

Every token of the input becomes its binary form, so that the output reads
as exactly the same tokens and values:

  request words   defined once under a code (byte 0314), then called by it
                  (0246); past 256 distinct words they stay ASCII words
  strings         0220+l (up to 15 bytes) or 0240+l with a length; with
                  --define-strings a string met again is defined (0315+w) and
                  referred to by number (0317+w)
  numbers         a whole number from 0 to 2**32-1 as 0200+w with w+1 bytes;
                  one that 1, 2 or 3 fraction bytes hold exactly as 0200+4d+w;
                  any other as an IEEE single (0244), or a double (0245) with
                  --doubles; a single is the float the ASCII text reads as
  arrays          a bracketed run of numbers as a float array (0310+l) when
                  every number reads the same as a single; else bracket by
                  bracket
  comments        dropped ("##" structure comments are kept as text)

--mix N writes every N-th token in ASCII instead, so that a stream switches
between the two encodings. Whole numbers in float arrays read the same as
their text because every reader converts them from the same float value.

Usage: rib_to_binary.py [--define-strings] [--doubles] [--mix N] IN OUT
"""
import argparse
import math
import re
import struct
import sys

TOKEN = re.compile(
    rb'\s+|#[^\n\r]*|"(?:[^"\\]|\\.)*"|\[|\]|[A-Za-z][A-Za-z0-9_]*'
    rb'|-?[0-9]*\.?[0-9]*(?:[eE][-+]?[0-9]+)?',
    re.S)


def tokens(data):
    """The tokens of an ASCII RIB text, as (kind, bytes) pairs."""
    pos = 0
    while pos < len(data):
        match = TOKEN.match(data, pos)
        if not match or match.end() == pos:
            raise ValueError("cannot read byte %d: %r" % (pos, data[pos:pos + 20]))
        text = match.group(0)
        pos = match.end()
        if text[:1].isspace():
            continue
        if text.startswith(b"##"):
            yield "structure", text
        elif text.startswith(b"#"):
            continue
        elif text.startswith(b'"'):
            yield "string", unescape(text[1:-1])
        elif text in (b"[", b"]"):
            yield text.decode(), text
        elif text[:1].isalpha():
            yield "word", text
        else:
            yield "number", text


ESCAPES = {b"n": b"\n", b"r": b"\r", b"t": b"\t", b"b": b"\b", b"f": b"\f",
           b"\\": b"\\", b'"': b'"'}


def unescape(text):
    out = bytearray()
    i = 0
    while i < len(text):
        c = text[i:i + 1]
        nxt = text[i + 1:i + 2]
        if c == b"\\" and nxt in ESCAPES:
            out += ESCAPES[nxt]
            i += 2
        elif c == b"\\" and nxt.isdigit() and nxt < b"8":
            digits = re.match(rb"[0-7]{1,3}", text[i + 1:]).group(0)
            out.append(int(digits, 8) & 0xFF)
            i += 1 + len(digits)
        else:
            out += c
            i += 1
    return bytes(out)


def unsigned(value, width):
    return value.to_bytes(width, "big")


def width_of(value):
    return max(1, (value.bit_length() + 7) // 8)


class Encoder:
    def __init__(self, define_strings, doubles, mix):
        self.out = bytearray()
        self.requests = {}
        self.strings = {}
        self.seen = set()
        self.define_strings = define_strings
        self.doubles = doubles
        self.mix = mix
        self.count = 0

    def ascii_turn(self):
        self.count += 1
        return self.mix > 0 and self.count % self.mix == 0

    def ascii(self, text):
        self.out += b" " + text + b" "

    def string_bytes(self, text):
        if len(text) < 16:
            return bytes([0o220 + len(text)]) + text
        width = width_of(len(text))
        return bytes([0o240 + width - 1]) + unsigned(len(text), width) + text

    def string(self, text):
        if self.ascii_turn():
            quoted = text.replace(b"\\", b"\\\\").replace(b'"', b'\\"').replace(b"\n", b"\\n")
            self.ascii(b'"' + quoted + b'"')
            return
        if self.define_strings and (text in self.seen or text in self.strings):
            if text not in self.strings and len(self.strings) < 65536:
                k = len(self.strings)
                self.strings[text] = k
                width = width_of(k)
                self.out += bytes([0o315 + width - 1]) + unsigned(k, width)
                self.out += self.string_bytes(text)
            if text in self.strings:
                k = self.strings[text]
                width = width_of(k)
                self.out += bytes([0o317 + width - 1]) + unsigned(k, width)
                return
        self.seen.add(text)
        self.out += self.string_bytes(text)

    def word(self, text):
        if self.ascii_turn() or (text not in self.requests and len(self.requests) >= 256):
            self.ascii(text)
            return
        if text not in self.requests:
            code = len(self.requests)
            self.requests[text] = code
            self.out += bytes([0o314, code]) + self.string_bytes(text)
        self.out += bytes([0o246, self.requests[text]])

    def number(self, text):
        if self.ascii_turn():
            self.ascii(text)
            return
        value = float(text)
        for fraction in range(4):
            scaled = value * 256 ** fraction
            if scaled == int(scaled) and 0 <= scaled < 2 ** 32 and not math.isinf(value):
                width = width_of(int(scaled))
                self.out += bytes([0o200 + 4 * fraction + width - 1]) + unsigned(int(scaled), width)
                return
        if self.doubles:
            self.out += b"\xa5" + struct.pack(">d", value)
        else:
            self.out += b"\xa4" + struct.pack(">f", value)

    def array(self, numbers):
        """A run of numbers as one float array; False when a whole number in
        it is too large for a single to hold exactly."""
        values = [float(n) for n in numbers]
        if any(abs(v) >= 2 ** 24 and v == int(v) for v in values):
            return False
        width = width_of(len(numbers))
        if width > 4 or self.ascii_turn():
            return False
        self.out += bytes([0o310 + width - 1]) + unsigned(len(numbers), width)
        self.out += b"".join(struct.pack(">f", v) for v in values)
        return True


def encode_into(enc, data):
    """Encodes data with the encoder (its definitions go on from what it
    wrote before) and returns the bytes written for it."""
    start = len(enc.out)
    items = list(tokens(data))
    i = 0
    while i < len(items):
        kind, text = items[i]
        if kind == "[":
            j = i + 1
            while j < len(items) and items[j][0] == "number":
                j += 1
            if j < len(items) and items[j][0] == "]" and j > i + 1 and not enc.doubles:
                if enc.array([t for _, t in items[i + 1:j]]):
                    i = j + 1
                    continue
            enc.out += b"["
        elif kind == "]":
            enc.out += b"]"
        elif kind == "structure":
            enc.out += text + b"\n"
        elif kind == "string":
            enc.string(text)
        elif kind == "word":
            enc.word(text)
        else:
            enc.number(text)
        i += 1
    return bytes(enc.out[start:])


def encode(data, define_strings=False, doubles=False, mix=0):
    return encode_into(Encoder(define_strings, doubles, mix), data)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--define-strings", action="store_true")
    parser.add_argument("--doubles", action="store_true")
    parser.add_argument("--mix", type=int, default=0)
    parser.add_argument("input")
    parser.add_argument("output")
    args = parser.parse_args()
    with open(args.input, "rb") as f:
        data = f.read()
    with open(args.output, "wb") as f:
        f.write(encode(data, args.define_strings, args.doubles, args.mix))


if __name__ == "__main__":
    sys.exit(main())
