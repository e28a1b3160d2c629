"""Training of one model: ``python -m training.train --config FILE --data DIR``.

The run can be cut at any moment: started again with the same arguments it goes on from the last
checkpoint and follows the same curve. Mixing starts afresh at every checkpoint with a seed made of
the run's seed and the update, so nothing but the checkpoint is needed to continue.
"""

from __future__ import annotations

import os

os.environ.setdefault("XLA_FLAGS", "--xla_cpu_multi_thread_eigen=false intra_op_parallelism_threads=1")
os.environ.setdefault("OMP_NUM_THREADS", "1")

import argparse
import subprocess
import sys
import time
import tomllib
from dataclasses import fields
from pathlib import Path

import jax
import numpy as np

from training import checkpoint
from training.corpus import load_corpus
from training.export import export_model
from training.kinds import make_model
from training.network import short_products
from training.optimiser import Schedule, apply_gradients, init_optimiser
from training.pools import Pool, fill, segment_length
from training.segments import SegmentMaker
from training.weights_file import read_weights

ROOT = Path(__file__).resolve().parent.parent
VALID_SEGMENTS = 96
CURVE_COLUMNS = ["update", "stage", "hours", "seconds", "train_loss", "valid_loss", "gradient_norm"]


def valid_pool(folder: Path, data: str, rate: int, seed: int, plain: float) -> Pool:
    """A small fixed pool made of the validation split."""
    pool = Pool(folder, rate, VALID_SEGMENTS, VALID_SEGMENTS)
    if min(pool.filled()) < VALID_SEGMENTS:
        rng = np.random.default_rng([seed, 99])
        maker = SegmentMaker(load_corpus(data, rate, "valid"), segment_length(rate), rng, plain)
        fill(pool, maker, 0, 1, limit=VALID_SEGMENTS)
    return pool


def start_workers(args, pool: Path, rate: int, training: dict) -> list[subprocess.Popen]:
    """Background processes that fill and then renew the training pool."""
    plain = training.get("plain", 0.0)
    return [
        subprocess.Popen(
            [sys.executable, "-m", "training.pools", "--data", args.data, "--pool", str(pool)]
            + ["--rate", str(rate), "--slots", str(training["slots"]), "--seed", str(training["seed"])]
            + ["--worker", str(k), "--workers", str(args.workers), "--plain", str(plain)],
            stdout=subprocess.DEVNULL,
        )
        for k in range(args.workers)
    ]


class Trainer:
    """One run: its model, pools, stages and checkpoints."""

    def __init__(self, args, config: dict):
        self.args, self.config = args, config
        self.model = make_model(config)
        training = config["training"]
        self.seed, self.streams = training["seed"], training["streams"]
        self.every = training["checkpoint_every"]
        self.short = training.get("short_products", False)
        self.stages = [dict(stage) for stage in config["stage"]]
        self.total = sum(stage["updates"] for stage in self.stages)
        self.work = Path(args.work) / config["model"]["name"]
        self.work.mkdir(parents=True, exist_ok=True)
        self.rate = config["model"]["sample_rate"]
        self.pool = Pool(args.pool or self.work / "pool", self.rate, training["slots"], training["slots"])
        self.valid = valid_pool(self.work / "valid", args.data, self.rate, self.seed, training.get("plain", 0.0))
        self._steps: dict[int, tuple] = {}

    def _stage_at(self, update: int) -> tuple[int, int]:
        for index, stage in enumerate(self.stages):
            if update < stage["updates"]:
                return index, update
            update -= stage["updates"]
        raise ValueError("past the last stage")

    def _schedule(self, index: int) -> Schedule:
        stage = self.stages[index]
        return Schedule(**{f.name: stage[f.name] for f in fields(Schedule) if f.name in stage})

    def _functions(self, index: int):
        """Compiled update and evaluation of one stage."""
        if index in self._steps:
            return self._steps[index]
        stage, schedule = self.stages[index], self._schedule(index)

        @jax.jit
        def step(params, optimiser, carry, stats, batch, update, slower):
            def loss(params):
                return self.model.loss(params, carry, stats, batch, stage)

            with short_products(self.short):
                (value, carry_out), grads = jax.value_and_grad(loss, has_aux=True)(params)
            params, optimiser, norm = apply_gradients(schedule, params, optimiser, grads, update, slower)
            return params, optimiser, carry_out, value, norm

        @jax.jit
        def evaluate(params, carry, stats, batch):
            return self.model.loss(params, carry, stats, batch, stage)

        self._steps[index] = (step, evaluate)
        return step, evaluate

    def _configured_start(self) -> Path | None:
        """The weight file, relative to the project, that the configuration starts from."""
        name = self.config["training"].get("init_from")
        return ROOT / name if name else None

    def _start(self) -> dict:
        state = checkpoint.load(self.work / "checkpoint.pkl")
        if state is not None:
            return {**state, "update": int(state["update"]), "seconds": float(state["seconds"])}
        stats_mixer = self.model.mixer(self.pool, self.streams, [self.seed, 7])
        start = self.args.init_from or self._configured_start()
        if start:
            params, stats = self.model.from_entries(read_weights(start))
        else:
            params, stats = self.model.init(np.random.default_rng(self.seed)), None
        if stats is None:
            stats = self.model.statistics(stats_mixer)
        optimiser = init_optimiser(params, self._schedule(0))
        return {"update": 0, "seconds": 0.0, "params": params, "stats": stats, "optimiser": optimiser}

    def _valid_loss(self, state: dict, index: int) -> float:
        mixer = self.model.mixer(self.valid, self.streams, [self.seed, 5])
        carry, values = self.model.carry(self.streams, state["stats"]), []
        for _ in range(12):
            value, carry = self._functions(index)[1](
                state["optimiser"]["mean"], carry, state["stats"], self.model.arrays(mixer.next())
            )
            values.append(float(value))
        return float(np.mean(values))

    def run(self) -> None:
        """Train to the end of the last stage, then export."""
        while min(self.pool.filled()) < min(256, len(self.pool.speech)):
            time.sleep(1.0)
        state = self._start()
        curve = checkpoint.Curve(self.work / "curve.csv", CURVE_COLUMNS, state["update"])
        hop = self.model.step / self.rate
        while state["update"] < self.total:
            if self.args.stop_after and state["update"] >= self.args.stop_after:
                return
            index, first = self._stage_at(state["update"])
            started = time.monotonic()
            step, _ = self._functions(index)
            count = min(self.every, self.stages[index]["updates"] - first)
            if first == 0 and index > 0:
                state["optimiser"] = init_optimiser(state["optimiser"]["mean"], self._schedule(index))
                state["params"] = state["optimiser"]["mean"]
            params, optimiser = state["params"], state["optimiser"]
            # Two old copies: the newer one may already be on its way out when a loss gives it away.
            good = [(params, optimiser)] * 2
            slower = 1.0
            mixer = self.model.mixer(self.pool, self.streams, [self.seed, state["update"]])
            carry = self.model.carry(self.streams, state["stats"])
            values, norms, usual, spread, strikes = [], [], None, 0.0, 0
            for k in range(count):
                batch = self.model.arrays(mixer.next())
                params, optimiser, carry, value, norm = step(
                    params, optimiser, carry, state["stats"], batch, float(first + k), slower
                )
                slower = min(1.0, slower * 1.005)
                value = float(value)
                broken = not np.isfinite(value + float(norm))
                if broken or (usual is not None and value > usual + max(1.0, 10.0 * spread)):
                    # The state loop is linear and can run away: start the streams anew. The bounded
                    # step away from it stands, unless it does not help: then go back.
                    strikes += 1
                    carry = self.model.carry(self.streams, state["stats"])
                    if broken or strikes > 2:
                        print(f"rolled back at update {state['update'] + k}: loss {value}", flush=True)
                        params, optimiser = good[0]
                        good, slower, usual, strikes = [good[0]] * 2, 0.5 * slower, None, 0
                    continue
                strikes = 0
                usual = value if usual is None else 0.98 * usual + 0.02 * value
                spread = 0.98 * spread + 0.02 * abs(value - usual)
                values.append(value)
                norms.append(float(norm))
                if k % 100 == 99:
                    good = [good[1], (params, optimiser)]
            state.update(
                update=state["update"] + count,
                params=params,
                optimiser=optimiser,
                seconds=state["seconds"] + time.monotonic() - started,
            )
            row = {
                "update": state["update"],
                "stage": self.stages[index]["kind"],
                "hours": round(state["update"] * self.streams * mixer.sequence / self.rate / 3600.0, 2),
                "seconds": round(state["seconds"], 1),
                "train_loss": round(float(np.mean(values)), 6),
                "valid_loss": round(self._valid_loss(state, index), 6),
                "gradient_norm": round(float(np.median(norms)), 4),
            }
            checkpoint.save(self.work / "checkpoint.pkl", state)
            curve.add(row)
            print(row, flush=True)
            self._export(state)
        self._export(state)

    def _export(self, state: dict) -> None:
        params, stats = state["optimiser"]["mean"], state["stats"]
        extra = {}
        if hasattr(self.model, "calibrate"):
            extra["calibration"] = self.model.calibrate(params, stats, self.valid, self.seed)
        entries = self.model.entries(params, stats, **extra)
        export_model(self.args.out or self.work / "export", self.config, entries)


def main(arguments: list[str] | None = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--config", required=True, help="model configuration (TOML)")
    parser.add_argument("--data", required=True, help="folder with MANIFEST.tsv or speech/, noise/, rir/")
    parser.add_argument("--work", default="build/training", help="checkpoints, curves and pools")
    parser.add_argument("--out", help="folder of the exported files (default: in the work folder)")
    parser.add_argument("--pool", help="an existing pool to share instead of the run's own")
    parser.add_argument("--workers", type=int, default=1, help="processes that renew the pool")
    parser.add_argument("--init-from", help="weight file to start from (default: the configuration's)")
    parser.add_argument("--stop-after", type=int, help="stop at this update, to be resumed later")
    args = parser.parse_args(arguments)
    with open(args.config, "rb") as handle:
        config = tomllib.load(handle)
    trainer = Trainer(args, config)
    workers = start_workers(args, trainer.pool.folder, trainer.rate, config["training"])
    try:
        trainer.run()
    finally:
        for worker in workers:
            worker.terminate()


if __name__ == "__main__":
    main()
