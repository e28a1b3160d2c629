"""`orvel clean`: what comes out lies where it lay in the input; outputs are complete or absent."""

import os
import signal
import subprocess
import time

import numpy as np
import pytest
from conftest import all_pass, best_lag, closed, power_db, snr_db, speech


# The models are all-pass: at a model's own rate nothing is lost but rounding; converted rates lose the top
# of the band; at 12 and 24 kHz and above 32 kHz everything over the model's band is gone.
@pytest.mark.parametrize(
    ("rate", "channels", "least_snr"),
    [(8000, 1, 60), (11025, 2, 15), (12000, 1, 3), (16000, 6, 60), (22050, 1, 15), (32000, 2, 60), (37800, 1, 3)]
    + [(44100, 2, 3), (48000, 1, 3), (96000, 1, 3), (192000, 1, 3)],
)
def test_output_is_aligned_and_as_long(folder, rate, channels, least_snr):
    sound = speech(rate, 1.2371, channels)  # fills no frame and no block
    folder.save("in.wav", sound, rate)
    result = folder.run("orvel clean in.wav out.wav")
    assert (result.out, result.err) == (b"", "")
    out = folder.load("out.wav")
    assert out.shape == sound.shape
    for c in range(channels):
        assert best_lag(sound[:, c], out[:, c]) == 0
        assert snr_db(sound[:, c], out[:, c]) > least_snr


def test_shortest_inputs_keep_their_length(folder):
    for frames in (0, 1, 79, 161):
        folder.save("in.wav", speech(16000, 1.0)[:frames], 16000)
        folder.run("orvel clean -f in.wav out.wav")
        assert len(folder.load("out.wav")) == frames


def test_the_model_nearest_below_the_recordings_rate(folder):
    def chosen(rate):
        folder.save("in.wav", speech(rate, 0.1), rate)
        return folder.run("orvel clean -vf in.wav out.wav").err.partition("cleaned by ")[2].split()[0]

    rates = {8000: "orvel-8k", 11025: "orvel-8k", 24000: "orvel-16k", 44100: "orvel-32k"}
    assert {rate: chosen(rate) for rate in rates} == rates
    (folder / "models/orvel-8k.ctl").unlink()
    assert chosen(8000) == "orvel-16k"


# The model that the rate asks for is damaged: no narrower one takes its place unless that is wished.
@pytest.mark.parametrize(
    ("damage", "reason"),
    [
        ("truncate -s 50000 orvel-32k.bin", "orvel-32k.bin"),
        ("rm orvel-32k.bin", "orvel-32k.bin"),
        ("cp orvel-vad.bin orvel-32k.bin", "is for voice activity, not for cleaning"),
        ("> orvel-32k.ctl", "names no weight file"),
        ("ln -sf nowhere orvel-32k.ctl", "o such file"),
        ("rm orvel-32k.ctl; mkdir orvel-32k.ctl", "is not a regular file"),
        ("mv orvel-32k.bin ../..; echo WEIGHT ../../orvel-32k.bin > orvel-32k.ctl", "../../orvel-32k.bin"),
    ],
)
def test_a_damaged_model_is_not_passed_over_in_silence(folder, damage, reason):
    folder.save("in.wav", speech(48000, 0.3), 48000)
    folder.run(f"cd models; {damage}")
    for option in ("", "--set ORVEL_SMOOT_COEF_v0_0_2=0.5"):
        commands = [f"orvel clean {option} in.wav out.wav"]
        if (folder / "models/orvel-32k.ctl").is_file():
            commands.append(f"orvel clean {option} --model orvel-32k in.wav out.wav")
        for command in commands:
            folder.refuses([(command, 5, "orvel-32k.ctl: "), (command, 5, reason)])
        assert not (folder / "out.wav").exists()
        text = folder.run(f"orvel clean -fv {option} --model auto in.wav auto.wav").err
        assert "passed over: " in text and "cleaned by orvel-16k" in text


def test_attenuation_limit_and_settings_reach_the_cleaner(folder):
    # A mask of 0.5 squares to 0.25: 12 dB down. Smoothing with 1 keeps that, the limit raises it.
    folder.add_model("half", all_pass(16000, bias=0.0), "ORVEL_SMOOT_COEF_v0_0_2 0.001\n")
    sound = speech(16000, 1.0)
    folder.save("in.wav", sound, 16000)

    def change(options):
        folder.run(f"orvel clean -f --model half {options} in.wav out.wav")
        return power_db(folder.load("out.wav")) - power_db(sound)

    key = "--set ORVEL_SMOOT_COEF_v0_0_2="
    assert change("") < -25.0  # the control file's key holds the gains down
    assert change(f"{key}1") == pytest.approx(-12.04, abs=0.1)
    assert change(f"{key}0.5 {key}1") == pytest.approx(-12.04, abs=0.1)
    assert change(f"{key}1 --attenuation-limit 6") == pytest.approx(-6.0, abs=0.1)


def test_the_tail_is_cleaned_where_digital_silence_is_skipped(folder):
    # A closed gate, which skipped frames would pass by.
    folder.add_model("closed", closed(), "ORVEL_SKIP_FRAME_v0_0_5 TRUE\n")
    folder.save("in.wav", speech(16000, 0.5), 16000)
    folder.run("orvel clean --model closed in.wav out.wav")
    assert power_db(folder.load("out.wav")) < -90.0


def test_says_only_what_it_is_asked_for(folder):
    folder.save("in.wav", speech(16000, 0.3, 2), 16000)
    keys = "--set ORVEL_SMOOT_COEF_v0_0_2=7 --set ORVEL_TYPO=1"
    words = lambda option: folder.run(f"orvel clean {option} -f --model orvel-16k {keys} in.wav o.wav").err  # noqa: E731
    assert words("--quiet") == ""
    usual = words("-j1")
    assert usual.count("WARNING OF SMOOTH COEF") == 1, "once for both channels"
    assert "ORVEL_TYPO: no cleaner reads this key" in usual
    assert "ENVIRONMENT" not in usual and "cleaned " not in usual
    assert "x real time" in words("--verbose")
    folder.run("orvel clean -q -v a b", code=2)


def test_bad_inputs_do_not_disturb_the_others(folder):
    names = [f"{letter}.wav" for letter in "abcdefgh"]
    for i, name in enumerate(names):
        if i % 2:
            (folder / name).write_bytes(b"RIFF")
        else:
            folder.save(name, speech(48000 if i % 4 else 16000, 0.5 + 0.1 * i), 48000 if i % 4 else 16000)
    (folder / "out").mkdir()
    # A directory as the last word works like --out-dir.
    command = f"orvel clean --jobs 4 {' '.join(names)} out"
    text = folder.run(command, code=6).err
    assert "b.wav: no audio" in text and "4 of 8 inputs failed" in text
    assert folder.listed("out") == "a.wav c.wav e.wav g.wav"
    folder.run("for i in a c e g; do orvel clean --out-dir new/folder $i.wav; done; diff -r out new/folder")
    # Every output is there already.
    before = (folder / "out/a.wav").stat().st_mtime_ns
    folder.run(command, code=6)
    assert (folder / "out/a.wav").stat().st_mtime_ns == before


def test_inputs_cleaned_together_give_what_each_gives(folder):
    gates = closed()
    gates["WeightNonLinear"][-1] = np.random.default_rng(3).uniform(-2.0, 2.0, (12, 24))
    gates["BaesNonLinear"][-1][:] = 0.5
    folder.add_model("gates", gates)
    kinds = [(16000, 1, 1.0), (16000, 2, 0.7), (48000, 1, 1.3), (22050, 1, 0.5), (16000, 1, 0.001)]
    for i, (rate, channels, seconds) in enumerate(kinds):
        folder.save(f"{i}.wav", speech(rate, seconds, channels), rate)
    folder.run("orvel clean --model gates --out-dir together ?.wav")
    folder.run("for i in ?.wav; do orvel clean --model gates --out-dir alone $i || exit; done")
    for i in range(len(kinds)):
        together, alone = folder.load(f"together/{i}.wav"), folder.load(f"alone/{i}.wav")
        assert together.shape == alone.shape
        assert np.abs(together - alone).max() < 1.5 / 32768, f"{i}.wav"


def test_refused_command_lines_say_why(folder):
    for name in ("a.wav", "b.wav", "sub/a.wav"):
        (folder / "sub").mkdir(exist_ok=True)
        folder.save(name, speech(16000, 0.2), 16000)
    (folder / "out").mkdir()
    folder.refuses([
        ("orvel claen a.wav o.wav", 2, "no command 'claen'; did you mean 'clean'?"),
        ("orvel remove a.wav o.wav", 2, "no command 'remove'; there are: clean, vad, report, info, models, keys"),
        ("orvel clean a.wav", 2, "an input and an output"),
        ("orvel clean a.wav a.wav", 2, "is input and output at once"),
        ("orvel clean --force a.wav $PWD/./a.wav", 2, "is input and output at once"),
        ("orvel clean a.wav b.wav", 4, "exists already; --force"),
        ("orvel clean a.wav b.wav none", 2, "need a directory"),
        ("orvel clean --out-dir a.wav b.wav", 4, "cannot create"),
        ("orvel clean --out-dir out a.wav sub/a.wav", 2, "two inputs"),
        ("orvel clean --out-dir out -", 2, "name an output file"),
        ("orvel clean a.wav none/o.wav", 4, "cannot create a file"),
        ("orvel clean a.wav o.xyz", 2, "no audio format is known"),
        ("orvel clean --container wav a.wav o.wav", 2, "for pipes only"),
        ("orvel clean --set KEY a.wav o.wav", 2, "is not KEY=VALUE"),
        ("orvel clean --set 'A B=1' a.wav o.wav", 2, "one word"),
        ("orvel clean --set 'A= ' a.wav o.wav", 2, "the value is empty"),
        ("orvel clean --set WEIGHT=x.bin a.wav o.wav", 2, "--model"),
        ("orvel clean --attenuation-limit -1 a.wav o.wav", 2, "attenuation-limit"),
        ("orvel clean --attenuation-limit nan a.wav o.wav", 2, "attenuation-limit"),
        ("orvel clean --model nobody a.wav o.wav", 5, "no model 'nobody'"),
        ("orvel clean --model orvel-vad a.wav o.wav", 5, "is for voice activity"),
        ("orvel clean - o.wav", 2, "need --rate"),
        ("orvel clean --rate 16000 --format s8 - -", 2, "--format"),
    ])  # fmt: skip
    assert folder.listed() == "a.wav b.wav models out sub" and folder.listed("out") == ""


def test_force_replaces_the_file_behind_a_link_and_keeps_its_mode(folder):
    folder.save("a.wav", speech(16000, 0.2), 16000)
    folder.run("echo old > real.wav; chmod 640 real.wav; ln -s real.wav link.wav; orvel clean --force a.wav link.wav")
    assert (folder / "link.wav").is_symlink() and len(folder.load("real.wav")) == 3200
    assert (folder / "real.wav").stat().st_mode & 0o777 == 0o640


def writes_into(process, path):
    """True when the process has a file open in a folder, be it one without a name."""
    try:
        return any(os.readlink(entry.path).startswith(str(path)) for entry in os.scandir(f"/proc/{process.pid}/fd"))
    except OSError:
        return False


def test_what_ends_it_early_leaves_nothing_behind(folder):
    (folder / "out").mkdir()
    folder.save("long.wav", np.tile(speech(48000, 2.0, 2), (150, 1)), 48000)  # not done before the signal comes
    for number, code in ((signal.SIGINT, 130), (signal.SIGTERM, 130), (signal.SIGKILL, -signal.SIGKILL)):
        command = ["orvel", "clean", "long.wav", "out/o.wav"]
        process = subprocess.Popen(command, cwd=folder.path, env=folder.environment(), stderr=subprocess.DEVNULL)
        until = time.monotonic() + 20.0
        while not writes_into(process, folder / "out") and time.monotonic() < until:
            time.sleep(0.005)
        assert writes_into(process, folder / "out"), "no output was begun"
        process.send_signal(number)
        assert process.wait() == code
        assert folder.listed("out") == ""
