"""The installed plugins in Debian's hosts, on a real recording: what comes out is what `orvel clean` gives."""

import os
import re
import signal
import subprocess
import time
from contextlib import contextmanager
from pathlib import Path

import numpy as np
import pytest
import soundfile

from samples.noisy_speech import RATE, load_speech, speaking, ventilation, write_wav

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("ORVEL_BUILD", ROOT / "build" / "plugins")).resolve()
SECONDS = 8
LATENCY = 655  # samples of a session at 16 kHz and of 10 ms that are gathered
PCM = "audio/x-raw,format=S16LE"
GST = (
    "gst-launch-1.0 -q filesrc location=in.wav ! wavparse ! audioconvert ! {} ! "
    f"audioconvert dithering=none ! {PCM} ! wavenc ! filesink location=out.wav"
)
# Each reads in.wav and writes out.wav with the plugin's delay left in.
HOSTS = {
    "applyplugin": "applyplugin in.wav out.wav orvel.so orvel_mono 100 0 0.55 300 0",
    "lv2apply": "lv2apply -i in.wav -o out.wav urn:orvel:mono",
    "ffmpeg ladspa": "ffmpeg -v error -i in.wav -af ladspa=file=orvel:plugin=orvel_mono out.wav",
    "ffmpeg lv2": r"ffmpeg -v error -i in.wav -af 'lv2=p=urn\\:orvel\\:mono' out.wav",
    "gstreamer ladspa": GST.format("ladspa-orvel-so-orvel-mono"),
    "gstreamer lv2": GST.format("urn-orvel-mono enabled=true"),
}


class Bench:
    """A folder with the recording, the plugins as installed, and what the hosts need to find them."""

    def __init__(self, folder: Path):
        self.folder = folder
        self.prefix = folder / ".local"  # as in the documents
        for part in ("ladspa", "lv2", "models"):
            self.run(f"cmake --install {BUILD} --prefix {self.prefix} --component orvel-{part}")
        self.speech = load_speech()[: SECONDS * RATE]
        noise = ventilation(len(self.speech))
        write_wav(folder / "in.wav", self.speech + noise * (0.4 * np.std(self.speech) / np.std(noise)))
        self.input = self.read("in.wav")

    def environment(self) -> dict:
        added = {
            "LADSPA_PATH": self.prefix / "lib/ladspa",
            "LV2_PATH": f"{self.prefix / 'lib/lv2'}:/usr/lib/lv2",
            "GST_REGISTRY": self.folder / "gstreamer-registry",
            "HOME": self.folder,
        }
        kept = {name: value for name, value in os.environ.items() if name != "ORVEL_MODEL_DIR"}
        return kept | {name: str(value) for name, value in added.items()}

    def run(self, command: str) -> str:
        done = subprocess.run(
            ["bash", "-c", command],
            cwd=self.folder,
            env=self.environment(),
            capture_output=True,
            text=True,
            timeout=120,
        )
        assert done.returncode == 0, f"{command}\n{done.stdout}{done.stderr}"
        return done.stdout + done.stderr

    def read(self, name: str) -> np.ndarray:
        """Samples in steps of 16 bits."""
        return soundfile.read(self.folder / name)[0] * 32768.0

    def cleaned(self, lead: int = 0) -> np.ndarray:
        """What `orvel clean` makes of the recording after so many samples of silence."""
        write_wav(self.folder / "lead.wav", np.concatenate([np.zeros(lead), self.input / 32768.0]))
        models = self.prefix / "share/orvel/models"
        self.run(f"{BUILD / 'tools/orvel'} clean --force --model-dir {models} lead.wav cleaned.wav")
        return self.read("cleaned.wav")[lead:]


@pytest.fixture(scope="module")
def bench(tmp_path_factory) -> Bench:
    return Bench(tmp_path_factory.mktemp("plugins"))


def assert_equal(sound: np.ndarray, cleaned: np.ndarray, latency: int) -> None:
    """Within a step of 16 bits; hosts that stop with their input lose the last samples."""
    assert len(sound) >= len(cleaned) - 16
    sound = sound[latency:]
    count = min(len(sound), len(cleaned))
    assert np.abs(sound[:count] - cleaned[:count]).max() <= 1.01


@pytest.mark.parametrize("host", HOSTS)
def test_a_file_comes_out_as_the_command_cleans_it(bench, host):
    (bench.folder / "out.wav").unlink(missing_ok=True)
    bench.run(HOSTS[host])
    assert_equal(bench.read("out.wav"), bench.cleaned(), LATENCY)


def test_lines_of_the_document_work(bench):
    bench.run("ffmpeg -v error -i in.wav -af 'pan=stereo|c0=c0|c1=c0' stereo.wav")
    lines = (ROOT / "docs/plugins.md").read_text().splitlines()
    exports = " && ".join(line for line in lines if line.startswith("export "))
    commands = [line for line in lines if re.match("ffmpeg|gst-launch", line)]
    assert len(commands) == 5 and exports.count("$HOME") == 2
    for command in commands:
        (bench.folder / "out.wav").unlink(missing_ok=True)
        bench.run(f"unset LADSPA_PATH LV2_PATH && {exports} && {command}")
        sound = bench.read("out.wav").reshape(len(bench.input), -1)
        assert 0.5 < np.std(sound) / np.std(bench.input) < 0.99, command


def test_stereo_keeps_both_sides_alike(bench):
    bench.run("ffmpeg -v error -i in.wav -af 'pan=stereo|c0=c0|c1=c0,ladspa=file=orvel:plugin=orvel_stereo' both.wav")
    left, right = bench.read("both.wav").T
    assert np.abs(left - right).max() <= 1
    # Quieter in the lead-in by as much as one channel is, and the speech is still there.
    cleaned = bench.cleaned()
    level = lambda sound: 20 * np.log10(np.std(sound) + 1e-9)  # noqa: E731
    pause, talk = slice(RATE // 2, RATE), slice(RATE, None)
    assert level(left[pause]) < level(bench.input[pause]) - 10
    assert abs(level(left[talk]) - level(cleaned[talk])) < 0.5


def test_gate_mutes_what_is_not_speech(bench):
    controls = "100 1 0.55 300 0"
    bench.run(f"applyplugin in.wav gated.wav orvel.so orvel_mono {controls}")
    latency = LATENCY
    gated, plain = bench.read("gated.wav")[latency:], bench.cleaned()[: -latency or None]
    assert np.mean(np.abs(gated[RATE // 2 : RATE]) == 0) > 0.5  # the noise before the first word
    voiced = speaking(bench.speech)[: len(gated)]
    assert np.sum(gated[voiced] ** 2) > 0.98 * np.sum(plain[voiced] ** 2)


def test_files_are_what_hosts_expect(bench):
    lv2 = bench.prefix / "lib/lv2/orvel.lv2"
    # Not with other plugins that are installed: they have errors of their own.
    specified = bench.run("grep -L lv2:Plugin /usr/lib/lv2/*/manifest.ttl").split()
    files = " ".join(f"{os.path.dirname(manifest)}/*.ttl" for manifest in specified)
    assert "Found 0 errors" in bench.run(f"sord_validate {files} {lv2}/*.ttl")
    assert re.search(r"[0-9.]+ urn:orvel:stereo", bench.run("lv2bench urn:orvel:stereo"))
    for label in ("orvel_mono", "orvel_stereo"):
        assert "Normal or Hard Real-Time" in bench.run(f"analyseplugin orvel.so {label}")
    for plugin, name in ((bench.prefix / "lib/ladspa/orvel.so", "ladspa"), (lv2 / "orvel.so", "lv2")):
        shown = bench.run(f"nm -D --defined-only {plugin}").split()[2:]
        assert shown == [f"{name}_descriptor"]
        assert "liborvel" not in bench.run(f"objdump -p {plugin}")


@contextmanager
def running(bench: Bench, command: str, **environment):
    process = subprocess.Popen(
        command.split(), cwd=bench.folder, env=bench.environment() | environment, stdin=subprocess.PIPE
    )
    try:
        yield process
    finally:
        process.send_signal(signal.SIGINT)
        process.wait(30)


def wait_for(bench: Bench, command: str, words: str, environment: dict, seconds: float = 20) -> None:
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        done = subprocess.run(
            command.split(), env=bench.environment() | environment, cwd=bench.folder, capture_output=True, text=True
        )
        if words in done.stdout:
            return
        time.sleep(0.1)
    raise AssertionError(f"{command}: no {words}\n{done.stdout}{done.stderr}")


def test_jalv_tells_jack_the_latency(bench):
    own = {"JACK_NO_AUDIO_RESERVATION": "1", "JACK_DEFAULT_SERVER": f"orvel-{os.getpid()}"}
    server = f"jackd --no-realtime -n {own['JACK_DEFAULT_SERVER']} -d dummy -r {RATE} -p 512"
    with running(bench, server, **own):
        wait_for(bench, "jack_lsp", "system:playback_1", own)
        with running(bench, "jalv urn:orvel:mono", **own):
            wait_for(bench, "jack_lsp -l", f"latency = [ {LATENCY} {LATENCY} ]", own)


def test_pipewire_source(bench):
    """The configuration that is installed, in a session of its own whose microphone is a null sink's monitor."""
    session = bench.folder / "session"
    (session / "pipewire/pipewire.conf.d").mkdir(parents=True)
    session.chmod(0o700)
    (session / "pipewire/pipewire.conf.d/test.conf").write_text(
        "context.properties = { default.clock.rate = 16000  default.clock.allowed-rates = [ 16000 ] }\n"
        "context.objects = [ { factory = adapter  args = { factory.name = support.null-audio-sink\n"
        "  node.name = room  media.class = Audio/Sink  audio.position = [ MONO ] } } ]\n"
    )
    installed = (bench.prefix / "share/orvel/pipewire-source.conf").read_text()
    changed = installed.replace("node.passive = true", "target.object = room  stream.capture.sink = true")
    (session / "pipewire/source.conf").write_text(changed.replace("= 48000", "= 16000"))
    own = {name: str(session) for name in ("XDG_RUNTIME_DIR", "XDG_STATE_HOME", "XDG_CONFIG_HOME")}
    listed = ("pw-link -l", "pw-cli ls Node")
    recorder = "pw-cat -r --target orvel_source --rate 16000 --channels 1 --format f32 live.wav"
    with (
        running(bench, "dbus-daemon --session --nofork --address=unix:path=bus", **own),
        running(bench, "pipewire", **own),
    ):
        own["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={bench.folder}/bus"
        wait_for(bench, listed[1], '"room"', own)
        with running(bench, "wireplumber", **own), running(bench, "pipewire -c source.conf", **own):
            wait_for(bench, listed[0], "orvel_input:input_MONO", own)
            errors = {}
            for _ in range(3):  # a busy machine drops blocks
                with running(bench, recorder, **own):
                    wait_for(bench, listed[0], "pw-cat:input_MONO", own)
                    bench.run(
                        " ".join(f"{name}={value}" for name, value in own.items())
                        + " pw-cat -p --target room --rate 16000 --channels 1 in.wav"
                    )
                    time.sleep(0.5)
                errors = distances_from_cleaned(bench, bench.read("live.wav"))
                if min(errors.values()) <= 1.01:
                    return
    raise AssertionError(errors)


def distances_from_cleaned(bench, live):
    """Largest difference between a recording and `orvel clean`, by the samples of silence before the sound."""
    cleaned = bench.cleaned()
    count = len(cleaned) - 2 * 1024  # the player stops within its last blocks
    lag = int(np.argmax(np.correlate(live, cleaned[: 2 * RATE], "valid")))
    # The model remembers how long it was silent, which began when the recorder was linked, whole blocks
    # before it recorded.
    quantum = 256
    silences = [lag - LATENCY + quantum * block for block in range(0, 13)]
    return {
        silence: np.abs(live[lag:][:count] - bench.cleaned(silence)[:count]).max()
        for silence in silences
        if silence >= 0
    }
