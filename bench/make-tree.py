#!/usr/bin/env python3
"""Builds a reproducible home-like tree for the search benchmark.

About 1,000,000 entries (~10% folders), depth up to 12, a few folders of 5,000+ entries, dot-folders,
mixed-case and UTF-8 names, a symlink loop. The same seed gives the same tree.

    bench/make-tree.py TREE [--entries 1000000] [--seed 7]

Two needles are planted: "report" is common (thousands of matches, in every kind of folder);
"quasar" is rare (a dozen matches, some deep, some hidden).
"""
import argparse
import os
import random
import sys

WORDS = """alpha beta gamma delta notes photo image scan invoice budget draft final backup
cache index module config settings lib src test build dist assets icon font theme music track album
video clip movie book chapter paper thesis data table chart slide readme license changelog main util
helper core model view control server client api schema query report session user local shared
""".split()
ACCENTED = ["été", "Über", "naïve", "café", "Ärger", "smörgåsbord", "日本語", "данные", "🙂emoji", "Ñandú"]
EXTENSIONS = ["txt", "md", "pdf", "jpg", "PNG", "c", "h", "cpp", "py", "js", "json", "xml", "html", "mp3",
              "log", "dat", "", "tar.gz", "odt", "svg"]
TOP = ["Documents", "Downloads", "Music", "Pictures", "Videos", "Projects", "Desktop", ".cache",
       ".config", ".local", ".mozilla", ".git-stuff", "Library", "Work.app", "snap"]


def make_name(rng, is_dir):
    parts = [rng.choice(WORDS) for _ in range(rng.randint(1, 3))]
    if rng.random() < 0.06:
        parts.append(rng.choice(ACCENTED))
    name = rng.choice(["-", "_", " ", ""]).join(parts)
    mode = rng.random()
    if mode < 0.2:
        name = name.upper()
    elif mode < 0.5:
        name = name.title()
    if rng.random() < 0.3:
        name += str(rng.randint(0, 9999))
    if rng.random() < 0.05:
        name = "." + name
    if not is_dir:
        ext = rng.choice(EXTENSIONS)
        if ext:
            name += "." + ext
    elif rng.random() < 0.01:
        name += ".app"
    return name


def touch(path):
    os.close(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tree")
    parser.add_argument("--entries", type=int, default=1_000_000)
    parser.add_argument("--seed", type=int, default=7)
    args = parser.parse_args()
    rng = random.Random(args.seed)
    root = args.tree
    if os.path.exists(root) and os.listdir(root):
        sys.exit(f"{root} exists and is not empty")
    os.makedirs(root, exist_ok=True)

    dirs_wanted = args.entries // 10
    made = 0
    folders = []  # (path, depth)
    for name in TOP:
        path = os.path.join(root, name)
        os.mkdir(path)
        folders.append((path, 1))
        made += 1
    dir_count = len(folders)

    # Folders first, spread breadth-first then deeper, so depth reaches 12 in some branches.
    frontier = list(folders)
    while dir_count < dirs_wanted and frontier:
        parent, depth = frontier.pop(rng.randrange(len(frontier)))
        if depth >= 12:
            continue
        for _ in range(rng.choice([1, 1, 2, 2, 3, 4, 6, 9])):
            if dir_count >= dirs_wanted:
                break
            name = make_name(rng, True)
            path = os.path.join(parent, name)
            if os.path.exists(path):
                continue
            os.mkdir(path)
            folders.append((path, depth + 1))
            frontier.append((path, depth + 1))
            dir_count += 1
            made += 1

    # A few wide folders of 5,000+ entries.
    wide = [f for f in rng.sample(folders, 12)]
    for path, _ in wide:
        for i in range(5000 + rng.randint(0, 2000)):
            touch(os.path.join(path, f"{rng.choice(WORDS)}-{i}.{rng.choice(EXTENSIONS) or 'bin'}"))
            made += 1

    # Rare needle: a dozen planted names, some deep, some in dot-folders.
    for i, (path, _) in enumerate(rng.sample(folders, 12)):
        touch(os.path.join(path, f"{'Quasar' if i % 2 else 'QUASAR'}-{i}.dat"))
        made += 1

    # The rest: ordinary files spread over the folders, more in shallow ones.
    while made < args.entries - 3:
        path, depth = folders[rng.randrange(len(folders))]
        for _ in range(rng.randint(1, 12)):
            name = make_name(rng, False)
            full = os.path.join(path, name)
            if os.path.exists(full):
                continue
            touch(full)
            made += 1

    loop = os.path.join(root, "Projects", "loop")
    os.mkdir(loop)
    os.symlink("..", os.path.join(loop, "up-report"))
    os.symlink("loop", os.path.join(loop, "self"))
    print(f"{root}: {made + 3} entries, {dir_count + 1} folders")


if __name__ == "__main__":
    main()
