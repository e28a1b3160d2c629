"""DNSMOS' estimate of overall opinion as a differentiable function of the wave.

The network of the ``speechmos`` package (speech, background and overall opinion of 16 kHz audio) is
read from its ONNX file and run in jax, layer by layer. It ends in a maximum over time, so a short
wave scores as the same wave repeated up to the nine seconds that the package asks for.
"""

from __future__ import annotations

from functools import cache
from importlib.resources import files

import jax
import jax.numpy as jnp
import numpy as np

from training.chain import frames

RATE = 16000
FRAME, HOP = 320, 160
# Raw outputs to opinion scores, highest power first: P.835 speech, background, overall.
MAPPINGS = (
    (-0.08397278, 1.22083953, 0.0052439),
    (-0.13166888, 1.60915514, -0.39604546),
    (-0.06766283, 1.11546468, 0.04602535),
)
LAYOUT = ("NHWC", "HWIO", "NHWC")
POOLED = (3, 4, 5)  # convolutions followed by a maximum over 2 x 2


@cache
def load_network() -> dict:
    """The weights of the package's network: transform, convolutions (HWIO) and dense layers."""
    import onnx

    path = files("speechmos") / "dnsmos_models" / "sig_bak_ovr.onnx"
    graph = onnx.load(str(path)).graph
    values = {v.name: onnx.numpy_helper.to_array(v) for v in graph.initializer}
    for node in graph.node:
        if node.op_type == "Constant":
            values[node.output[0]] = onnx.numpy_helper.to_array(node.attribute[0].t)
    convolutions, dense, transform = [], [], []
    for node in graph.node:
        if node.op_type == "Conv" and len(node.input) == 2:
            transform.append(values[node.input[1]][:, :, 0].T)
        elif node.op_type == "Conv":
            kernel, bias = (values[name] for name in node.input[1:])
            convolutions.append((kernel.transpose(2, 3, 1, 0), bias))
        elif node.op_type == "MatMul":
            dense.append([values[node.input[1]]])
        elif node.op_type == "Add" and dense and len(dense[-1]) == 1:
            dense[-1].append(values[node.input[1]])
    names = {n.op_type: [values[i] for i in n.input if i in values] for n in graph.node}
    network = {
        "transform": transform,
        "convolutions": convolutions,
        "dense": dense,
        "least": float(names["Max"][0]),
        "divisor": float(names["Div"][0]),
    }
    return jax.tree.map(lambda v: np.asarray(v, np.float32), network)


def resampled(wave: jax.Array, rate: int) -> jax.Array:
    """(waves, samples) at ``rate`` to the network's rate, by cutting or padding the spectrum."""
    if rate == RATE:
        return wave
    count = wave.shape[1] * RATE // rate
    spectrum = jnp.fft.rfft(wave)[:, : count // 2 + 1]
    return jnp.fft.irfft(spectrum, count) * (RATE / rate)


def opinion(network: dict, wave: jax.Array) -> jax.Array:
    """(waves, 3) speech, background and overall opinion of (waves, samples), full scale 1."""
    count = (wave.shape[1] - FRAME) // HOP + 1
    halves = frames(wave[:, : (count + 1) * HOP], HOP)
    real, imaginary = (halves @ matrix for matrix in network["transform"])
    power = jnp.square(real) + jnp.square(imaginary)
    level = jnp.log(jnp.maximum(power, network["least"])) / network["divisor"]
    x = level[:, :, :, None]
    for index, (kernel, bias) in enumerate(network["convolutions"]):
        x = jax.lax.conv_general_dilated(x, kernel, (1, 1), ((1, 1), (1, 1)), dimension_numbers=LAYOUT)
        x = jax.nn.relu(x + bias)
        if index in POOLED:
            # As reshaped maxima: their gradient is far cheaper than that of a window reduction.
            x = x[:, : x.shape[1] // 2 * 2, : x.shape[2] // 2 * 2]
            x = x.reshape(x.shape[0], x.shape[1] // 2, 2, x.shape[2] // 2, 2, x.shape[3]).max(axis=(2, 4))
    x = x.max(axis=(1, 2))
    for index, (matrix, bias) in enumerate(network["dense"]):
        x = x @ matrix + bias
        if index + 1 < len(network["dense"]):
            x = jax.nn.relu(x)
    return jnp.stack([jnp.polyval(jnp.array(c), x[:, k]) for k, c in enumerate(MAPPINGS)], axis=1)
