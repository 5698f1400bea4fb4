#!/usr/bin/env python3
"""A recognised-looking English transcript with numbers in it: LINES lines of 4 to 14 words from
the CMU pronouncing dictionary (Debian's pocketsphinx-en-us), one line in two holding one of the
spoken entities read from ENTITIES (lines "spoken<TAB>written" as `t2sfst randgen` prints them).

    itn_transcript.py ENTITIES LINES TRANSCRIPT [ENTITY_LINES]

ENTITY_LINES, when given, gets LINES lines that are each one entity (for whole-line decoding).
"""
import random
import re
import sys

DICTIONARY = "/usr/share/pocketsphinx/model/en-us/cmudict-en-us.dict"


def main():
    entities_path, n, out_path = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    with open(DICTIONARY, encoding="utf-8", errors="replace") as f:
        words = sorted({line.split()[0] for line in f if line.strip()})
    words = [w for w in words if re.fullmatch(r"[a-z']+", w) and len(w) > 1]
    with open(entities_path, encoding="utf-8") as f:
        entities = [line.split("\t")[0].strip() for line in f if line.strip()]
    rng = random.Random(7)
    with open(out_path, "w", encoding="utf-8") as out:
        for i in range(n):
            line = [rng.choice(words) for _ in range(rng.randint(4, 14))]
            if i % 2 == 0:
                line.insert(rng.randint(0, len(line)), rng.choice(entities))
            out.write(" ".join(line) + "\n")
    if len(sys.argv) > 4:
        with open(sys.argv[4], "w", encoding="utf-8") as out:
            for i in range(n):
                out.write(entities[i % len(entities)] + "\n")


if __name__ == "__main__":
    main()
