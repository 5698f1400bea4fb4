"""The Python module: machines and their algebra, grammars, models, n-gram models, and stops
turned into exceptions."""
import gc
import math
import os
import random
import subprocess
import threading

import pytest
import t2sfst

TOOL = os.environ["T2SFST_TOOL"]
DATA = os.environ["T2SFST_TESTS_DATA"]


def language(machine, max_length=6, sign=1):
    """{(input, output): best MinPlus weight} over paths of at most max_length arcs (their
    weights negated with sign -1)."""
    best = {}

    def walk(state, ins, outs, weight, depth):
        if machine.is_final(state):
            key = (" ".join(i for i in ins if i), " ".join(o for o in outs if o))
            total = weight + sign * machine.final_weight(state)
            best[key] = min(best.get(key, math.inf), total)
        if depth == max_length:
            return
        for arc in machine.arcs(state):
            walk(arc.next, ins + [arc.input_label], outs + [arc.output_label],
                 weight + sign * arc.weight, depth + 1)

    if machine.initial >= 0:
        walk(machine.initial, [], [], 0.0, 0)
    return best


def same_language(a, b):
    assert a.keys() == b.keys()
    for key in a:
        assert a[key] == pytest.approx(b[key], abs=1e-4), key


def random_machine(rng, states=5, labels="abc", outputs="xyz", arcs=9):
    """An acyclic random transducer: arcs go to higher states, with some epsilons."""
    m = t2sfst.Machine()
    m.add_states(states)
    m.set_initial(0)
    for _ in range(arcs):
        p = rng.randrange(states - 1)
        q = rng.randrange(p + 1, states)
        m.add_arc(p, q, rng.choice(labels + " ").strip() or None,
                  rng.choice(outputs + " ").strip() or None, round(rng.uniform(0, 3), 2))
    m.set_final(states - 1, 0.5)
    if rng.random() < 0.5:
        m.set_final(rng.randrange(1, states - 1))
    return m


def test_machines_built_arc_by_arc_and_the_algebra_on_random_machines(tmp_path):
    rng = random.Random(5)
    for _ in range(25):
        a, b = random_machine(rng), random_machine(rng, labels="xyz", outputs="pq")
        la, lb = language(a), language(b)
        # Composition: a's outputs read by b, weights added, the best kept.
        expected = {}
        for (ai, ao), wa in la.items():
            for (bi, bo), wb in lb.items():
                if ao == bi:
                    key = (ai, bo)
                    expected[key] = min(expected.get(key, math.inf), wa + wb)
        same_language(language(a @ b, 12), expected)
        same_language(language(a.compose(b).copy(), 12), expected)
        # Union, inversion, projection, reversal, concatenation.
        same_language(language(a | a.invert().invert()), la)
        same_language(language(a.invert()), {(o, i): w for (i, o), w in language(a, sign=-1).items()})
        same_language(language(a.project()), _best_by(la, lambda i, o: (i, i)))
        same_language(language(a.project(output=True)), _best_by(la, lambda i, o: (o, o)))
        same_language(language(a.reverse()),
                      _best_by(la, lambda i, o: (" ".join(reversed(i.split())),
                                                 " ".join(reversed(o.split())))))
        concat = {}
        for (ai, ao), wa in la.items():
            for (bi, bo), wb in lb.items():
                key = ((ai + " " + bi).strip(), (ao + " " + bo).strip())
                concat[key] = min(concat.get(key, math.inf), wa + wb)
        same_language(language(a + b, 12), concat)
        # Optimisations keep the language; pushing (and so optimize) drops the best path's weight.
        for m in (a.remove_epsilons(), a.remove_epsilons().minimize()):
            same_language(language(m, 12), la)
        for m in (a.optimize(), a.push().trim()):
            shift = min(la.values()) if la else 0
            same_language(language(m, 12), {k: w - shift for k, w in la.items()})
        if la:
            best = min(la.values())
            assert min(language(a.shortestpath()).values()) == pytest.approx(best, abs=1e-4)
        # Every format written and read back.
        for fmt in ("text", "binary", "mmap"):
            path = str(tmp_path / ("m." + fmt))
            a.save(path, format=fmt)
            same_language(language(t2sfst.load(path)), la)
    # Acceptor determinization of a grammar's machine, and an expression over machine files.
    d, _ = t2sfst.compile_grammar_string("public <a> = a | a b | a c;", optimize=False)
    same_language(language(d.determinize(acceptor=True)), language(d))
    d.save(str(tmp_path / "d.fst"))
    e = t2sfst.load("%s @ %s" % (tmp_path / "d.fst", tmp_path / "d.fst"))
    same_language(language(e), language(d))


def _best_by(lang, key_of):
    result = {}
    for (i, o), w in lang.items():
        k = key_of(i, o)
        result[k] = min(result.get(k, math.inf), w)
    return result


def test_texts_labels_drawings_and_info(tmp_path):
    m = t2sfst.Machine("PlusTimes")
    m.add_states(2)
    m.set_initial(0)
    m.add_arc(0, 1, "new york", "NY", 0.5)
    m.set_final(1)
    assert m.semiring == "PlusTimes"
    assert m.text() == str(m)
    assert "new\\syork" in m.text()  # escaped as the text format does
    arc = m.arcs(0)[0]
    assert (arc.input_label, arc.output_label, arc.weight, arc.next) == ("new york", "NY", 0.5, 1)
    assert t2sfst.label(arc.input) == "new york" and t2sfst.label_id("NY") == arc.output
    assert m.att() == "0\t1\tnew\\syork\tNY\t0.5\n1\n"
    symbols = tmp_path / "syms"
    m.save(str(tmp_path / "m.att"), format="att", symbols=str(symbols))
    assert "<eps>\t0" in symbols.read_text()
    assert 'digraph' in m.dot(title="a title")
    info = m.info()
    assert (info["states"], info["arcs"], info["final_states"], info["initial"]) == (2, 1, 1, 0)
    svg = m._repr_svg_()
    assert svg is None or "<svg" in svg
    with pytest.raises(ValueError):
        m.save(str(tmp_path / "x"), format="nonsense")
    with pytest.raises(IndexError):
        m.arcs(7)
    with pytest.raises(ValueError):
        t2sfst.Machine("Tropical")


def chain(*labels):
    """A machine of one path, labels given as (input, output) pairs."""
    m = t2sfst.Machine()
    m.add_states(len(labels) + 1)
    m.set_initial(0)
    for i, (a, b) in enumerate(labels):
        m.add_arc(i, i + 1, a, b)
    m.set_final(len(labels))
    return m


def test_machines_outlive_the_objects_they_came_from():
    a = chain(("a", "x"), ("b", "b"))
    b = chain(("x", "y"), ("b", "c"))
    composed = a @ b
    lazy = composed.closure()
    arcs = composed.arcs(composed.initial)
    del a, b, composed
    gc.collect()
    assert language(lazy, 4)[("a b", "y c")] == 0
    assert "a" in [arc.input_label for arc in arcs]  # arcs are values
    built = t2sfst.Machine()
    built.add_states(2)
    built.set_initial(0)
    built.add_arc(0, 1, "q")
    built.set_final(1)
    union = built | chain(("r", "r"))
    built.add_arc(0, 1, "s")  # the union keeps what it was given
    gc.collect()
    assert ("q", "q") in language(union)


def test_stops_become_exceptions(tmp_path):
    with pytest.raises(t2sfst.Error) as caught:
        t2sfst.load(str(tmp_path / "missing"))
    assert "can't read file" in caught.value.message
    bad = tmp_path / "bad.fst"
    bad.write_bytes(b"#FSTBinary MinPlus\x00\x01garbage")
    with pytest.raises(t2sfst.Error) as caught:
        t2sfst.load(str(bad))
    assert caught.value.file == str(bad)
    with pytest.raises(t2sfst.Error):
        t2sfst.Model(str(bad))
    with pytest.raises(t2sfst.Error):
        t2sfst.Ngram(str(bad))
    # After all of that, the library still works.
    assert language(chain(("a", "b")).invert()) == {("b", "a"): 0}


def test_grammars_compile_with_messages_as_data(tmp_path):
    machine, messages = t2sfst.compile_grammar_string("public <a> = one | two [three];")
    assert language(machine) == {("one", "one"): 0, ("two", "two"): 0, ("two three", "two three"): 0}
    assert messages == []
    with pytest.raises(t2sfst.GrammarError) as caught:
        t2sfst.compile_grammar_string("public <a> = x;\n<b> = (y;\n")
    assert [(m.severity, m.line) for m in caught.value.messages] == [("error", 2)]
    (tmp_path / "digits.gram").write_text(
        "#JSGF V1.0;\ngrammar digits;\npublic <digit> = one:1 | two:2;\n")
    main = tmp_path / "main.gram"
    main.write_text("#JSGF V1.0;\ngrammar main;\nimport <digits.digit>;\n"
                    "public <n> = <digit> [<digit>];\n<unused> = <nothing>;\n")
    with pytest.raises(t2sfst.GrammarError) as caught:
        t2sfst.compile_grammar(main)
    assert [(m.severity, m.line, m.column) for m in caught.value.messages
            if "nothing" in m.text] == [("error", 5, 12)]
    assert "define <nothing>" in caught.value.messages[0].hint
    machine, messages = t2sfst.compile_grammar(main, allow_undefined=True)
    assert language(machine)[("one:1 two:2", "one:1 two:2")] == 0
    assert any(m.severity == "warning" and "nothing" in m.text for m in messages)
    # make_model checks as the command does and never loses the model it would replace.
    model = tmp_path / "m.t2s"
    model.write_bytes(b"old")
    with pytest.raises(t2sfst.GrammarError):
        t2sfst.make_model(main, model)
    assert model.read_bytes() == b"old"
    built = t2sfst.make_model(main, model, allow_undefined=True)
    assert built.apply("one two") == "1 2" and built.apply("one three") is None
    assert sorted(os.listdir(tmp_path)) == sorted(["digits.gram", "main.gram", "m.t2s"])


def command(*args, text=""):
    return subprocess.run([TOOL, *args], input=text.encode(), stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=False).stdout.decode()


@pytest.fixture(scope="module")
def time_model(tmp_path_factory):
    folder = tmp_path_factory.mktemp("model")
    grammar = folder / "time.gram"
    grammar.write_text(
        "#JSGF V1.0;\ngrammar time;\n"
        "public <time> = <hour> [<minute>] [<part>] | noon:12:00 | midnight:00:00;\n"
        "<hour> = one:1 | two:2 | three:3 | ten:10 | eleven:11 | twelve:12;\n"
        "<minute> = fifteen:15 | thirty:30 | forty five:45 | oh five:05;\n"
        "<part> = am:a.m. | pm:p.m.;\n")
    path = folder / "time.t2s"
    subprocess.run([TOOL, "make-model", str(grammar), str(path)], check=True,
                   stdout=subprocess.DEVNULL)
    return path


def random_lines(n, seed=3):
    rng = random.Random(seed)
    words = ["one", "two", "ten", "thirty", "forty", "five", "am", "pm", "noon", "see", "you",
             "at", "oh", "ünïcode", "twelve"]
    return ["  ".join(rng.choice(words) for _ in range(rng.randrange(0, 8))) for _ in range(n)]


def test_models_apply_as_the_command_does_single_and_batched(time_model):
    model = t2sfst.Model(time_model)
    assert model.num_states > 0 and model.num_arcs > 0
    lines = random_lines(3000) + ["ten thirty pm", "noon", ""]
    for flag, single, many in (([], model.apply, model.apply_many),
                               (["--rewrite"], model.rewrite, model.rewrite_many)):
        output = command("apply", *flag, str(time_model), text="\n".join(lines) + "\n")
        expected = output.split("\n")[:-1]
        lines_form = model.rewrite_lines if flag else model.apply_lines
        assert lines_form("\n".join(lines) + "\n") == output
        singles = [single(line) for line in lines]
        assert [s if s is not None else "" for s in singles] == expected
        for threads in (1, 2, 3, 0):
            assert many(lines, threads) == singles
    assert model.apply("ten thirty pm") == "10 30 p.m."
    assert model.apply_lines("ten pm\nzz\nten pm") == "10 p.m.\n\n10 p.m.\n"  # the last line too
    assert t2sfst.Model(time_model, sep="+").apply("ten thirty pm") == "10+30+p.m."
    assert model.rewrite("see you at ten thirty p m ünïcode") == "see you at 10 30 p.m. ünïcode"
    blind = t2sfst.Model(time_model, ignore_case=True)
    assert blind.rewrite("See you at Ten Thirty PM") == "See you at 10 30 p.m."
    assert model.rewrite("See you at Ten Thirty PM") == "See you at Ten Thirty PM"
    # Batches from two Python threads at once, on one model.
    results = {}

    def run(key):
        results[key] = model.rewrite_many(lines, 2)

    threads = [threading.Thread(target=run, args=(k,)) for k in range(2)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert results[0] == results[1] == [model.rewrite(line) for line in lines]


def test_ngram_models_compile_score_and_measure_perplexity(tmp_path):
    arpa = os.path.join(DATA, "small.arpa")
    model = t2sfst.Ngram.from_arpa(arpa)
    assert model.order == 3
    sentences = ["a b", "a a b", "b a", "a zzz b"]
    expected = command("ngram-score", arpa_compiled(tmp_path, arpa), text="\n".join(sentences))
    scores = [model.score(s) for s in sentences]
    assert ["%.4f" % s for s in scores] == expected.split()
    p = model.perplexity(sentences)
    assert (p.sentences, p.words, p.oov) == (4, 14, 1)  # "zzz" is scored as <unk>
    assert p.perplexity == pytest.approx(math.exp(sum(scores) / 14))
    saved = tmp_path / "saved.ngram"
    model.save(str(saved))
    assert [t2sfst.Ngram(str(saved)).score(s) for s in sentences] == pytest.approx(scores)
    assert len(model.pack(str(tmp_path / "packed"))) == 32
    assert model.machine.num_states > 1
    # Without <unk>, a word outside the vocabulary is left out and the sentence goes on from it.
    (tmp_path / "no-unk.arpa").write_text(
        "\\data\\\nngram 1=4\nngram 2=1\n\n\\1-grams:\n-1.0\t</s>\n-99\t<s>\t-0.5\n"
        "-0.6\ta\t-0.3\n-0.8\tb\n\n\\2-grams:\n-0.3\t<s> a\n\n\\end\\\n")
    closed = t2sfst.Ngram.from_arpa(str(tmp_path / "no-unk.arpa"))
    assert math.isinf(closed.score("a q b"))
    p = closed.perplexity(["a q b"])
    assert (p.words, p.oov) == (3, 1)
    assert p.cost == pytest.approx(math.log(10) * (0.3 + 0.8 + 1.0))  # <s> a, then b, </s>


def arpa_compiled(tmp_path, arpa):
    out = str(tmp_path / "compiled.ngram")
    subprocess.run([TOOL, "ngram-compile", arpa, out], check=True)
    return out
