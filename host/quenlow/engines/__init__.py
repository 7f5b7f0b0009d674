"""The decision engine: questions put to a decision model, within the user's limits."""
