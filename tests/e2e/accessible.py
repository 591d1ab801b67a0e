#!/usr/bin/env python3
"""Prints the showing accessible objects of one application as JSON lines, read over AT-SPI: what a
screen reader sees, with where each stands on the screen, so tests find a row or a button by its
role and name instead of by a pixel offset.

Usage: accessible.py APPLICATION_NAME
Each line: {"role", "name", "x", "y", "width", "height", "focused", "selected", "text"}.
Exits 1 when the application is not (yet) on the accessibility bus.
"""
import json
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi  # noqa: E402

# Bounds: a tree view may expose many rows; a test needs the first screenful.
MAX_NODES = 4000
MAX_DEPTH = 40


def text_of(node):
    try:
        if "Text" in node.get_interfaces():
            return Atspi.Text.get_text(node, 0, min(Atspi.Text.get_character_count(node), 500))
    except Exception:  # objects come and go while the tree is read
        pass
    return None


def walk(node, depth, out):
    if node is None or depth > MAX_DEPTH or len(out) >= MAX_NODES:
        return
    try:
        states = node.get_state_set()
        showing = states.contains(Atspi.StateType.SHOWING)
        if depth > 1 and not showing:
            return
        box = node.get_extents(Atspi.CoordType.SCREEN)
        out.append({
            "role": node.get_role_name(),
            "name": node.get_name() or "",
            "x": box.x,
            "y": box.y,
            "width": box.width,
            "height": box.height,
            "focused": states.contains(Atspi.StateType.FOCUSED),
            "selected": states.contains(Atspi.StateType.SELECTED),
            "text": text_of(node),
        })
        count = node.get_child_count()
    except Exception:
        return
    for index in range(min(count, MAX_NODES)):
        try:
            child = node.get_child_at_index(index)
        except Exception:
            continue
        walk(child, depth + 1, out)


def main():
    wanted = sys.argv[1].lower()
    desktop = Atspi.get_desktop(0)
    for index in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(index)
        if app is not None and (app.get_name() or "").lower() == wanted:
            out = []
            walk(app, 0, out)
            for item in out:
                print(json.dumps(item, ensure_ascii=False))
            return 0
    return 1


if __name__ == "__main__":
    sys.exit(main())
