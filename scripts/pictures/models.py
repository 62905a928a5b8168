"""Models for pictures, beside those of make_model: a gear wheel, a knot, a piece of land.

Each is an array of n x 3 corners x 3 coordinates in millimetres, wound anticlockwise seen from
outside. Random numbers have fixed seeds.
"""
import numpy as np


def grid_triangles(points, wrap_u, wrap_v):
    """Two triangles for each cell of a grid of points; its sides may be joined."""
    nu, nv = points.shape[:2]
    trs = []
    for i in range(nu if wrap_u else nu - 1):
        for j in range(nv if wrap_v else nv - 1):
            a, b = points[i, j], points[(i + 1) % nu, j]
            c, d = points[(i + 1) % nu, (j + 1) % nv], points[i, (j + 1) % nv]
            trs += [(a, b, c), (a, c, d)] if (i + j) % 2 else [(a, b, d), (b, c, d)]
    return np.array(trs)


def gear(teeth=14, step=2.3):
    """A wheel with a hub, a thinner web and straight-sided teeth, evenly meshed."""
    root, tip, bore, hub, rim = 21.0, 26.0, 5.0, 9.5, 17.5
    corners = []
    for k in range(teeth):
        for share, radius in ((0.0, root), (0.26, root), (0.40, tip), (0.86, tip)):
            angle = 2 * np.pi * (k + share) / teeth
            corners.append(radius * np.array([np.cos(angle), np.sin(angle)]))
    outline = []
    for a, b in zip(corners, corners[1:] + corners[:1]):
        pieces = max(1, round(np.linalg.norm(b - a) / step))
        outline += [a + (b - a) * i / pieces for i in range(pieces)]
    outline = np.array(outline)
    even = 2 * np.pi * np.arange(len(outline)) / len(outline)
    inward = np.column_stack([np.cos(even), np.sin(even)])

    # Half of the section, from the bore outwards: radius, or None for the outline, and height.
    half = [(bore, 8.0), (hub, 8.0), (hub, 3.0), (rim, 3.0), (rim, 6.0), (None, 6.0)]
    section = half + [(radius, -z) for radius, z in reversed(half)]
    rings = []
    for (r0, z0), (r1, z1) in zip(section, section[1:] + section[:1]):
        start = outline if r0 is None else inward * r0
        end = outline if r1 is None else inward * r1
        length = np.hypot(np.linalg.norm(end - start, axis=1).mean(), z1 - z0)
        pieces = max(1, round(length / step))
        for i in range(pieces):
            t = i / pieces
            flat = start + (end - start) * t
            rings.append(np.column_stack([flat, np.full(len(flat), z0 + (z1 - z0) * t)]))
    return grid_triangles(np.array(rings), True, True)


def knot(around=20, length=150, seed=3):
    """A trefoil of round tube with the slight roughness of a scan."""
    t = np.linspace(0, 2 * np.pi, length, endpoint=False)

    def curve(t):
        ring = 20 + 8.5 * np.cos(3 * t)
        return np.stack([ring * np.cos(2 * t), ring * np.sin(2 * t), 8.5 * np.sin(3 * t)], axis=-1)

    centre = curve(t)
    ahead = curve(t + 1e-4) - curve(t - 1e-4)
    ahead /= np.linalg.norm(ahead, axis=1)[:, None]
    outward = centre * np.array([1, 1, 0])
    outward -= ahead * (outward * ahead).sum(axis=1)[:, None]
    outward /= np.linalg.norm(outward, axis=1)[:, None]
    side = np.cross(ahead, outward)
    angle = np.linspace(0, 2 * np.pi, around, endpoint=False)[None, :, None]
    rough = 1 + 0.004 * np.random.default_rng(seed).standard_normal((length, around, 1))
    tube = outward[:, None] * np.cos(angle) - side[:, None] * np.sin(angle)
    return grid_triangles(centre[:, None] + 5.2 * rough * tube, True, True)


def land(cells=48, seed=5):
    """An open sheet: hills, a plain and a straight dam."""
    rng = np.random.default_rng(seed)
    x, y = np.meshgrid(np.linspace(-30, 30, cells + 1), np.linspace(-30, 30, cells + 1),
                       indexing="ij")
    hills = np.zeros_like(x)
    for _ in range(9):
        cx, cy, wide = *rng.uniform(-28, 28, 2), rng.uniform(5, 9)
        hills += rng.uniform(5, 12) * np.exp(-((x - cx) ** 2 + (y - cy) ** 2) / (2 * wide ** 2))
    hills = np.maximum(hills - 3.0, 0.0)
    dam = np.clip(5.0 - np.maximum(np.abs(y + 15) - 2.5, 0), 0, None)
    points = np.stack([x, y, np.maximum(hills, dam)], axis=-1)
    return grid_triangles(points, False, False)


def vase(around=44, rows=26, shear=1.0):
    """An open surface of revolution whose grid is twisted, so that its triangles are thin."""
    z = np.linspace(0, 60, rows + 1)
    radius = 14 + 6 * np.sin(z / 60 * 2 * np.pi * 0.9 + 0.6) + 2.5 * (z / 60) ** 3
    turn = 2 * np.pi / around * (np.arange(around)[:, None] + shear * np.arange(rows + 1)[None, :])
    points = np.stack([radius * np.cos(turn), radius * np.sin(turn), np.broadcast_to(z, turn.shape)],
                      axis=-1)
    trs = []
    for i in range(around):
        for j in range(rows):
            a, b = points[i, j], points[(i + 1) % around, j]
            c, d = points[(i + 1) % around, j + 1], points[i, j + 1]
            trs += [(a, b, c), (a, c, d)]
    return np.array(trs)
