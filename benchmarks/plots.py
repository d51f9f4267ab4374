"""Plots as SVG text: bars, and lines over a logarithmic axis."""

import math

COLOURS = ("#1b6ca8", "#d1495b", "#3a7d44", "#edae49", "#6b4e9b", "#8c5e3c", "#5f7470", "#e07a5f", "#00798c", "#b5179e", "#444444", "#90be6d")


def escape(text):
    return text.replace("&", "&amp;").replace("<", "&lt;")


def document(width, height, elements):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
            f'font-family="sans-serif" font-size="12"><rect width="{width}" height="{height}" fill="white"/>\n' + "\n".join(elements) + "\n</svg>\n")


def bars(title, values):
    """Horizontal bars of (name, value)."""
    left, width, step = 190, 720, 24
    longest = max(value for _, value in values)
    elements = [f'<text x="10" y="20" font-size="14" font-weight="bold">{escape(title)}</text>']
    for index, (name, value) in enumerate(values):
        top = 34 + index * step
        length = (width - left - 80) * value / longest
        colour = COLOURS[0] if name.startswith("kavix") else "#b0b7bd"
        elements.append(f'<text x="{left - 8}" y="{top + 14}" text-anchor="end">{escape(name)}</text>')
        elements.append(f'<rect x="{left}" y="{top}" width="{length:.1f}" height="{step - 6}" fill="{colour}"/>')
        elements.append(f'<text x="{left + length + 6:.1f}" y="{top + 14}">{value:.3g}</text>')
    return document(width, 44 + len(values) * step, elements)


def lines(title, series):
    """Lines of (name, [(x, y), ...]); x is logarithmic, and y starts at 0."""
    left, top, width, height, legend = 60, 40, 480, 300, 210
    points = [point for _, values in series for point in values]
    low, high = (math.log10(bound(x for x, _ in points)) for bound in (min, max))
    tallest = max(y for _, y in points) * 1.05 or 1
    at = lambda x, y: (left + (math.log10(x) - low) / ((high - low) or 1) * width, top + height * (1 - y / tallest))
    elements = [f'<text x="10" y="20" font-size="14" font-weight="bold">{escape(title)}</text>']
    for tick in range(6):
        y = tallest * tick / 5
        position = at(points[0][0], y)[1]
        elements.append(f'<line x1="{left}" x2="{left + width}" y1="{position:.1f}" y2="{position:.1f}" stroke="#ddd"/>')
        elements.append(f'<text x="{left - 6}" y="{position + 4:.1f}" text-anchor="end">{y:.3g}</text>')
    for exponent in range(math.ceil(low - 1e-9), math.floor(high + 1e-9) + 1):
        position = at(10 ** exponent, 0)[0]
        elements.append(f'<line x1="{position:.1f}" x2="{position:.1f}" y1="{top}" y2="{top + height}" stroke="#eee"/>')
        elements.append(f'<text x="{position:.1f}" y="{top + height + 18}" text-anchor="middle">10^{exponent}</text>')
    elements.append(f'<text x="{left + width / 2}" y="{top + height + 36}" text-anchor="middle">distinct values</text>')
    for index, (name, values) in enumerate(series):
        colour = COLOURS[index % len(COLOURS)]
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in (at(*point) for point in values))
        elements.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
        elements.append(f'<text x="{left + width + 34}" y="{top + 12 + index * 18}">{escape(name)}</text>')
        elements.append(f'<line x1="{left + width + 12}" x2="{left + width + 28}" y1="{top + 8 + index * 18}" y2="{top + 8 + index * 18}" stroke="{colour}" stroke-width="3"/>')
    return document(left + width + legend, top + height + 50, elements)
