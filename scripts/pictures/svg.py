"""A few words for drawing: triangles, dots, arrows and captions, written as SVG."""
from xml.sax.saxutils import escape

INK, FAINT, FILL, WARM, GREEN, RED = "#263040", "#8a96a6", "#dbe7f5", "#f3d9b1", "#2f7d4f", "#b03a2e"


class Drawing:
    def __init__(self, width, height):
        self.size = (width, height)
        self.parts = []

    def add(self, part):
        self.parts.append(part)

    def area(self, points, fill=FILL, stroke=INK, width=1.4, dash=""):
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        dashes = f' stroke-dasharray="{dash}"' if dash else ""
        self.add(f'<polygon points="{path}" fill="{fill}" stroke="{stroke}" '
                 f'stroke-width="{width}" stroke-linejoin="round"{dashes}/>')

    def fan(self, centre, ring, closed=True, fill=FILL):
        """Triangles from a centre to the points of a ring."""
        count = len(ring) if closed else len(ring) - 1
        for i in range(count):
            self.area([centre, ring[i], ring[(i + 1) % len(ring)]], fill)

    def line(self, a, b, colour=INK, width=1.4, dash=""):
        dashes = f' stroke-dasharray="{dash}"' if dash else ""
        self.add(f'<line x1="{a[0]:.1f}" y1="{a[1]:.1f}" x2="{b[0]:.1f}" y2="{b[1]:.1f}" '
                 f'stroke="{colour}" stroke-width="{width}"{dashes}/>')

    def arrow(self, a, b, colour=INK, width=1.8):
        length = max(((b[0] - a[0]) ** 2 + (b[1] - a[1]) ** 2) ** 0.5, 1e-9)
        x, y = (b[0] - a[0]) / length, (b[1] - a[1]) / length
        tip = [b, (b[0] - 9 * x - 4 * y, b[1] - 9 * y + 4 * x),
               (b[0] - 9 * x + 4 * y, b[1] - 9 * y - 4 * x)]
        self.line(a, (b[0] - 6 * x, b[1] - 6 * y), colour, width)
        self.area(tip, colour, colour, 0.5)

    def turn(self, centre, colour=INK, size=10):
        """A small arrow that runs anticlockwise."""
        x, y = centre
        self.add(f'<path d="M {x + size} {y} A {size} {size} 0 1 0 {x} {y + size}" fill="none" '
                 f'stroke="{colour}" stroke-width="1.6"/>')
        self.area([(x + 5, y + size), (x - 3, y + size - 4), (x - 3, y + size + 4)], colour, colour,
                  0.5)

    def dot(self, at, colour=INK, size=4.0):
        self.add(f'<circle cx="{at[0]:.1f}" cy="{at[1]:.1f}" r="{size}" fill="{colour}"/>')

    def ring(self, at, size, colour=INK, dash=""):
        dashes = f' stroke-dasharray="{dash}"' if dash else ""
        self.add(f'<circle cx="{at[0]:.1f}" cy="{at[1]:.1f}" r="{size}" fill="none" '
                 f'stroke="{colour}" stroke-width="1.4"{dashes}/>')

    def box(self, x, y, width, height, fill=FILL, stroke=INK, corner=6, dash=""):
        dashes = f' stroke-dasharray="{dash}"' if dash else ""
        self.add(f'<rect x="{x}" y="{y}" width="{width}" height="{height}" rx="{corner}" '
                 f'fill="{fill}" stroke="{stroke}" stroke-width="1.4"{dashes}/>')

    def text(self, at, words, size=14, colour=INK, anchor="middle", bold=False):
        weight = ' font-weight="bold"' if bold else ""
        self.add(f'<text x="{at[0]:.1f}" y="{at[1]:.1f}" font-size="{size}" fill="{colour}" '
                 f'text-anchor="{anchor}"{weight}>{escape(words)}</text>')

    def save(self, path):
        width, height = self.size
        head = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
                f'viewBox="0 0 {width} {height}" font-family="DejaVu Sans, Helvetica, sans-serif">')
        ground = f'<rect width="{width}" height="{height}" fill="white"/>'
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join([head, ground, *self.parts, "</svg>", ""]))
