#!/usr/bin/env python3
"""Draws the program's icons and images (PNG and ICO) with nothing but the Python standard library.

Run from anywhere: python3 resources/draw_resources.py. The output is deterministic, so the files
in external_resources/ only change when this script does.
"""
import math
import os
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
ICONS = os.path.join(HERE, "external_resources", "icons")
IMAGES = os.path.join(HERE, "external_resources", "images")

# One palette for every picture.
INK = (38, 70, 110, 255)        # outlines and glyphs
BLUE = (52, 120, 200, 255)
LIGHT = (225, 236, 248, 255)
GREEN = (47, 158, 68, 255)
ORANGE = (240, 140, 0, 255)
RED = (224, 49, 49, 255)
WHITE = (255, 255, 255, 255)
GREY = (120, 128, 138, 255)

# A 5 x 7 pixel font for the few letters the pictures spell.
FONT = {
    "A": ["01110", "10001", "10001", "11111", "10001", "10001", "10001"],
    "E": ["11111", "10000", "10000", "11110", "10000", "10000", "11111"],
    "I": ["11111", "00100", "00100", "00100", "00100", "00100", "11111"],
    "K": ["10001", "10010", "10100", "11000", "10100", "10010", "10001"],
    "L": ["10000", "10000", "10000", "10000", "10000", "10000", "11111"],
    "M": ["10001", "11011", "10101", "10101", "10001", "10001", "10001"],
    "N": ["10001", "11001", "10101", "10011", "10001", "10001", "10001"],
    "O": ["01110", "10001", "10001", "10001", "10001", "10001", "01110"],
    "P": ["11110", "10001", "10001", "11110", "10000", "10000", "10000"],
    "R": ["11110", "10001", "10001", "11110", "10100", "10010", "10001"],
    "T": ["11111", "00100", "00100", "00100", "00100", "00100", "00100"],
    "U": ["10001", "10001", "10001", "10001", "10001", "10001", "01110"],
    "V": ["10001", "10001", "10001", "10001", "10001", "01010", "00100"],
    "W": ["10001", "10001", "10001", "10101", "10101", "11011", "10001"],
    "X": ["10001", "10001", "01010", "00100", "01010", "10001", "10001"],
    "i": ["00100", "00000", "01100", "00100", "00100", "00100", "01110"],
    " ": ["00000"] * 7,
}


class Canvas:
    """An RGBA picture drawn by coverage: each shape is sampled 4 x 4 times per pixel."""

    SS = 4

    def __init__(self, width, height):
        self.w, self.h = width, height
        self.px = [[(0, 0, 0, 0)] * width for _ in range(height)]

    def _blend(self, x, y, colour, cover):
        if cover <= 0:
            return
        r, g, b, a = colour
        a = a * cover / 255.0
        dr, dg, db, da = self.px[y][x]
        da /= 255.0
        oa = a + da * (1 - a)
        if oa <= 0:
            return
        mix = lambda s, d: (s * a + d * da * (1 - a)) / oa
        self.px[y][x] = (round(mix(r, dr)), round(mix(g, dg)), round(mix(b, db)), round(oa * 255))

    def fill(self, inside, colour, box=None):
        x0, y0, x1, y1 = box if box else (0, 0, self.w, self.h)
        x0, y0 = max(0, int(math.floor(x0)) - 1), max(0, int(math.floor(y0)) - 1)
        x1, y1 = min(self.w, int(math.ceil(x1)) + 1), min(self.h, int(math.ceil(y1)) + 1)
        n = self.SS
        for y in range(y0, y1):
            for x in range(x0, x1):
                hits = 0
                for sy in range(n):
                    for sx in range(n):
                        if inside(x + (sx + 0.5) / n, y + (sy + 0.5) / n):
                            hits += 1
                self._blend(x, y, colour, hits / (n * n))

    def rect(self, x, y, w, h, colour, radius=0.0):
        def inside(px, py):
            if not (x <= px <= x + w and y <= py <= y + h):
                return False
            if radius <= 0:
                return True
            cx = min(max(px, x + radius), x + w - radius)
            cy = min(max(py, y + radius), y + h - radius)
            return (px - cx) ** 2 + (py - cy) ** 2 <= radius * radius
        self.fill(inside, colour, (x, y, x + w, y + h))

    def circle(self, cx, cy, r, colour, inner=0.0, start=None, end=None):
        def inside(px, py):
            d2 = (px - cx) ** 2 + (py - cy) ** 2
            if d2 > r * r or d2 < inner * inner:
                return False
            if start is None:
                return True
            ang = math.degrees(math.atan2(cy - py, px - cx)) % 360
            return (ang - start) % 360 <= (end - start) % 360
        self.fill(inside, colour, (cx - r, cy - r, cx + r, cy + r))

    def polygon(self, points, colour):
        def inside(px, py):
            hit = False
            j = len(points) - 1
            for i in range(len(points)):
                xi, yi = points[i]
                xj, yj = points[j]
                if (yi > py) != (yj > py) and px < (xj - xi) * (py - yi) / (yj - yi) + xi:
                    hit = not hit
                j = i
            return hit
        xs = [p[0] for p in points]
        ys = [p[1] for p in points]
        self.fill(inside, colour, (min(xs), min(ys), max(xs), max(ys)))

    def line(self, x0, y0, x1, y1, width, colour):
        half = width / 2.0
        dx, dy = x1 - x0, y1 - y0
        length2 = dx * dx + dy * dy or 1e-9

        def inside(px, py):
            t = max(0.0, min(1.0, ((px - x0) * dx + (py - y0) * dy) / length2))
            qx, qy = x0 + t * dx - px, y0 + t * dy - py
            return qx * qx + qy * qy <= half * half
        self.fill(inside, colour, (min(x0, x1) - half, min(y0, y1) - half,
                                   max(x0, x1) + half, max(y0, y1) + half))

    def text(self, x, y, word, cell, colour, gap=1.0):
        for ch in word:
            rows = FONT[ch]
            for r, row in enumerate(rows):
                for c, bit in enumerate(row):
                    if bit == "1":
                        self.rect(x + c * cell, y + r * cell, cell, cell, colour)
            x += 5 * cell + gap

    def png(self):
        raw = b"".join(b"\x00" + bytes(v for p in row for v in p) for row in self.px)
        chunk = lambda tag, data: (struct.pack(">I", len(data)) + tag + data
                                   + struct.pack(">I", zlib.crc32(tag + data) & 0xFFFFFFFF))
        return (b"\x89PNG\r\n\x1a\n"
                + chunk(b"IHDR", struct.pack(">IIBBBBB", self.w, self.h, 8, 6, 0, 0, 0))
                + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))

    def ico(self):
        """A one-image ICO in the classic bitmap form (32-bit BGRA, bottom-up, with AND mask)."""
        w, h = self.w, self.h
        header = struct.pack("<IiiHHIIiiII", 40, w, 2 * h, 1, 32, 0, 0, 0, 0, 0, 0)
        pixels = b"".join(bytes((p[2], p[1], p[0], p[3])) for row in reversed(self.px) for p in row)
        mask_stride = ((w + 31) // 32) * 4
        mask = b""
        for row in reversed(self.px):
            bits = bytearray(mask_stride)
            for x, p in enumerate(row):
                if p[3] == 0:
                    bits[x // 8] |= 0x80 >> (x % 8)
            mask += bytes(bits)
        image = header + pixels + mask
        entry = struct.pack("<BBBBHHII", w % 256, h % 256, 0, 0, 1, 32, len(image), 22)
        return struct.pack("<HHH", 0, 1, 1) + entry + image


def save(canvas, folder, name):
    data = canvas.ico() if name.endswith(".ico") else canvas.png()
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


# ---- shared motifs (32 x 32 icons) ----

def document(c, band_colour):
    c.polygon([(6, 2), (20, 2), (26, 8), (26, 30), (6, 30)], INK)
    c.polygon([(7.5, 3.5), (19.4, 3.5), (24.5, 8.6), (24.5, 28.5), (7.5, 28.5)], WHITE)
    c.polygon([(19, 3), (19, 9), (25, 9)], INK)
    c.rect(3, 12, 22, 11, band_colour, 1.5)


def magnifier(c):
    c.circle(13, 13, 10.5, INK, inner=7.5)
    c.circle(13, 13, 7.5, LIGHT)
    c.line(20.5, 20.5, 28.5, 28.5, 4.5, INK)


def arrow_down(c, x, y, colour):
    c.rect(x - 2, y, 4, 7, colour)
    c.polygon([(x - 5.5, y + 6), (x + 5.5, y + 6), (x, y + 11.5)], colour)


def arrow_up(c, x, y, colour):
    c.rect(x - 2, y + 4.5, 4, 7, colour)
    c.polygon([(x - 5.5, y + 5.5), (x + 5.5, y + 5.5), (x, y)], colour)


def floppy(c):
    c.polygon([(3, 3), (25, 3), (29, 7), (29, 29), (3, 29)], BLUE)
    c.rect(8, 3, 15, 9, LIGHT)
    c.rect(18, 4.5, 3, 6, INK)
    c.rect(7, 17, 18, 12, WHITE)
    c.rect(9, 20, 14, 1.5, GREY)
    c.rect(9, 24, 14, 1.5, GREY)


def gear(c, cx, cy, r, colour):
    for k in range(8):
        a = math.radians(k * 45)
        c.line(cx + math.cos(a) * r * 0.5, cy + math.sin(a) * r * 0.5,
               cx + math.cos(a) * r, cy + math.sin(a) * r, r * 0.45, colour)
    c.circle(cx, cy, r * 0.75, colour)
    c.circle(cx, cy, r * 0.3, WHITE)


def icons():
    c = Canvas(32, 32)
    c.rect(1, 6, 30, 20, BLUE, 4)
    c.text(6, 9.5, "IP", 2, WHITE, 3)
    save(c, ICONS, "DC-IP-Configurator.png")

    c = Canvas(32, 32)
    c.rect(2, 2, 28, 28, LIGHT, 3)
    c.line(5, 4, 5, 27, 2, INK)
    c.line(5, 27, 28, 27, 2, INK)
    pts = [(5 + t, 26 - 21 / (1 + math.exp(-(t - 11.5) / 3.2))) for t in range(0, 24)]
    for a, b in zip(pts, pts[1:]):
        c.line(a[0], a[1], b[0], b[1], 2.6, ORANGE)
    save(c, ICONS, "DC-LUT-Program.png")

    c = Canvas(32, 32)
    for k in range(4):
        c.rect(1, 8 + k * 5, 4, 2, GREY)
        c.rect(22, 8 + k * 5, 4, 2, GREY)
    c.rect(5, 5, 17, 22, INK, 2)
    c.rect(8, 8, 11, 16, GREY, 1)
    arrow_up(c, 25.5, 1, GREEN)
    save(c, ICONS, "DC-Firmware-Upgrade.png")

    c = Canvas(32, 32)
    document(c, BLUE)
    c.text(4.5, 14, "XML", 1, WHITE, 1.5)
    arrow_down(c, 24, 18.5, GREEN)
    save(c, ICONS, "DC-XML-Load.png")

    c = Canvas(32, 32)
    document(c, ORANGE)
    c.text(4.5, 14, "XML", 1, WHITE, 1.5)
    arrow_up(c, 24, 19, INK)
    save(c, ICONS, "DC-XML-Program.png")

    c = Canvas(32, 32)
    c.rect(3, 2, 16, 28, INK, 1.5)
    c.rect(5.5, 4.5, 11, 23, LIGHT)
    c.circle(13.5, 16, 1.4, INK)
    c.rect(14, 14, 10, 4, RED)
    c.polygon([(22, 9), (30, 16), (22, 23)], RED)
    save(c, ICONS, "system-log-out.png")

    c = Canvas(32, 32)
    c.rect(1, 3, 30, 21, INK, 2)
    c.rect(3.5, 5.5, 25, 16, LIGHT)
    c.polygon([(4, 21), (12, 11), (18, 17), (22, 13), (28, 21)], GREEN)
    c.circle(23, 9.5, 2.5, ORANGE)
    c.rect(13, 24, 6, 3, INK)
    c.rect(8, 27, 16, 2.5, INK, 1)
    save(c, ICONS, "HS-DisplayImage.png")

    c = Canvas(32, 32)
    floppy(c)
    save(c, ICONS, "File-SaveAs.png")

    c = Canvas(32, 32)
    c.circle(16, 16, 14.5, BLUE)
    c.circle(16, 8.5, 2.3, WHITE)
    c.rect(14, 12.5, 4, 12, WHITE, 1)
    save(c, ICONS, "Help-About.png")

    c = Canvas(32, 32)
    c.circle(8, 24, 3, BLUE)
    for r in (10, 17, 24):
        c.circle(8, 24, r, BLUE, inner=r - 3, start=0, end=90)
    save(c, ICONS, "HS-DiscoveryEn.png")

    c = Canvas(32, 32)
    c.circle(16, 16, 13, GREEN, inner=9.5, start=120, end=30)
    c.polygon([(22.5, 3.5), (31, 12), (19.5, 13.5)], GREEN)
    c.rect(11, 12, 10, 8, INK, 1)
    c.circle(16, 12, 3.5, INK, inner=2, start=0, end=180)
    save(c, ICONS, "DC-Readonly_nodes_polling.png")

    c = Canvas(32, 32)
    magnifier(c)
    c.rect(8, 11.75, 10, 2.5, INK)
    c.rect(11.75, 8, 2.5, 10, INK)
    save(c, ICONS, "Zoom-In-icon.png")

    c = Canvas(32, 32)
    magnifier(c)
    c.rect(8, 11.75, 10, 2.5, INK)
    save(c, ICONS, "Zoom-Out-icon.png")

    c = Canvas(32, 32)
    magnifier(c)
    c.rect(8.5, 8.5, 9, 9, INK)
    c.rect(10.5, 10.5, 5, 5, LIGHT)
    save(c, ICONS, "Zoom-Reset-icon.png")

    c = Canvas(32, 32)
    c.line(16, 5, 16, 27, 3, INK)
    c.line(5, 16, 27, 16, 3, INK)
    c.polygon([(16, 0.5), (21.5, 7), (10.5, 7)], INK)
    c.polygon([(16, 31.5), (21.5, 25), (10.5, 25)], INK)
    c.polygon([(0.5, 16), (7, 10.5), (7, 21.5)], INK)
    c.polygon([(31.5, 16), (25, 10.5), (25, 21.5)], INK)
    c.circle(16, 16, 4, ORANGE)
    save(c, ICONS, "Pan_Hand.png")

    c = Canvas(32, 32)
    floppy(c)
    gear(c, 23, 23, 8.5, ORANGE)
    save(c, ICONS, "saveSetting.png")

    c = Canvas(32, 32)
    c.polygon([(2, 7), (12, 7), (15, 10), (28, 10), (28, 28), (2, 28)], ORANGE)
    c.polygon([(2, 14), (30, 14), (28, 28), (2, 28)], (250, 190, 60, 255))
    gear(c, 23, 22, 8.5, BLUE)
    save(c, ICONS, "loadSetting.png")

    c = Canvas(32, 32)
    c.rect(2, 6, 28, 20, INK, 1.5)
    for k in range(6):
        c.rect(4 + k * 4.5, 7.5, 2.5, 2.5, WHITE)
        c.rect(4 + k * 4.5, 22, 2.5, 2.5, WHITE)
    c.rect(4, 11.5, 24, 9, LIGHT)
    c.line(10, 10, 22, 22, 3.2, RED)
    c.line(22, 10, 10, 22, 3.2, RED)
    save(c, ICONS, "HS-ClearDropframe.ico")

    c = Canvas(32, 32)
    colours = [(RED, GREEN), (GREEN, BLUE)]
    for r in range(2):
        for k in range(2):
            c.rect(2 + k * 14.5, 2 + r * 14.5, 13.5, 13.5, colours[r][k], 2)
    save(c, ICONS, "HS-Bayer.png")

    c = Canvas(64, 64)
    c.rect(2, 2, 60, 60, INK, 12)
    c.circle(32, 32, 24, BLUE, inner=20)
    c.circle(32, 32, 17, (24, 40, 64, 255))
    c.circle(32, 32, 11, BLUE, inner=8)
    c.circle(26, 26, 4, WHITE)
    save(c, ICONS, "qrn_64.ico")


def images():
    def button(name, draw):
        c = Canvas(16, 16)
        draw(c)
        save(c, IMAGES, name)

    button("firstFrame.png", lambda c: (c.rect(2, 3, 2.5, 10, INK), c.polygon([(13.5, 3), (13.5, 13), (5, 8)], INK)))
    button("rewind.png", lambda c: (c.polygon([(8, 3), (8, 13), (0.5, 8)], INK), c.polygon([(15.5, 3), (15.5, 13), (8, 8)], INK)))
    button("play.png", lambda c: c.polygon([(4, 2), (4, 14), (14, 8)], GREEN))
    button("forward.png", lambda c: (c.polygon([(0.5, 3), (0.5, 13), (8, 8)], INK), c.polygon([(8, 3), (8, 13), (15.5, 8)], INK)))
    button("lastFrame.png", lambda c: (c.polygon([(2.5, 3), (2.5, 13), (11, 8)], INK), c.rect(11.5, 3, 2.5, 10, INK)))
    button("pause.png", lambda c: (c.rect(3.5, 3, 3.5, 10, INK), c.rect(9, 3, 3.5, 10, INK)))
    button("record.png", lambda c: c.circle(8, 8, 5.5, RED))
    button("stop.png", lambda c: c.rect(3, 3, 10, 10, INK, 1))

    # The header logo: a lens mark and the product name, white on the grey header strip.
    c = Canvas(260, 40)
    c.circle(20, 20, 16, WHITE, inner=13)
    c.circle(20, 20, 10, BLUE)
    c.circle(17, 17, 3, WHITE)
    c.text(46, 13, "KORVATIN VIEWLANE", 2, WHITE, 2)
    save(c, IMAGES, "logo.png")


if __name__ == "__main__":
    os.makedirs(ICONS, exist_ok=True)
    os.makedirs(IMAGES, exist_ok=True)
    icons()
    images()
