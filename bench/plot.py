"""A line plot as SVG, without any library."""

COLOURS = ["#1b6ca8", "#c8553d", "#4f772d", "#7b2d8b"]
WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 640, 360, 70, 150, 40, 50


def step_of(highest):
    """A round distance between the marks of an axis from 0, some five of them."""
    size = 1
    while size * 50 < highest:
        size *= 10
    return next((size * factor for factor in (1, 2, 5, 10) if size * factor * 6 >= highest), size * 10)


def plot(path, title, x_title, y_title, series):
    """Writes the points of `series` ({name: [(x, y), ...]}) to a file, both axes from 0."""
    most_x = max(x for points in series.values() for x, _ in points)
    most_y = max(y for points in series.values() for _, y in points)

    def place(x, y):
        return (LEFT + (WIDTH - LEFT - RIGHT) * x / most_x, HEIGHT - BOTTOM - (HEIGHT - TOP - BOTTOM) * y / most_y)

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" font-size="12">',
           f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
           f'<text x="{LEFT}" y="22" font-size="15">{title}</text>']
    for most, along_x in ((most_x, True), (most_y, False)):
        mark = 0
        while mark <= most:
            (x1, y1), (x2, y2) = (place(mark, 0), place(mark, most_y)) if along_x else (place(0, mark), place(most_x, mark))
            out.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="#ddd"/>')
            x, y, anchor = (x1, y1 + 18, "middle") if along_x else (x1 - 8, y1 + 4, "end")
            out.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}">{mark:g}</text>')
            mark += step_of(most)
    out.append(f'<text x="{(LEFT + WIDTH - RIGHT) / 2:.0f}" y="{HEIGHT - 10}" text-anchor="middle">{x_title}</text>')
    out.append(f'<text x="16" y="{TOP - 8}">{y_title}</text>')
    for number, (name, points) in enumerate(series.items()):
        colour = COLOURS[number % len(COLOURS)]
        spots = [place(x, y) for x, y in sorted(points)]
        line = " ".join(f"{x:.1f},{y:.1f}" for x, y in spots)
        out.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>')
        out += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour}"/>' for x, y in spots]
        out.append(f'<text x="{WIDTH - RIGHT + 12}" y="{TOP + 18 * number + 10}" fill="{colour}">{name}</text>')
    out.append("</svg>")
    path.write_text("\n".join(out) + "\n", encoding="utf-8")
