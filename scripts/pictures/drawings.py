#!/usr/bin/env python3
"""Draws what docs/how-a-run-works.md and docs/architecture.md show.

    drawings.py FOLDER
"""
import math
import os
import sys

from svg import Drawing, FAINT, FILL, GREEN, INK, RED, WARM


def around(centre, radius, count, start=0.0, squeeze=1.0):
    return [(centre[0] + radius * math.cos(math.radians(start + 360 * i / count)),
             centre[1] - squeeze * radius * math.sin(math.radians(start + 360 * i / count)))
            for i in range(count)]


def moved(points, dx, dy=0):
    return [(x + dx, y + dy) for x, y in points]


def road():
    """The stages of a run, and the loop of turns."""
    d = Drawing(860, 420)

    def stage(x, y, title, line, fill=FILL, width=150):
        d.box(x, y, width, 58, fill)
        d.text((x + width / 2, y + 24), title, 14, bold=True)
        d.text((x + width / 2, y + 44), line, 12)

    stage(40, 30, "read", "loose triangles")
    stage(40, 340, "write", "STL or .kvd")
    stage(225, 30, "tree", "boxes in cells")
    d.arrow((190, 59), (223, 59))
    d.box(18, 112, 824, 204, "none", FAINT, 10, "6 5")
    d.text((826, 136), "a turn, at least twice", 13, FAINT, "end")
    stage(40, 156, "join", "vertices, neighbours", WARM)
    stage(225, 156, "orient", "rays and spreading", WARM)
    stage(410, 156, "drop", "triangles without area", WARM, 180)
    stage(625, 156, "look", "fans, normals, kinds", WARM, 190)
    stage(625, 240, "sweep", "move vertices", WARM, 190)
    stage(40, 240, "tree anew", "dead triangles go", WARM, 550)
    d.arrow((270, 88), (125, 154))
    d.arrow((190, 185), (223, 185))
    d.arrow((375, 185), (408, 185))
    d.arrow((590, 185), (623, 185))
    d.arrow((720, 214), (720, 238))
    d.arrow((625, 269), (592, 269))
    d.arrow((115, 240), (115, 216))
    d.arrow((115, 298), (115, 338))
    for x, y, words in ((115, 22, "10 %"), (300, 22, "20 %"), (720, 311, "30 to 80 %"),
                        (115, 414, "80 to 100 %")):
        d.text((x, y), words, 12, FAINT)
    return d


def join():
    """Four loose triangles become a surface with shared vertices."""
    d = Drawing(760, 260)
    ring = [(60, 60), (250, 50), (270, 205), (80, 215)]
    centre = (165, 130)
    for i in range(4):
        a, b = ring[i], ring[(i + 1) % 4]
        middle = ((a[0] + b[0] + centre[0]) / 3, (a[1] + b[1] + centre[1]) / 3)
        apart = [(x + (middle[0] - centre[0]) * 0.22, y + (middle[1] - centre[1]) * 0.22)
                 for x, y in (a, b, centre)]
        d.area(apart)
        for p in apart:
            d.dot(p, size=3)
    d.text((165, 250), "four triangles, twelve points", 14)
    d.box(330, 85, 90, 90, "none", RED, 0, "5 4")
    for p in ((352, 118), (372, 140), (391, 112), (380, 158)):
        d.dot(p, size=4)
    d.text((375, 70), "-m on each axis", 13, RED)
    d.text((375, 198), "these four are one", 13)
    d.arrow((435, 130), (475, 130))
    whole = moved(ring, 440)
    d.fan((605, 130), whole)
    for p in [*whole, (605, 130)]:
        d.dot(p)
    d.text((605, 250), "four triangles, five vertices", 14)
    return d


def neighbours():
    """Links across edges; an edge that three triangles claim."""
    d = Drawing(760, 230)
    a, b, c, e = (60, 150), (190, 40), (220, 185), (350, 80)
    d.area([a, b, c])
    d.area([b, e, c])
    d.arrow((165, 122), (238, 108), GREEN)
    d.arrow((238, 120), (165, 134), GREEN)
    d.text((205, 218), "each triangle knows who lies across its edge", 13)
    p, q = (560, 60), (560, 170)
    d.area([p, q, (440, 140)])
    d.area([p, q, (690, 150)])
    d.area([p, q, (630, 60)], WARM)
    d.line(p, q, RED, 4)
    d.text((565, 218), "three at one edge: the third finds no free place", 13)
    return d


def tree():
    """A model in cells: each cut halves a cell, the axes take turns."""
    d = Drawing(760, 300)
    d.box(30, 20, 320, 240, "white", INK, 0)
    curve = [(70 + 2.4 * i, 140 + 80 * math.sin(i / 19)) for i in range(101)]
    low, high = curve[::6], moved(curve[3::6], 0, -20)
    for i in range(len(high) - 1):
        d.area([low[i], low[i + 1], high[i]], FILL, INK, 1)
        d.area([high[i], low[i + 1], high[i + 1]], FILL, INK, 1)
    d.line((190, 20), (190, 260), RED, 2.4)
    d.line((30, 140), (190, 140), GREEN, 1.8)
    d.line((190, 140), (350, 140), GREEN, 1.8)
    d.line((110, 140), (110, 260), FAINT)
    d.line((270, 20), (270, 140), FAINT)
    d.text((190, 285), "cells with few triangles in each", 13)

    def node(at, words, fill=FILL):
        d.box(at[0] - 32, at[1] - 14, 64, 28, fill)
        d.text((at[0], at[1] + 5), words, 12)

    links = [((560, 40), (480, 105)), ((560, 40), (640, 105)), ((480, 105), (430, 170)),
             ((480, 105), (515, 170)), ((640, 105), (600, 170)), ((640, 105), (690, 170)),
             ((430, 170), (400, 235)), ((430, 170), (470, 235)), ((690, 170), (655, 235)),
             ((690, 170), (725, 235))]
    for a, b in links:
        d.line(a, b)
    node((560, 40), "x", "#f5c9c4")
    for at in ((480, 105), (640, 105)):
        node(at, "y", "#cfe8d8")
    for at in ((430, 170), (690, 170)):
        node(at, "x", "#e6e9ee")
    for at in ((515, 170), (600, 170), (400, 235), (470, 235), (655, 235), (725, 235)):
        node(at, "list")
    d.text((560, 285), "the same as a tree", 13)
    return d


def orient():
    """A ray tells the outside for one triangle, the rest follow their neighbours."""
    d = Drawing(800, 280)
    body = [(60, 70), (170, 40), (270, 110), (250, 210), (110, 220), (50, 150)]
    d.area(body, "#eef3f9", INK, 2.2)
    d.line((60, 70), (50, 150), INK, 4.5)
    d.dot((55, 110), RED)
    d.arrow((55, 110), (350, 135), RED)
    d.ring((262, 128), 8, RED)
    d.text((360, 118), "one crossing: odd, so it", 13, anchor="start")
    d.text((360, 136), "points inwards and is turned", 13, anchor="start")
    d.text((160, 262), "section of a solid, with a ray from a seed", 13)
    strip = moved([(560, 60), (620, 30), (640, 110), (710, 70), (720, 150), (640, 190), (560, 150)], 40)
    centre = strip[2]
    trs = [[strip[0], centre, strip[1]], [strip[1], centre, strip[3]], [strip[3], centre, strip[4]],
           [strip[4], centre, strip[5]], [strip[5], centre, strip[6]], [strip[6], centre, strip[0]]]
    for i, tr in enumerate(trs):
        d.area(tr, WARM if i == 0 else FILL)
        middle = (sum(p[0] for p in tr) / 3, sum(p[1] for p in tr) / 3)
        d.turn(middle, RED if i == 0 else INK, 7)
    d.text((680, 262), "the winding spreads from the seed", 13)
    return d


def flat():
    """The two repairs of a triangle without area."""
    d = Drawing(780, 260)
    d.area([(40, 190), (150, 40), (250, 190)])
    d.area([(150, 40), (162, 40), (250, 190)], WARM)
    d.area([(162, 40), (320, 90), (250, 190)])
    d.ring((156, 40), 14, RED)
    d.text((185, 232), "two corners within -m: they become one", 13)
    a, b, c, e = (430, 130), (700, 130), (565, 50), (550, 215)
    d.area([a, b, e])
    d.area([a, c, b])
    cap = (560, 124)
    d.area([a, cap, b], WARM)
    d.dot(cap, RED)
    d.line(cap, e, RED, 2, "5 4")
    d.text((570, 246), "a corner on the long edge: it cuts the neighbour in two", 13)
    return d


def removal():
    """V is moved onto T: the fan stretches, two triangles die."""
    d = Drawing(780, 290)
    v = (180, 135)
    ring = around((180, 135), 105, 7, 20, 0.85)
    d.fan(v, ring)
    d.area([v, ring[0], ring[1]], WARM)
    d.area([v, ring[6], ring[0]], WARM)
    d.arrow(v, (ring[0][0] - 6, ring[0][1] + 3), RED, 2.4)
    d.dot(v)
    d.dot(ring[0], GREEN, 5)
    d.text((v[0] - 12, v[1] - 12), "V", 16, bold=True)
    d.text((ring[0][0] + 18, ring[0][1] + 2), "T", 16, GREEN, bold=True)
    d.text((180, 262), "V goes along the edge to T", 14)
    d.text((180, 281), "the two triangles at that edge die", 12, FAINT)
    d.arrow((345, 135), (415, 135))
    ring = moved(ring, 400)
    for i in range(1, 6):
        d.area([ring[0], ring[i], ring[i + 1]])
    d.dot(ring[0], GREEN, 5)
    d.text((ring[0][0] + 18, ring[0][1] + 2), "T", 16, GREEN, bold=True)
    d.text((580, 262), "two triangles fewer, no new point", 14)
    return d


def distance():
    """What -r holds V's neighbours against, from the side, and what -c tells apart."""
    d = Drawing(800, 300)
    d.box(40, 110, 330, 56, "#e9f4ec", "none", 0)
    d.line((40, 138), (370, 138), GREEN, 1.4, "6 4")
    v = (205, 138)
    left, right = (70, 120), (345, 160)
    for p in (left, right):
        d.line(v, p, INK, 2.4)
        d.dot(p)
    d.dot(v, RED, 5)
    d.arrow(v, (205, 60), RED)
    d.text((216, 72), "normal of V", 13, RED, "start")
    d.line((385, 110), (385, 138), INK, 1)
    d.line((380, 110), (390, 110), INK, 1)
    d.line((380, 138), (390, 138), INK, 1)
    d.text((396, 129), "r", 15, anchor="start", bold=True)
    d.text((205, 210), "all neighbours within r of the tangent plane:", 13)
    d.text((205, 230), "V may go", 13)
    d.text((205, 290), "seen from the side", 12, FAINT)
    top = (610, 150)
    for end, angle in (((480, 190), 107), ((740, 190), 73)):
        d.line(top, end, INK, 2.6)
        middle = ((top[0] + end[0]) / 2, (top[1] + end[1]) / 2)
        d.arrow(middle, (middle[0] + 62 * math.cos(math.radians(angle)),
                         middle[1] - 62 * math.sin(math.radians(angle))), RED)
    d.dot(top)
    d.text((610, 72), "cosine of the angle between the normals", 13)
    d.text((610, 230), "more than c: one surface", 13)
    d.text((610, 250), "c or less: a feature, which stays", 13)
    return d


def kinds():
    """Three kinds of vertices by the sharp edges that meet in them."""
    d = Drawing(800, 250)
    for x, title, sharp, words in (
            (135, "plane vertex", [], "no sharp edge"),
            (400, "line vertex", [0, 3], "two sharp edges in one line"),
            (665, "corner", [0, 2, 4], "anything else with a sharp edge")):
        centre = (x, 110)
        ring = around(centre, 88, 6, 0, 0.85)
        d.fan(centre, ring)
        for i in sharp:
            d.line(centre, ring[i], RED, 4)
        d.dot(centre, size=5)
        d.text((x, 216), title, 15, bold=True)
        d.text((x, 237), words, 13)
    return d


def locks():
    """Round a removed vertex everything waits for the next turn."""
    d = Drawing(760, 280)
    step, x0, y0 = 52, 60, 40

    def at(i, j):
        return (x0 + i * step + (j % 2) * step / 2, y0 + j * step * 0.87)

    gone, locked = (4, 2), {(3, 2), (5, 2), (3, 1), (4, 1), (3, 3), (4, 3)}
    for j in range(4):
        for i in range(10):
            if (i, j) in ((9, 1), (9, 3)):
                continue
            if i < 9 and (i + 1, j) not in ((9, 1), (9, 3)):
                d.line(at(i, j), at(i + 1, j), FAINT)
            for k in ((i, i - 1) if j % 2 == 0 else (i, i + 1)):
                if 0 <= k < 10 and (k, j + 1) not in ((9, 1), (9, 3)):
                    d.line(at(i, j), at(k, j + 1), FAINT)
    for j in range(5):
        for i in range(10):
            if (i, j) in ((9, 1), (9, 3)):
                continue
            if j == 4 and i < 9:
                d.line(at(i, j), at(i + 1, j), FAINT)
            if (i, j) == gone:
                d.dot(at(i, j), RED, 7)
            elif (i, j) in locked:
                d.dot(at(i, j), "#d99a2b", 6)
            else:
                d.dot(at(i, j), INK, 3.5)
    d.arrow(at(*gone), (at(5, 2)[0] - 8, at(5, 2)[1]), RED, 2.4)
    for y, colour, words in ((100, RED, "went"), (130, "#d99a2b", "wait for the next turn"),
                             (160, INK, "may still go in this turn")):
        d.dot((590, y), colour, 6)
        d.text((605, y + 5), words, 13, anchor="start")
    return d


def modes():
    """Which neighbour takes the vertex in."""
    d = Drawing(800, 470)
    v = (0, 0)
    ring = [(95, 10), (60, -70), (-30, -85), (-100, -20), (-58, 52), (28, 62)]
    cases = (
        ((200, 110), "1  distance", 3, "onto the triangle that lies", "flattest on what is behind it"),
        ((600, 110), "2  short edge", 4, "at an edge shorter than -j,", "in one direction of it only"),
        ((200, 345), "3  maximum edge", 4, "along the shortest edge,", "if that is shorter than -i"),
        ((600, 345), "4  bad aspect", 1, "away with the short side of", "a triangle with a small angle"))
    for centre, title, target, first, second in cases:
        points = [(centre[0] + x, centre[1] + y) for x, y in ring]
        c = (centre[0] + v[0], centre[1] + v[1])
        if title[0] == "4":
            points[1] = (centre[0] + 22, centre[1] - 20)
        d.fan(c, points)
        if title[0] == "1":
            d.area([points[3], points[2], (points[3][0] - 20, points[2][1] + 5)], "#e9f4ec", FAINT)
            d.area([c, points[2], points[3]], "#cfe8d8")
        if title[0] == "4":
            d.area([c, points[0], points[1]], WARM)
        d.arrow(c, points[target], RED, 2.6)
        d.dot(c, size=5)
        d.text((centre[0], centre[1] + 88), title, 15, bold=True)
        d.text((centre[0], centre[1] + 106), first, 13)
        d.text((centre[0], centre[1] + 122), second, 13)
    return d


def thin():
    """-S turns the diagonal of a thin triangle and its neighbour."""
    d = Drawing(760, 210)
    a, b, c, e = (40, 150), (310, 60), (150, 96), (215, 165)
    d.area([a, b, c], WARM)
    d.area([a, e, b])
    d.line(a, b, RED, 3)
    d.text((180, 200), "a thin triangle and its neighbour", 13)
    d.arrow((350, 110), (410, 110))
    a, b, c, e = moved([a, b, c, e], 410)
    d.area([a, e, c])
    d.area([c, e, b])
    d.line(c, e, GREEN, 3)
    d.text((590, 200), "the same corners, the other diagonal", 13)
    return d


def rooms():
    """The folders of src, and who may know whom."""
    d = Drawing(820, 340)
    places = {"shell": (410, 40), "run": (410, 110), "reduce": (170, 180), "topo": (410, 180),
              "files": (650, 180), "plg": (170, 250), "repair": (410, 250), "mesh": (410, 310)}
    words = {"shell": "terminal, window, mains", "run": "options, order of the stages",
             "reduce": "fans, normals, passes", "topo": "merging, links", "files": "STL, .kvd",
             "plg": "open borders", "repair": "orientation, flat triangles",
             "mesh": "records, memory, tree, measures"}
    for a, b in (("shell", "run"), ("run", "reduce"), ("run", "topo"), ("run", "files"),
                 ("reduce", "plg"), ("topo", "repair"), ("plg", "mesh"), ("repair", "mesh"),
                 ("files", "mesh")):
        (x0, y0), (x1, y1) = places[a], places[b]
        side = 0 if x0 == x1 else (1 if x1 > x0 else -1)
        if b == "mesh" and side:  # past the room in the middle
            d.arrow((x0, y0 + 19), (x1 - side * 117, y1))
        else:
            d.arrow((x0 + side * 60, y0 + 19), (x1 - side * 60, y1 - 21))
    for name, (x, y) in places.items():
        d.box(x - 115, y - 19, 230, 38, WARM if name in ("shell", "run") else FILL)
        d.text((x, y - 2), name, 14, bold=True)
        d.text((x, y + 14), words[name], 12)
    return d


def main():
    folder = sys.argv[1]
    os.makedirs(folder, exist_ok=True)
    for make in (road, join, neighbours, tree, orient, flat, removal, distance, kinds, locks, modes,
                 thin, rooms):
        make().save(os.path.join(folder, make.__name__ + ".svg"))


main()
