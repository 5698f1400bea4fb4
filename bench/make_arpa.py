#!/usr/bin/env python3
"""Writes an ARPA trigram model estimated from random Zipf text by absolute discounting, and
held-out sentences: make_arpa.py DIR TOKENS [HELDOUT_TOKENS]. About 0.7 n-grams per token of
training text; a tenth of TOKENS held out (at least 100,000) unless HELDOUT_TOKENS says."""
import collections, math, random, sys

directory, tokens = sys.argv[1], int(sys.argv[2])
rng = random.Random(5)
vocabulary = ["w%d" % i for i in range(20000)]
weights = [1.0 / (i + 1) for i in range(len(vocabulary))]

def sentences(n_tokens):
    made = 0
    while made < n_tokens:
        s = rng.choices(vocabulary, weights, k=rng.randint(5, 20))
        made += len(s)
        yield ["<s>"] + s + ["</s>"]

counts = [collections.Counter() for _ in range(3)]
for s in sentences(tokens):
    for i in range(1, len(s)):
        counts[0][(s[i],)] += 1
        counts[1][(s[i - 1], s[i])] += 1
        if i >= 2:
            counts[2][(s[i - 2], s[i - 1], s[i])] += 1
counts[0][("<s>",)] = 0
counts[0][("<unk>",)] += 1  # held-out words unseen in training score as <unk>
D = 0.5
total = sum(counts[0].values())
prob = [dict(), dict(), dict()]
prob[0] = {k: c / total for k, c in counts[0].items() if c > 0}
prob[0][("<s>",)] = 0.0
context = [collections.Counter(), collections.Counter()]  # history -> count, distinct
seen = [collections.defaultdict(list), collections.defaultdict(list)]
for order in (1, 2):
    for k, c in counts[order].items():
        context[order - 1][k[:-1]] += c
        seen[order - 1][k[:-1]].append(k)

def lower(k):  # back-off probability of the n-gram k from its suffix
    if len(k) == 1:
        return prob[0].get(k, 0.0)
    h = k[1:-1]
    if k[1:] in prob[len(k) - 2]:
        return prob[len(k) - 2][k[1:]]
    return backoff[len(k) - 3].get(h, 1.0) * lower(k[1:]) if len(k) > 2 else prob[0].get(k[1:], 0.0)

backoff = [dict(), dict()]
for order in (1, 2):
    for h, ks in seen[order - 1].items():
        n = context[order - 1][h]
        for k in ks:
            prob[order][k] = (counts[order][k] - D) / n
        left = D * len(ks) / n
        below = 1.0 - sum(lower(k) for k in ks)
        backoff[order - 1][h] = left / below if below > 1e-12 else 1.0

def log10(p):
    return -99.0 if p <= 0 else math.log10(p)

with open(directory + "/model.arpa", "w") as out:
    out.write("\\data\\\n")
    for order in range(3):
        out.write("ngram %d=%d\n" % (order + 1, len(prob[order])))
    for order in range(3):
        out.write("\n\\%d-grams:\n" % (order + 1))
        for k, p in prob[order].items():
            line = "%.6f\t%s" % (log10(p), " ".join(k))
            if order < 2 and k in backoff[order]:
                line += "\t%.6f" % log10(backoff[order][k])
            out.write(line + "\n")
    out.write("\n\\end\\\n")
with open(directory + "/heldout.txt", "w") as out:
    heldout = int(sys.argv[3]) if len(sys.argv) > 3 else max(tokens // 10, 100000)
    for s in sentences(heldout):
        out.write(" ".join(s[1:-1]) + "\n")
print(sum(len(p) for p in prob), "n-grams")
