#!/usr/bin/env python3
"""Writes the seed corpora of gdi_ico and gdi_pe: small icon files and modules
laid out as the readers expect them (as the builders of gdi_test.cc make
them), and a few slightly broken ones. Each seed starts with the targets'
request bytes. Run from anywhere; it writes into fuzz/corpus/."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def dib(w, h, bits, mask=True):
    """A bitmap image as an icon stores it: header, palette, rows bottom-up, mask."""
    out = struct.pack('<IiiHHIIiiII', 40, w, h * 2, 1, bits, 0, 0, 0, 0, 0, 0)
    if bits <= 8:
        for i in range(1 << bits):
            out += bytes([i & 0xFF, (255 - i) & 0xFF, 3, 0])
    stride = (w * bits + 31) // 32 * 4
    for y in range(h - 1, -1, -1):
        row = bytearray(stride)
        for x in range(w):
            if bits == 32:
                row[x * 4:x * 4 + 4] = bytes([x & 0xFF, y & 0xFF, 9, (100 + x) & 0xFF])
            elif bits == 24:
                row[x * 3:x * 3 + 3] = bytes([x & 0xFF, y & 0xFF, 9])
            else:
                index = (x * 3 + y) % (1 << bits)
                bit = x * bits
                row[bit // 8] |= index << (8 - bits - bit % 8)
        out += bytes(row)
    if mask:
        mask_stride = (w + 31) // 32 * 4
        for y in range(h - 1, -1, -1):
            row = bytearray(mask_stride)
            for x in range(w):
                if x == 0 or y == 1:
                    row[x // 8] |= 0x80 >> (x % 8)
            out += bytes(row)
    return out


def png(w, h):
    """The head of a PNG image: signature and IHDR, all the reader looks at."""
    return b'\x89PNG\r\n\x1a\n' + struct.pack('>I', 13) + b'IHDR' + struct.pack('>II', w, h) + \
        bytes([8, 6, 0, 0, 0, 0, 0, 0, 0])


def ico(images):
    """images: (directory width, height, bits, bytes); 0 in the directory means 256."""
    out = struct.pack('<HHH', 0, 1, len(images))
    offset = 6 + 16 * len(images)
    for w, h, bits, data in images:
        out += struct.pack('<BBBBHHII', w, h, 0, 0, 1, bits, len(data), offset)
        offset += len(data)
    return out + b''.join(i[3] for i in images)


def group(images, ids):
    out = struct.pack('<HHH', 0, 1, len(images))
    for (w, h, bits, data), i in zip(images, ids):
        out += struct.pack('<BBBBHHIH', w, h, 0, 0, 1, bits, len(data), i)
    return out


def pe(resources, pe32_plus=False):
    """A module with one section holding the resources (type, id, name, data),
    three levels deep: type, name, language."""
    section_at, rva = 0x200, 0x1000
    types = []
    for r in resources:
        if r[0] not in types:
            types.append(r[0])
    at = 16 + 8 * len(types)
    type_dir = []
    for t in types:
        type_dir.append(at)
        at += 16 + 8 * sum(1 for r in resources if r[0] == t)
    lang_dir, data_entry, name_at, data_at = [], [], [], []
    for _ in resources:
        lang_dir.append(at)
        at += 24
    for _ in resources:
        data_entry.append(at)
        at += 16
    for r in resources:
        name_at.append(at)
        at += 2 + 2 * len(r[2]) if r[2] else 0
    for r in resources:
        at = (at + 3) & ~3
        data_at.append(at)
        at += len(r[3])
    rs = bytearray(at)

    def head(where, named, numbered):
        struct.pack_into('<HH', rs, where + 12, named, numbered)

    head(0, 0, len(types))
    for t, t_at in zip(types, type_dir):
        k = types.index(t)
        struct.pack_into('<II', rs, 16 + 8 * k, t, 0x80000000 | t_at)
        named = numbered = slot = 0
        for i, r in enumerate(resources):
            if r[0] != t:
                continue
            if r[2]:
                named += 1
            else:
                numbered += 1
            e = t_at + 16 + 8 * slot
            slot += 1
            key = (0x80000000 | name_at[i]) if r[2] else r[1]
            struct.pack_into('<II', rs, e, key, 0x80000000 | lang_dir[i])
        head(t_at, named, numbered)
    for i, r in enumerate(resources):
        head(lang_dir[i], 0, 1)
        struct.pack_into('<II', rs, lang_dir[i] + 16, 1033, data_entry[i])
        struct.pack_into('<II', rs, data_entry[i], rva + data_at[i], len(r[3]))
        if r[2]:
            struct.pack_into('<H', rs, name_at[i], len(r[2]))
            for k, c in enumerate(r[2]):
                struct.pack_into('<H', rs, name_at[i] + 2 + 2 * k, ord(c))
        rs[data_at[i]:data_at[i] + len(r[3])] = r[3]

    optional_size = 240 if pe32_plus else 224
    out = bytearray(b'MZ') + bytearray(0x3C - 2) + struct.pack('<I', 0x40)
    out += struct.pack('<IHHIIIHH', 0x4550, 0x8664 if pe32_plus else 0x14C, 1, 0, 0, 0,
                       optional_size, 0x2102)
    optional = len(out)
    out += struct.pack('<H', 0x20B if pe32_plus else 0x10B) + bytearray(optional_size - 2)
    count_at = optional + (108 if pe32_plus else 92)
    struct.pack_into('<I', out, count_at, 16)
    struct.pack_into('<II', out, count_at + 4 + 2 * 8, rva, len(rs))
    out += b'.rsrc\0\0\0' + struct.pack('<IIII', len(rs), rva, len(rs), section_at)
    out += bytearray(section_at - len(out))
    return bytes(out + rs)


def write(target, name, data):
    folder = os.path.join(HERE, 'corpus', target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), 'wb') as f:
        f.write(data)


# The request byte of both targets: bits 0-2 choose the width and bits 3-5 the
# height from 0, 16, 24, 32, 48, 64, 256, -1; gdi_ico reads the image alone
# when bit 6 is set. gdi_pe's second byte is the group number, 0 for "APP".
R16 = 1 | 1 << 3
RANY = 0
R32 = 3 | 3 << 3

write('gdi_ico', 'two_sizes', bytes([R16]) + ico([(16, 16, 32, dib(16, 16, 32)), (32, 32, 8, dib(32, 32, 8))]))
write('gdi_ico', 'depths', bytes([R32]) + ico([(8, 8, 1, dib(8, 8, 1)), (8, 8, 4, dib(8, 8, 4)),
                                                (8, 8, 24, dib(8, 8, 24))]))
write('gdi_ico', 'png', bytes([RANY]) + ico([(0, 0, 32, png(256, 256)), (16, 16, 4, dib(16, 16, 4))]))
write('gdi_ico', 'no_mask', bytes([R16]) + ico([(16, 16, 24, dib(16, 16, 24, mask=False))]))
write('gdi_ico', 'cut', bytes([R16]) + ico([(16, 16, 32, dib(16, 16, 32))])[:200])
write('gdi_ico', 'bad_offset', bytes([R16]) + ico([(16, 16, 8, b'\x07' * 10)]))
write('gdi_ico', 'image_alone', bytes([R16 | 0x40]) + dib(5, 3, 4))
write('gdi_ico', 'palette_short', bytes([R16 | 0x40]) +
      struct.pack('<IiiHHIIiiII', 40, 4, 8, 1, 8, 0, 0, 0, 0, 3, 0) + bytes(3 * 4 + 16))

image = (16, 16, 8, dib(16, 16, 8))
write('gdi_pe', 'by_name', bytes([R16, 0]) + pe([(3, 1, '', image[3]), (14, 0, 'APP', group([image], [1]))]))
write('gdi_pe', 'by_number', bytes([R32, 7]) +
      pe([(3, 1, '', dib(16, 16, 4)), (3, 2, '', dib(32, 32, 32)),
          (14, 7, '', group([(16, 16, 4, dib(16, 16, 4)), (32, 32, 32, dib(32, 32, 32))], [1, 2]))]))
write('gdi_pe', 'pe32_plus', bytes([RANY, 0]) +
      pe([(3, 5, '', png(48, 48)), (14, 0, 'APP', group([(48, 48, 32, png(48, 48))], [5]))], True))
write('gdi_pe', 'no_resources', bytes([R16, 1]) + pe([]))
write('gdi_pe', 'missing_image', bytes([R16, 0]) + pe([(14, 0, 'APP', group([image], [9]))]))
write('gdi_pe', 'cut', (bytes([R16, 0]) + pe([(3, 1, '', image[3]), (14, 0, 'APP', group([image], [1]))]))[:0x230])
