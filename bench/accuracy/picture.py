"""The trade-off between misses and false alarms as SVG."""
WIDTH, HEIGHT = 880, 520
LEFT, TOP, RIGHT, BOTTOM = 70, 30, 640, 460
MISSES, FALSE_ALARMS = 40, 60  # per cent, at the ends of the axes
COLOURS = ("#0969da", "#59636e", "#9198a1", "#1a7f37", "#8250df", "#bc4c00", "#cf222e", "#d4a72c", "#0550ae")


def trade_off(curves):
    """curves: (name, [(false alarms, misses)]) in per cent; a single point is a mark."""
    def x(value):
        return LEFT + (RIGHT - LEFT) * min(value, FALSE_ALARMS) / FALSE_ALARMS

    def y(value):
        return BOTTOM - (BOTTOM - TOP) * min(value, MISSES) / MISSES

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" role="img" aria-labelledby="title">',
           '<title id="title">Misses against false alarms, over all recordings with noise</title>',
           "<style>.card{fill:#fff;stroke:#d0d7de}.text{fill:#1f2328}.line{stroke:#d0d7de;fill:none}",
           "@media(prefers-color-scheme:dark){.card{fill:#0d1117;stroke:#3d444d}.text{fill:#f0f6fc}.line{stroke:#3d444d}}",
           "text{font:13px system-ui,sans-serif}</style>",
           f'<rect class="card" x=".5" y=".5" width="{WIDTH - 1}" height="{HEIGHT - 1}" rx="8"/>']
    for value in range(0, FALSE_ALARMS + 1, 10):
        out.append(f'<path class="line" d="M{x(value):.1f} {TOP}V{BOTTOM}"/>'
                   f'<text class="text" x="{x(value):.1f}" y="{BOTTOM + 20}" text-anchor="middle">{value}</text>')
    for value in range(0, MISSES + 1, 10):
        out.append(f'<path class="line" d="M{LEFT} {y(value):.1f}H{RIGHT}"/>'
                   f'<text class="text" x="{LEFT - 10}" y="{y(value) + 4:.1f}" text-anchor="end">{value}</text>')
    out.append(f'<text class="text" x="{(LEFT + RIGHT) / 2}" y="{BOTTOM + 42}" text-anchor="middle">false alarms, %</text>'
               f'<text class="text" x="20" y="{(TOP + BOTTOM) / 2}" text-anchor="middle" '
               f'transform="rotate(-90 20 {(TOP + BOTTOM) / 2})">misses, %</text>')
    for row, ((name, points), colour) in enumerate(zip(curves, COLOURS)):
        at = TOP + 14 + 26 * row
        if len(points) > 1:
            inside = [(fa, miss) for fa, miss in points if fa <= FALSE_ALARMS and miss <= MISSES]
            path = "L".join(f"{x(fa):.1f} {y(miss):.1f}" for fa, miss in inside)
            out.append(f'<path d="M{path}" fill="none" stroke="{colour}" stroke-width="2"/>'
                       f'<path d="M{RIGHT + 14} {at}h20" stroke="{colour}" stroke-width="2"/>')
        else:
            for cx, cy in ((x(points[0][0]), y(points[0][1])), (RIGHT + 24, at)):
                out.append(f'<circle cx="{cx:.1f}" cy="{cy:.1f}" r="5" fill="{colour}"/>')
        out.append(f'<text class="text" x="{RIGHT + 42}" y="{at + 4}">{name}</text>')
    return "\n".join(out) + "\n</svg>\n"
