"""Recipe that makes the models which ship with ORVEL."""
