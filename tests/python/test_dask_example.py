"""The Dask example on a local cluster of two worker processes: the files it writes are what
single-process ``t2sfst apply --rewrite`` writes for the same lines."""
import importlib.util
import os
import random
import subprocess

from distributed import Client, LocalCluster

SOURCE = os.environ["T2SFST_SOURCE"]
TOOL = os.environ["T2SFST_TOOL"]


def load_example():
    spec = importlib.util.spec_from_file_location(
        "dask_normalise", os.path.join(SOURCE, "examples", "dask_normalise.py"))
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def test_the_dask_example_rewrites_as_one_process_does(tmp_path):
    grammar = os.path.join(SOURCE, "examples", "times.gram")
    model = str(tmp_path / "times.t2s")
    subprocess.run([TOOL, "make-model", grammar, model], check=True, stdout=subprocess.DEVNULL)
    phrases = [line.strip() for line in open(os.path.join(SOURCE, "examples", "times.txt"))
               if line.strip()]
    rng = random.Random(11)
    filler = ["see", "you", "at", "the", "meeting", "tomorrow", "around", "ok"]
    files = []
    for i in range(6):
        lines = []
        for _ in range(2000 + 500 * i):
            words = [rng.choice(filler) for _ in range(rng.randrange(0, 4))]
            words.insert(rng.randrange(len(words) + 1), rng.choice(phrases))
            lines.append(" ".join(words))
        path = tmp_path / ("part-%d.txt" % i)
        path.write_text("\n".join(lines) + "\n")
        files.append(str(path))
    example = load_example()
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                      dashboard_address=None) as cluster, Client(cluster) as client:
        assert len(client.scheduler_info()["workers"]) == 2
        example.normalise(client, model, files, str(tmp_path / "out"))
    for path in files:
        expected = subprocess.run([TOOL, "apply", "--rewrite", model], stdin=open(path, "rb"),
                                  stdout=subprocess.PIPE, check=True).stdout
        written = (tmp_path / "out" / os.path.basename(path)).read_bytes()
        assert written == expected
        assert written.count(b"\n") == open(path, "rb").read().count(b"\n")
