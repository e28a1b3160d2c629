// The module has no code of its own.
