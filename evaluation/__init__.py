"""Quality figures of the shipped models, measured through the built library's exports."""
