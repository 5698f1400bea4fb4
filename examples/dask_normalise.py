#!/usr/bin/env python3
"""Normalises a transcript corpus stored as many text files with a T2S model on a Dask cluster.

Each input file is one partition: every worker loads the model once (a worker plugin), then
rewrites the lines of the files it is given, as ``t2sfst apply --rewrite MODEL`` does, into an
output file of the same name. Files are read and written whole through fsspec, so any storage
that Dask reaches will do.

    python3 dask_normalise.py MODEL OUT_DIR FILE...                  # a local cluster, one worker a core
    python3 dask_normalise.py --workers 2 MODEL OUT_DIR FILE...      # a local cluster of 2 workers
    python3 dask_normalise.py --scheduler tcp://host:8786 MODEL OUT_DIR FILE...

On a cluster of several machines, every worker must see MODEL at the same path (a shared folder,
or the file copied to each machine beforehand), and the inputs and outputs must be on storage that
all of them reach: a shared folder, or any storage that Dask reads and writes (s3://..., with
its storage options).
"""
import argparse
import os
import sys
import time

import dask.bag
import fsspec
from distributed import Client, LocalCluster, WorkerPlugin, get_worker

import t2sfst


class LoadModel(WorkerPlugin):
    """Loads the model once in each worker, as it starts (or as the plugin is registered)."""

    name = "t2sfst-model"

    def __init__(self, path):
        self.path = path

    def setup(self, worker):
        worker.t2sfst_model = t2sfst.Model(self.path)


def rewrite_file(paths):
    """Rewrites the file paths[0] into paths[1]; returns its number of lines."""
    source, target = paths
    model = get_worker().t2sfst_model
    with fsspec.open(source, "r", encoding="utf-8", newline="\n") as f:
        text = f.read()
    with fsspec.open(target, "w", encoding="utf-8", newline="\n") as f:
        f.write(model.rewrite_lines(text))
    return text.count("\n") + (not text.endswith("\n") and text != "")


def normalise(client, model_path, files, out_dir):
    """Rewrites every file of files into out_dir under its own name; returns the lines done."""
    client.register_worker_plugin(LoadModel(os.path.abspath(model_path)))
    names = [os.path.basename(f) for f in files]
    if len(set(names)) != len(names):
        raise ValueError("input files must have distinct names")
    fsspec.open(out_dir).fs.makedirs(out_dir, exist_ok=True)
    pairs = [(f, out_dir.rstrip("/") + "/" + name) for f, name in zip(files, names)]
    return sum(dask.bag.from_sequence(pairs, npartitions=len(pairs)).map(rewrite_file).compute())


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--scheduler", help="address of a running Dask scheduler")
    parser.add_argument("--workers", type=int, default=0, help="local workers (default: cores)")
    parser.add_argument("model")
    parser.add_argument("out_dir")
    parser.add_argument("files", nargs="+")
    args = parser.parse_args(argv)
    if args.scheduler:
        client = Client(args.scheduler)
    else:
        workers = args.workers or os.cpu_count() or 1
        client = Client(LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                                     dashboard_address=None))
    with client:
        start = time.perf_counter()
        lines = normalise(client, args.model, args.files, args.out_dir)
        seconds = time.perf_counter() - start
    print("%d lines of %d files written to %s in %.2f s (the cluster's start aside)"
          % (lines, len(args.files), args.out_dir, seconds))
    return 0


if __name__ == "__main__":
    sys.exit(main())
