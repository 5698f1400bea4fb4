#!/usr/bin/env python3
"""A T2S grammar of N phrases with distinct written forms over real English words, and a
transcript of recognised-looking lines that contain some of them, and (for whole-line decoding)
as many lines that are each one phrase.

Words come from the CMU pronouncing dictionary (Debian's pocketsphinx-en-us) when it is
installed, else from /usr/share/dict/words. Each phrase is one to three words, written as a
distinct form ("Ada Lovelace" -> "ADA_LOVELACE#17"), so no two outputs repeat. Each line of the
transcript has 4 to 14 words, and one line in two holds a phrase.

    realistic_corpus.py N LINES GRAMMAR TRANSCRIPT [PHRASE_LINES]
"""
import random
import re
import sys

SOURCES = ["/usr/share/pocketsphinx/model/en-us/cmudict-en-us.dict", "/usr/share/dict/words"]


def words():
    for path in SOURCES:
        try:
            with open(path, encoding="utf-8", errors="replace") as f:
                found = {line.split()[0] for line in f if line.strip()}
        except OSError:
            continue
        found = sorted(w for w in found if re.fullmatch(r"[a-z']+", w) and len(w) > 1)
        if found:
            return found
    sys.exit("no word list: install pocketsphinx-en-us (or a dictionary in /usr/share/dict)")


def main():
    n, lines, grammar, transcript = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3], sys.argv[4]
    rng = random.Random(2026)
    vocabulary = words()
    phrases = set()
    while len(phrases) < n:
        phrases.add(" ".join(rng.choice(vocabulary) for _ in range(rng.randint(1, 3))))
    phrases = sorted(phrases)
    with open(grammar, "w") as g:
        g.write("#JSGF V1.0;\ngrammar realistic;\npublic <phrase> =\n")
        for i, p in enumerate(phrases):
            written = p.upper().replace(" ", "_").replace("'", "") + "#%d" % i
            token = "%s:%s" % (p, written)
            g.write("%s %s\n" % ("  " if i == 0 else "| ", '"%s"' % token if " " in p else token))
        g.write(";\n")
    with open(transcript, "w") as t:
        for _ in range(lines):
            line = [rng.choice(vocabulary) for _ in range(rng.randint(4, 14))]
            if rng.random() < 0.5:
                line.insert(rng.randrange(len(line) + 1), rng.choice(phrases))
            t.write(" ".join(line) + "\n")
    if len(sys.argv) > 5:
        with open(sys.argv[5], "w") as f:
            for _ in range(lines):
                f.write(rng.choice(phrases) + "\n")


if __name__ == "__main__":
    main()
