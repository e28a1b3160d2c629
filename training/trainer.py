"""One training run: stages of updates, and at every checkpoint a row of the curve and an export.

A run can be cut at any moment and goes on from its last checkpoint. Mixing starts afresh at every
checkpoint with a seed made of the run's seed and the update, so nothing but the checkpoint is needed.
"""

from __future__ import annotations

import time
from dataclasses import dataclass, field, fields
from pathlib import Path

import jax
import numpy as np

from training import InputError, checkpoint
from training.corpus import load_corpus
from training.model import make_model
from training.network import short_products
from training.optimiser import Schedule, apply_gradients, init_optimiser
from training.pools import Pool, Workers, fill, segment_length
from training.segments import SegmentMaker
from training.weights_file import export_model, read_weights

ROOT = Path(__file__).resolve().parent.parent
VALID_SEGMENTS = 96
VALID_BATCHES = 12
# Filled slots of the pool with which a run begins.
FIRST_SEGMENTS = 256
CURVE_COLUMNS = ["update", "stage", "hours", "seconds", "train_loss", "valid_loss", "gradient_norm"]


@dataclass
class Settings:
    """What the command line decides about a run."""

    data: str
    work: str = "build/training"
    out: str | None = None
    pool: str | None = None
    workers: int = 1
    init_from: str | None = None
    stop_after: int | None = None
    checkpoint_minutes: float | None = None
    streams: int | None = None
    mix_on_device: bool = False


class Progress:
    """Prints at most a line every few seconds at first and one a minute later."""

    def __init__(self):
        self.began = self.said = time.monotonic()

    def say(self, text: str) -> None:
        print(text, flush=True)
        self.said = time.monotonic()

    def due(self) -> bool:
        now = time.monotonic()
        return now - self.said >= (8.0 if now - self.began < 90.0 else 60.0)


@dataclass
class Guard:
    """Notices losses that run away, and keeps copies to go back to.

    The state loop is linear and can run away. Starting the streams anew mends most of it: the bounded
    step away from it stands, unless three of them do not help.
    """

    good: list  # two old copies: the newer one may already be on its way out when a loss gives it away
    slower: float = 1.0
    strikes: int = 0
    usual: dict = field(default_factory=dict)  # mean and spread of the loss, by kind of update

    def verdict(self, value: float, norm: float, kind) -> str:
        """What to do after an update: "fine", "restart" the streams, or go "back" to the older copy."""
        self.slower = min(1.0, self.slower * 1.005)
        broken = not np.isfinite(value + norm)
        mean, spread = self.usual.get(kind, (None, 0.0))
        if not broken and (mean is None or value <= mean + max(1.0, 10.0 * spread)):
            self.strikes = 0
            mean = value if mean is None else 0.98 * mean + 0.02 * value
            self.usual[kind] = mean, 0.98 * spread + 0.02 * abs(value - mean)
            return "fine"
        self.strikes += 1
        return "back" if broken or self.strikes > 2 else "restart"

    def keep(self, copy) -> None:
        self.good = [self.good[1], copy]

    def go_back(self):
        """The older copy, with half the learning rate for a while."""
        self.good, self.slower = [self.good[0]] * 2, 0.5 * self.slower
        self.usual, self.strikes = {}, 0
        return self.good[0]


class Trainer:
    """One run: its model, pools, stages and checkpoints. Raises InputError for unusable data."""

    def __init__(self, settings: Settings, config: dict):
        self.settings, self.config, self.progress = settings, config, Progress()
        self.model = make_model(config)
        self.training, self.stages = config["training"], config["stage"]
        self.seed, self.streams = self.training["seed"], settings.streams or self.training["streams"]
        self.total = sum(stage["updates"] for stage in self.stages)
        self.last = min(self.total, settings.stop_after or self.total)
        self.name, self.rate = config["model"]["name"], config["model"]["sample_rate"]
        self.progress.say(f"{self.name}: {self.last} updates in {len(self.stages)} stages")
        self.work = Path(settings.work) / self.name
        self.work.mkdir(parents=True, exist_ok=True)
        self.valid = self._valid_pool()
        slots = self.training["slots"]
        self.pool = Pool(settings.pool or self.work / "pool", self.rate, slots, slots)
        self._compiled: dict[tuple[int, bool], tuple] = {}

    def run(self) -> Path:
        """Train to the last update; returns the path of the exported weight file.

        Raises WorkerDied when a process that renews the pool has ended.
        """
        with Workers(self.settings.workers, self.settings.data, self.pool, self.training) as workers:
            self._wait_for_pool(workers)
            state = self._start()
            curve = checkpoint.Curve(self.work / "curve.csv", CURVE_COLUMNS, state["update"])
            while state["update"] < self.last:
                row = self._train_to_checkpoint(state, workers)
                self._tell(workers)
                checkpoint.save(self.work / "checkpoint.pkl", state)
                curve.add(row)
                self.progress.say(str(row))
                self._export(state)
        return self._export(state)

    def _valid_pool(self) -> Pool:
        """A small fixed pool made of the validation split."""
        pool = Pool(self.work / "valid", self.rate, VALID_SEGMENTS, VALID_SEGMENTS)
        if min(pool.filled()) < VALID_SEGMENTS:
            corpus = load_corpus(self.settings.data, self.rate, "valid", self.progress.say)
            rng, length = np.random.default_rng([self.seed, 99]), segment_length(self.rate)
            plain, fade = self.training.get("plain", 0.0), self.training.get("room_fade")
            for made in fill(pool, SegmentMaker(corpus, length, rng, plain, fade)):
                if made == VALID_SEGMENTS:
                    break
                if self.progress.due():
                    self.progress.say(f"validation segments: {made} of {VALID_SEGMENTS}")
        return pool

    def _wait_for_pool(self, workers: Workers) -> None:
        wanted = min(FIRST_SEGMENTS, len(self.pool.speech))
        while min(self.pool.filled()) < wanted:
            workers.check()
            if not self.settings.workers:
                raise InputError(f"{self.pool.folder}: an empty pool, and no worker to fill it")
            self._tell(workers)
            if self.progress.due():
                self.progress.say(f"training segments: {min(self.pool.filled())} of {wanted} to begin with")
            time.sleep(0.2)
        self._tell(workers)

    def _tell(self, workers: Workers) -> None:
        for text in workers.new_words():
            self.progress.say(text)

    def _start(self) -> dict:
        """The last checkpoint, or the start of the run."""
        state = checkpoint.load(self.work / "checkpoint.pkl")
        if state is not None:
            self.progress.say(f"going on from update {int(state['update'])}")
            return {**state, "update": int(state["update"]), "seconds": float(state["seconds"])}
        mixer = self.model.mixer(self.pool, self.streams, [self.seed, 7])
        configured = self.training.get("init_from")
        start = self.settings.init_from or (ROOT / configured if configured else None)
        params, stats = self.model.init(np.random.default_rng(self.seed)), None
        if start:
            try:
                params, stats = self.model.from_entries(read_weights(start))
            except (ValueError, KeyError) as error:
                raise InputError(f"cannot start from {start}: {error}") from None
        if stats is None:
            stats = self.model.statistics(mixer)
        optimiser = init_optimiser(params, self._schedule(0))
        return {"update": 0, "seconds": 0.0, "params": params, "stats": stats, "optimiser": optimiser}

    def _stage_at(self, update: int) -> tuple[int, int]:
        """Index of the stage of an update, and the update counted from the stage's beginning."""
        for index, stage in enumerate(self.stages):
            if update < stage["updates"]:
                return index, update
            update -= stage["updates"]
        raise ValueError("past the last stage")

    def _mixer(self, seed):
        if not self.settings.mix_on_device:
            return self.model.mixer(self.pool, self.streams, seed)
        from training.device_mixing import DeviceMixer

        try:
            return self.model.mixer(self.pool, self.streams, seed, DeviceMixer)
        except TypeError:
            raise InputError(f"{self.name}: its mixes are made by the processor: leave out --mix-on-device") from None

    def _schedule(self, index: int) -> Schedule:
        stage = self.stages[index]
        return Schedule(**{f.name: stage[f.name] for f in fields(Schedule) if f.name in stage})

    def _has_opinion(self, index: int, update: int) -> bool:
        return update % self.stages[index].get("opinion_every", 1) == 0

    def _functions(self, index: int, with_opinion: bool):
        """Compiled update and loss of one stage."""
        if (index, with_opinion) in self._compiled:
            return self._compiled[index, with_opinion]
        stage, schedule = self.stages[index], self._schedule(index)
        if not with_opinion:
            stage = {**stage, "opinion": 0.0}
        short = self.training.get("short_products", False)

        @jax.jit
        def step(params, optimiser, carry, stats, batch, update, slower):
            def loss(params):
                return self.model.loss(params, carry, stats, batch, stage)

            with short_products(short):
                (value, carry_out), grads = jax.value_and_grad(loss, has_aux=True)(params)
            params, optimiser, norm = apply_gradients(schedule, params, optimiser, grads, update, slower)
            return params, optimiser, carry_out, value, norm

        @jax.jit
        def evaluate(params, carry, stats, batch):
            return self.model.loss(params, carry, stats, batch, stage)

        self._compiled[index, with_opinion] = (step, evaluate)
        return step, evaluate

    def _train_to_checkpoint(self, state: dict, workers: Workers) -> dict:
        """Move ``state`` on to the next checkpoint; returns the curve's row."""
        index, first = self._stage_at(state["update"])
        stage, began = self.stages[index], time.monotonic()
        most = min(self.training["checkpoint_every"], stage["updates"] - first, self.last - state["update"])
        if first == 0 and index > 0:
            state["optimiser"] = init_optimiser(state["optimiser"]["mean"], self._schedule(index))
            state["params"] = state["optimiser"]["mean"]
        params, optimiser = state["params"], state["optimiser"]
        guard = Guard([(params, optimiser)] * 2)
        mixer = self._mixer([self.seed, state["update"]])
        carry = self.model.carry(self.streams, state["stats"])
        values, norms, count = [], [], 0
        if not any(known == index for known, _ in self._compiled):
            self.progress.say(f"stage {index + 1} ({stage['kind']}): the first update takes up to a minute")
        while count < most and not self._checkpoint_due(began, count):
            workers.check()
            batch, opinion = self.model.arrays(mixer.next()), self._has_opinion(index, first + count)
            params, optimiser, carry, value, norm = self._functions(index, opinion)[0](
                params, optimiser, carry, state["stats"], batch, float(first + count), guard.slower
            )
            count += 1
            value, norm = float(value), float(norm)
            verdict = guard.verdict(value, norm, opinion)
            if verdict == "fine":
                values.append(value)
                norms.append(norm)
            else:
                carry = self.model.carry(self.streams, state["stats"])
            if verdict == "back":
                self.progress.say(f"rolled back at update {state['update'] + count}: loss {value}")
                params, optimiser = guard.go_back()
            elif verdict == "fine" and count % 100 == 0:
                guard.keep((params, optimiser))
            self._say_progress(state["update"] + count, count, began, value)
        state.update(update=state["update"] + count, params=params, optimiser=optimiser)
        state["seconds"] += time.monotonic() - began
        return {
            "update": state["update"],
            "stage": stage["kind"],
            "hours": round(state["update"] * self.streams * mixer.sequence / self.rate / 3600.0, 2),
            "seconds": round(state["seconds"], 1),
            "train_loss": round(float(np.mean(values or [np.nan])), 6),
            "valid_loss": round(self._valid_loss(state, index), 6),
            "gradient_norm": round(float(np.median(norms or [np.nan])), 4),
        }

    def _checkpoint_due(self, began: float, count: int) -> bool:
        minutes = self.settings.checkpoint_minutes
        return minutes is not None and count > 0 and time.monotonic() - began > 60.0 * minutes

    def _say_progress(self, update: int, count: int, began: float, value: float) -> None:
        if self.progress.due():
            each = (time.monotonic() - began) / count
            left = (self.last - update) * each / 3600.0
            self.progress.say(f"update {update} of {self.last}: loss {value:.4f}, {each:.2f} s each, {left:.1f} h left")

    def _valid_loss(self, state: dict, index: int) -> float:
        mixer = self.model.mixer(self.valid, self.streams, [self.seed, 5])
        carry, values = self.model.carry(self.streams, state["stats"]), []
        evaluate = self._functions(index, with_opinion=True)[1]
        for _ in range(VALID_BATCHES):
            value, carry = evaluate(state["optimiser"]["mean"], carry, state["stats"], self.model.arrays(mixer.next()))
            values.append(float(value))
        return float(np.mean(values))

    def _export(self, state: dict) -> Path:
        params, stats = state["optimiser"]["mean"], state["stats"]
        extra = {}
        if hasattr(self.model, "calibrate"):
            extra["calibration"] = self.model.calibrate(params, stats, self.valid, self.seed)
        folder = Path(self.settings.out or self.work / "export")
        return export_model(folder, self.config, self.model.entries(params, stats, **extra))
