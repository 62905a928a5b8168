"""Draws triangle models as pictures: a z-buffer, flat shading, the edges of the triangles.

A model is an array of n x 3 corners x 3 coordinates. Pictures are drawn several times as large and
then averaged, so that lines and outlines are smooth.
"""
import numpy as np
from PIL import Image

OVERSAMPLING = 3
PAPER = np.array([255, 255, 255], dtype=np.float32)
INK = np.array([38, 48, 62], dtype=np.float32)
LIGHTS = ((np.array([-0.45, 0.55, 0.70]), 0.55), (np.array([0.75, 0.10, 0.45]), 0.20))
AMBIENT = 0.20


def read_stl(path):
    """The triangles of a binary STL file."""
    data = np.fromfile(path, dtype=np.uint8)
    count = int(data[80:84].view("<u4")[0])
    records = data[84:84 + 50 * count].reshape(count, 50)
    return records[:, 12:48].copy().view("<f4").reshape(count, 3, 3).astype(np.float64)


def write_stl(path, trs):
    record = np.zeros(len(trs), dtype=[("nrm", "<f4", 3), ("vtx", "<f4", (3, 3)), ("attr", "<u2")])
    record["vtx"] = trs
    with open(path, "wb") as file:
        file.write(b"generated".ljust(80))
        file.write(np.uint32(len(trs)).tobytes())
        file.write(record.tobytes())


class View:
    """Where the eye is: turned about the vertical axis, raised, and framed to fit a model."""

    def __init__(self, model, turn, raised, size):
        a, b = np.radians(turn), np.radians(raised)
        right = np.array([np.cos(a), np.sin(a), 0])
        back = np.array([-np.sin(a) * np.cos(b), np.cos(a) * np.cos(b), -np.sin(b)])
        self.axes = np.array([right, np.cross(right, back), -back])
        self.size = size
        flat = model.reshape(-1, 3) @ self.axes.T
        low, high = flat.min(axis=0), flat.max(axis=0)
        self.middle = (low + high) / 2
        self.scale = 0.94 * min(size[0] / (high[0] - low[0]), size[1] / (high[1] - low[1]))

    def project(self, model):
        """Corners as x to the right, y down, z towards the eye, in pixels."""
        seen = (model @ self.axes.T - self.middle) * self.scale
        seen[..., 0] += self.size[0] / 2
        seen[..., 1] = self.size[1] / 2 - seen[..., 1]
        return seen


def shades(model, view, colour):
    """A colour for each triangle; the back of a sheet is darker."""
    normal = np.cross(model[:, 1] - model[:, 0], model[:, 2] - model[:, 0]) @ view.axes.T
    normal /= np.maximum(np.linalg.norm(normal, axis=1), 1e-30)[:, None]
    behind = normal[:, 2] < 0
    normal[behind] *= -1
    light = np.full(len(model), AMBIENT)
    for direction, strength in LIGHTS:
        light += strength * np.maximum(normal @ (direction / np.linalg.norm(direction)), 0)
    light[behind] *= 0.6
    return np.clip(np.asarray(colour)[None, :] * (0.35 + 0.9 * light[:, None]), 0, 255)


def draw(model, view, colour=(166, 189, 219), edges=True, line=1.0):
    """An image of the model, `view.size` large."""
    n = OVERSAMPLING
    width, height = view.size[0] * n, view.size[1] * n
    picture = np.tile(PAPER, (height, width, 1))
    depth = np.full((height, width), -np.inf, dtype=np.float32)
    corners = view.project(model) * n
    colours = shades(model, view, colour)
    half_line = line * n / 2
    for tr, fill in zip(corners, colours):
        draw_triangle(tr, fill, picture, depth, half_line if edges else 0)
    small = picture.reshape(view.size[1], n, view.size[0], n, 3).mean(axis=(1, 3))
    return Image.fromarray(small.round().astype(np.uint8))


def draw_triangle(tr, fill, picture, depth, half_line):
    x0, y0 = np.maximum(np.floor(tr[:, :2].min(axis=0)).astype(int), 0)
    x1, y1 = np.ceil(tr[:, :2].max(axis=0)).astype(int) + 1
    x1, y1 = min(x1, picture.shape[1]), min(y1, picture.shape[0])
    e1, e2 = tr[1, :2] - tr[0, :2], tr[2, :2] - tr[0, :2]
    double_area = e1[0] * e2[1] - e1[1] * e2[0]
    if x1 <= x0 or y1 <= y0 or abs(double_area) < 1e-9:
        return
    x = np.arange(x0, x1) + 0.5
    y = np.arange(y0, y1)[:, None] + 0.5
    part = []  # of the area, opposite each corner
    for i in range(3):
        a, b = tr[(i + 1) % 3], tr[(i + 2) % 3]
        part.append(((b[0] - a[0]) * (y - a[1]) - (b[1] - a[1]) * (x - a[0])) / double_area)
    inside = (part[0] >= 0) & (part[1] >= 0) & (part[2] >= 0)
    z = part[0] * tr[0, 2] + part[1] * tr[1, 2] + part[2] * tr[2, 2]
    window = depth[y0:y1, x0:x1]
    seen = inside & (z > window)
    if not seen.any():
        return
    window[seen] = z[seen]
    target = picture[y0:y1, x0:x1]
    target[seen] = fill
    if half_line == 0:
        return
    near_edge = np.zeros_like(seen)
    for i in range(3):
        a, b = tr[(i + 1) % 3], tr[(i + 2) % 3]
        length = np.hypot(b[0] - a[0], b[1] - a[1])
        near_edge |= part[i] * abs(double_area) < half_line * max(length, 1e-9)
    target[seen & near_edge] = 0.72 * INK + 0.28 * fill
