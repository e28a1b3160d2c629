"""`orvel info`, `models`, `keys` and the help."""

import json
import re

from conftest import all_pass, closed, detector


def weights_of(model):
    """Numbers that the network multiplies or adds: no version reads the last layer of one of its branches."""
    unused = "NonLinear" if "Test_MINMAX" in model else "Linear"
    count = lambda name: sum(array.size for array in model[name])  # noqa: E731
    names = [part + branch for part in ("Weight", "Baes") for branch in ("Linear", "NonLinear", "GRU")]
    return sum(count(name) for name in names) - sum(model[part + unused][-1].size for part in ("Weight", "Baes"))


def test_tells_what_a_model_holds(folder):
    folder.add_model("five", closed(), "ORVEL_SMOOT_COEF_v0_0_5 0.6\n")
    held = {"version": "0.0.5", "sample_rate": 16000, "frame_length": 512, "step": 256, "latency": 496}
    held |= {"weights": weights_of(closed())}
    for name in ("five", "models/five.ctl"):
        document = json.loads(folder.run(f"orvel info --json {name}").out)
        assert {name: document[name] for name in held} == held
        assert document["keys"]["ORVEL_SMOOT_COEF_v0_0_5"] == "0.6"
    assert f"weights       {held['weights']}\n" in folder.run("orvel info five").text


def test_takes_weight_files_and_says_why_a_model_is_refused(folder):
    assert "32000 Hz" in folder.run("orvel info models/orvel-32k.bin").text
    folder.add_model("odd-bins", all_pass(16000) | {"CoefficientNumber": 200})
    assert "CoefficientNumber" in folder.run("orvel info odd-bins", code=5).text


def test_damaged_files_are_named(folder):
    files = {"cut.bin": "\7", "empty.bin": "", "lost.ctl": "WEIGHT nothing.bin\n", "keys.ctl": "KEY value\n"}
    for name, text in files.items():
        (folder / name).write_text(text)
    named = {**{name: name for name in (*files, "missing.bin")}, "lost.ctl": "nothing.bin"}
    folder.refuses([(f"orvel info $PWD/{name}", 5, f"{file}: ") for name, file in named.items()])
    folder.refuses([("orvel info nobody", 5, "no model 'nobody'")])


def test_lists_models_and_keys(folder):
    models = json.loads(folder.run("orvel models --json").out)
    assert [model["name"] for model in models] == ["orvel-16k", "orvel-32k", "orvel-8k", "orvel-vad"]
    assert models[3]["weights"] == weights_of(detector())
    keys = json.loads(folder.run("orvel keys --json").out)
    assert len(keys) == 19 and keys[0]["names"][4] == "ORVEL_SMOOT_COEF_v0_0_5"
    values = {key["stem"].removeprefix("ORVEL_"): key["values"] for key in keys}
    condition = "read only with ORVEL_ENABLE_CLIP_FIX on in versions 0.0.1, 0.0.2"
    assert (
        values
        | {
            "SMOOT_COEF": "0 < x <= 1, default 1",
            "ENABLE_RESCALE": "TRUE or off, default TRUE",
            "WINDOW_AFTER": "TRIANGL or HAMMING, default TRIANGL; read only with ORVEL_ENABLE_WINDOW_AFTER on",
            "CLIP_FIX_POINT": f"1 to 32768, default 25000; whole in versions 0.0.1, 0.0.2; {condition}",
            "VOLUME_UP_PERCENT": "0 < x < 200, default none; read only with ORVEL_VOLUME_UP on",
            "COMPRESS_RATE": "a whole number, default 1 in version 0.0.4, 2 in version 0.0.5",
        }
        == values
    )


def test_help_says_what_belongs_to_a_command(folder):
    folder.run("orvel", code=2)
    folder.run("orvel --version")
    said = lambda words: folder.run(f"orvel {words} --help").text  # noqa: E731
    assert "Exit codes" in said("") and "Examples" not in said("")
    assert "orvel clean talk.wav" in said("clean") and "orvel clean" not in said("vad")
    assert "Examples" not in said("keys")


def test_completions_know_every_option(folder):
    """What a shell offers, against what the help lists."""
    scripts = {shell: folder.run(f"orvel completion {shell}").text for shell in ("bash", "zsh", "fish")}
    for command in ("", "clean", "vad", "report", "info", "models", "keys"):
        options = set(
            re.findall(r"(?<![\w-])--([a-z][a-z-]*)", folder.run(f"orvel {command} --help").text.split("Options:")[1])
        )
        assert options
        for shell, text in scripts.items():
            lines = [line for line in text.splitlines() if shell == "bash" or command in line] or [text]
            for option in options:
                mark = f"-l {option} " if shell == "fish" else f"--{option}"
                assert any(mark in line for line in lines) or mark in text, f"{shell}: {command} --{option}"
    offers = [
        ("orvel cl", "clean"), ("orvel clean --att", "--attenuation-limit"), ("orvel clean --container ", "raw wav"),
        ("orvel --verbose vad --js", "--json"), ("orvel info orvel-3", "orvel-32k"), ("orvel completion f", "fish"),
        ("orvel clean --rate 4", ""),
    ]  # fmt: skip
    (folder / "orvel.bash").write_text("compopt() { :; }\n" + scripts["bash"])
    for line, offered in offers:
        words = line.split(" ")
        listed = " ".join(f"'{word}'" for word in words)
        script = f"source orvel.bash; COMP_WORDS=({listed}) COMP_CWORD={len(words) - 1}; "
        script += f"_orvel orvel '{words[-1]}' '{words[-2]}'; echo ${{COMPREPLY[*]}}"
        assert folder.run(script).text.strip() == offered, line
    folder.refuses([("orvel completion tcsh", 2, "tcsh")])
