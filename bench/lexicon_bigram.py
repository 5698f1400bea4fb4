#!/usr/bin/env python3
"""A phone-to-word lexicon of N words of the CMU pronouncing dictionary (Debian's
pocketsphinx-en-us) as AT&T text, closed (a sentence is words in a row), and a bigram back-off
model over those words as ARPA, estimated by absolute discounting from Zipf-distributed random
text of 20 N tokens: the shape of a decoding graph's L o G.

    lexicon_bigram.py N DIR   writes DIR/lexicon.att, DIR/phones.syms, DIR/model.arpa
"""
import collections
import math
import random
import re
import sys

n, directory = int(sys.argv[1]), sys.argv[2]
rng = random.Random(11)
pronunciations = {}
with open("/usr/share/pocketsphinx/model/en-us/cmudict-en-us.dict", encoding="utf-8",
          errors="replace") as f:
    for line in f:
        fields = line.split()
        if len(fields) > 1 and re.fullmatch(r"[a-z']+", fields[0]) and fields[0] not in pronunciations:
            pronunciations[fields[0]] = fields[1:]
words = sorted(pronunciations)
rng.shuffle(words)
words = sorted(words[:n])

# The lexicon: from state 0, a word's phones, the word written on its first arc; back to 0.
with open("%s/lexicon.att" % directory, "w") as out:
    state = 1
    for w in words:
        phones = pronunciations[w]
        here = 0
        for i, p in enumerate(phones):
            to = 0 if i + 1 == len(phones) else state
            out.write("%d\t%d\t%s\t%s\n" % (here, to, p, w if i == 0 else "<eps>"))
            if to:
                here, state = to, state + 1
    out.write("0\n")
phones = sorted({p for w in words for p in pronunciations[w]})
with open("%s/phones.syms" % directory, "w") as out:
    out.write("<eps>\t0\n")
    for i, p in enumerate(phones):
        out.write("%s\t%d\n" % (p, i + 1))

# The bigram: counts from Zipf text, absolute discounting D = 0.7, back-off to unigrams.
weights = [1.0 / (i + 1) for i in range(len(words))]
unigrams, bigrams = collections.Counter(), collections.Counter()
made = 0
while made < 20 * n:
    s = ["<s>"] + rng.choices(words, weights, k=rng.randint(5, 20)) + ["</s>"]
    made += len(s)
    for i in range(1, len(s)):
        unigrams[s[i]] += 1
        bigrams[(s[i - 1], s[i])] += 1
total = sum(unigrams.values())
vocabulary = ["<s>", "</s>"] + words
p1 = {w: (unigrams[w] + 0.5) / (total + 0.5 * len(vocabulary)) for w in vocabulary}
p1["<s>"] = 1e-99
by_history = collections.defaultdict(dict)
for (h, w), c in bigrams.items():
    by_history[h][w] = c
discount = 0.7
lines2, backoff = [], {}
for h, following in by_history.items():
    count = sum(following.values())
    left = discount * len(following) / count
    mass = sum(p1[w] for w in following)
    backoff[h] = left / max(1e-12, 1 - mass)
    for w, c in following.items():
        p = (c - discount) / count + left * p1[w]
        lines2.append("%.6f %s %s" % (math.log10(p), h, w))
with open("%s/model.arpa" % directory, "w") as out:
    out.write("\\data\\\nngram 1=%d\nngram 2=%d\n\n\\1-grams:\n" % (len(vocabulary), len(lines2)))
    for w in vocabulary:
        b = backoff.get(w)
        logp = -99 if w == "<s>" else math.log10(p1[w])
        out.write("%.6f %s%s\n" % (logp, w, "" if b is None else " %.6f" % math.log10(b)))
    out.write("\n\\2-grams:\n")
    out.write("\n".join(lines2))
    out.write("\n\n\\end\\\n")
