#!/usr/bin/env python3
"""Writes the small icon files of the demo: app.ico and app.dll.

app.ico holds a 16x16 bitmap image (32 bits), a 32x32 PNG image and a 48x48
bitmap image (4 bits). app.dll is a minimal Windows module, with no code,
whose resources hold two icon groups: number 1 (16x16 and 32x32) and "MAIN"
(48x48).
"""
import struct
import zlib


def dib(size, bits):
    """A bitmap image as icons store it: header, palette, rows bottom-up, mask."""
    header = struct.pack('<IiiHHIIiiII', 40, size, size * 2, 1, bits, 0, 0, 0, 0, 0, 0)
    palette = b''
    if bits == 4:
        palette = b''.join(struct.pack('<BBBB', i * 16, 255 - i * 16, 128, 0) for i in range(16))
    stride = (size * bits + 31) // 32 * 4
    rows = b''
    for y in reversed(range(size)):
        if bits == 32:
            row = b''.join(struct.pack('<BBBB', 40 + x * 8, 120, 200 - y * 8, 255) for x in range(size))
        else:
            row = bytes(((x + y) // 3 % 16) << 4 | ((x + 1 + y) // 3 % 16) for x in range(0, size, 2))
        rows += row.ljust(stride, b'\0')
    mask_stride = (size + 31) // 32 * 4
    mask = b'\0' * mask_stride * size
    return header + palette + rows + mask


def png(size):
    def chunk(kind, data):
        return struct.pack('>I', len(data)) + kind + data + struct.pack('>I', zlib.crc32(kind + data))
    raw = b''.join(b'\0' + bytes([220, 60, 40, 255]) * size for _ in range(size))
    return (b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', size, size, 8, 6, 0, 0, 0))
            + chunk(b'IDAT', zlib.compress(raw, 9)) + chunk(b'IEND', b''))


def directory(images, entry):
    return struct.pack('<HHH', 0, 1, len(images)) + b''.join(entry(i, img) for i, img in enumerate(images))


def ico(images):
    offset = 6 + 16 * len(images)
    out = b''
    for size, bits, data in images:
        out += struct.pack('<BBBBHHII', size % 256, size % 256, 0, 0, 1, bits, len(data), offset)
        offset += len(data)
    return struct.pack('<HHH', 0, 1, len(images)) + out + b''.join(d for _, _, d in images)


def group(images, first_id):
    out = struct.pack('<HHH', 0, 1, len(images))
    for k, (size, bits, data) in enumerate(images):
        out += struct.pack('<BBBBHHIH', size % 256, size % 256, 0, 0, 1, bits, len(data), first_id + k)
    return out


def resources(items, rva):
    """The resource section: type, name and language levels, then data."""
    types = sorted({t for t, _, _ in items})
    at = 16 + 8 * len(types)
    type_dir = {}
    for t in types:
        type_dir[t] = at
        at += 16 + 8 * sum(1 for i in items if i[0] == t)
    lang = [at + 24 * k for k in range(len(items))]
    at += 24 * len(items)
    entry = [at + 16 * k for k in range(len(items))]
    at += 16 * len(items)
    names = {}
    for k, (_, name, _) in enumerate(items):
        if isinstance(name, str):
            names[k] = at
            at += 2 + 2 * len(name)
    data_at = []
    for _, _, data in items:
        at = (at + 3) & ~3
        data_at.append(at)
        at += len(data)
    out = bytearray(at)
    struct.pack_into('<IIHHHH', out, 0, 0, 0, 0, 0, 0, len(types))
    for n, t in enumerate(types):
        struct.pack_into('<II', out, 16 + 8 * n, t, 0x80000000 | type_dir[t])
        mine = [k for k, i in enumerate(items) if i[0] == t]
        named = [k for k in mine if k in names]
        numbered = [k for k in mine if k not in names]
        struct.pack_into('<IIHHHH', out, type_dir[t], 0, 0, 0, 0, len(named), len(numbered))
        for slot, k in enumerate(named + numbered):
            key = 0x80000000 | names[k] if k in names else items[k][1]
            struct.pack_into('<II', out, type_dir[t] + 16 + 8 * slot, key, 0x80000000 | lang[k])
    for k, (_, name, data) in enumerate(items):
        struct.pack_into('<IIHHHHII', out, lang[k], 0, 0, 0, 0, 0, 1, 1033, entry[k])
        struct.pack_into('<IIII', out, entry[k], rva + data_at[k], len(data), 0, 0)
        if k in names:
            struct.pack_into('<H', out, names[k], len(name))
            out[names[k] + 2:names[k] + 2 + 2 * len(name)] = name.encode('utf-16-le')
        out[data_at[k]:data_at[k] + len(data)] = data
    return bytes(out)


def module(items):
    rva, raw_at = 0x1000, 0x200
    rsrc = resources(items, rva)
    optional = bytearray(224)
    struct.pack_into('<H', optional, 0, 0x10B)
    struct.pack_into('<I', optional, 92, 16)
    struct.pack_into('<II', optional, 96 + 2 * 8, rva, len(rsrc))
    head = bytearray(0x40)
    head[0:2] = b'MZ'
    struct.pack_into('<I', head, 0x3C, 0x40)
    head += b'PE\0\0' + struct.pack('<HHIIIHH', 0x14C, 1, 0, 0, 0, len(optional), 0x2102) + optional
    head += b'.rsrc\0\0\0' + struct.pack('<IIIIIIHHI', len(rsrc), rva, len(rsrc), raw_at, 0, 0, 0, 0, 0x40000040)
    return bytes(head.ljust(raw_at, b'\0')) + rsrc


images = [(16, 32, dib(16, 32)), (32, 32, png(32)), (48, 4, dib(48, 4))]
with open('app.ico', 'wb') as f:
    f.write(ico(images))
with open('app.dll', 'wb') as f:
    f.write(module([(3, 1, images[0][2]), (3, 2, images[1][2]), (3, 3, images[2][2]),
                    (14, 1, group(images[:2], 1)), (14, 'MAIN', group(images[2:], 3))]))
