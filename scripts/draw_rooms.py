#!/usr/bin/env python3
"""Draws the rooms of the model, and which rooms each includes, into docs/architecture.md.

  scripts/draw_rooms.py           writes the drawing between its two markers
  scripts/draw_rooms.py --check   status 1 if the page holds another drawing than the code gives
"""
import os
import sys

sys.dont_write_bytecode = True
import check_includes  # noqa: E402  (beside this script)

PAGE = os.path.join(check_includes.ROOT, "docs", "architecture.md")
BEGIN = "<!-- rooms: made by scripts/draw_rooms.py -->\n"
END = "<!-- end of rooms -->\n"


def rooms_included():
    """Returns {room: set of the other rooms that its sources include}."""
    found = {room: set() for room in check_includes.ROOMS}
    for path in check_includes.sources(check_includes.ROOT):
        room = check_includes.room_of(path)
        if room is None:
            continue
        with open(os.path.join(check_includes.ROOT, path), encoding="utf-8") as lines:
            for line in lines:
                match = check_includes.INCLUDE.match(line)
                other = match and check_includes.room_of("sdk/" + match.group(2))
                if other and other != room:
                    found[room].add(other)
    return found


def drawing(found):
    """One line per room, the highest first; an x under the number of each room that it includes."""
    rooms = check_includes.ROOMS
    width = max(map(len, rooms))
    numbers = "".join(f"{number:3}" for number in range(1, len(rooms)))
    lines = ["```text", f"{'room':{width + 3}}{numbers}"]
    for number in range(len(rooms), 0, -1):
        room = rooms[number - 1]
        marks = "".join("  x" if other in found[room] else "  ." for other in rooms[:number - 1])
        lines.append(f"{number:2} {room:{width}}{marks}".rstrip())
    lines.append("```")
    return "\n".join(lines) + "\n"


def main():
    with open(PAGE, encoding="utf-8") as page:
        text = page.read()
    if BEGIN not in text or END not in text:
        print(f"draw_rooms: {PAGE} lacks the markers of the drawing", file=sys.stderr)
        return 2
    before, rest = text.split(BEGIN, 1)
    _, after = rest.split(END, 1)
    wanted = before + BEGIN + drawing(rooms_included()) + END + after
    if sys.argv[1:] == ["--check"]:
        if wanted == text:
            return 0
        print("draw_rooms: docs/architecture.md shows other rooms than the code; run "
              "scripts/draw_rooms.py", file=sys.stderr)
        return 1
    with open(PAGE, "w", encoding="utf-8") as page:
        page.write(wanted)
    return 0


if __name__ == "__main__":
    sys.exit(main())
