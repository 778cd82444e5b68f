"""Lines and branches of gcovr's JSON by room, then the lines of src/ that no test reached."""
import collections
import json
import sys

rooms = collections.defaultdict(lambda: [0, 0, 0, 0])
missed = []
for file in json.load(open(sys.argv[1]))["files"]:
    name = file["file"]
    room = "/".join(name.split("/")[:2])
    # A header's line is in several programs: it is reached when it is in one of them.
    lines = collections.defaultdict(int)
    branches = collections.defaultdict(int)
    for line in file["lines"]:
        if line.get("gcovr/noncode"):
            continue
        number = line["line_number"]
        lines[number] += line["count"]
        for i, branch in enumerate(line["branches"]):
            branches[number, i] += branch["count"]
    for key in room, room.split("/")[0]:
        for i, reached in ((0, lines), (2, branches)):
            rooms[key][i] += sum(count > 0 for count in reached.values())
            rooms[key][i + 1] += len(reached)
    if name.startswith("src/"):
        missed += [f"{name}:{number}" for number, count in sorted(lines.items()) if count == 0]

print(f"{'room':<20} {'lines':>18} {'branches':>18}")
for room in sorted(rooms):
    line, lines, branch, branches = rooms[room]
    cells = [f"{a:6} {100 * a / b:5.1f} %" if b else "-" for a, b in ((line, lines), (branch, branches))]
    print(f"{room:<20} {cells[0]:>18} {cells[1]:>18}")
for place in missed:
    print("not reached:", place)
