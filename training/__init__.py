"""Training and export of the models, with an emulation of the library's signal chain."""


class InputError(ValueError):
    """Data, a configuration or a file that cannot be used; the text says what is wrong and where."""


class WorkerDied(RuntimeError):
    """A worker process has ended before the run; the text holds its reason."""
