"""Configurations, manifests, cards and measures: what a user's own model depends on."""

import numpy as np
import pytest
from conftest import CONFIGS, MODELS, config

from training import InputError
from training.card import card_text
from training.configuration import check, load_config
from training.corpus import list_files, load_corpus
from training.measures import steady_lines
from training.sources import UNKNOWN, describe_sources, read_sources
from training.weights_file import read_weights

SHIPPED = sorted(path.stem for path in CONFIGS.glob("*.toml"))


@pytest.mark.parametrize(
    ("section", "key", "value", "message"),
    [
        ("model", "hiden", 5, r"\[model\] has an unknown key 'hiden'"),
        ("model", "label_delay", 5, r"\[model\] has an unknown key 'label_delay'"),
        ("model", "version", "0.0.9", r"version must be one of 0.0.1, .*VAD_0.0.1, not '0.0.9'"),
        ("model", "layers", None, r"\[model\] lacks the key 'layers'"),
        ("training", "streams", 0, r"\[training\] streams must not be 0"),
        ("training", "seed", "one", r"\[training\] seed must be of type int, not 'one'"),
        ("training", "room_fade", [0.2, 0.1], "room_fade must be two times"),
        ("stage", "kind", "detect", r"\[\[stage\]\] 1: kind must be mask or output"),
        ("stage", "quality", 0.5, r"\[\[stage\]\] 1 has an unknown key 'quality'"),
        ("stage", "soap", 1, r"\[\[stage\]\] 1 soap must be of type bool"),
        ("keys", "ORVEL_X", 3, r"\[keys\] ORVEL_X must be a text"),
        (None, "stages", [], "the file has an unknown key 'stages'"),
    ],
)
def test_wrong_configurations_name_section_and_key(section, key, value, message):
    settings = config("orvel-16k")
    part = settings if section is None else settings[section]
    part = part[0] if isinstance(part, list) else part
    if value is None:
        del part[key]
    else:
        part[key] = value
    with pytest.raises(InputError, match=message):
        check(settings)


def test_a_file_that_is_no_toml_is_named(tmp_path):
    (tmp_path / "a.toml").write_text("[model\n")
    with pytest.raises(InputError, match=r"a.toml: "):
        load_config(tmp_path / "a.toml")


def manifest(folder, columns, rows):
    folder.mkdir(exist_ok=True)
    (folder / "MANIFEST.tsv").write_text("\n".join("\t".join(row) for row in [columns, *rows]) + "\n")
    return folder


def test_sources_come_from_the_manifest_and_stay_open_where_it_is_silent(tmp_path):
    columns = ("path", "class_or_speaker", "split", "source", "licence")
    rows = [(f"speech/{k}.wav", "a", "train", "AN4 cen4-fash-b", "BSD-2-Clause") for k in range(5)]
    rows += [(f"noise/{k}.wav", "b", "train", "owner/name:file", "CC0-1.0" if k else "") for k in range(5)]
    rows += [
        ("speech/x.wav", "c", "valid", "Heldout 1", "CC BY 4.0"),
        ("noise/y.wav", "d", "valid2", "Unread 2", "MIT"),
    ]
    text = describe_sources(manifest(tmp_path / "full", columns, rows))
    assert "| speech | AN4 | BSD-2-Clause | 5 |" in text and "| noise | owner/name | CC0-1.0 | 4 |" in text
    assert "| noise | owner/name | **not stated** | 1 |" in text
    assert "Heldout" not in text and "Unread" not in text
    silent = manifest(tmp_path / "silent", columns[:3], [row[:3] for row in rows])
    assert describe_sources(silent).strip() == UNKNOWN == read_sources(tmp_path / "own.bin")


def test_a_card_never_claims_the_shipped_sources_for_another_model(tmp_path):
    weights = MODELS / "orvel-ff-v4.bin"
    entries = read_weights(weights)
    shipped = card_text(config("orvel-ff-v4"), entries, weights, "", "", None)
    assert "speechocean762 (CC BY 4.0)" in shipped and "(CC BY 4.0)" in (MODELS / "sources.md").read_text()
    own = tmp_path / "orvel-ff-v4.bin"
    own.write_bytes(weights.read_bytes())
    card = card_text(config("orvel-ff-v4"), entries, own, "", "", None)
    assert "**Not stated.**" in card and "speechocean" not in card and "700 speakers" not in card
    own.with_suffix(".sources.md").write_text("Recorded in our own office, our own licence.\n")
    assert "our own office" in card_text(config("orvel-ff-v4"), entries, own, "", "", None)


def test_only_the_named_split_is_read(tmp_path):
    import soundfile

    rows = []
    for k, split in enumerate(["train"] * 4 + ["valid", "valid2"]):
        for kind in ("speech", "noise"):
            path = tmp_path / kind / f"{k}.flac"
            path.parent.mkdir(exist_ok=True)
            wave = np.random.default_rng(k).normal(0.0, 0.1, 8000)
            soundfile.write(path, np.zeros(8000) if k == 3 else wave, 8000)
            rows.append((f"{kind}/{k}.flac", kind, split))
    rows.append(("speech/gone.wav", "a", "train"))
    (tmp_path / "rir").mkdir()
    for name, height in (("hall_large_left", 0.5), ("hall_large_right", 0.25), ("cellar_one", 1.0)):
        soundfile.write(tmp_path / "rir" / f"{name}.wav", np.r_[np.zeros(20), height, 0.1 * np.ones(300)], 8000)
        rows.append((f"rir/{name}.wav", "room", "train"))
    manifest(tmp_path, ("path", "class_or_speaker", "split"), rows)
    said = []
    corpus = load_corpus(tmp_path, 8000, "train", said.append)
    assert [clip.name for clip in corpus.speech] == [f"speech/{k}.flac" for k in range(3)], "silent, held out: left out"
    assert len(said) == 1 and "skipped" in said[0] and "gone.wav" in said[0]
    assert {room: len(responses) for room, responses in corpus.rir.items()} == {"hall_large": 2, "cellar_one": 1}
    assert len(load_corpus(tmp_path, 8000, "valid").noise) == 1
    # Without the manifest the splits come from the names, and neither is empty.
    (tmp_path / "MANIFEST.tsv").unlink()
    splits = {(row["path"].split("/")[0], row["split"]) for row in list_files(tmp_path)}
    assert splits >= {("speech", "train"), ("speech", "valid"), ("noise", "train"), ("noise", "valid")}


def test_a_steady_tone_of_the_outputs_own_is_a_line(speechlike):
    rate = 16000
    speech = speechlike(rate, 6.0) / 32768.0 * (np.arange(6 * rate) % rate < 0.6 * rate)
    noise = np.random.default_rng(1).normal(0.0, 1.0, len(speech))
    noise *= np.linalg.norm(speech) / np.linalg.norm(noise)
    # One that the input holds as well is not.
    noisy = speech + 0.02 * noise
    tone = 1e-3 * np.sin(2 * np.pi * 1437.5 * np.arange(len(speech)) / rate)
    quiet = speech + 0.002 * noise
    ((hertz, level), *others) = steady_lines(quiet + tone, noisy, speech, rate)
    assert not others and abs(hertz - 1437.5) < 32.0 and -50.0 < level < -20.0
    assert not steady_lines(quiet, noisy, speech, rate)
    assert not steady_lines(quiet + tone, noisy + 20.0 * tone, speech, rate)
    silence = np.zeros_like(speech)
    assert steady_lines(0.1 * noise + 50.0 * tone, noise, silence, rate)
