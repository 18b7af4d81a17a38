#!/usr/bin/env python3
# Checks the floors of src/: which folder may include which, and that no units form a cycle.  A header and its source
# are one unit.
#   tools/check_floors.py [FOLDER [PAGE]]     the folder that holds floors.txt and the sources; src if none is named
# PAGE draws the floors: its first fenced block has a line for each folder, the highest first.
# floors.txt beside the sources is the one place where the order stands, lowest floor first.  A line is a floor (folders
# on one line do not include each other), or `up: UNIT -> UNIT: why` for an arrow that runs against the order.
import pathlib
import re
import sys

def read_floors(path):
    floor_of, named, wrong = {}, {}, []
    floor = 0
    for number, line in enumerate(path.read_text().splitlines(), 1):
        line = line.split('#')[0].strip()
        if not line:
            continue
        arrow = re.fullmatch(r'up: (\S+) -> (\S+): .+', line)
        if arrow:
            named[arrow.group(1, 2)] = number
            continue
        if line.startswith('up:'):
            wrong.append(f'{path}:{number}: not "up: UNIT -> UNIT: why", write it so')
            continue
        for folder in line.split():
            floor_of[folder] = floor
        floor += 1
    return floor_of, named, wrong

def read_includes(root):
    files = sorted(p for p in root.rglob('*') if p.suffix in ('.cpp', '.h'))
    unit = lambda path: str(pathlib.PurePath(path).with_suffix(''))
    units = {unit(p.relative_to(root)) for p in files}
    there = {p.resolve() for p in files}
    arrows, crooked = {}, []
    for path in files:
        source = unit(path.relative_to(root))
        for number, line in enumerate(path.read_text().splitlines(), 1):
            match = re.match(r'\s*#\s*include\s*(["<])([^">]+)[">]', line)
            if not match:
                continue
            target = unit(match.group(2))
            beside = (path.parent / match.group(2)).resolve()
            if (match.group(1) == '<' and target in units) or (target not in units and beside in there):
                crooked.append(f'{path}:{number}: include "{match.group(2)}" by its path from {root}/, in quotes')
            if target in units and target != source:
                arrows.setdefault((source, target), f'{path}:{number}')
    return units, arrows, crooked

def find_cycle(units, arrows):
    after = {u: sorted(t for s, t in arrows if s == u) for u in units}
    state, trail = {}, []
    def visit(unit):
        state[unit] = 1
        trail.append(unit)
        for target in after[unit]:
            if state.get(target) == 1:
                return trail[trail.index(target):] + [target]
            if target not in state:
                found = visit(target)
                if found:
                    return found
        trail.pop()
        state[unit] = 2
        return None
    for unit in sorted(units):
        if unit not in state:
            found = visit(unit)
            if found:
                return found
    return None


def read_page(path):
    lines = path.read_text().splitlines()
    begin = lines.index('```') + 1
    return [line.split()[0] for line in lines[begin:lines.index('```', begin)]]


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else 'src')
    order = root / 'floors.txt'
    floor_of, named, complaints = read_floors(order)
    units, arrows, crooked = read_includes(root)
    complaints += crooked
    folders = {unit: str(pathlib.PurePath(unit).parent) for unit in units}
    for folder in sorted(set(folders.values()) - set(floor_of)):
        complaints.append(f'{order}:1: {folder}/ has no floor, give it a line')
    used = set()
    for (source, target), where in sorted(arrows.items()):
        if (source, target) in named:
            used.add((source, target))
            continue
        low, high = floor_of.get(folders[source]), floor_of.get(folders[target])
        if low is None or high is None or folders[source] == folders[target] or high < low:
            continue
        complaints.append(f'{where}: {folders[source]}/ may not know {target}: '
                          f'move what is needed to a lower floor, or name the arrow with its reason in {order}')
    for arrow in sorted(set(named) - used):
        complaints.append(f'{order}:{named[arrow]}: no such arrow any more, take the line out: {" -> ".join(arrow)}')
    cycle = find_cycle(units, arrows)
    if cycle:
        places = ', '.join(arrows[pair] for pair in zip(cycle, cycle[1:]))
        complaints.append(f'{places}: units form a cycle: {" -> ".join(cycle)}; '
                          'move what they share into a unit of its own')
    if len(sys.argv) > 2 and list(reversed(read_page(pathlib.Path(sys.argv[2])))) != list(floor_of):
        complaints.append(f'{sys.argv[2]}: the floors drawn are not those of {order}, draw them again')
    for complaint in complaints:
        print(complaint)
    return 1 if complaints else 0


if __name__ == '__main__':
    sys.exit(main())
