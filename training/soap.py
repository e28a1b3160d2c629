"""Adam in the basis in which the gradients of a matrix are uncorrelated.

SOAP, N. Vyas et al., "SOAP: Improving and Stabilizing Shampoo using Adam", 2024, arXiv 2409.11321.
Neighbouring bands and frames say nearly the same, so that the gradient of an input matrix lies almost
in a few directions. Adam alone goes along these and hardly ever turns to the rest.
"""

from __future__ import annotations

import jax
import jax.numpy as jnp

# Decay of the second moments of rows and columns, and the updates between two turns of the basis.
MOMENT_DECAY = 0.98
TURN_EVERY = 10


def init_block(rows: int, columns: int) -> dict:
    """State for one matrix of this shape."""
    return {
        "rows": jnp.zeros((rows, rows)),
        "columns": jnp.zeros((columns, columns)),
        "row_basis": jnp.eye(rows),
        "column_basis": jnp.eye(columns),
        "v": jnp.zeros((rows, columns)),
    }


def block_step(state: dict, grad: jax.Array, mean: jax.Array, count: jax.Array, decay: float) -> tuple:
    """Direction to go against, and the new state.

    ``mean`` is the average of the gradients without its bias, ``count`` the update counted from 1 and
    ``decay`` that of the squares.
    """
    rows = MOMENT_DECAY * state["rows"] + (1.0 - MOMENT_DECAY) * grad @ grad.T
    columns = MOMENT_DECAY * state["columns"] + (1.0 - MOMENT_DECAY) * grad.T @ grad

    def turned(_):
        return _turn(rows, state["row_basis"]), _turn(columns, state["column_basis"])

    left, right = jax.lax.cond(
        count % TURN_EVERY == 1.0, turned, lambda _: (state["row_basis"], state["column_basis"]), None
    )
    v = decay * state["v"] + (1.0 - decay) * jnp.square(left.T @ grad @ right)
    step = left.T @ mean @ right / (jnp.sqrt(v / (1.0 - decay**count)) + 1e-8)
    state = {"rows": rows, "columns": columns, "row_basis": left, "column_basis": right, "v": v}
    return left @ step @ right.T, state


def _turn(moments: jax.Array, basis: jax.Array) -> jax.Array:
    """One step of orthogonal iteration towards the eigenvectors of ``moments``."""
    return jnp.linalg.qr(moments @ basis + 1e-12 * basis)[0]
